#pragma once

// What a response reader made of a stream, response by response: the reader's tests and its
// fuzz target both compare such lists.

#include "imap/IMAPParseError.h"
#include "imap/IMAPResponseReader.h"

#include <string>
#include <variant>
#include <vector>

namespace qs::test {

/// A response, or the description of the parse error that stood in its place.
using ReaderOutcome = std::variant<IMAPResponse, std::string>;

/// Takes every response `reader` holds now into `out`.
inline void drain(IMAPResponseReader& reader, std::vector<ReaderOutcome>& out) {
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

} // namespace qs::test
