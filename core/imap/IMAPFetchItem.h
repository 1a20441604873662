#pragma once

#include "imap/IMAPValue.h"
#include "support/Date.h"

#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace qs {

/// One FETCH response.
struct IMAPFetchItem {
    int64_t sequence = 0;
    std::optional<uint32_t> uid;
    /// RFC822.SIZE, in bytes.
    std::optional<int64_t> size;
    std::optional<Date> internalDate;
    /// FLAGS as the server spelled them; empty when not sent.
    std::vector<std::string> flags;
    /// The whole raw message (BODY[...] or RFC822); nothing for NIL or when not asked for.
    std::optional<std::string> body;

    /// Makes an item from the values of an untagged response: `n FETCH (key value ...)`, keys
    /// compared in upper case, the last of a repeated key winning, unknown keys passed over.
    /// Nothing when the values are no FETCH response. The body is moved out of `values`, not
    /// copied.
    static std::optional<IMAPFetchItem> from(std::vector<IMAPValue>& values);

    bool operator==(const IMAPFetchItem&) const = default;
};

/// For test failures: the fields, with the body shown by its size.
std::ostream& operator<<(std::ostream& out, const IMAPFetchItem& item);

} // namespace qs
