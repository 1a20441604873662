#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>

namespace qs {

class SearchIndex;
struct IndexFileMap;
struct MessageRecord;

/// index.json, read and written straight to and from the index's own structures: a streaming
/// writer out, simdjson's on-demand parser in, and never a document tree in between, which at
/// hundreds of thousands of records would cost several times the index itself.
///
/// The file: {"version":3,"records":[record or null, ...],"postings":{token:[id, ...], ...}}.
/// Postings are written in ascending token order, which lets a load take the sorted-token
/// cache for free.
class SearchIndexCoder {
public:
    /// The stored version; any other version reads as an empty index.
    static constexpr int64_t version = 3;

    static std::string encode(const SearchIndex& index);

    /// The same text handed to `sink` in pieces of about a megabyte, as it is made: a save
    /// writes a large index without ever holding its whole text. Fills `map` (its offsets;
    /// not its stamp) when given.
    static void encode(const SearchIndex& index, const std::function<void(std::string_view)>& sink,
                       IndexFileMap* map = nullptr);

    /// Pieces of the text, as `encode` writes them, for a patch of the file: a record's
    /// object; ",id" for each id; `"token":[id,...]`.
    static void appendRecord(std::string& out, const MessageRecord& record);
    static void appendIDs(std::string& out, std::span<const uint32_t> ids);
    static void appendPosting(std::string& out, std::string_view token,
                              std::span<const uint32_t> ids);

    /// Fills `index` (which must be empty) from `json`; false, with `index` left empty, for
    /// anything but a well-formed version 3 index. `json` must have simdjson's padding
    /// (SIMDJSON_PADDING readable bytes past its end).
    static bool decodePadded(std::string_view json, SearchIndex& index) noexcept;
};

} // namespace qs
