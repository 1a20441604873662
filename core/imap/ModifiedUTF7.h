#pragma once

#include <string>
#include <string_view>

namespace qs::ModifiedUTF7 {

/// A mailbox name in IMAP's modified UTF-7 (RFC 3501, 5.1.3) as UTF-8 text, for display only:
/// names go back to the server as they came. Never fails: "&-" is "&", and a shift sequence
/// that isn't strict base64 of valid UTF-16, or lacks its closing "-", stays as it is
/// ("&Jjo" and "&!!!-" are unchanged).
std::string decode(std::string_view text);

} // namespace qs::ModifiedUTF7
