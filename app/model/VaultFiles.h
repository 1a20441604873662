#pragma once

#include "model/SavedSearch.h"
#include "vault/ArchiveLayout.h"
#include "vault/MailAccount.h"

#include <optional>
#include <vector>

namespace qs::VaultFiles {

/// The store's best-effort records in the vault's meta folder. Loading never fails: anything
/// missing, unreadable or damaged is nothing. Saving reports nothing: the list in memory stays
/// right until the next launch.

std::optional<std::vector<MailAccount>> loadAccounts(const ArchiveLayout& layout);
void saveAccounts(const ArchiveLayout& layout, const std::vector<MailAccount>& accounts) noexcept;
/// As saveAccounts, but a failure to make the vault's folders or write the file is thrown
/// (std::system_error): adding an account must not claim success with nothing saved.
void writeAccounts(const ArchiveLayout& layout, const std::vector<MailAccount>& accounts);

std::optional<std::vector<SavedSearch>> loadSavedSearches(const ArchiveLayout& layout);
void saveSavedSearches(const ArchiveLayout& layout,
                       const std::vector<SavedSearch>& searches) noexcept;

} // namespace qs::VaultFiles
