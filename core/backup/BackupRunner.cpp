#include "backup/BackupRunner.h"

#include "backup/BackupPlan.h"
#include "backup/FilingWorker.h"
#include "backup/FolderHealth.h"
#include "imap/IMAPClient.h"
#include "imap/IMAPParseError.h"
#include "imap/IMAPResponseReader.h"
#include "mime/EncodedWords.h"
#include "mime/MIMEParser.h"
#include "mime/MailDate.h"
#include "support/AtomicFile.h"
#include "support/Cancellation.h"
#include "support/FileIO.h"
#include "vault/FileNames.h"
#include "vault/VaultLock.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <limits>
#include <set>
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
// state save cover several: the save is what costs (the state grows with the folder). This
// departs from one save per batch on purpose, and safely: the files are flushed before the
// save that records them, so a crash or a failed save costs the download of a few batches,
// whose files the next run finds in place, never a duplicate.
constexpr size_t batchesPerSave = 4;

// Most batches fetched and not yet recorded in a saved state before the next is requested. The
// reports, and so a stop asked for during one, come with the saves: the download may not run
// further ahead of them than the batches one save takes, and one more in flight.
constexpr size_t batchesAheadOfSave = batchesPerSave + 1;

// The most a body may weigh against the size the server reported for it: servers count a few
// bytes differently now and then, never a great many. Without a reported size only the fixed
// ceiling holds.
size_t allowedBodySize(std::optional<std::int64_t> reported) {
    constexpr auto ceiling = IMAPResponseReader::defaultLiteralLimit;
    if (!reported || *reported < 0 || std::uint64_t(*reported) >= ceiling) {
        return ceiling;
    }
    auto size = static_cast<size_t>(*reported);
    return std::min(ceiling, size + size / 8 + 0x10000);
}

// One filed message: where it is and how many body bytes it has.
struct Filed {
    std::uint32_t uid = 0;
    std::string path;
    std::int64_t bodySize = 0;
    /// An existing file recognised after a UIDVALIDITY change: nothing was written.
    bool relinked = false;
    /// A recorded file fetched again because it was missing or differed: the size recorded
    /// is then the file's own, so that a server that counts a few bytes differently doesn't
    /// have it fetched again on every run.
    bool refetched = false;
    /// Refetched, and written again (else the file was found to hold these very bytes).
    bool repaired = false;
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
    /// Batches of the folder recorded in a saved state; written by the filing worker.
    std::atomic<size_t> savedBatches{0};
    /// While re-linking: the files already claimed by a UID, so that two identical messages
    /// on the server keep their two files.
    std::set<std::string> linked;
    /// UID → recorded path of the folder's files to fetch again; fixed before filing starts.
    std::map<std::uint32_t, std::string> repairs;
    /// Of the folder's messages filed, those fetched again: not counted as filed from it.
    int refetched = 0;
    /// A batch is being downloaded: a stop waits for its end (see `run`).
    std::atomic<bool>* fetching = nullptr;

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
        // Walked whole under the new UIDVALIDITY: every file left unclaimed now is not on the
        // server any more, and the next run files only what is new.
        state.relinking = false;
        save(state);
        ++summary.folders;
    }

    void visit(const IMAPMailbox& mailbox);
    int file(const IMAPMailbox& mailbox, FolderState& state, std::vector<std::uint32_t> uids,
             const std::map<std::uint64_t, std::vector<std::string>>& bySize);
    void commit(FolderState& state, const std::unordered_map<std::uint32_t, std::int64_t>& sizes,
                BackupProgress& folder);
    void fileMessage(const IMAPFetchItem& item, const FolderState& state,
                     const std::map<std::uint64_t, std::vector<std::string>>& bySize,
                     std::vector<Filed>& results);
    void repairMessage(const IMAPFetchItem& item, const std::string& path,
                       std::vector<Filed>& results);
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
    // size and bytes as the folder is filed afresh, so nothing is written twice. The state
    // says so until the folder has been walked whole, so that a run interrupted after its
    // first save leaves the next one re-linking too.
    if (state.uidValidity != 0 && state.uidValidity != info.uidValidity) {
        state.highestUID = 0;
        state.files.clear();
        if (state.sizes) {
            state.sizes->clear();
        }
        state.relinking = true;
    }
    state.uidValidity = info.uidValidity;
    std::map<std::uint64_t, std::vector<std::string>> bySize;
    linked.clear();
    if (state.relinking) {
        bySize = BackupRunner::filesBySize(runner.layout, state.directory);
        for (const auto& [uid, path] : state.files) {
            linked.insert(path);
        }
    }

    // Recorded files gone from the disk or changed there are fetched again, by the UIDs that
    // still name them: only while the UIDVALIDITY holds, which the block above has made sure of.
    repairs.clear();
    refetched = 0;
    if (!state.relinking && info.exists >= 1) {
        auto health = FolderHealth::check(runner.layout, state);
        repairs = std::move(health.missing);
        repairs.merge(health.differing);
    }
    std::vector<std::uint32_t> uids;
    for (const auto& [uid, path] : repairs) {
        uids.push_back(uid);
    }
    // No UID lies above the greatest there is, and "4294967296:*" is no set.
    if (info.exists >= 1 && state.highestUID < std::numeric_limits<std::uint32_t>::max()) {
        // "n:*" always matches the last message, even when its UID is below n.
        auto criteria = "UID " + std::to_string(std::uint64_t{state.highestUID} + 1) + ":*";
        for (auto uid : client.uidSearch(criteria)) {
            if (uid > state.highestUID && !repairs.contains(uid)) {
                uids.push_back(uid);
            }
        }
    }
    int filed = uids.empty() ? 0 : file(mailbox, state, uids, bySize);
    finishFolder(state, filed - refetched);
}

int Run::file(const IMAPMailbox& mailbox, FolderState& state, std::vector<std::uint32_t> uids,
              const std::map<std::uint64_t, std::vector<std::string>>& bySize) {
    BackupProgress folder;
    folder.folder = mailbox.displayName;
    folder.mailbox = mailbox.name;
    folder.phase = BackupProgress::measuring;
    report(folder);

    std::unordered_map<std::uint32_t, std::int64_t> sizes;
    std::set<std::uint32_t> answered;
    for (const auto& chunk : BackupPlan::chunked(uids, BackupPlan::metaChunk)) {
        for (auto& item : client.fetchMeta(chunk)) {
            if (!item.uid) {
                continue;
            }
            answered.insert(*item.uid);
            if (item.size) {
                sizes[*item.uid] = *item.size;
            } else {
                sizes.erase(*item.uid);
            }
        }
    }
    // A file to fetch again whose message the server no longer has (released by a free-up, or
    // deleted there) can't be repaired: it isn't asked for.
    std::erase_if(
        uids, [&](std::uint32_t uid) { return repairs.contains(uid) && !answered.contains(uid); });
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
    savedBatches.store(0);
    for (size_t index = 0; index < batches.size(); ++index) {
        worker.waitFor([&] { return index < savedBatches.load() + batchesAheadOfSave; });
        // A stop asked for during a report (which comes from the filing worker) is seen here,
        // before anything more is requested.
        checkCancelled(stop);
        const auto& batch = batches[index];
        // A body may not outweigh what the server announced for it: the largest allowed in the
        // batch bounds what the connection may hold at all, each body is held to its own.
        std::unordered_map<std::uint32_t, size_t> allowed;
        size_t largest = 0;
        for (auto uid : batch) {
            auto known = sizes.find(uid);
            auto limit = allowedBodySize(
                known != sizes.end() ? std::optional<std::int64_t>(known->second) : std::nullopt);
            allowed.emplace(uid, limit);
            largest = std::max(largest, limit);
        }
        client.setLiteralLimit(largest);
        fetching->store(true);
        struct Fetched {
            std::atomic<bool>& flag;
            ~Fetched() { flag.store(false); }
        } fetched_{*fetching};
        client.fetchBodies(batch, [&](IMAPFetchItem&& item) {
            // Only what was asked for, once: an answer for another UID, or a second body,
            // would be filed under a UID that says nothing of what it holds.
            auto wanted = allowed.find(item.uid.value_or(0));
            if (!item.uid || !item.body || wanted == allowed.end()) {
                return;
            }
            if (item.body->size() > wanted->second) {
                throw IMAPParseError(IMAPParseError::Kind::badLiteral);
            }
            allowed.erase(wanted);
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
        client.setLiteralLimit(IMAPResponseReader::defaultLiteralLimit);
        // Whether a later batch is wholly queued is what lets this one's save wait for it;
        // after a stop, none will be.
        bool later = index + 1 < batches.size();
        worker.post(0, [this, &state, &sizes, &folder, &fetched, index, later] {
            unsaved.push_back(std::move(results));
            results.clear();
            if (later && fetched.load() > index + 1 && unsaved.size() < batchesPerSave &&
                !stop.stop_requested()) {
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
            (*state.sizes)[key] =
                known != sizes.end() && !result.refetched ? known->second : result.bodySize;
            state.highestUID = std::max(state.highestUID, result.uid);
        }
    }
    save(state);
    savedBatches.fetch_add(unsaved.size());
    // One report per batch, as if each had been saved by itself.
    for (auto& batch : unsaved) {
        folder.newFiles.clear();
        for (auto& result : batch) {
            ++folder.messagesDone;
            folder.bytesDone += result.bodySize;
            refetched += result.refetched ? 1 : 0;
            if (result.relinked) {
                ++summary.relinked;
            } else if (result.repaired) {
                ++summary.repaired;
            } else if (result.refetched) {
                continue;
            } else {
                ++summary.newMessages;
                summary.bytes += result.bodySize;
            }
            summary.files.push_back(result.path);
            folder.newFiles.push_back(std::move(result.path));
        }
        report(folder);
    }
    unsaved.clear();
}

void Run::fileMessage(const IMAPFetchItem& item, const FolderState& state,
                      const std::map<std::uint64_t, std::vector<std::string>>& bySize,
                      std::vector<Filed>& results) {
    if (!item.uid || !item.body) {
        return;
    }
    if (auto repair = repairs.find(*item.uid); repair != repairs.end()) {
        repairMessage(item, repair->second, results);
        return;
    }
    const std::string& body = *item.body;
    auto bodySize = static_cast<std::int64_t>(body.size());
    if (auto candidates = bySize.find(body.size()); candidates != bySize.end()) {
        for (const auto& path : candidates->second) {
            if (linked.contains(path)) {
                continue;
            }
            try {
                if (FileIO::read(runner.layout.url(path)) == body) {
                    linked.insert(path);
                    results.push_back({*item.uid, path, bodySize, true});
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
    results.push_back({*item.uid, std::move(path), bodySize, false});
}

void Run::repairMessage(const IMAPFetchItem& item, const std::string& path,
                        std::vector<Filed>& results) {
    const std::string& body = *item.body;
    Filed filed{*item.uid, path, static_cast<std::int64_t>(body.size()), false, true, false};
    auto url = runner.layout.url(path);
    std::error_code error;
    if (std::filesystem::exists(std::filesystem::symlink_status(url, error))) {
        try {
            if (FileIO::read(url) == body) {
                results.push_back(std::move(filed));
                return;
            }
        } catch (const std::system_error&) {
            // Unreadable: set aside like a changed file.
        }
        // Never destroyed: the file on the disk is kept apart before the server's copy takes
        // its name.
        FolderHealth::setAsideFile(runner.layout, path);
    }
    auto date = item.internalDate.value_or(std::chrono::system_clock::now());
    filed.path = runner.layout.write(body, path, date, ArchiveLayout::Durability::deferred);
    filed.repaired = true;
    results.push_back(std::move(filed));
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
    // One writer per vault: another backup of it (another account's, or from another process)
    // would file the same mail twice and remove the other's temporary files.
    VaultLock lock(layout, "backup");
    // A stop ends the current batch's download only after it, so that what was asked for is
    // filed and saved ("Stopping after the current batch" holds); anywhere else it ends the
    // conversation at once. A stalled server still gives up within the time-out.
    std::stop_source connection;
    std::atomic<bool> fetching{false};
    std::stop_callback relay(stop, [&] {
        if (!fetching.load()) {
            connection.request_stop();
        }
    });
    IMAPClient client(account.server,
                      std::chrono::milliseconds(static_cast<std::int64_t>(timeout * 1000)),
                      connection.get_token());
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

    Run run{*this, progress, stop, client, layout.loadSync(account), {}, {}, {}, {}, {}, {}, {}};
    run.fetching = &fetching;
    removeSyncLeftovers(layout, account);
    for (const auto& name : chosen) {
        checkCancelled(stop);
        auto found = std::find_if(mailboxes.begin(), mailboxes.end(),
                                  [&](const IMAPMailbox& mailbox) { return mailbox.name == name; });
        // A folder that can't be opened costs nothing; one that vanished from the server is
        // told, while the others are backed up all the same.
        if (found == mailboxes.end()) {
            run.summary.vanished.push_back(name);
            continue;
        }
        if (!found->isSelectable()) {
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
