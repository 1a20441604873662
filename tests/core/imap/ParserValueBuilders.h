#pragma once
// Short builders for expected parse results in the reader and parser tables.
#include "imap/IMAPResponse.h"
#include "imap/IMAPValue.h"

#include <initializer_list>
#include <string>
#include <vector>

namespace qs::test {

inline IMAPValue atom(std::string text) {
    return IMAPValue::atom(std::move(text));
}
inline IMAPValue str(std::string bytes) {
    return IMAPValue::string(std::move(bytes));
}
inline IMAPValue nil() {
    return IMAPValue::nil();
}
inline IMAPValue list(std::initializer_list<IMAPValue> items) {
    return IMAPValue::list(std::vector<IMAPValue>(items));
}

inline IMAPResponse untagged(std::initializer_list<IMAPValue> values) {
    return IMAPResponse::Untagged{std::vector<IMAPValue>(values)};
}

} // namespace qs::test
