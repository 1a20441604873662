// The proof of local copies, and finding them on disk by name: file work only.
#include "cleanup/Cleaner.h"

#include "mime/MIMEParser.h"
#include "support/FileIO.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <system_error>

namespace qs {

namespace fs = std::filesystem;

namespace {

// The UID a message file's base name ends with ("2024-03-01 Subject 4711"), if any.
std::optional<uint32_t> trailingUID(std::string_view stem) {
    size_t end = stem.find_last_not_of(" \t");
    if (end == std::string_view::npos) {
        return std::nullopt;
    }
    size_t start = stem.find_last_of(" \t", end);
    start = start == std::string_view::npos ? 0 : start + 1;
    std::string_view piece = stem.substr(start, end + 1 - start);
    uint32_t value = 0;
    auto [stop, error] = std::from_chars(piece.data(), piece.data() + piece.size(), value);
    if (error != std::errc() || stop != piece.data() + piece.size()) {
        return std::nullopt;
    }
    return value;
}

bool isMessageFile(const fs::path& path) {
    std::string extension = path.extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension == ".eml";
}

} // namespace

CleanupItem::Status Cleaner::verify(const CleanupItem& item, const ArchiveLayout& layout) {
    if (!item.localPath) {
        return CleanupItem::Status::notBackedUp();
    }
    return verify(layout.url(*item.localPath), item.serverSize);
}

CleanupItem::Status Cleaner::verify(const fs::path& file, int64_t serverSize) {
    std::error_code error;
    uintmax_t size = fs::file_size(file, error);
    if (error) {
        return CleanupItem::Status::notBackedUp();
    }
    if (static_cast<int64_t>(size) != serverSize) {
        return CleanupItem::Status::sizeMismatch(static_cast<int64_t>(size), serverSize);
    }
    std::string bytes;
    try {
        bytes = FileIO::read(file);
    } catch (const std::exception&) {
        return CleanupItem::Status::unreadable();
    }
    // The file may have changed or been cut between the two looks.
    if (static_cast<int64_t>(bytes.size()) != serverSize) {
        return CleanupItem::Status::unreadable();
    }
    if (!MIMEParser::looksValid(bytes) || MIMEParser::headers(bytes).empty()) {
        return CleanupItem::Status::unreadable();
    }
    return CleanupItem::Status::verified();
}

std::map<uint32_t, std::string> Cleaner::filesByUID(const ArchiveLayout& layout,
                                                    std::string_view directory) {
    std::map<uint32_t, std::string> found;
    fs::path root = layout.root.lexically_normal();
    std::error_code error;
    fs::recursive_directory_iterator walk(layout.url(directory),
                                          fs::directory_options::skip_permission_denied, error);
    if (error) {
        return found;
    }
    // Sorted, so that the first of two files claiming one UID doesn't depend on the order the
    // file system lists them in.
    std::vector<fs::path> files;
    for (auto end = fs::recursive_directory_iterator(); walk != end; walk.increment(error)) {
        if (error) {
            break;
        }
        std::error_code typeError;
        if (walk->is_regular_file(typeError) && isMessageFile(walk->path())) {
            files.push_back(walk->path().lexically_normal());
        }
    }
    std::sort(files.begin(), files.end());
    for (const fs::path& file : files) {
        if (std::optional<uint32_t> uid = trailingUID(file.stem().string())) {
            found.emplace(*uid, file.lexically_relative(root).generic_string());
        }
    }
    return found;
}

} // namespace qs
