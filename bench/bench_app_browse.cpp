// The browsing store over a large vault that is already indexed: how soon the first list is
// published after start-up, how long the main thread is blocked at most during the scan and
// for each keystroke of a query, and the memory held.
//
// Usage: bench_app_browse [messages]   (default 100000; the vault is made in a temporary folder)

#include "LargeVault.h"
#include "model/AppStore.h"
#include "model/ArchiveScan.h"
#include "model/RecordCatalog.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTimer>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

double milliseconds(Clock::duration d) {
    return std::chrono::duration<double, std::milli>(d).count();
}

long residentKiB(const char* field) {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind(field, 0) == 0) {
            return std::atol(line.c_str() + std::string(field).size());
        }
    }
    return -1;
}

/// Fires every millisecond while the event loop is free; the longest gap between two firings
/// is the longest stretch in which the main thread did something else (to within that
/// millisecond). Not a zero timer: spinning would take a core from the scan it measures.
class StallMeter {
public:
    StallMeter() {
        timer_.setTimerType(Qt::PreciseTimer);
        timer_.setInterval(1);
        QObject::connect(&timer_, &QTimer::timeout, [this] {
            auto now = Clock::now();
            if (last_ != Clock::time_point{}) {
                longest_ = std::max(longest_, now - last_);
            }
            last_ = now;
        });
    }
    void start() {
        last_ = {};
        longest_ = {};
        timer_.start();
    }
    Clock::duration stop() {
        timer_.stop();
        return longest_;
    }

private:
    QTimer timer_;
    Clock::time_point last_{};
    Clock::duration longest_{};
};

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const int count = argc > 1 ? std::atoi(argv[1]) : 100'000;
    auto base = fs::temp_directory_path() / ("qs-bench-browse-" + std::to_string(::getpid()));
    auto vault = base / "vault";
    ::setenv("QUERNSTEAD_ARCHIVE_DIR", vault.c_str(), 1);
    ::setenv("HOME", base.c_str(), 1);
    ::setenv("XDG_CONFIG_HOME", (base / "config").c_str(), 1);

    auto started = Clock::now();
    qs::bench::writeLargeVault(vault, count);
    std::printf("vault of %d messages written and indexed in %.0f ms (index file %.1f MB)\n", count,
                milliseconds(Clock::now() - started),
                double(fs::file_size(vault / ".quernstead" / "index.json")) / 1e6);

    long before = residentKiB("VmRSS:");

    StallMeter meter;
    auto constructed = Clock::now();
    auto* store = new qs::AppStore();
    Clock::duration firstList{};
    QObject::connect(store, &qs::AppStore::visibleChanged, [&] {
        if (firstList == Clock::duration{} && !store->visible().empty()) {
            firstList = Clock::now() - constructed;
        }
    });
    QObject::connect(store, &qs::AppStore::scanFinished, &app, &QCoreApplication::quit);
    meter.start();
    store->reloadArchive();
    app.exec();
    auto scanStall = meter.stop();
    std::printf("first list published %.0f ms after construction; %zu records\n",
                milliseconds(firstList), store->records().size());
    std::printf("longest main-thread stretch during the scan: %.1f ms\n", milliseconds(scanStall));

    const char* typed[] = {"invoice budget", "repo", "s12", "number 4242", "family garden tr"};
    Clock::duration longestKey{};
    for (const char* query : typed) {
        std::string q;
        for (const char* c = query; *c; ++c) {
            q += *c;
            auto t = Clock::now();
            store->setQuery(q);
            longestKey = std::max(longestKey, Clock::now() - t);
        }
        store->setQuery("");
    }
    auto t = Clock::now();
    store->setQuery("");
    auto clearing = Clock::now() - t;
    std::printf("longest keystroke (refreshVisible): %.1f ms; clearing the query: %.1f ms\n",
                milliseconds(longestKey), milliseconds(clearing));
    std::printf("resident memory: %.1f MB before the store, %.1f MB after the scan, peak %.1f MB\n",
                before / 1024.0, residentKiB("VmRSS:") / 1024.0, residentKiB("VmHWM:") / 1024.0);

    delete store;

    // The parts of the background scan one by one, for where the time to the first list goes.
    auto lapStarted = Clock::now();
    auto loaded = qs::SearchIndex::load(vault / ".quernstead" / "index.json");
    auto loadTime = Clock::now() - lapStarted;
    lapStarted = Clock::now();
    auto files = qs::ArchiveScan::walk(vault);
    auto walkTime = Clock::now() - lapStarted;
    lapStarted = Clock::now();
    auto catalog = qs::RecordCatalog::build(loaded.liveRecords());
    auto catalogTime = Clock::now() - lapStarted;
    std::printf("scan parts: index load %.0f ms, walk of %zu files %.0f ms, catalog %.0f ms\n",
                milliseconds(loadTime), files.size(), milliseconds(walkTime),
                milliseconds(catalogTime));

    // A first scan: the same vault with no index, every file read and the list filling as
    // it goes.
    fs::remove(vault / ".quernstead" / "index.json");
    auto firstScanStarted = Clock::now();
    store = new qs::AppStore();
    int publications = 0;
    QObject::connect(store, &qs::AppStore::recordsChanged, [&] { ++publications; });
    QObject::connect(store, &qs::AppStore::scanFinished, &app, &QCoreApplication::quit);
    meter.start();
    store->reloadArchive();
    app.exec();
    auto firstScanStall = meter.stop();
    auto firstScan = Clock::now() - firstScanStarted;
    std::printf("first scan without an index: %.0f ms for %zu records (%.0f msg/s), %d "
                "publications, longest main-thread stretch %.1f ms, peak %.1f MB\n",
                milliseconds(firstScan), store->records().size(),
                double(store->records().size()) / std::chrono::duration<double>(firstScan).count(),
                publications, milliseconds(firstScanStall), residentKiB("VmHWM:") / 1024.0);
    delete store;

    std::error_code ignored;
    fs::remove_all(base, ignored);
    return 0;
}
