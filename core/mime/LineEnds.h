#pragma once

#include <string>
#include <string_view>

namespace qs::LineEnds {

/// Whether `bytes` end their lines in CR alone, as old Mac mailers wrote them: the first line
/// end is a carriage return not followed by a line feed.
bool crOnly(std::string_view bytes);

/// `bytes` with each carriage return that isn't followed by a line feed turned into a line
/// feed, so that the rest of the parser, which reads lines ending at LF, sees the lines.
std::string withLineFeeds(std::string_view bytes);

} // namespace qs::LineEnds
