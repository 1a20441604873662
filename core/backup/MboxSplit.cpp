#include "backup/Importer.h"

#include "mime/LineEnds.h"

namespace qs::Importer {

namespace {

constexpr std::string_view fromMarker = "From ";

/// The mboxrd rule: at a line start, one ">" is dropped from a run of ">" that directly precedes
/// "From ". Other bytes pass unchanged, so a writer's escaping is undone exactly once.
std::string unescape(std::string_view block, char lineEnd) {
    std::string out;
    out.reserve(block.size());
    size_t i = 0;
    while (i < block.size()) {
        // `i` always stands at a line start here.
        if (block[i] == '>') {
            size_t quotes = block.find_first_not_of('>', i);
            if (quotes != std::string_view::npos &&
                block.substr(quotes, fromMarker.size()) == fromMarker) {
                ++i;
            }
        }
        size_t end = block.find(lineEnd, i);
        end = end == std::string_view::npos ? block.size() : end + 1;
        out.append(block.substr(i, end - i));
        i = end;
    }
    return out;
}

} // namespace

std::vector<std::string> splitMbox(std::string_view data) {
    // Old Mac mailers end lines in CR alone; such a file is read by its own line ends.
    const bool crOnly = LineEnds::crOnly(data);
    const char lineEndByte = crOnly ? '\r' : '\n';
    // Offsets of the separator lines: "From " at file start or after an empty line, where a
    // lone CR also counts as empty so that CRLF files split alike.
    std::vector<size_t> separators;
    bool previousEmpty = true;
    size_t position = 0;
    while (position < data.size()) {
        size_t end = data.find(lineEndByte, position);
        size_t lineEnd = end == std::string_view::npos ? data.size() : end;
        auto line = data.substr(position, lineEnd - position);
        if (previousEmpty && line.starts_with(fromMarker)) {
            separators.push_back(position);
        }
        previousEmpty = line.empty() || line == "\r";
        position = end == std::string_view::npos ? data.size() : end + 1;
    }

    std::vector<std::string> messages;
    for (size_t n = 0; n < separators.size(); ++n) {
        size_t stop = n + 1 < separators.size() ? separators[n + 1] : data.size();
        size_t lineEnd = data.find(lineEndByte, separators[n]);
        size_t start = lineEnd == std::string_view::npos || lineEnd >= stop ? stop : lineEnd + 1;
        auto block = data.substr(start, stop - start);
        if (block.empty()) {
            continue;
        }
        // The separator's blank line belongs to the mbox, not to the message.
        size_t last = block.find_last_not_of("\r\n");
        block = last == std::string_view::npos ? std::string_view{} : block.substr(0, last + 1);
        auto message = unescape(block, lineEndByte);
        message += crOnly ? "\r" : "\r\n";
        messages.push_back(std::move(message));
    }
    return messages;
}

std::string fingerprint(std::string_view data) {
    std::uint64_t hash = 0xcbf29ce484222325ull;
    for (unsigned char byte : data) {
        hash ^= byte;
        hash *= 0x100000001b3ull;
    }
    static constexpr char digits[] = "0123456789abcdef";
    std::string text(8, '0');
    auto low = static_cast<std::uint32_t>(hash);
    for (int i = 7; i >= 0; --i) {
        text[static_cast<size_t>(i)] = digits[low & 0xf];
        low >>= 4;
    }
    return text;
}

} // namespace qs::Importer
