// The release: the one operation of the system that destroys anything.
#include "cleanup/Cleaner.h"

#include "imap/IMAPClient.h"
#include "vault/VaultLock.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <set>

namespace qs {

namespace {

std::vector<uint32_t> without(const std::vector<uint32_t>& uids, const std::set<uint32_t>& kept) {
    std::vector<uint32_t> rest;
    std::copy_if(uids.begin(), uids.end(), std::back_inserter(rest),
                 [&](uint32_t uid) { return !kept.contains(uid); });
    return rest;
}

} // namespace

int64_t Cleaner::execute(const CleanupPlan& plan, const Progress& progress,
                         std::stop_token stop) const {
    // No backup or import may change the vault while its copies are proven and released.
    VaultLock lock(layout, "release");
    // Prove again: the vault may have changed since the plan was verified.
    std::map<uint32_t, int64_t> proven;
    for (const CleanupItem& item : plan.verified()) {
        if (item.localPath && verify(layout.url(*item.localPath), item.serverSize) ==
                                  CleanupItem::Status::verified()) {
            proven.emplace(item.uid, item.serverSize);
        }
    }
    if (proven.empty()) {
        throw CleanupError::nothingVerified();
    }
    std::set<uint32_t> kept;
    for (const auto& [uid, size] : proven) {
        kept.insert(uid);
    }

    // No stop token for the session: a stop must not cut a chunk between its STORE and its
    // EXPUNGE, or the count of what left the server would be a guess. Stops are honoured
    // between chunks.
    IMAPClient client(account.server, std::chrono::milliseconds(std::llround(timeout * 1000.0)));
    client.connect();
    client.login(account.username, password);
    SelectInfo info = client.select(plan.mailbox, false);
    if (info.uidValidity != plan.uidValidity) {
        client.logout();
        throw CleanupError::uidValidityChanged();
    }
    // From the live session: the server may have changed since the survey.
    bool uidplus = client.capabilities().contains("UIDPLUS");
    if (!uidplus) {
        // Plain EXPUNGE removes every marked message, whoever marked it.
        std::vector<uint32_t> others = without(client.uidSearch("DELETED"), kept);
        if (!others.empty()) {
            client.logout();
            throw CleanupError::otherDeletedMessages(static_cast<int64_t>(others.size()));
        }
    }

    // A UID is confirmed only if every size the server gives for it is the proven one.
    std::map<uint32_t, bool> sizeAgrees;
    for (const IMAPFetchItem& item : fetchMeta(client, {kept.begin(), kept.end()})) {
        if (!item.uid || !kept.contains(*item.uid)) {
            continue;
        }
        bool agrees = item.size && *item.size == proven.at(*item.uid);
        auto [entry, inserted] = sizeAgrees.emplace(*item.uid, agrees);
        entry->second = entry->second && agrees;
    }
    std::vector<uint32_t> confirmed;
    for (const auto& [uid, agrees] : sizeAgrees) {
        if (agrees) {
            confirmed.push_back(uid);
        }
    }
    if (confirmed.empty()) {
        client.logout();
        throw CleanupError::nothingVerified();
    }

    const auto total = static_cast<int64_t>(confirmed.size());
    if (progress) {
        progress(0, total);
    }
    const auto step = static_cast<size_t>(std::max<int64_t>(chunkSize, 1));
    int64_t released = 0;
    for (size_t start = 0; start < confirmed.size(); start += step) {
        if (stop.stop_requested()) {
            break;
        }
        std::vector<uint32_t> chunk(confirmed.begin() + static_cast<std::ptrdiff_t>(start),
                                    confirmed.begin() + static_cast<std::ptrdiff_t>(std::min(
                                                            start + step, confirmed.size())));
        std::optional<std::string> problem;
        try {
            if (!uidplus) {
                // Marks set meanwhile by another client would go with this chunk's EXPUNGE.
                std::set<uint32_t> inChunk(chunk.begin(), chunk.end());
                std::vector<uint32_t> others = without(client.uidSearch("DELETED"), inChunk);
                if (!others.empty()) {
                    throw CleanupError::otherDeletedMessages(static_cast<int64_t>(others.size()));
                }
            }
            client.markDeleted(chunk);
            client.expunge(chunk);
        } catch (const std::exception& error) {
            problem = error.what();
        } catch (...) {
            problem = "unknown failure";
        }
        if (problem) {
            // No half-processed marks may stay behind. If the unmarking fails too (the
            // session is gone), the first failure is the one to report.
            try {
                client.unmarkDeleted(chunk);
            } catch (...) {
            }
            client.logout();
            throw CleanupError::stopped(released, total, std::move(problem));
        }
        released += static_cast<int64_t>(chunk.size());
        if (progress) {
            progress(released, total);
        }
    }
    client.logout();
    if (released >= total) {
        return released;
    }
    throw CleanupError::stopped(released, total);
}

} // namespace qs
