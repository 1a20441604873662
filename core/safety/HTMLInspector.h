#pragma once

#include "mime/MailAttachment.h"
#include "safety/HTMLReport.h"

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

/// Looks at a message's HTML without a browser engine: counts remote images, tells tracking
/// pixels from pictures, finds links whose visible text names another site than their target,
/// and makes the document the reader shows. All functions take and give UTF-8 text, are pure,
/// never fail (malformed HTML just gives fewer matches) and may run on any thread.
namespace qs::HTMLInspector {

/// A tag's attributes by lower-case name; values unquoted and entity-decoded.
using TagAttributes = std::map<std::string, std::string, std::less<>>;

/// The attributes of the text of one tag. A later attribute of a name replaces an earlier one.
/// What is left once the name=value pairs are taken out, lower-cased and split at blanks, "<",
/// ">" and "/", is stored under "__bare" joined by single blanks (when not empty): the tag's
/// own name and its valueless attributes, such as "img hidden".
TagAttributes attributes(std::string_view tag);

/// Whether an `<img>` tag with these attributes is a tracking pixel: a remote (http) image
/// that is at most 2 pixels wide or high, hidden by style or attribute, or served by a known
/// tracking service (with a tracking path, or with no size given).
bool isTracker(const TagAttributes& attributes);

/// The remote images, trackers and misleading links of an HTML body. Local (`cid:`, `data:`)
/// and protocol-relative images count in neither number.
HTMLReport inspect(std::string_view html);

/// The links whose visible text names a domain of another registrable domain than the link's
/// http(s) target, in document order. Links with no such text, with text over 199 characters,
/// or whose "domain" ends in a file extension (report.pdf) are passed over.
std::vector<LinkWarning> linkWarnings(std::string_view html);

/// Attachments of this many bytes or more are left as unresolved `cid:` references rather
/// than inlined, to bound the size of the document handed to the web view.
inline constexpr size_t kMaxInlineImageBytes = 8'000'000;

/// The document the reader shows: inline images (`cid:` references to attachments under
/// `kMaxInlineImageBytes`) as `data:` URLs, tracking pixels replaced by a comment, and a head
/// block with a content-security policy that forbids scripts and plug-ins, inserted after the
/// mail's own head tag or wrapping the whole mail. `dark` is accepted and has no effect: an
/// HTML mail is always shown light, on purpose.
std::string prepareForDisplay(std::string_view html, const std::vector<MailAttachment>& attachments,
                              bool dark);

/// Plain text as an HTML document: escaped, with http(s) addresses made into links, under a
/// head that follows the system's light or dark appearance.
std::string plainTextDocument(std::string_view text);

} // namespace qs::HTMLInspector
