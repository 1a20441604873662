#pragma once

#include <algorithm>
#include <cctype>
#include <string>

namespace qs::IMAPKeyword {

/// IMAP keywords are compared in upper case; this is the one place that folds them.
inline std::string upper(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return text;
}

} // namespace qs::IMAPKeyword
