#pragma once

#include "imap/IMAPParseError.h"
#include "imap/IMAPResponse.h"
#include "imap/IMAPResponseParser.h"

#include <cstddef>
#include <limits>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qs {

/// Frames the byte stream of one connection into complete responses. Bytes are pushed in with
/// `append` as they arrive; complete responses are pulled out with `next` (or
/// `nextRawResponse`). No network, clock or threads; a plain value owned by one `IMAPClient`.
///
/// A response is complete when its last line has ended (CR LF, or a lone LF) and every literal
/// `{n}` / `{n+}` announced at the end of one of its lines has all its n bytes. The bytes of a
/// literal are skipped unexamined. Framing only ever waits for more bytes, except where a
/// server would otherwise exhaust memory: a literal announced longer than `literalLimit()`, or
/// more than `lineLimit` bytes outside literals in one response, fails `append` and `commit`
/// with `IMAPParseError` ("bad literal", "unexpected end"), and the reader is then unusable. At
/// most `literalReserveLimit` bytes are reserved ahead of the bytes that actually arrive,
/// however large a literal is announced.
///
/// Framing happens as bytes are appended, and each byte is looked at once: the lines are
/// scanned for their line feeds, and a literal's bytes, once its announcement has been seen,
/// are copied straight into a string of their own, which `next` then moves into the literal's
/// value. So a message body is copied once on its way through, however it is cut into chunks.
class IMAPResponseReader {
public:
    /// Consumed bytes are only removed from the front of the buffer once more than this many
    /// have piled up (or all have been consumed), so that many small responses move no memory
    /// while a stream of large bodies doesn't keep them all.
    static constexpr std::size_t compactionThreshold = 0x100000;

    /// When a literal is announced, room for it is made at once (saving its string's repeated
    /// regrowth under a large body) only up to this size: a hostile length can't make the
    /// reader allocate more ahead of the bytes that actually arrive. Larger literals still
    /// arrive, their string just grows as they do.
    static constexpr std::size_t literalReserveLimit = 0x2000000;

    /// The longest literal accepted unless `setLiteralLimit` says otherwise: far above any real
    /// message, far below what would take the machine down.
    static constexpr std::size_t defaultLiteralLimit = std::size_t(1) << 30;
    /// The most bytes outside literals in one response (a line that never ends, or endless
    /// small literals): no real response comes near it.
    static constexpr std::size_t lineLimit = 0x100000;

    /// Applies to literals announced from now on.
    void setLiteralLimit(std::size_t limit) { literalLimit_ = limit; }
    std::size_t literalLimit() const { return literalLimit_; }

    /// Adds received bytes at the end of the stream.
    void append(std::string_view bytes);
    void append(std::span<const std::byte> bytes);
    void append(std::string&& bytes) { append(std::string_view(bytes)); }

    /// Room for up to `maximum` (at least 1) bytes to be received straight into, so that a
    /// literal's bytes go from the connection to their own string with no copy in between:
    /// the missing part of the literal being received (or the start of it), else a scratch
    /// area whose bytes `commit` appends. Write at its start, then call `commit` with how many
    /// bytes were written (0 too, as when the receive failed) before any other call.
    std::span<char> receiveArea(std::size_t maximum);
    void commit(std::size_t count);

    /// Bytes received and not yet consumed.
    std::size_t bufferedByteCount() const { return lines_.size() - start_ + pendingLiteralBytes_; }

    /// The next complete response, its final line ending removed (earlier line endings and
    /// literal bytes stay inside), copied out and consumed. Nothing while no complete response
    /// is buffered.
    std::optional<std::string> nextRawResponse();

    /// The next complete response, parsed (a literal announced at a line end is moved into its
    /// `string` value, not copied). Nothing while none is complete. Throws `IMAPParseError`
    /// for a malformed response, which is consumed all the same: the next call goes on with
    /// the response after it.
    std::optional<IMAPResponse> next();

    /// All bytes received and not yet discarded, put together, and the index in them of the
    /// next response; for tests and diagnostics. The bytes of a literal that `next` moved into
    /// its value are discarded at once, although `start` still counts them until the consumed
    /// bytes are removed from the front.
    std::string buffer() const;
    std::size_t start() const { return start_ + consumedLiteralBytes_; }

private:
    using HeldLiteral = IMAPResponseParser::HeldLiteral;

    /// A framed response, by positions in the stream of line bytes (every byte outside the
    /// literals, counted from the first one ever appended).
    struct Framed {
        std::size_t end = 0;      // its last line's end, line ending excluded
        std::size_t next = 0;     // just past its last line feed
        std::size_t literals = 0; // how many literals it holds
    };

    /// Ends the line whose line feed was just appended to `lines_`.
    void endLine();
    /// Throws once the response being received holds more than `lineLimit` line bytes.
    void checkLineLimit() const;
    /// The literal being filled has all its bytes.
    void endLiteral();
    /// The next framed response, taken off the list; there must be one.
    Framed popFramed();
    /// Consumes a framed response; the first of its literals in `literals_` is at the index
    /// returned.
    std::size_t consume(const Framed& framed);
    void compactIfNeeded();

    // Line bytes: all bytes but those of literals announced at line ends. lines_[0] is at
    // position origin_ of the stream of line bytes; start_ indexes the next response.
    std::string lines_;
    std::size_t origin_ = 0;
    std::size_t start_ = 0;
    // Where the line being received starts (a position), and how many literals the response
    // being received holds so far.
    std::size_t lineStart_ = 0;
    std::size_t responseStart_ = 0; // where the response being received starts (a position)
    std::size_t literalLimit_ = defaultLiteralLimit;
    std::size_t literalsSoFar_ = 0;
    std::vector<Framed> framed_; // [firstFramed_, end) are pending
    std::size_t firstFramed_ = 0;

    // Literals with their positions among the line bytes: [0, firstPending_) belong to
    // consumed responses (those taken by `next` are empty), the rest to pending ones.
    std::vector<HeldLiteral> literals_;
    std::size_t firstPending_ = 0;
    std::optional<HeldLiteral> filling_; // the literal being received
    std::size_t fillingLeft_ = 0;        // its bytes still to come
    std::size_t fillingArea_ = 0;        // how much of a literal to offer `receiveArea`
    bool areaInLiteral_ = false;         // where the open receive area is
    std::size_t areaSize_ = 0;           // its size
    // The most `receiveArea` offers outside a literal; right after one, room for a FETCH line
    // or two, so that the next literal's bytes mostly land in their own string.
    static constexpr std::size_t lineAreaAfterLiteral = 0x1000;
    std::size_t lineArea_ = std::numeric_limits<std::size_t>::max();
    std::string scratch_;                  // the receive area outside literals
    std::size_t pendingLiteralBytes_ = 0;  // bytes in pending literals and in filling_
    std::size_t consumedLiteralBytes_ = 0; // bytes in [0, firstPending_), taken or not
};

} // namespace qs
