#include "backup/BackupRunner.h"

#include "backup/BackupPlan.h"
#include "backup/FilingWorker.h"
#include "imap/IMAPClient.h"
#include "mime/EncodedWords.h"
#include "mime/MIMEParser.h"
#include "mime/MailDate.h"
#include "support/AtomicFile.h"
#include "support/Cancellation.h"
#include "support/FileIO.h"
#include "vault/FileNames.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <unordered_map>

namespace qs {

namespace {

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
        return std::toupper(static_cast<unsigned char>(x)) ==
               std::toupper(static_cast<unsigned char>(y));
    });
}

// Most bytes of fetched bodies waiting for the filing worker: enough to keep it busy through a
// batch of small messages while the next are downloaded, small against the memory a large
// message takes anyway.
constexpr size_t filingBudget = 16'000'000;

// Most batches one save may record. While the filing worker lags behind the download, a batch
// whose successor is already queued waits for it, so that one flush of the file system and one
// state save cover several: the save is what costs (the state grows with the folder), and a
// crash then loses the bookkeeping of a few batches, whose files the next run finds in place.
constexpr size_t batchesPerSave = 4;

// One filed message: where it is and how many body bytes it has.
struct Filed {
    std::uint32_t uid = 0;
    std::string path;
    std::int64_t bodySize = 0;
};

// Everything one run carries from folder to folder.
struct Run {
    const BackupRunner& runner;
    const BackupRunner::Progress& progress;
    std::stop_token stop;
    IMAPClient& client;
    AccountSyncState sync;
    BackupSummary summary;
    BackupProgress last;
    /// What the filing worker has filed of the batch it is on.
    std::vector<Filed> results;
    /// Batches filed whose files aren't yet synced and recorded in a saved state.
    std::vector<std::vector<Filed>> unsaved;

    void report(BackupProgress report) {
        report.account = runner.account.label;
        report.completed = last.completed;
        last = report;
        if (progress) {
            progress(report);
        }
    }

    void save(const FolderState& state) {
        sync.folders[state.mailbox] = state;
        runner.layout.saveSync(sync, runner.account);
    }

    void finishFolder(FolderState& state, int filed) {
        last.completed[state.mailbox] = filed;
        state.lastRun = std::chrono::system_clock::now();
        save(state);
        ++summary.folders;
    }

    void visit(const IMAPMailbox& mailbox);
    int file(const IMAPMailbox& mailbox, FolderState& state, const std::vector<std::uint32_t>& uids,
             const std::map<std::uint64_t, std::vector<std::string>>& bySize);
    void commit(FolderState& state, const std::unordered_map<std::uint32_t, std::int64_t>& sizes,
                BackupProgress& folder);
    void fileMessage(const IMAPFetchItem& item, const FolderState& state,
                     const std::map<std::uint64_t, std::vector<std::string>>& bySize,
                     std::vector<Filed>& results) const;
};

void Run::visit(const IMAPMailbox& mailbox) {
    FolderState state;
    if (auto found = sync.folders.find(mailbox.name); found != sync.folders.end()) {
        state = found->second;
    } else {
        state.mailbox = mailbox.name;
        state.directory =
            runner.account.directoryName() + "/" + FileNames::folderDirectory(mailbox);
    }
    BackupRunner::removeLeftovers(runner.layout, state.directory);

    BackupProgress checking;
    checking.folder = mailbox.displayName;
    checking.mailbox = mailbox.name;
    checking.phase = BackupProgress::checking;
    report(checking);
    auto info = client.select(mailbox.name, true);

    // A new UIDVALIDITY voids every UID filed so far; the files themselves are recognised by
    // size and bytes as the folder is filed afresh, so nothing is written twice.
    std::map<std::uint64_t, std::vector<std::string>> bySize;
    if (state.uidValidity != 0 && state.uidValidity != info.uidValidity) {
        state.highestUID = 0;
        state.files.clear();
        if (state.sizes) {
            state.sizes->clear();
        }
        bySize = BackupRunner::filesBySize(runner.layout, state.directory);
    }
    state.uidValidity = info.uidValidity;

    std::vector<std::uint32_t> uids;
    if (info.exists >= 1) {
        // "n:*" always matches the last message, even when its UID is below n.
        auto criteria = "UID " + std::to_string(std::uint64_t{state.highestUID} + 1) + ":*";
        for (auto uid : client.uidSearch(criteria)) {
            if (uid > state.highestUID) {
                uids.push_back(uid);
            }
        }
    }
    int filed = uids.empty() ? 0 : file(mailbox, state, uids, bySize);
    finishFolder(state, filed);
}

int Run::file(const IMAPMailbox& mailbox, FolderState& state,
              const std::vector<std::uint32_t>& uids,
              const std::map<std::uint64_t, std::vector<std::string>>& bySize) {
    BackupProgress folder;
    folder.folder = mailbox.displayName;
    folder.mailbox = mailbox.name;
    folder.phase = BackupProgress::measuring;
    report(folder);

    std::unordered_map<std::uint32_t, std::int64_t> sizes;
    for (const auto& chunk : BackupPlan::chunked(uids, BackupPlan::metaChunk)) {
        for (auto& item : client.fetchMeta(chunk)) {
            if (!item.uid) {
                continue;
            }
            if (item.size) {
                sizes[*item.uid] = *item.size;
            } else {
                sizes.erase(*item.uid);
            }
        }
    }
    folder.phase = BackupProgress::downloading;
    folder.messagesTotal = static_cast<int>(uids.size());
    for (const auto& [uid, size] : sizes) {
        folder.bytesTotal += size;
    }
    report(folder);

    auto batches = BackupPlan::batches(uids, sizes, runner.batchCount, runner.batchBytes);
    // Declared after everything its jobs use, so that on a way out by error it first finishes
    // the jobs handed to it (a whole batch fetched is still saved) while those are alive.
    std::atomic<size_t> fetched{0};
    FilingWorker worker(filingBudget);
    for (size_t index = 0; index < batches.size(); ++index) {
        checkCancelled(stop);
        client.fetchBodies(batches[index], [&](IMAPFetchItem&& item) {
            if (!item.uid || !item.body) {
                return;
            }
            auto weight = item.body->size();
            worker.post(weight, [this, &state, &bySize, &sizes, &folder, item = std::move(item)] {
                try {
                    fileMessage(item, state, bySize, results);
                } catch (...) {
                    // The batches waiting for a shared save are whole: they are still
                    // saved, and the run fails with the write's own error.
                    if (!unsaved.empty()) {
                        try {
                            commit(state, sizes, folder);
                        } catch (...) {
                        }
                    }
                    throw;
                }
            });
        });
        // Whether a later batch is wholly queued is what lets this one's save wait for it.
        bool later = index + 1 < batches.size();
        worker.post(0, [this, &state, &sizes, &folder, &fetched, index, later] {
            unsaved.push_back(std::move(results));
            results.clear();
            if (later && fetched.load() > index + 1 && unsaved.size() < batchesPerSave) {
                return;
            }
            commit(state, sizes, folder);
        });
        fetched.store(index + 1);
    }
    worker.finish();
    return folder.messagesDone;
}

void Run::commit(FolderState& state, const std::unordered_map<std::uint32_t, std::int64_t>& sizes,
                 BackupProgress& folder) {
    // The files must be on the disk before a saved state points at them, also those found
    // in place, which a killed run may have left unflushed.
    if (std::any_of(unsaved.begin(), unsaved.end(),
                    [](const std::vector<Filed>& batch) { return !batch.empty(); })) {
        AtomicFile::syncFileSystem(runner.layout.root);
    }
    for (const auto& batch : unsaved) {
        for (const auto& result : batch) {
            auto key = std::to_string(result.uid);
            state.files[key] = result.path;
            if (!state.sizes) {
                state.sizes.emplace();
            }
            auto known = sizes.find(result.uid);
            (*state.sizes)[key] = known != sizes.end() ? known->second : result.bodySize;
            state.highestUID = std::max(state.highestUID, result.uid);
        }
    }
    save(state);
    // One report per batch, as if each had been saved by itself.
    for (auto& batch : unsaved) {
        folder.newFiles.clear();
        for (auto& result : batch) {
            ++folder.messagesDone;
            ++summary.newMessages;
            folder.bytesDone += result.bodySize;
            summary.bytes += result.bodySize;
            summary.files.push_back(result.path);
            folder.newFiles.push_back(std::move(result.path));
        }
        report(folder);
    }
    unsaved.clear();
}

void Run::fileMessage(const IMAPFetchItem& item, const FolderState& state,
                      const std::map<std::uint64_t, std::vector<std::string>>& bySize,
                      std::vector<Filed>& results) const {
    if (!item.uid || !item.body) {
        return;
    }
    const std::string& body = *item.body;
    auto bodySize = static_cast<std::int64_t>(body.size());
    if (auto candidates = bySize.find(body.size()); candidates != bySize.end()) {
        for (const auto& path : candidates->second) {
            try {
                if (FileIO::read(runner.layout.url(path)) == body) {
                    results.push_back({*item.uid, path, bodySize});
                    return;
                }
            } catch (const std::system_error&) {
                // An unreadable file is no match.
            }
        }
    }
    // Only the header block names the file: `headers` looks at the first 256 KiB at most.
    auto headers = MIMEParser::headers(body);
    const auto* subjectField = headers.first("Subject");
    auto subject = subjectField ? EncodedWords::decode(*subjectField) : std::string();
    // The server's arrival date decides the year folder, not the sender's claim.
    std::optional<Date> date = item.internalDate;
    if (!date) {
        if (const auto* field = headers.first("Date")) {
            date = MailDate::parse(*field);
        }
    }
    if (!date) {
        date = std::chrono::system_clock::now();
    }
    auto relative =
        state.directory + "/" + FileNames::messagePath(*date, subject, std::to_string(*item.uid));
    auto path = runner.layout.write(body, relative, *date, ArchiveLayout::Durability::deferred);
    results.push_back({*item.uid, std::move(path), bodySize});
}

// Temporary sync files of this account that a killed save left in the meta folder.
void removeSyncLeftovers(const ArchiveLayout& layout, const MailAccount& account) {
    auto suffix = "-" + layout.syncURL(account).filename().string();
    std::error_code error;
    std::filesystem::directory_iterator it(layout.metaDirectory(), error);
    for (; !error && it != std::filesystem::directory_iterator(); it.increment(error)) {
        auto name = it->path().filename().string();
        if (name.starts_with(AtomicFile::temporaryPrefix) && name.ends_with(suffix)) {
            std::error_code ignored;
            std::filesystem::remove(it->path(), ignored);
        }
    }
}

} // namespace

BackupRunner::BackupRunner(ArchiveLayout layout, MailAccount account, std::string password)
    : layout(std::move(layout)), account(std::move(account)), password(std::move(password)) {}

BackupSummary BackupRunner::run(const Progress& progress, std::stop_token stop) {
    IMAPClient client(account.server,
                      std::chrono::milliseconds(static_cast<std::int64_t>(timeout * 1000)), stop);
    // Closing sends nothing and can't fail, so it is safe on every way out.
    struct Disconnect {
        IMAPClient& client;
        ~Disconnect() { client.disconnect(); }
    } disconnect{client};

    client.connect();
    client.login(account.username, password);
    auto mailboxes = client.list();
    if (mailboxes.empty()) {
        mailboxes = account.knownFolders;
    }
    std::vector<std::string> chosen = account.folders;
    if (chosen.empty()) {
        for (const auto& mailbox : mailboxes) {
            if (equalsIgnoringCase(mailbox.name, "INBOX")) {
                chosen.push_back(mailbox.name);
            }
        }
    }

    Run run{*this, progress, stop, client, layout.loadSync(account), {}, {}, {}, {}};
    removeSyncLeftovers(layout, account);
    for (const auto& name : chosen) {
        checkCancelled(stop);
        auto found = std::find_if(mailboxes.begin(), mailboxes.end(),
                                  [&](const IMAPMailbox& mailbox) { return mailbox.name == name; });
        // A folder that vanished from the server, or can't be opened, costs nothing.
        if (found == mailboxes.end() || !found->isSelectable()) {
            continue;
        }
        run.visit(*found);
    }

    BackupProgress done = run.last;
    done.phase = BackupProgress::done;
    done.newFiles.clear();
    run.report(done);
    // The backup is complete; a goodbye that goes wrong changes nothing of it.
    client.logout();
    return std::move(run.summary);
}

} // namespace qs
