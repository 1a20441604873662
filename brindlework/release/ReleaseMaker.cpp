#include "ReleaseMaker.h"

#include "Brindle/BundleSeal.h"

#include <archive.h>
#include <archive_entry.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <sys/stat.h>

namespace brindle::ReleaseMaker {

namespace fs = std::filesystem;

namespace {

void writeFile(const fs::path& path, const std::string& text) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << text;
    if (!file)
        throw std::runtime_error("can't write " + path.string());
}

std::string readFile(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

} // namespace

void seal(const AppBundle& bundle, const SigningKey& key) {
    writeFile(bundle.path / AppBundle::manifestName, bundle.manifest());
    const std::string list = BundleSeal::listText(BundleSeal::survey(bundle.path));
    writeFile(bundle.path / BundleSeal::listName, list);
    writeFile(bundle.path / BundleSeal::signatureName, key.sign(list) + "\n");
}

std::string zip(const std::vector<ZipEntry>& entries) {
    std::unique_ptr<archive, decltype(&archive_write_free)> writer(archive_write_new(),
                                                                   &archive_write_free);
    archive_write_set_format_zip(writer.get());
    // Room for the archive grows with what is written; libarchive writes into a fixed buffer.
    size_t capacity = 4096;
    for (const ZipEntry& entry : entries)
        capacity += entry.name.size() * 3 + entry.content.size() + 512;
    std::string buffer(capacity, '\0');
    size_t used = 0;
    if (archive_write_open_memory(writer.get(), buffer.data(), buffer.size(), &used) != ARCHIVE_OK)
        throw std::runtime_error("zip: can't open");
    for (const ZipEntry& item : entries) {
        std::unique_ptr<archive_entry, decltype(&archive_entry_free)> entry(archive_entry_new(),
                                                                            &archive_entry_free);
        archive_entry_set_pathname(entry.get(), item.name.c_str());
        const bool link = !item.linkTarget.empty();
        archive_entry_set_filetype(entry.get(), item.directory ? AE_IFDIR
                                                : link         ? AE_IFLNK
                                                               : AE_IFREG);
        if (link)
            archive_entry_set_symlink(entry.get(), item.linkTarget.c_str());
        archive_entry_set_perm(entry.get(), item.directory ? 0755 : mode_t(item.mode));
        archive_entry_set_size(entry.get(),
                               item.directory || link ? 0 : la_int64_t(item.content.size()));
        if (archive_write_header(writer.get(), entry.get()) != ARCHIVE_OK ||
            (!item.directory && !link &&
             archive_write_data(writer.get(), item.content.data(), item.content.size()) < 0))
            throw std::runtime_error(std::string("zip: ") + archive_error_string(writer.get()));
    }
    if (archive_write_close(writer.get()) != ARCHIVE_OK)
        throw std::runtime_error("zip: can't finish");
    buffer.resize(used);
    return buffer;
}

std::string zipFolder(const fs::path& folder) {
    const fs::path root = folder.filename();
    std::vector<ZipEntry> entries{{root.string() + "/", {}, true, 0755}};
    std::vector<fs::directory_entry> items{fs::recursive_directory_iterator(folder),
                                           fs::recursive_directory_iterator()};
    std::ranges::sort(items, {}, [](const auto& item) { return item.path(); });
    for (const auto& item : items) {
        const std::string name = (root / item.path().lexically_relative(folder)).generic_string();
        if (item.is_directory())
            entries.push_back({name + "/", {}, true, 0755});
        else
            entries.push_back({name, readFile(item.path()), false,
                               int(fs::status(item.path()).permissions() & fs::perms::mask)});
    }
    return zip(entries);
}

std::string feedEntry(const std::string& version, const std::string& pageURL,
                      const std::string& archiveURL, const std::string& archive,
                      const SigningKey& key, const std::string& notes,
                      const std::string& minimumSystemVersion) {
    nlohmann::json feed{
        {"version", version},
        {"url", pageURL},
        {"download",
         {{"url", archiveURL}, {"length", archive.size()}, {"edSignature", key.sign(archive)}}}};
    if (!notes.empty())
        feed["notes"] = notes;
    if (!minimumSystemVersion.empty())
        feed["minimumSystemVersion"] = minimumSystemVersion;
    return feed.dump(2);
}

} // namespace brindle::ReleaseMaker
