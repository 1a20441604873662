#pragma once

#include <filesystem>
#include <string>

namespace qs::test::ScratchFiles {

/// A new folder below the temporary folder that every user may walk into and read: servers
/// running under another uid (Dovecot's workers) read their configuration and chain from it.
std::filesystem::path makeSharedFolder(const char* prefix);

/// Writes `text` whole; throws std::runtime_error when it can't.
void write(const std::filesystem::path& path, const std::string& text);

/// The file's bytes, empty when it can't be read.
std::string read(const std::filesystem::path& path);

} // namespace qs::test::ScratchFiles
