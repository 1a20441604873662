// backup, import, reindex and ledger: the commands that fill the vault and tell how far it is.
#include "CLIWords.h"
#include "Commands.h"
#include "Interrupt.h"
#include "Terminal.h"
#include "TerminalText.h"
#include "Wait.h"

#include "model/Fmt.h"
#include "model/FriendlyError.h"
#include "model/ImportWords.h"
#include "vault/VaultLock.h"

#include <QElapsedTimer>
#include <QLocale>
#include <iostream>
#include <map>
#include <memory>

namespace qs::cli {

namespace {

std::string grouped(int64_t number) {
    return QLocale().toString(number).toStdString();
}

/// Draws a running backup: on a terminal one line rewritten in place; elsewhere one line per
/// folder, written when the run moves past it.
class BackupDisplay {
public:
    explicit BackupDisplay(bool live) : live_(live) {}

    void update(const BackupProgress& progress) {
        if (progress.phase.empty())
            return;
        saved_ += static_cast<int64_t>(progress.newFiles.size());
        std::string key = progress.account + " › " + progress.folder;
        if (key != key_) {
            // The run moves on only from a folder it finished.
            if (progress.account == last_.account && progress.completed.contains(last_.mailbox))
                last_.phase = BackupProgress::done;
            finishLine();
            key_ = key;
            clock_.start();
        }
        last_ = progress;
        if (live_)
            std::cout << "\r\033[K" << terminalText(describe(progress)) << std::flush;
    }

    /// Ends the current folder's line.
    void finishLine() {
        if (key_.empty())
            return;
        if (live_)
            std::cout << "\r\033[K";
        std::cout << terminalText(describe(last_)) << "\n" << std::flush;
        key_.clear();
    }

    /// Messages filed in this run so far, by the reports.
    int64_t saved() const { return saved_; }

    /// Whether no batch is being fetched: nothing in flight would be lost by stopping now.
    bool betweenBatches() const { return last_.phase != BackupProgress::downloading; }

private:
    std::string describe(const BackupProgress& p) const {
        std::string line = p.account + " › " + p.folder + " · " + p.phase;
        if (p.messagesTotal > 0) {
            line += " · " + grouped(p.messagesDone) + " of " + grouped(p.messagesTotal) + " · " +
                    bytes(p.bytesDone) + " of " + bytes(p.bytesTotal);
            double seconds = static_cast<double>(clock_.elapsed()) / 1000.0;
            if (seconds > 0.2) {
                line += " · " +
                        bytes(static_cast<int64_t>(static_cast<double>(p.bytesDone) / seconds)) +
                        "/s";
            }
        }
        return line;
    }

    bool live_;
    int64_t saved_ = 0;
    std::string key_;
    BackupProgress last_;
    QElapsedTimer clock_;
};

/// Waits for the scan a backup or an import started, which saves the index at its end: one
/// just started hasn't counted its files yet, so `indexing` alone doesn't tell.
void finishScan(AppStore& store) {
    if (store.scanPending())
        runUntil(&store, &AppStore::scanFinished, [] {});
}

/// The vault's lock for a command that writes it, or nothing after telling who holds it.
std::unique_ptr<VaultLock> holdVault(AppStore& store, std::string_view activity) {
    try {
        return std::make_unique<VaultLock>(store.layout(), activity);
    } catch (...) {
        auto problem = FriendlyError::describe(std::current_exception(), std::nullopt);
        std::cerr << problem.title << ". " << problem.advice << "\n";
        return nullptr;
    }
}

} // namespace

void loadArchive(AppStore& store) {
    runUntil(&store, &AppStore::scanFinished, [&] { store.reloadArchive(); });
}

int backup(AppStore& store, const std::optional<std::string>& label) {
    std::optional<MailAccount> only;
    if (label) {
        only = accountLabelled(store, *label);
        if (!only)
            return failed;
    }
    if (store.accounts().empty()) {
        std::cerr << "No accounts yet. Connect an account to start filling the vault.\n";
        return failed;
    }
    // Asked first so that a busy vault is told once; each account's backup takes the lock.
    if (!holdVault(store, "backup"))
        return failed;
    BackupDisplay display(stdoutIsTerminal());
    Interrupt interrupt;
    bool stopping = false;
    bool stopped = false;
    auto stopNow = [&] {
        if (!stopped) {
            stopped = true;
            store.stopBackup();
        }
    };
    QObject::connect(&interrupt, &Interrupt::interrupted, &store, [&] {
        stopping = true;
        notes() << "\nStopping after the current batch…\n";
        if (display.betweenBatches())
            stopNow();
    });
    int64_t reported = 0;
    auto watch = QObject::connect(&store, &AppStore::backupChanged, &store, [&] {
        const BackupProgress& progress = store.backup().progress;
        display.update(progress);
        // A report with new files comes once a batch is on the disk and its state saved; a
        // stop asked for now costs only the batch that has just begun.
        if (stopping && (display.saved() > reported || display.betweenBatches()))
            stopNow();
        reported = display.saved();
    });
    runUntil(&store, &AppStore::backupFinished, [&] { store.backUpNow(only); });
    QObject::disconnect(watch);
    display.finishLine();
    // A successful account makes the store re-read the vault; let that finish so the index
    // on disk is current when the command returns.
    finishScan(store);

    std::map<std::string, FriendlyError::Message> problems;
    for (const MailAccount& account : only ? std::vector{*only} : store.accounts()) {
        if (auto found = store.backupProblems().find(account.label);
            found != store.backupProblems().end())
            problems.insert(*found);
    }
    if (stopped || stopping) {
        std::cout << "Stopped — " << plural(display.saved(), "new message")
                  << " saved; the next backup goes on from there.\n";
    } else if (!problems.empty()) {
        // Never "everything was already in the vault" when an account wasn't looked at.
        std::cout
            << BackupStatus::attentionMessage(static_cast<int>(problems.size())).toStdString();
        if (display.saved() > 0)
            std::cout << " · " << plural(display.saved(), "new message") << " saved";
        std::cout << "\n";
    } else if (store.backup().lastMessage) {
        std::cout << *store.backup().lastMessage << "\n";
    }
    for (const auto& [account, problem] : problems)
        CLIWords::report(problem, account + ": ");
    return stopping || !problems.empty() ? failed : ok;
}

int importFiles(AppStore& store, const std::vector<std::string>& files) {
    // Asked first so that a busy vault fails the command; the import takes the lock itself.
    if (!holdVault(store, "import"))
        return failed;
    std::vector<std::filesystem::path> paths(files.begin(), files.end());
    runUntil(&store, &AppStore::importFinished, [&] { store.importFiles(paths); });
    finishScan(store);
    if (store.importMessage())
        std::cout << store.importMessage()->toStdString() << "\n";
    bool unread = false;
    for (const ImportOutcome& outcome : store.importOutcomes()) {
        std::cerr << terminalText(ImportWords::line(outcome).toStdString()) << "\n";
        unread = unread || outcome.failed();
    }
    return unread ? failed : ok;
}

int reindex(AppStore& store) {
    auto lock = holdVault(store, "reindex");
    if (!lock)
        return failed;
    bool live = stdoutIsTerminal();
    auto watch = QObject::connect(&store, &AppStore::indexingChanged, &store, [&] {
        if (live && store.indexing() && store.indexing()->total > 0) {
            std::cout << "\r\033[KIndexing "
                      << grouped(static_cast<int64_t>(store.indexing()->done)) << " of "
                      << grouped(static_cast<int64_t>(store.indexing()->total)) << std::flush;
        }
    });
    loadArchive(store);
    QObject::disconnect(watch);
    if (live)
        std::cout << "\r\033[K";
    std::cout << store.vaultSummary().toStdString() << "\n";
    return ok;
}

int ledger(AppStore& store) {
    std::cout << "Your vault\n";
    if (store.accounts().empty()) {
        std::cout << "No accounts yet\nConnect an account to start filling the vault.\n";
        return ok;
    }
    for (const MailAccount& account : store.accounts()) {
        std::cout << "\n"
                  << account.label << " · "
                  << (account.lastBackup ? "checked " + Fmt::ago(*account.lastBackup).toStdString()
                                         : std::string("never backed up"))
                  << "\n";
        if (auto problem = store.backupProblems().find(account.label);
            problem != store.backupProblems().end()) {
            std::cout << "  ⚠ " << CLIWords::forTerminal(problem->second.text()) << "\n";
        }
        AccountSyncState sync = store.layout().loadSync(account);
        for (const std::string& name : account.folders) {
            std::string display = name;
            for (const IMAPMailbox& mailbox : account.knownFolders) {
                if (mailbox.name == name)
                    display = mailbox.displayName;
            }
            std::string state = "waiting";
            auto line = store.ledger().find(account.directoryName() + "/" + name);
            auto folder = sync.folders.find(name);
            if (line != store.ledger().end() && line->second.running) {
                state = "+" + grouped(line->second.done) + " of " + grouped(line->second.total);
            } else if (line != store.ledger().end() && line->second.finished) {
                state = line->second.newMessages == 0
                            ? std::string("✓ up to date")
                            : "✓ +" + grouped(line->second.newMessages) + " new";
            } else if (folder != sync.folders.end() && folder->second.lastRun) {
                state = Fmt::ago(*folder->second.lastRun).toStdString();
            }
            std::cout << "  " << terminalText(display) << " · " << state << "\n";
        }
    }
    return ok;
}

} // namespace qs::cli
