#pragma once

#include <filesystem>
#include <string>

namespace qs::FileIO {

/// The whole file as bytes. Throws std::system_error (the platform's error).
std::string read(const std::filesystem::path& path);

/// At most `limit` bytes from the start of the file. Throws std::system_error.
std::string readPrefix(const std::filesystem::path& path, size_t limit);

} // namespace qs::FileIO
