#include "imap/IMAPResponseReader.h"

#include "imap/IMAPResponseParser.h"

#include <algorithm>
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
    while (!bytes.empty()) {
        if (filling_) {
            // A literal's bytes go straight to its own string, unexamined.
            std::size_t count = std::min(fillingLeft_, bytes.size());
            filling_->bytes.append(bytes.data(), count);
            fillingLeft_ -= count;
            pendingLiteralBytes_ += count;
            bytes.remove_prefix(count);
            if (fillingLeft_ == 0) {
                endLiteral();
            }
            continue;
        }
        if (lineStart_ - origin_ < lines_.size()) {
            // A line begun by an earlier append is finished first, where its start can be seen.
            const void* found = std::memchr(bytes.data(), '\n', bytes.size());
            if (!found) {
                lines_.append(bytes);
                checkLineLimit();
                return;
            }
            std::size_t count = std::size_t(static_cast<const char*>(found) - bytes.data()) + 1;
            lines_.append(bytes.data(), count);
            bytes.remove_prefix(count);
            endLine();
            continue;
        }
        // Whole lines in the new bytes are framed where they are, and the run up to the first
        // line announcing a literal (or all of it) is added in one go.
        std::size_t base = origin_ + lines_.size();
        std::size_t lineFrom = 0;
        bool literal = false;
        while (lineFrom < bytes.size()) {
            const void* found = std::memchr(bytes.data() + lineFrom, '\n', bytes.size() - lineFrom);
            if (!found) {
                break;
            }
            std::size_t lineFeed = std::size_t(static_cast<const char*>(found) - bytes.data());
            std::size_t lineEnd = lineFeed;
            if (lineEnd > lineFrom && bytes[lineEnd - 1] == '\r') {
                --lineEnd;
            }
            if (lineEnd > lineFrom && bytes[lineEnd - 1] == '}') {
                // Perhaps a marker: framed by endLine, which sees the line in place.
                lines_.append(bytes.data(), lineFeed + 1);
                bytes.remove_prefix(lineFeed + 1);
                lineStart_ = base + lineFrom;
                endLine();
                literal = true;
                break;
            }
            if (base + lineFeed + 1 - responseStart_ > lineLimit) {
                throw IMAPParseError(IMAPParseError::Kind::unexpectedEnd);
            }
            framed_.push_back(Framed{base + lineEnd, base + lineFeed + 1, literalsSoFar_});
            literalsSoFar_ = 0;
            lineFrom = lineFeed + 1;
            responseStart_ = base + lineFrom;
        }
        if (!literal) {
            lines_.append(bytes);
            lineStart_ = base + lineFrom;
            checkLineLimit();
            return;
        }
        checkLineLimit();
    }
}

void IMAPResponseReader::checkLineLimit() const {
    if (origin_ + lines_.size() - responseStart_ > lineLimit) {
        throw IMAPParseError(IMAPParseError::Kind::unexpectedEnd);
    }
}

void IMAPResponseReader::append(std::span<const std::byte> bytes) {
    append(std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
}

std::span<char> IMAPResponseReader::receiveArea(std::size_t maximum) {
    if (!filling_) {
        // Right after a literal the next bytes are most likely a short line and the start of
        // another literal, whose bytes are better received into their own string than here:
        // the area starts small then, and grows back while receives fill it.
        std::size_t count = std::min(maximum, lineArea_);
        areaInLiteral_ = false;
        areaSize_ = count;
        if (scratch_.size() < count) {
            scratch_.resize(count);
        }
        return {scratch_.data(), count};
    }
    // The literal's string is lengthened to take the bytes, which fills the new part with
    // zeros first: the area grows with what receives actually bring (from a floor of a few
    // packets), so that a slow connection doesn't pay for clearing room it doesn't fill.
    constexpr std::size_t areaFloor = 0x4000;
    std::size_t count = std::min({fillingLeft_, maximum, std::max(fillingArea_, areaFloor)});
    areaInLiteral_ = true;
    areaSize_ = count;
    std::string& bytes = filling_->bytes;
    bytes.resize(bytes.size() + count);
    return {bytes.data() + bytes.size() - count, count};
}

void IMAPResponseReader::commit(std::size_t count) {
    if (!areaInLiteral_) {
        if (count == areaSize_ && lineArea_ < std::numeric_limits<std::size_t>::max() / 2) {
            lineArea_ *= 2;
        }
        append(std::string_view(scratch_.data(), count));
        return;
    }
    areaInLiteral_ = false;
    filling_->bytes.resize(filling_->bytes.size() - (areaSize_ - count));
    fillingArea_ = 2 * count;
    fillingLeft_ -= count;
    pendingLiteralBytes_ += count;
    if (fillingLeft_ == 0) {
        endLiteral();
    }
}

void IMAPResponseReader::endLine() {
    checkLineLimit();
    std::size_t lineStart = lineStart_ - origin_;
    std::size_t lineFeed = lines_.size() - 1;
    std::size_t lineEnd = lineFeed;
    if (lineEnd > lineStart && lines_[lineEnd - 1] == '\r') {
        --lineEnd;
    }
    lineStart_ = origin_ + lines_.size();
    std::optional<std::size_t> literal = literalMarker(lines_, lineStart, lineEnd);
    if (!literal) {
        framed_.push_back(Framed{origin_ + lineEnd, lineStart_, literalsSoFar_});
        literalsSoFar_ = 0;
        responseStart_ = lineStart_;
        return;
    }
    if (*literal > literalLimit_) {
        throw IMAPParseError(IMAPParseError::Kind::badLiteral);
    }
    // The next line starts after the literal, at the same position among the line bytes.
    filling_.emplace(HeldLiteral{lineStart_, {}});
    filling_->bytes.reserve(std::min(*literal, literalReserveLimit));
    fillingLeft_ = *literal;
    if (fillingLeft_ == 0) {
        endLiteral();
    }
}

void IMAPResponseReader::endLiteral() {
    lineArea_ = lineAreaAfterLiteral;
    literals_.push_back(std::move(*filling_));
    filling_.reset();
    ++literalsSoFar_;
}

std::size_t IMAPResponseReader::consume(const Framed& framed) {
    std::size_t first = firstPending_;
    for (std::size_t i = first; i < first + framed.literals; ++i) {
        pendingLiteralBytes_ -= literals_[i].bytes.size();
        consumedLiteralBytes_ += literals_[i].bytes.size();
    }
    firstPending_ += framed.literals;
    start_ = framed.next - origin_;
    return first;
}

IMAPResponseReader::Framed IMAPResponseReader::popFramed() {
    Framed framed = framed_[firstFramed_++];
    // Emptied whenever all are taken, as they usually are; and trimmed now and then when one
    // is always left pending, so the list stays as long as what is pending.
    if (firstFramed_ == framed_.size()) {
        framed_.clear();
        firstFramed_ = 0;
    } else if (firstFramed_ >= 64 && firstFramed_ * 2 >= framed_.size()) {
        framed_.erase(framed_.begin(), framed_.begin() + std::ptrdiff_t(firstFramed_));
        firstFramed_ = 0;
    }
    return framed;
}

void IMAPResponseReader::compactIfNeeded() {
    if (start() > compactionThreshold || start_ == lines_.size()) {
        // Pending bytes are mostly line bytes, the literals being apart: little to move.
        lines_.erase(0, start_);
        origin_ += start_;
        start_ = 0;
        literals_.erase(literals_.begin(), literals_.begin() + std::ptrdiff_t(firstPending_));
        firstPending_ = 0;
        consumedLiteralBytes_ = 0;
    }
}

std::string IMAPResponseReader::buffer() const {
    std::string out;
    std::size_t from = 0;
    auto insert = [&](const HeldLiteral& literal) {
        std::size_t at = literal.at - origin_;
        out.append(lines_, from, at - from);
        out.append(literal.bytes);
        from = at;
    };
    for (const HeldLiteral& literal : literals_) {
        insert(literal);
    }
    if (filling_) {
        insert(*filling_);
    }
    out.append(lines_, from);
    return out;
}

std::optional<std::string> IMAPResponseReader::nextRawResponse() {
    if (firstFramed_ == framed_.size()) {
        return std::nullopt;
    }
    Framed framed = popFramed();
    std::size_t from = start_;
    std::string raw;
    for (std::size_t i = firstPending_; i < firstPending_ + framed.literals; ++i) {
        std::size_t at = literals_[i].at - origin_;
        raw.append(lines_, from, at - from);
        raw.append(literals_[i].bytes);
        from = at;
    }
    raw.append(lines_, from, framed.end - origin_ - from);
    consume(framed);
    compactIfNeeded();
    return raw;
}

std::optional<IMAPResponse> IMAPResponseReader::next() {
    if (firstFramed_ == framed_.size()) {
        return std::nullopt;
    }
    Framed framed = popFramed();
    // Parsed in place, before compaction can move the bytes: the raw response is never put
    // together, and a held literal is moved into its value.
    std::size_t from = start_;
    std::string_view text = std::string_view(lines_).substr(from, framed.end - origin_ - from);
    std::size_t first = consume(framed);
    struct Cleanup {
        IMAPResponseReader& reader;
        std::size_t first;
        ~Cleanup() {
            // The response's literals were moved into it, or are dropped with it.
            if (reader.firstPending_ == reader.literals_.size()) {
                reader.literals_.clear();
                reader.firstPending_ = 0;
            } else {
                for (std::size_t i = first; i < reader.firstPending_; ++i) {
                    reader.literals_[i].bytes = std::string();
                }
            }
            reader.compactIfNeeded();
        }
    } cleanup{*this, first};
    return IMAPResponseParser::parse(
        text, origin_ + from, std::span<HeldLiteral>(literals_.data() + first, framed.literals));
}

} // namespace qs
