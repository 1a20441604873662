#pragma once

#include "imap/IMAPParseError.h"
#include "imap/IMAPResponse.h"

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace qs {

/// Frames the byte stream of one connection into complete responses. Bytes are pushed in with
/// `append` as they arrive; complete responses are pulled out with `next` (or
/// `nextRawResponse`). No network, clock or threads; a plain value owned by one `IMAPClient`.
///
/// A response is complete when its last line has ended (CR LF, or a lone LF) and every literal
/// `{n}` / `{n+}` announced at the end of one of its lines has all its n bytes. The bytes of a
/// literal are skipped unexamined. Framing never fails: it only ever waits for more bytes.
/// There is no limit on the size of a response; at most `literalReserveLimit` bytes are reserved
/// ahead of the bytes that actually arrive, however large a literal is announced.
///
/// Work per received byte is bounded: a partial response is not rescanned from its start when
/// more bytes arrive, the scan resumes where it stopped.
class IMAPResponseReader {
public:
    /// Consumed bytes are only removed from the front of the buffer once more than this many
    /// have piled up (or all have been consumed), so that many small responses move no memory
    /// while a stream of large bodies doesn't keep them all.
    static constexpr std::size_t compactionThreshold = 0x100000;

    /// When a literal is announced, room for it is made at once (saving the buffer's repeated
    /// regrowth under a large body) only up to this size: a hostile length can't make the
    /// reader allocate more ahead of the bytes that actually arrive. Larger literals still
    /// arrive, the buffer just grows as they do.
    static constexpr std::size_t literalReserveLimit = 0x2000000;

    /// Adds received bytes at the end of the buffer.
    void append(std::string_view bytes);
    void append(std::span<const std::byte> bytes);
    /// The same; when nothing is pending and the buffer has no room, the chunk itself becomes
    /// the buffer, without a copy.
    void append(std::string&& bytes);

    /// Bytes received and not yet consumed.
    std::size_t bufferedByteCount() const { return buffer_.size() - start_; }

    /// The next complete response, its final line ending removed (earlier line endings and
    /// literal bytes stay inside), copied out and consumed. Nothing while no complete response
    /// is buffered.
    std::optional<std::string> nextRawResponse();

    /// The next complete response, parsed straight out of the buffer (a literal's bytes are
    /// copied once, into their `string` value). Nothing while none is complete. Throws
    /// `IMAPParseError` for a malformed response, which is consumed all the same: the next
    /// call goes on with the response after it.
    std::optional<IMAPResponse> next();

    /// All bytes received and not yet discarded, and the index in it of the next response;
    /// for tests and diagnostics.
    std::string_view buffer() const { return buffer_; }
    std::size_t start() const { return start_; }

private:
    /// Finds the next complete response at `start_`; its bytes are [start_, *end). On success
    /// `consumedUpTo` is set to just past its final line feed. Nothing is consumed here.
    std::optional<std::size_t> findResponseEnd(std::size_t& consumedUpTo);
    void reserveForLiteral();
    void consume(std::size_t upTo);
    void compactIfNeeded();

    std::string buffer_;
    std::size_t start_ = 0;

    // Where the scan for the response at start_ stopped, so that it resumes there when more
    // bytes arrive. Only ever ahead of start_; reset whenever start_ moves.
    std::size_t lineStart_ = 0;     // first byte of the line being scanned
    std::size_t scanFrom_ = 0;      // next byte to look at for a line feed
    std::size_t literalLength_ = 0; // bytes of a literal awaited from lineStart_, 0 if none
};

} // namespace qs
