#pragma once

#include <QString>

#include <array>
#include <string_view>

// The few words of the user texts that name another desktop's things ("Finder", "Keychain",
// "Mac"), and what a Linux desktop calls the same thing. Every text that carries one of them
// passes through `adapt`, so the window, the CLI and the errors say it the same way.

namespace qs::PlatformWords {

struct Word {
    std::string_view elsewhere;
    std::string_view here;
};

/// Longer phrases first, so "Quick Look" is taken whole before any single word of it.
inline constexpr std::array table{
    Word{"Quick Look", "Preview"},
    Word{"Finder", "File Manager"},
    Word{"Keychain", "keyring"},
    Word{"Mac", "computer"},
};

/// `text` with each entry of the table replaced where it stands as a whole word ("Mac’s" and
/// "this Mac" change, "Machine" doesn't).
QString adapt(QStringView text);

} // namespace qs::PlatformWords
