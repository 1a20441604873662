#pragma once

#include <filesystem>
#include <string>

namespace qs::test {

/// A fresh, empty folder below the system's temporary folder, removed with everything in it
/// when the object goes away.
class TemporaryDirectory {
public:
    TemporaryDirectory();
    ~TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

namespace ScratchFiles {

/// A new folder below the temporary folder that every user may read: servers running under
/// another uid (Dovecot's workers) read their configuration and chain from it.
std::filesystem::path makeSharedFolder(const char* prefix);
/// Writes `text` whole; throws std::runtime_error when it can't.
void write(const std::filesystem::path& path, const std::string& text);
/// The file's bytes, empty when it can't be read (a log that was never written).
std::string read(const std::filesystem::path& path);

} // namespace ScratchFiles

} // namespace qs::test
