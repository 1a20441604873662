#pragma once

#include "imap/IMAPParseError.h"
#include "imap/IMAPResponse.h"
#include "imap/IMAPResponseReader.h"

#include <string>
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

} // namespace qs::test
