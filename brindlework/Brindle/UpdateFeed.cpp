#include "Brindle/UpdateFeed.h"

#include <nlohmann/json.hpp>

namespace brindle {

namespace {

using nlohmann::json;

// A required text; false when missing or not text.
bool readText(const json& object, const char* key, std::string& into) {
    auto found = object.find(key);
    if (found == object.end() || !found->is_string())
        return false;
    into = found->get<std::string>();
    return true;
}

// An optional text; false only when present with another type.
bool readOptionalText(const json& object, const char* key, std::optional<std::string>& into) {
    auto found = object.find(key);
    if (found == object.end() || found->is_null())
        return true;
    if (!found->is_string())
        return false;
    into = found->get<std::string>();
    return true;
}

std::optional<UpdateFeed::Download> readDownload(const json& object) {
    UpdateFeed::Download download;
    auto length = object.find("length");
    if (!readText(object, "url", download.url) ||
        !readText(object, "edSignature", download.edSignature) || length == object.end() ||
        !length->is_number_integer())
        return std::nullopt;
    if (length->is_number_unsigned() && length->get<uint64_t>() > uint64_t(INT64_MAX))
        return std::nullopt;
    download.length = length->get<int64_t>();
    return download;
}

} // namespace

std::optional<UpdateFeed> UpdateFeed::decode(std::string_view text) {
    const json object = json::parse(text, nullptr, false);
    if (object.is_discarded() || !object.is_object())
        return std::nullopt;
    UpdateFeed feed;
    if (!readText(object, "version", feed.version) || !readText(object, "url", feed.url) ||
        !readOptionalText(object, "notes", feed.notes) ||
        !readOptionalText(object, "minimumSystemVersion", feed.minimumSystemVersion))
        return std::nullopt;
    auto download = object.find("download");
    if (download != object.end() && !download->is_null()) {
        if (!download->is_object())
            return std::nullopt;
        feed.download = readDownload(*download);
        if (!feed.download)
            return std::nullopt;
    }
    return feed;
}

} // namespace brindle
