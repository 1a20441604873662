#include "Brindle/BundleSeal.h"

#include "Brindle/UpdateLogic.h"

#include <nlohmann/json.hpp>
#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <sstream>

namespace brindle::BundleSeal {

namespace {

namespace fs = std::filesystem;

std::string hex(const unsigned char* bytes, unsigned length) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (unsigned i = 0; i < length; ++i) {
        text += digits[bytes[i] >> 4];
        text += digits[bytes[i] & 15];
    }
    return text;
}

std::string readAll(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

// Streams the file through SHA-256, so a large program needs no more memory than a block.
Entry describe(const fs::path& bundle, const fs::directory_entry& item) {
    Entry entry{item.path().lexically_relative(bundle).generic_string(), 0, {}};
    std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(),
                                                                    &EVP_MD_CTX_free);
    EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr);
    if (item.is_symlink()) {
        const std::string target = fs::read_symlink(item.path()).string();
        entry.size = target.size();
        EVP_DigestUpdate(context.get(), target.data(), target.size());
    } else {
        std::ifstream file(item.path(), std::ios::binary);
        std::array<char, 65536> block;
        while (file.read(block.data(), block.size()) || file.gcount() > 0) {
            entry.size += uint64_t(file.gcount());
            EVP_DigestUpdate(context.get(), block.data(), size_t(file.gcount()));
        }
    }
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest;
    unsigned length = 0;
    EVP_DigestFinal_ex(context.get(), digest.data(), &length);
    entry.sha256 = hex(digest.data(), length);
    return entry;
}

} // namespace

std::vector<Entry> survey(const fs::path& bundle) {
    std::vector<Entry> entries;
    for (auto it = fs::recursive_directory_iterator(bundle); it != fs::end(it); ++it) {
        if (it->is_directory() && !it->is_symlink())
            continue;
        const fs::path relative = it->path().lexically_relative(bundle);
        if (relative == listName || relative == signatureName)
            continue;
        entries.push_back(describe(bundle, *it));
    }
    std::ranges::sort(entries, {}, &Entry::path);
    return entries;
}

std::string listText(const std::vector<Entry>& entries) {
    nlohmann::json files = nlohmann::json::array();
    for (const Entry& entry : entries)
        files.push_back({{"path", entry.path}, {"size", entry.size}, {"sha256", entry.sha256}});
    return nlohmann::json{{"files", files}}.dump(1);
}

bool check(const fs::path& bundle, std::string_view publicKey) {
    std::error_code error;
    if (!fs::is_regular_file(bundle / listName, error) ||
        !fs::is_regular_file(bundle / signatureName, error))
        return false;
    const std::string list = readAll(bundle / listName);
    std::string signature = readAll(bundle / signatureName);
    while (!signature.empty() && (signature.back() == '\n' || signature.back() == '\r'))
        signature.pop_back();
    if (!UpdateLogic::verify(list, signature, publicKey))
        return false;
    const auto json = nlohmann::json::parse(list, nullptr, false);
    if (json.is_discarded() || !json.is_object() || !json.contains("files") ||
        !json["files"].is_array())
        return false;
    std::vector<Entry> listed;
    for (const auto& file : json["files"]) {
        if (!file.is_object() || !file.contains("path") || !file["path"].is_string() ||
            !file.contains("size") || !file["size"].is_number_unsigned() ||
            !file.contains("sha256") || !file["sha256"].is_string())
            return false;
        listed.push_back({file["path"].get<std::string>(), file["size"].get<uint64_t>(),
                          file["sha256"].get<std::string>()});
    }
    std::ranges::sort(listed, {}, &Entry::path);
    try {
        return survey(bundle) == listed;
    } catch (const fs::filesystem_error&) {
        return false;
    }
}

} // namespace brindle::BundleSeal
