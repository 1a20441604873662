#pragma once

#include <string>
#include <string_view>

namespace qs::MimeTypes {

/// The usual file extension (without dot) of a content type such as "image/jpeg", ignoring
/// case; empty if the type isn't in the table.
std::string ext(std::string_view mimeType);

} // namespace qs::MimeTypes
