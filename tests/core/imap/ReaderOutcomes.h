#pragma once

#include "imap/IMAPParseError.h"
#include "imap/IMAPResponse.h"
#include "imap/IMAPResponseReader.h"

#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace qs::test {

/// A response the reader gave, or the description of the error it threw instead.
using Outcome = std::variant<IMAPResponse, std::string>;

/// Everything `reader` has complete, errors as their descriptions.
inline void drain(IMAPResponseReader& reader, std::vector<Outcome>& out) {
    for (;;) {
        try {
            auto response = reader.next();
            if (!response) {
                return;
            }
            out.emplace_back(std::move(*response));
        } catch (const IMAPParseError& error) {
            out.emplace_back(error.description());
        }
    }
}

/// Feeds `stream` to a fresh reader in pieces ending at `cuts` (ascending), draining it after
/// each; a reader that took everything holds no byte at the end.
inline std::vector<Outcome> feedInPieces(std::string_view stream,
                                         const std::vector<std::size_t>& cuts) {
    IMAPResponseReader reader;
    std::vector<Outcome> out;
    std::size_t from = 0;
    for (std::size_t cut : cuts) {
        reader.append(stream.substr(from, cut - from));
        from = cut;
        drain(reader, out);
    }
    reader.append(stream.substr(from));
    drain(reader, out);
    EXPECT_EQ(reader.bufferedByteCount(), 0u);
    return out;
}

} // namespace qs::test
