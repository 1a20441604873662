#pragma once

#include <string>
#include <string_view>

namespace qs::cli {

/// `text` (UTF-8, from mail or a server) made safe to print on a terminal: each C0 control
/// (ESC, BEL, backspace, carriage return…) and DEL becomes its visible picture (␛, ␇, ␈, ␍,
/// ␡), each C1 control and each bidirectional embedding, override or isolate becomes U+FFFD,
/// so a hostile subject can't retitle the terminal, erase lines or reorder text. `multiline`
/// keeps line feeds (CR LF too) and tabs, for a message's body; otherwise they too become pictures,
/// so a field stays on its one line.
std::string terminalText(std::string_view text, bool multiline = false);

} // namespace qs::cli
