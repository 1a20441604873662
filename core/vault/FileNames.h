#pragma once

#include "support/Date.h"
#include "vault/IMAPMailbox.h"

#include <string>
#include <string_view>

namespace qs::FileNames {

/// A string that is safe as one path component: line breaks, tabs, control characters and the
/// nine characters / \ : * ? " < > | become blanks, runs of blanks fold into one, blanks are
/// trimmed, leading dots dropped (no hidden names), and the result is cut to at most `max`
/// user-perceived characters (grapheme clusters) and `maxBytes` UTF-8 bytes, always on character
/// boundaries. May be empty. Ill-formed UTF-8 in `name` is read as U+FFFD.
///
/// A character made of one of those code points plus combining marks also becomes a blank:
/// on this platform a slash anywhere in a name would split the path.
std::string sanitize(std::string_view name, size_t max, size_t maxBytes);

/// The longest prefix of whole characters (grapheme clusters) whose UTF-8 length is at most
/// `bytes`; `text` itself when it already fits.
std::string truncateUTF8(std::string_view text, size_t bytes);

/// "{yyyy}/{yyyy-MM-dd} {subject} {id}.eml", relative to the folder. The year and the day are
/// those of `date` in the machine's local time zone; an empty subject becomes "(no subject)".
/// `id` is the UID in decimal for IMAP mail.
std::string messagePath(Date date, std::string_view subject, std::string_view id);

/// The directory name of a mailbox: its display name with each hierarchy delimiter replaced by
/// " - " (so nested mailboxes stay one flat folder), made safe; "Folder" when nothing is left.
std::string folderDirectory(const IMAPMailbox& mailbox);

} // namespace qs::FileNames
