#include "search/SearchIndexCoder.h"

#include "search/JSONWriter.h"
#include "search/SearchIndex.h"

#include <simdjson.h>

namespace qs {

namespace {

// Rough bytes per record and per posting entry, to size the output once.
constexpr size_t estimatedRecordBytes = 700;
constexpr size_t estimatedPostingBytes = 7;
// A streamed encoding hands on its text in pieces of about this size.
constexpr size_t flushBytes = size_t(1) << 20;

void writeRecord(JSONWriter& w, const MessageRecord& r) {
    w.raw("{\"id\":");
    w.integer(r.id);
    w.raw(",\"path\":");
    w.string(r.path);
    w.raw(",\"account\":");
    w.string(r.account);
    w.raw(",\"folder\":");
    w.string(r.folder);
    w.raw(",\"subject\":");
    w.string(r.subject);
    w.raw(",\"fromName\":");
    w.string(r.fromName);
    w.raw(",\"fromEmail\":");
    w.string(r.fromEmail);
    w.raw(",\"to\":");
    w.string(r.to);
    w.raw(",\"date\":");
    w.string(ISODate::format(r.date));
    w.raw(",\"size\":");
    w.integer(r.size);
    w.raw(",\"snippet\":");
    w.string(r.snippet);
    w.raw(",\"attachments\":");
    w.integer(r.attachments);
    w.raw(",\"trackers\":");
    w.integer(r.trackers);
    w.raw(",\"remoteImages\":");
    w.integer(r.remoteImages);
    w.raw(",\"trust\":");
    w.string(toString(r.trust));
    w.raw(",\"replyToMismatch\":");
    w.boolean(r.replyToMismatch);
    w.raw(",\"linkWarnings\":");
    w.integer(r.linkWarnings);
    w.raw(",\"mtime\":");
    w.number(r.mtime);
    if (r.senderFlag) {
        w.raw(",\"senderFlag\":");
        w.string(*r.senderFlag);
    }
    w.raw('}');
}

// The keys of a record, in the order they are written; all but the last are required.
enum Key : unsigned {
    kID,
    kPath,
    kAccount,
    kFolder,
    kSubject,
    kFromName,
    kFromEmail,
    kTo,
    kDate,
    kSize,
    kSnippet,
    kAttachments,
    kTrackers,
    kRemoteImages,
    kTrust,
    kReplyToMismatch,
    kLinkWarnings,
    kMtime,
    kSenderFlag,
    keyCount
};
constexpr std::string_view keyNames[keyCount] = {
    "id",           "path",         "account",   "folder",
    "subject",      "fromName",     "fromEmail", "to",
    "date",         "size",         "snippet",   "attachments",
    "trackers",     "remoteImages", "trust",     "replyToMismatch",
    "linkWarnings", "mtime",        "senderFlag"};
constexpr uint32_t requiredKeys = (1u << kSenderFlag) - 1;

// Keys usually come in written order, so the expected one is tried first.
unsigned keyIndex(std::string_view key, unsigned expected) {
    if (expected < keyCount && keyNames[expected] == key) {
        return expected;
    }
    for (unsigned i = 0; i < keyCount; ++i) {
        if (keyNames[i] == key) {
            return i;
        }
    }
    return keyCount;
}

/// Reads a JSON array of integers, such as "[0,17, 42]" with any white space, appending to
/// `ids` those in 0 ..< `slots` (ids outside the records would be skipped by every reader).
/// False for anything else. Posting lists are most of the file, and a tight loop over their
/// bytes is several times faster than visiting each number through the generic parser.
bool readIDList(std::string_view raw, std::vector<uint32_t>& ids, uint64_t slots) {
    const char* p = raw.data();
    const char* end = p + raw.size();
    auto skipSpace = [&] {
        while (p < end && (*p == ' ' || *p == '\n' || *p == '\r' || *p == '\t')) {
            ++p;
        }
    };
    skipSpace();
    if (p == end || *p++ != '[') {
        return false;
    }
    skipSpace();
    if (p < end && *p == ']') {
        ++p;
        skipSpace();
        return p == end;
    }
    while (true) {
        bool negative = p < end && *p == '-';
        p += negative ? 1 : 0;
        if (p == end || *p < '0' || *p > '9' ||
            (*p == '0' && p + 1 < end && p[1] >= '0' && p[1] <= '9')) {
            return false;
        }
        uint64_t value = 0;
        int digits = 0;
        for (; p < end && *p >= '0' && *p <= '9'; ++p, ++digits) {
            value = value * 10 + uint64_t(*p - '0');
        }
        if (digits > 18) {
            return false;
        }
        if (!negative && value < slots) {
            ids.push_back(uint32_t(value));
        }
        skipSpace();
        if (p == end) {
            return false;
        }
        char c = *p++;
        if (c == ']') {
            skipSpace();
            return p == end;
        }
        if (c != ',') {
            return false;
        }
        skipSpace();
    }
}

using namespace simdjson;

// Any shape error throws simdjson_error (exceptions are on), which the caller turns into an
// empty index.
std::string copyString(ondemand::value value) {
    return std::string(std::string_view(value.get_string()));
}

MessageRecord readRecord(ondemand::object object) {
    MessageRecord r;
    uint32_t seen = 0;
    unsigned expected = 0;
    for (auto field : object) {
        std::string_view key = field.unescaped_key();
        unsigned k = keyIndex(key, expected);
        expected = k + 1;
        ondemand::value value = field.value();
        switch (k) {
        case kID:
            r.id = value.get_int64();
            break;
        case kPath:
            r.path = copyString(value);
            break;
        case kAccount:
            r.account = copyString(value);
            break;
        case kFolder:
            r.folder = copyString(value);
            break;
        case kSubject:
            r.subject = copyString(value);
            break;
        case kFromName:
            r.fromName = copyString(value);
            break;
        case kFromEmail:
            r.fromEmail = copyString(value);
            break;
        case kTo:
            r.to = copyString(value);
            break;
        case kDate: {
            auto date = ISODate::parse(std::string_view(value.get_string()));
            if (!date) {
                throw simdjson_error(INCORRECT_TYPE);
            }
            r.date = *date;
            break;
        }
        case kSize:
            r.size = value.get_int64();
            break;
        case kSnippet:
            r.snippet = copyString(value);
            break;
        case kAttachments:
            r.attachments = value.get_int64();
            break;
        case kTrackers:
            r.trackers = value.get_int64();
            break;
        case kRemoteImages:
            r.remoteImages = value.get_int64();
            break;
        case kTrust: {
            auto trust = senderTrustNamed(std::string_view(value.get_string()));
            if (!trust) {
                throw simdjson_error(INCORRECT_TYPE);
            }
            r.trust = *trust;
            break;
        }
        case kReplyToMismatch:
            r.replyToMismatch = value.get_bool();
            break;
        case kLinkWarnings:
            r.linkWarnings = value.get_int64();
            break;
        case kMtime:
            r.mtime = value.get_double();
            break;
        case kSenderFlag:
            // A null counts as absent, as an optional key reads.
            if (!value.is_null()) {
                r.senderFlag = copyString(value);
            }
            break;
        case keyCount:
            // Unknown keys are passed over.
            continue;
        }
        seen |= 1u << k;
    }
    if ((seen & requiredKeys) != requiredKeys) {
        throw simdjson_error(NO_SUCH_FIELD);
    }
    return r;
}

// `"token":[id,...]`
void writePosting(JSONWriter& w, std::string_view token, std::span<const uint32_t> ids) {
    w.string(token);
    w.raw(":[");
    for (size_t i = 0; i < ids.size(); ++i) {
        if (i > 0) {
            w.raw(',');
        }
        w.unsignedInteger(ids[i]);
    }
    w.raw(']');
}

} // namespace

std::string SearchIndexCoder::encode(const SearchIndex& index) {
    size_t entries = 0;
    for (const auto& list : index.postings_) {
        entries += list.size();
    }
    std::string out;
    out.reserve(index.records_.size() * estimatedRecordBytes + entries * estimatedPostingBytes +
                index.tokens_.memoryUsage());
    encode(index, [&](std::string_view piece) { out.append(piece); });
    return out;
}

void SearchIndexCoder::encode(const SearchIndex& index,
                              const std::function<void(std::string_view)>& sink,
                              IndexFileMap* map) {
    std::string buffer;
    buffer.reserve(2 * flushBytes);
    JSONWriter w(buffer);
    uint64_t handedOn = 0;
    auto flushWhenFull = [&] {
        if (buffer.size() >= flushBytes) {
            sink(buffer);
            handedOn += buffer.size();
            buffer.clear();
        }
    };
    auto here = [&] {
        return handedOn + buffer.size();
    };
    if (map) {
        map->recordStarts.clear();
        map->recordStarts.reserve(index.records_.size());
        map->postingEnds.clear();
        map->postingEnds.reserve(index.tokens_.size());
    }
    w.raw("{\"version\":");
    w.integer(version);
    w.raw(",\"records\":[");
    for (size_t i = 0; i < index.records_.size(); ++i) {
        if (i > 0) {
            w.raw(',');
        }
        if (map) {
            map->recordStarts.push_back(here());
        }
        if (const auto& r = index.records_[i]) {
            writeRecord(w, *r);
        } else {
            w.raw("null");
        }
        flushWhenFull();
    }
    if (map) {
        map->recordsEnd = here();
    }
    w.raw("],\"postings\":{");
    if (map) {
        map->postingsOpen = here();
    }
    bool first = true;
    for (uint32_t number : index.sortedTokens()) {
        if (!first) {
            w.raw(',');
        }
        first = false;
        writePosting(w, index.tokens_.token(number), index.postings_[number]);
        if (map) {
            map->postingEnds.push_back(here() - 1);
        }
        flushWhenFull();
    }
    w.raw("}}");
    sink(buffer);
}

void SearchIndexCoder::appendRecord(std::string& out, const MessageRecord& record) {
    JSONWriter w(out);
    writeRecord(w, record);
}

void SearchIndexCoder::appendIDs(std::string& out, std::span<const uint32_t> ids) {
    JSONWriter w(out);
    for (uint32_t id : ids) {
        w.raw(',');
        w.unsignedInteger(id);
    }
}

void SearchIndexCoder::appendPosting(std::string& out, std::string_view token,
                                     std::span<const uint32_t> ids) {
    JSONWriter w(out);
    writePosting(w, token, ids);
}

bool SearchIndexCoder::decodePadded(std::string_view json, SearchIndex& index) noexcept {
    try {
        ondemand::parser parser;
        auto document = parser.iterate(json.data(), json.size(), json.size() + SIMDJSON_PADDING);
        ondemand::object root = document.get_object();
        // The version decides before anything else is looked at.
        int64_t stored = root["version"].get_int64();
        if (stored != version) {
            return false;
        }

        ondemand::array records = root["records"].get_array();
        for (ondemand::value element : records) {
            if (element.is_null()) {
                index.records_.push_back(nullptr);
                continue;
            }
            auto record = readRecord(element.get_object());
            record.id = int64_t(index.records_.size());
            index.records_.push_back(std::make_shared<MessageRecord>(std::move(record)));
            if (index.records_.size() >= UINT32_MAX) {
                throw simdjson_error(CAPACITY);
            }
        }

        auto slots = uint64_t(index.records_.size());
        bool sorted = true;
        std::vector<uint32_t> ids;
        ondemand::object postings = root["postings"].get_object();
        for (auto field : postings) {
            std::string_view token = field.unescaped_key();
            ids.clear();
            ondemand::array array = field.value().get_array();
            std::string_view list = array.raw_json();
            if (!readIDList(list, ids, slots)) {
                throw simdjson_error(INCORRECT_TYPE);
            }
            size_t known = index.tokens_.size();
            if (sorted && (known == 0 || index.tokens_.token(uint32_t(known - 1)) < token)) {
                // Ascending keys are distinct: no lookup needed until the order breaks.
                index.tokens_.appendUnchecked(token);
                index.postings_.emplace_back(ids.begin(), ids.end());
                continue;
            }
            if (sorted) {
                sorted = false;
                index.tokens_.finishAppending();
            }
            bool isNew = false;
            uint32_t number = index.tokens_.intern(token, &isNew);
            if (isNew) {
                index.postings_.emplace_back(ids.begin(), ids.end());
            } else {
                // A repeated key: its ids join the earlier list, which stays ascending.
                auto& earlier = index.postings_[number];
                earlier.insert(earlier.end(), ids.begin(), ids.end());
                std::sort(earlier.begin(), earlier.end());
                earlier.erase(std::unique(earlier.begin(), earlier.end()), earlier.end());
            }
        }
        if (sorted) {
            index.tokens_.finishAppending();
        }

        // Live records by path; a path that appears twice keeps its later slot, and the
        // earlier becomes a tombstone so the invariants hold.
        index.byPath_.reserve(index.records_.size());
        for (uint32_t id = 0; id < index.records_.size(); ++id) {
            if (auto& r = index.records_[id]) {
                uint32_t earlier = index.byPath_.assign(r->path, id, index.pathReader());
                if (earlier != PathTable::npos) {
                    index.records_[earlier].reset();
                }
            }
        }
        if (sorted) {
            std::vector<uint32_t> order(index.tokens_.size());
            for (uint32_t n = 0; n < order.size(); ++n) {
                order[n] = n;
            }
            index.sortedTokens_ = std::move(order);
        }
        return true;
    } catch (...) {
        index = SearchIndex();
        return false;
    }
}

} // namespace qs
