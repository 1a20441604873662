#pragma once

#include <cstddef>
#include <filesystem>
#include <string_view>

namespace qs {

/// A whole file mapped read-only into memory, followed by at least `padding` readable bytes
/// (zeros), as a parser that reads ahead in wide blocks needs. Mapping rather than reading
/// spares copying and zeroing a large file: the pages come straight from the page cache.
class MappedFile {
public:
    /// Maps `path`. Throws std::system_error when the file can't be opened or mapped.
    MappedFile(const std::filesystem::path& path, size_t padding);
    ~MappedFile();
    MappedFile(const MappedFile&) = delete;
    MappedFile& operator=(const MappedFile&) = delete;

    /// The file's bytes; the padding lies beyond `bytes().end()`.
    std::string_view bytes() const { return {static_cast<const char*>(base_), size_}; }

private:
    void* base_ = nullptr;
    size_t size_ = 0;
    size_t mapped_ = 0;
};

} // namespace qs
