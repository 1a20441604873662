#include "imap/IMAPNumber.h"

#include <charconv>

namespace qs::IMAPNumber {

namespace {

template <typename Number>
std::optional<Number> read(std::string_view text) {
    if (text.starts_with('+')) {
        text.remove_prefix(1);
        if (text.starts_with('-')) {
            return std::nullopt;
        }
    }
    Number value{};
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || error != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return value;
}

} // namespace

std::optional<uint32_t> uint32(std::string_view text) {
    return read<uint32_t>(text);
}

std::optional<int64_t> int64(std::string_view text) {
    return read<int64_t>(text);
}

} // namespace qs::IMAPNumber
