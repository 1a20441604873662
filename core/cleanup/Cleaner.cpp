#include "cleanup/Cleaner.h"

#include "imap/IMAPClient.h"
#include "imap/IMAPDate.h"
#include "support/Cancellation.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cmath>
#include <set>

namespace qs {

namespace {

std::chrono::milliseconds milliseconds(double seconds) {
    return std::chrono::milliseconds(std::llround(seconds * 1000.0));
}

// A sync-state key is the UID in plain decimal; anything else names no message.
std::optional<uint32_t> decimalUID(std::string_view text) {
    uint32_t value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || error != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return value;
}

} // namespace

Cleaner::Cleaner(ArchiveLayout layout, MailAccount account, std::string password)
    : layout(std::move(layout)), account(std::move(account)), password(std::move(password)) {}

std::vector<IMAPFetchItem> Cleaner::fetchMeta(IMAPClient& client,
                                              const std::vector<uint32_t>& uids) {
    std::vector<IMAPFetchItem> items;
    for (size_t start = 0; start < uids.size(); start += fetchSlice) {
        size_t end = std::min(start + fetchSlice, uids.size());
        std::vector<uint32_t> slice(uids.begin() + static_cast<std::ptrdiff_t>(start),
                                    uids.begin() + static_cast<std::ptrdiff_t>(end));
        for (IMAPFetchItem& item : client.fetchMeta(slice)) {
            items.push_back(std::move(item));
        }
    }
    return items;
}

std::map<uint32_t, std::string> Cleaner::localCopies(const std::string& mailbox,
                                                     uint32_t uidValidity,
                                                     const std::vector<uint32_t>& uids) const {
    std::map<uint32_t, std::string> table;
    AccountSyncState state = layout.loadSync(account);
    auto found = state.folders.find(mailbox);
    // Old UIDs mean nothing under a new UIDVALIDITY, and 0 means nothing was ever filed under
    // one: every message is then not backed up until a backup has run again.
    if (found == state.folders.end() || uidValidity == 0 ||
        found->second.uidValidity != uidValidity) {
        return table;
    }
    const FolderState& folder = found->second;
    for (const auto& [key, path] : folder.files) {
        if (std::optional<uint32_t> uid = decimalUID(key)) {
            table.emplace(*uid, path);
        }
    }
    bool gaps =
        std::any_of(uids.begin(), uids.end(), [&](uint32_t uid) { return !table.contains(uid); });
    if (gaps) {
        // A state that lost an entry (an older version, a restored file) still has the file
        // itself on disk under its UID name; the state keeps priority where both speak.
        for (auto& [uid, path] : filesByUID(layout, folder.directory)) {
            table.emplace(uid, std::move(path));
        }
    }
    return table;
}

CleanupPlan Cleaner::survey(const std::string& mailbox, Date before, std::stop_token stop) const {
    IMAPClient client(account.server, milliseconds(timeout), stop);
    client.connect();
    client.login(account.username, password);
    SelectInfo info = client.select(mailbox, true);
    std::vector<uint32_t> selection = client.uidSearch("BEFORE " + IMAPDate::searchString(before));
    std::vector<uint32_t> deleted = client.uidSearch("DELETED");
    std::vector<IMAPFetchItem> fetched = fetchMeta(client, selection);
    bool uidplus = client.capabilities().contains("UIDPLUS");
    client.logout();

    std::set<uint32_t> asked(selection.begin(), selection.end());
    std::vector<uint32_t> fetchedUIDs;
    for (const IMAPFetchItem& item : fetched) {
        if (item.uid) {
            fetchedUIDs.push_back(*item.uid);
        }
    }
    std::map<uint32_t, std::string> copies = localCopies(mailbox, info.uidValidity, fetchedUIDs);

    CleanupPlan plan;
    plan.mailbox = mailbox;
    plan.displayName = mailbox;
    for (const IMAPMailbox& known : account.knownFolders) {
        if (known.name == mailbox) {
            plan.displayName = known.displayName;
            break;
        }
    }
    plan.before = before;
    plan.uidValidity = info.uidValidity;
    plan.serverSupportsUIDPlus = uidplus;
    plan.otherDeletedOnServer = std::count_if(deleted.begin(), deleted.end(),
                                              [&](uint32_t uid) { return !asked.contains(uid); });

    std::stable_sort(fetched.begin(), fetched.end(),
                     [](const IMAPFetchItem& a, const IMAPFetchItem& b) { return a.uid < b.uid; });
    for (const IMAPFetchItem& item : fetched) {
        // Only what was asked for, once: a server may add unsolicited FETCH responses.
        if (!item.uid || !item.size || !asked.contains(*item.uid) ||
            (!plan.items.empty() && plan.items.back().uid == *item.uid)) {
            continue;
        }
        CleanupItem entry;
        entry.uid = *item.uid;
        entry.serverSize = *item.size;
        entry.date = item.internalDate;
        if (auto copy = copies.find(entry.uid); copy != copies.end()) {
            entry.localPath = copy->second;
        }
        plan.items.push_back(std::move(entry));
    }
    return plan;
}

CleanupPlan Cleaner::plan(const std::string& mailbox, Date before, std::stop_token stop) const {
    CleanupPlan result = survey(mailbox, before, stop);
    for (CleanupItem& item : result.items) {
        checkCancelled(stop);
        item.status = verify(item, layout);
    }
    return result;
}

} // namespace qs
