#pragma once

#include <string_view>

namespace qs::Symbols {

/// The file, without ".svg", of the shape that stands for a symbol name the window uses
/// ("tray", "eye.slash", …); empty for a name that has none. The shapes are a subset of an
/// ISC-licensed icon set, kept with its licence in icons/.
std::string_view file(std::string_view name);

} // namespace qs::Symbols
