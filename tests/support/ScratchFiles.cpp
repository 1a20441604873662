#include "support/ScratchFiles.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace qs::test::ScratchFiles {

namespace fs = std::filesystem;

fs::path makeSharedFolder(const char* prefix) {
    std::string pattern = (fs::temp_directory_path() / (std::string(prefix) + "XXXXXX")).string();
    if (::mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error(std::string("mkdtemp: ") + std::strerror(errno));
    }
    fs::permissions(pattern, fs::perms::owner_all | fs::perms::group_read | fs::perms::group_exec |
                                 fs::perms::others_read | fs::perms::others_exec);
    return pattern;
}

void write(const fs::path& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
    if (!out) {
        throw std::runtime_error("cannot write " + path.string());
    }
}

std::string read(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

} // namespace qs::test::ScratchFiles
