#pragma once

#include <memory>
#include <ostream>
#include <string>
#include <string_view>

namespace qs {

/// Immutable bytes that may be a range of a larger shared buffer. Parsing a message keeps one
/// buffer of the whole message and gives each part a slice of it, so bodies are never copied
/// while the tree is built; a slice keeps its buffer alive for as long as it exists. Copying a
/// slice copies a pointer, never the bytes. Equality compares the bytes.
class ByteSlice {
public:
    ByteSlice() = default;

    /// Takes ownership of `bytes` (moved, not copied).
    explicit ByteSlice(std::string bytes)
        : ByteSlice(std::make_shared<const std::string>(std::move(bytes))) {}

    /// All of a shared buffer.
    explicit ByteSlice(std::shared_ptr<const std::string> storage)
        : storage_(std::move(storage)), offset_(0), size_(storage_ ? storage_->size() : 0) {}

    /// `size` bytes from `offset` of a shared buffer, clamped to its end.
    ByteSlice(std::shared_ptr<const std::string> storage, size_t offset, size_t size)
        : storage_(std::move(storage)) {
        size_t total = storage_ ? storage_->size() : 0;
        offset_ = offset < total ? offset : total;
        size_ = size < total - offset_ ? size : total - offset_;
    }

    std::string_view view() const {
        return storage_ ? std::string_view(storage_->data() + offset_, size_) : std::string_view();
    }
    const char* data() const { return view().data(); }
    size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }

    /// A copy of the bytes as an owning string.
    std::string str() const { return std::string(view()); }

    /// The sub-range [offset, offset + size) of this slice, sharing its buffer; clamped.
    ByteSlice slice(size_t offset, size_t size = std::string_view::npos) const {
        offset = offset < size_ ? offset : size_;
        size = size < size_ - offset ? size : size_ - offset;
        return ByteSlice(storage_, offset_ + offset, size);
    }

    /// The slice of this buffer that `inside` views; `inside` must lie within `view()`.
    ByteSlice slice(std::string_view inside) const {
        return slice(size_t(inside.data() - view().data()), inside.size());
    }

    bool operator==(const ByteSlice& other) const { return view() == other.view(); }
    bool operator==(std::string_view other) const { return view() == other; }

private:
    std::shared_ptr<const std::string> storage_;
    size_t offset_ = 0;
    size_t size_ = 0;
};

/// Prints at most the first 200 bytes, with control and 8-bit bytes escaped, for test output.
inline std::ostream& operator<<(std::ostream& out, const ByteSlice& bytes) {
    static constexpr size_t kShown = 200;
    static constexpr char kHex[] = "0123456789ABCDEF";
    out << '"';
    std::string_view view = bytes.view();
    for (size_t i = 0; i < view.size() && i < kShown; ++i) {
        auto b = static_cast<unsigned char>(view[i]);
        if (b == '\n') {
            out << "\\n";
        } else if (b == '\r') {
            out << "\\r";
        } else if (b == '"' || b == '\\') {
            out << '\\' << char(b);
        } else if (b < 0x20 || b >= 0x7F) {
            out << "\\x" << kHex[b >> 4] << kHex[b & 15];
        } else {
            out << char(b);
        }
    }
    if (view.size() > kShown) {
        out << "\"… (" << view.size() << " bytes)";
        return out;
    }
    return out << '"';
}

} // namespace qs
