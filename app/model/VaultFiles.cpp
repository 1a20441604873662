#include "model/VaultFiles.h"

#include "support/AtomicFile.h"
#include "support/FileIO.h"

namespace qs::VaultFiles {

namespace {

std::optional<std::string> readText(const std::filesystem::path& path) {
    try {
        return FileIO::read(path);
    } catch (const std::system_error&) {
        return std::nullopt;
    }
}

template <typename Encode>
void writeQuietly(const ArchiveLayout& layout, const std::filesystem::path& path,
                  Encode encode) noexcept {
    try {
        layout.ensure();
    } catch (const std::system_error&) {
        // The write below fails too, and is ignored as well.
    }
    try {
        AtomicFile::write(path, encode());
    } catch (...) {
    }
}

} // namespace

std::optional<std::vector<MailAccount>> loadAccounts(const ArchiveLayout& layout) {
    auto text = readText(layout.accountsURL());
    return text ? MailAccount::decodeList(*text) : std::nullopt;
}

void saveAccounts(const ArchiveLayout& layout, const std::vector<MailAccount>& accounts) noexcept {
    writeQuietly(layout, layout.accountsURL(), [&] { return MailAccount::encodeList(accounts); });
}

void writeAccounts(const ArchiveLayout& layout, const std::vector<MailAccount>& accounts) {
    layout.ensure();
    AtomicFile::write(layout.accountsURL(), MailAccount::encodeList(accounts));
}

std::optional<std::vector<SavedSearch>> loadSavedSearches(const ArchiveLayout& layout) {
    auto text = readText(layout.filtersURL());
    return text ? SavedSearch::decodeList(*text) : std::nullopt;
}

void saveSavedSearches(const ArchiveLayout& layout,
                       const std::vector<SavedSearch>& searches) noexcept {
    writeQuietly(layout, layout.filtersURL(), [&] { return SavedSearch::encodeList(searches); });
}

} // namespace qs::VaultFiles
