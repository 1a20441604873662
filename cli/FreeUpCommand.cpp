// free-up: survey, verify, confirm by the typed phrase, release.
#include "CLIWords.h"
#include "Commands.h"
#include "FolderChoice.h"
#include "Interrupt.h"
#include "Terminal.h"
#include "Wait.h"

#include <QLocale>
#include <iostream>

namespace qs::cli {

namespace {

/// Runs the event loop until the cleanup walk is no longer busy.
void waitWhileBusy(AppStore& store, bool live) {
    CleanupModel& cleanup = store.cleanup();
    auto progress = QObject::connect(&cleanup, &CleanupModel::checkedChanged, &cleanup, [&] {
        if (live && cleanup.plan()) {
            std::cout << "\r\033[KChecking " << cleanup.checked() << " of "
                      << cleanup.plan()->items.size() << std::flush;
        }
    });
    auto released = QObject::connect(&cleanup, &CleanupModel::releasedChanged, &cleanup, [&] {
        if (live && cleanup.released()) {
            std::cout << "\r\033[KReleasing " << cleanup.released()->done << " of "
                      << cleanup.released()->total << std::flush;
        }
    });
    while (cleanup.busy()) {
        runUntil(&cleanup, &CleanupModel::busyChanged, [] {});
    }
    QObject::disconnect(progress);
    QObject::disconnect(released);
    if (live)
        std::cout << "\r\033[K" << std::flush;
}

} // namespace

int freeUp(AppStore& store, const FreeUpOptions& options) {
    auto account = accountLabelled(store, options.account);
    if (!account)
        return failed;
    std::optional<Date> before = ISODate::parse(options.before + "T00:00:00Z");
    if (!before) {
        std::cerr << "--before wants a date as YYYY-MM-DD.\n";
        return usage;
    }
    const IMAPMailbox* mailbox = findFolder(account->knownFolders, options.mailbox);
    if (!mailbox) {
        std::vector<std::string> names;
        for (const IMAPMailbox& known : account->knownFolders)
            names.push_back(known.displayName);
        std::cerr << account->label << " has no folder named “" << options.mailbox
                  << "”. Its folders: " << listed(names) << ".\n";
        return failed;
    }
    bool live = stdoutIsTerminal();
    CleanupModel& cleanup = store.cleanup();
    Interrupt interrupt;
    bool stopped = false;
    QObject::connect(&interrupt, &Interrupt::interrupted, &store, [&] {
        stopped = true;
        store.cancelCleanup();
    });

    store.checkCleanup(*account, mailbox->name, *before);
    waitWhileBusy(store, live);
    if (cleanup.error() || !cleanup.plan() || stopped) {
        CLIWords::report(
            cleanup.error().value_or(FriendlyError::Message{"Stopped", "Nothing was released."}));
        return failed;
    }
    const CleanupPlan& plan = *cleanup.plan();
    auto verified = plan.verified();
    auto kept = plan.unverified();
    std::cout << plural(int64_t(plan.items.size()), "message") << " in " << plan.displayName
              << " before " << options.before << " · " << verified.size() << " verified\n";
    if (!kept.empty()) {
        std::cout << "Kept on the server:\n";
        for (const CleanupItem& item : kept) {
            std::cout << "  UID " << item.uid << (item.localPath ? " " + *item.localPath : "")
                      << ": " << item.keptReason().value_or("") << "\n";
        }
    }
    if (verified.empty()) {
        std::cout << "Nothing to release.\n";
        return ok;
    }
    std::string phrase = "RELEASE " + std::to_string(verified.size());
    std::cout << "Releasing permanently deletes "
              << (verified.size() == 1 ? std::string("this message")
                                       : "these " + plural(int64_t(verified.size()), "message"))
              << " from the server (your provider may keep them in Trash for a while). Type "
              << phrase << " to confirm.\n";
    std::optional<std::string> typed = options.confirm;
    if (!typed) {
        std::cout << "> " << std::flush;
        typed = readLine();
    }
    // Exact, case-sensitive and untrimmed, as in the window.
    if (typed != phrase) {
        std::cerr << "The phrase didn’t match “" << phrase << "”. Nothing was released.\n";
        return failed;
    }
    cleanup.setStage(CleanupStage::release);
    store.runCleanup(*account);
    waitWhileBusy(store, live);
    if (cleanup.result())
        std::cout << *cleanup.result() << "\n";
    if (cleanup.error()) {
        CLIWords::report(*cleanup.error());
        return failed;
    }
    return cleanup.stage() == CleanupStage::done ? ok : failed;
}

} // namespace qs::cli
