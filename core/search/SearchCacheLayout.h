#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string_view>
#include <vector>

namespace qs::SearchCacheLayout {

// The search cache beside index.json: fixed-layout binary in the machine's byte order (it is
// never moved between machines; a foreign one fails its checks and is rebuilt). Page 0 holds
// the header; the sections follow, each 8-byte aligned; the page checksums come last. A
// reader verifies each 4 KB page the first time it touches it, so a search reads only the
// pages it needs and still never trusts a damaged byte.

inline constexpr char magic[8] = {'Q', 'S', 'S', 'E', 'A', 'R', 'C', 'H'};
inline constexpr uint32_t version = 2;
inline constexpr uint64_t pageSize = 4096;

/// Identity of the index.json the cache was derived from: a rewrite changes the inode (the
/// save is a rename), and any change moves the size or the time.
struct FileStamp {
    uint64_t size = 0;
    int64_t mtimeNanoseconds = 0;
    uint64_t inode = 0;

    /// The stamp of `path`, or nothing when it can't be read.
    static std::optional<FileStamp> of(const std::filesystem::path& path);

    friend bool operator==(const FileStamp&, const FileStamp&) = default;
};

struct Section {
    uint64_t offset;
    uint64_t length;
};

struct Header {
    char magic[8];
    uint32_t version;
    uint32_t pageSize;
    uint64_t fileSize;
    FileStamp json;
    uint64_t recordCount;
    /// Slots of index.json, tombstones included: ids run below it.
    uint64_t slotCount;
    /// Every token of index.json, those whose ids all name tombstones included (with no
    /// postings), so that an index loaded from the cache has the tokens of the file.
    uint64_t tokenCount;
    /// `tokenCount + 1` TokenEntry, sorted by token text; the last one only ends the postings.
    Section tokens;
    Section tokenText;
    /// uint32 record ranks, ascending per token.
    Section postings;
    /// `recordCount` RecordEntry, newest first: a record's rank is its position here.
    Section records;
    Section recordText;
    /// One uint32 CRC-32 per page from page 1 up to the start of this section.
    Section pageSums;
    uint32_t pageSumsChecksum;
    /// CRC-32 of the header bytes before this field.
    uint32_t headerChecksum;
};

struct TokenEntry {
    uint32_t textOffset;
    uint32_t textLength;
    /// Index of the token's first posting; the next entry's start ends its run.
    uint64_t postingStart;
};

/// Strings of a record in its text run, each as a uint32 length and its bytes: the eight of
/// `recordStrings`, then the sender flag (empty when absent).
inline constexpr size_t recordStringCount = 9;

/// The record's strings that are always present, in the order of its text run: the one list
/// that both the writer and the reader of the cache follow.
template <typename Record>
auto recordStrings(Record& r) {
    return std::array{&r.path,     &r.account,   &r.folder, &r.subject,
                      &r.fromName, &r.fromEmail, &r.to,     &r.snippet};
}

struct RecordEntry {
    int64_t id;
    int64_t dateNanoseconds;
    int64_t size;
    int64_t attachments;
    int64_t trackers;
    int64_t remoteImages;
    int64_t linkWarnings;
    double mtime;
    uint64_t textOffset;
    uint32_t textLength;
    uint8_t trust;
    uint8_t replyToMismatch;
    uint8_t hasSenderFlag;
    uint8_t unused;
};

static_assert(sizeof(Header) <= pageSize);
static_assert(sizeof(TokenEntry) == 16);
static_assert(sizeof(RecordEntry) == 80);

/// CRC-32 of `bytes`.
uint32_t checksum(std::string_view bytes);

/// Writes `bytes` with their CRC-32 after them, atomically and unflushed: the form of the
/// small derived files beside index.json, which a lost write only makes stale.
/// Throws std::system_error.
void writeSealed(const std::filesystem::path& path, std::string bytes);

/// The bytes `writeSealed` wrote to `path`, or nothing when the file can't be read, holds
/// fewer than `minimum` bytes or fails its checksum. Never throws but std::bad_alloc.
std::optional<std::string> readSealed(const std::filesystem::path& path, size_t minimum);

/// What an index loaded from (or saved with) a cache remembers of that cache, so that its
/// next save can leave the cache in place and write only a delta beside it.
struct Base {
    /// The cache's header identity: the index.json it was made from, and its checksum.
    FileStamp json;
    uint32_t headerChecksum = 0;
    /// The cache's rank of each of its slots (`noRank` for a tombstone): one per slot.
    std::vector<uint32_t> rankOfId;
    /// Ranks of the cache that the index no longer holds, ascending.
    std::vector<uint32_t> removedRanks;

    static constexpr uint32_t noRank = UINT32_MAX;
};

} // namespace qs::SearchCacheLayout
