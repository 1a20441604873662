#include "imap/IMAPResponseReader.h"

#include "imap/IMAPResponseParser.h"

#include <cstdint>
#include <cstring>
#include <limits>

namespace qs {

namespace {

/// The length announced by a literal marker `{n}` or `{n+}` at the very end of the line
/// [lineStart, lineEnd), or nothing. Looks at no other part of the line, so a `}` ending
/// ordinary text after `{digits` counts as a marker too; a length that overflows is no marker.
std::optional<std::size_t> literalMarker(std::string_view buffer, std::size_t lineStart,
                                         std::size_t lineEnd) {
    if (lineEnd == lineStart || buffer[lineEnd - 1] != '}') {
        return std::nullopt;
    }
    std::size_t at = lineEnd - 1; // on the `}`
    if (at > lineStart && buffer[at - 1] == '+') {
        --at;
    }
    std::size_t digitsEnd = at;
    while (at > lineStart && buffer[at - 1] >= '0' && buffer[at - 1] <= '9') {
        --at;
    }
    std::size_t digitsStart = at;
    if (digitsStart == digitsEnd || digitsStart == lineStart || buffer[digitsStart - 1] != '{') {
        return std::nullopt;
    }
    std::int64_t length = 0;
    for (std::size_t i = digitsStart; i < digitsEnd; ++i) {
        int digit = buffer[i] - '0';
        if (length > (std::numeric_limits<std::int64_t>::max() - digit) / 10) {
            return std::nullopt;
        }
        length = length * 10 + digit;
    }
    return std::size_t(length);
}

} // namespace

void IMAPResponseReader::append(std::string_view bytes) {
    buffer_.append(bytes);
}

void IMAPResponseReader::append(std::span<const std::byte> bytes) {
    buffer_.append(reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

void IMAPResponseReader::append(std::string&& bytes) {
    // Adopting the chunk saves a copy only when the buffer has no room of its own; otherwise
    // the room it keeps (perhaps reserved for a large body) is worth more.
    if (buffer_.empty() && buffer_.capacity() < bytes.size()) {
        buffer_ = std::move(bytes);
    } else {
        buffer_.append(bytes);
    }
}

std::optional<std::size_t> IMAPResponseReader::findResponseEnd(std::size_t& consumedUpTo) {
    std::string_view buffer = buffer_;
    if (start_ >= buffer.size()) {
        return std::nullopt;
    }
    // The scan resumes where the last call stopped: bytes are only ever appended while start_
    // stays put, so what was seen then still holds.
    for (;;) {
        if (literalLength_ > 0) {
            if (buffer.size() - lineStart_ < literalLength_) {
                reserveForLiteral();
                return std::nullopt;
            }
            // The literal's bytes are skipped whole, never looked at for line ends or markers.
            lineStart_ += literalLength_;
            scanFrom_ = lineStart_;
            literalLength_ = 0;
        }
        if (scanFrom_ >= buffer.size()) {
            return std::nullopt;
        }
        const void* found = std::memchr(buffer.data() + scanFrom_, '\n', buffer.size() - scanFrom_);
        if (!found) {
            scanFrom_ = buffer.size();
            return std::nullopt;
        }
        std::size_t lineFeed = std::size_t(static_cast<const char*>(found) - buffer.data());
        std::size_t lineEnd = lineFeed;
        if (lineEnd > lineStart_ && buffer[lineEnd - 1] == '\r') {
            --lineEnd;
        }
        std::optional<std::size_t> literal = literalMarker(buffer, lineStart_, lineEnd);
        if (!literal) {
            consumedUpTo = lineFeed + 1;
            return lineEnd;
        }
        lineStart_ = lineFeed + 1;
        scanFrom_ = lineStart_;
        literalLength_ = *literal;
    }
}

void IMAPResponseReader::reserveForLiteral() {
    // Room for the literal, the line end after it and one more receive, so that the chunk that
    // completes the body doesn't move it.
    constexpr std::size_t slack = 0x40000 + 2;
    if (literalLength_ > literalReserveLimit) {
        return;
    }
    std::size_t wanted = lineStart_ + literalLength_ + slack;
    if (buffer_.capacity() < wanted) {
        buffer_.reserve(wanted);
    }
}

void IMAPResponseReader::consume(std::size_t upTo) {
    start_ = upTo;
    lineStart_ = scanFrom_ = start_;
    literalLength_ = 0;
}

void IMAPResponseReader::compactIfNeeded() {
    if (start_ > compactionThreshold) {
        buffer_.erase(0, start_);
        start_ = 0;
    } else if (start_ == buffer_.size()) {
        buffer_.clear();
        start_ = 0;
    } else {
        return;
    }
    lineStart_ = scanFrom_ = start_;
    literalLength_ = 0;
}

std::optional<std::string> IMAPResponseReader::nextRawResponse() {
    std::size_t consumedUpTo = 0;
    std::optional<std::size_t> end = findResponseEnd(consumedUpTo);
    if (!end) {
        return std::nullopt;
    }
    std::string raw = buffer_.substr(start_, *end - start_);
    consume(consumedUpTo);
    compactIfNeeded();
    return raw;
}

std::optional<IMAPResponse> IMAPResponseReader::next() {
    std::size_t consumedUpTo = 0;
    std::optional<std::size_t> end = findResponseEnd(consumedUpTo);
    if (!end) {
        return std::nullopt;
    }
    // Parsed in place, before compaction can move the bytes: the raw response is never copied
    // as a whole, and a literal is copied once, into its value.
    std::string_view raw = std::string_view(buffer_).substr(start_, *end - start_);
    consume(consumedUpTo);
    struct CompactOnExit {
        IMAPResponseReader& reader;
        ~CompactOnExit() { reader.compactIfNeeded(); }
    } compactOnExit{*this};
    return IMAPResponseParser::parse(raw);
}

} // namespace qs
