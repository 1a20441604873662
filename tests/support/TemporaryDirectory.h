#pragma once

#include <filesystem>
#include <string>

namespace qs::test {

/// A fresh, empty temporary folder, removed with everything in it when the object goes.
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

/// A new temporary folder every user may read, for servers running under another uid.
std::filesystem::path makeSharedFolder(const char* prefix);
void write(const std::filesystem::path& path, const std::string& text);
/// Empty when the file can't be read (a log that was never written).
std::string read(const std::filesystem::path& path);

} // namespace ScratchFiles

} // namespace qs::test
