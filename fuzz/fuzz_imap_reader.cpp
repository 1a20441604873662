// Arbitrary server bytes, delivered in chunks of sizes chosen by the input, through the reader
// and the parser. Whatever arrives must give responses or IMAPParseError, and the chunking must
// not change what comes out: a second reader given everything at once must agree, and so must
// a third whose raw responses are parsed whole (the reader holds literals apart from their
// responses' text; that must make no difference to what is parsed).

#include "imap/IMAPResponseParser.h"
#include "imap/IMAPResponseReader.h"
#include "support/ReaderOutcomes.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string_view>
#include <variant>
#include <vector>

namespace {

using Outcome = qs::test::ReaderOutcome;
using qs::test::drain;

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 1) {
        return 0;
    }
    // The first byte seeds the chunk sizes; the rest is the stream.
    std::uint32_t state = data[0] * 2654435761u + 1;
    std::string_view stream(reinterpret_cast<const char*>(data + 1), size - 1);

    // A literal above the ceiling is refused as it is announced, however the bytes come.
    bool chunkedRefused = false;
    qs::IMAPResponseReader chunked;
    std::vector<Outcome> chunkedOut;
    std::size_t at = 0;
    while (!chunkedRefused && at < stream.size()) {
        state = state * 1103515245u + 12345u;
        std::size_t length = 1 + (state >> 16) % 64;
        std::string_view piece = stream.substr(at, length);
        try {
            if (state & 0x80000000u) {
                chunked.append(std::string(piece));
            } else if (state & 0x40000000u) {
                // As the client receives: into the area the reader offers, which in a literal
                // is no larger than the literal's missing part.
                for (std::string_view rest = piece; !rest.empty();) {
                    std::span<char> area = chunked.receiveArea(rest.size());
                    std::size_t count = std::min(area.size(), rest.size());
                    std::memcpy(area.data(), rest.data(), count);
                    chunked.commit(count);
                    rest.remove_prefix(count);
                }
            } else {
                chunked.append(piece);
            }
        } catch (const qs::IMAPParseError&) {
            chunkedRefused = true;
        }
        at += piece.size();
        if (!chunkedRefused) {
            drain(chunked, chunkedOut);
        }
    }

    qs::IMAPResponseReader whole;
    std::vector<Outcome> wholeOut;
    qs::IMAPResponseReader raw;
    std::vector<Outcome> rawOut;
    try {
        whole.append(stream);
    } catch (const qs::IMAPParseError&) {
        if (!chunkedRefused) {
            std::abort();
        }
        return 0;
    }
    if (chunkedRefused) {
        std::abort();
    }
    drain(whole, wholeOut);
    raw.append(stream);
    while (auto bytes = raw.nextRawResponse()) {
        try {
            rawOut.emplace_back(qs::IMAPResponseParser::parse(*bytes));
        } catch (const qs::IMAPParseError& error) {
            rawOut.emplace_back(error.description());
        }
    }

    if (chunkedOut != wholeOut || rawOut != wholeOut ||
        raw.bufferedByteCount() != whole.bufferedByteCount() ||
        chunked.bufferedByteCount() != whole.bufferedByteCount() ||
        chunked.bufferedByteCount() > stream.size()) {
        std::abort();
    }
    return 0;
}
