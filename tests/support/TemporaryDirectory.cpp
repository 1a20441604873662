#include "support/TemporaryDirectory.h"

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>

namespace qs::test {

namespace fs = std::filesystem;

namespace {

fs::path madeTemporary(const std::string& prefix) {
    std::string pattern = (fs::temp_directory_path() / (prefix + "XXXXXX")).string();
    if (::mkdtemp(pattern.data()) == nullptr)
        throw std::system_error(errno, std::generic_category(), "mkdtemp");
    return pattern;
}

} // namespace

TemporaryDirectory::TemporaryDirectory() : path_(madeTemporary("qs-test-")) {}

TemporaryDirectory::~TemporaryDirectory() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

fs::path ScratchFiles::makeSharedFolder(const char* prefix) {
    fs::path folder = madeTemporary(prefix);
    fs::permissions(folder, fs::perms::owner_all | fs::perms::group_read | fs::perms::group_exec |
                                fs::perms::others_read | fs::perms::others_exec);
    return folder;
}

void ScratchFiles::write(const fs::path& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!(out << text))
        throw std::runtime_error("cannot write " + path.string());
}

std::string ScratchFiles::read(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

} // namespace qs::test
