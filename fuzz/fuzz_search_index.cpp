// Any bytes as index.json must load quietly, as an empty index or a consistent one that saves
// and loads back to the same text; any bytes as text must tokenise into valid tokens.
#include "search/SearchIndex.h"
#include "search/Tokenizer.h"
#include "support/Unicode.h"

#include <cstdint>
#include <cstdlib>
#include <string_view>

namespace {

void check(bool condition) {
    if (!condition) {
        std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string_view bytes(reinterpret_cast<const char*>(data), size);

    auto index = qs::SearchIndex::decode(bytes);
    check(index.count() <= index.slotCount());
    for (const auto& record : index.liveRecords()) {
        check(index.record(record.path) != nullptr);
        check(index.record(record.path)->id == record.id);
    }
    auto encoded = index.encode();
    auto again = qs::SearchIndex::decode(encoded);
    check(again.encode() == encoded);
    (void)index.search(bytes.substr(0, 64));
    index.compact();
    check(index.slotCount() == index.count());

    for (const auto& token : qs::SearchIndex::tokenize(bytes)) {
        check(qs::Unicode::isValidUTF8(token));
        auto characters = qs::Unicode::graphemeCount(token);
        check(characters >= qs::Tokenizer::minimumLength);
        check(characters <= qs::Tokenizer::maximumLength);
    }
    return 0;
}
