// The window over a large indexed vault, as a person sees it: how long from start to the first
// painted list, how long each frame takes while the list scrolls a page at a time, and how soon
// a scrub on the timeline shows its month. Run under a display (scripts run it in Xvfb).
//
// Usage: xvfb-run -a bench_window [messages] [vault]
//   messages: default 100000. vault: a folder to keep the vault in between runs (made there
//   when missing); without it the vault is made in /tmp and removed at the end.

#include "LargeVault.h"
#include "model/AppStore.h"
#include "support/QuickWindow.h"
#include "support/WebEngineStart.h"

#include <QGuiApplication>
#include <QTest>
#include <QtQml/QQmlExtensionPlugin>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

Q_IMPORT_QML_PLUGIN(QuernsteadPlugin)

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

double milliseconds(Clock::duration d) {
    return std::chrono::duration<double, std::milli>(d).count();
}

long peakKiB() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind("VmHWM:", 0) == 0)
            return std::atol(line.c_str() + 6);
    return -1;
}

/// Runs the event loop until `done`; a wait that runs out is said, so a figure is never read
/// from a state that wasn't reached.
template <typename Predicate>
void waitFor(const char* what, Predicate done, int timeoutMilliseconds) {
    if (!QTest::qWaitFor(done, timeoutMilliseconds))
        std::fprintf(stderr, "timed out waiting for %s\n", what);
}

/// Waits for the next frame the window puts on screen and says how long that took.
Clock::duration untilNextFrame(QQuickWindow& window) {
    const auto started = Clock::now();
    bool swapped = false;
    auto connection =
        QObject::connect(&window, &QQuickWindow::frameSwapped, [&] { swapped = true; });
    window.update();
    waitFor(
        "a frame", [&] { return swapped; }, 5'000);
    QObject::disconnect(connection);
    return Clock::now() - started;
}

/// Makes the vault in a child process, so that nothing the making allocated stays resident in
/// the process whose memory is measured.
bool makeVault(const fs::path& vault, int count) {
    const auto made = Clock::now();
    const pid_t child = ::fork();
    if (child == 0) {
        qs::bench::writeLargeVault(vault, count);
        std::_Exit(0);
    }
    int status = 0;
    if (child < 0 || ::waitpid(child, &status, 0) != child || !WIFEXITED(status) ||
        WEXITSTATUS(status) != 0) {
        std::fprintf(stderr, "the vault couldn't be made\n");
        return false;
    }
    std::printf("vault of %d messages written and indexed in %.0f ms\n", count,
                milliseconds(Clock::now() - made));
    return true;
}

void printPercentiles(const char* what, std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const auto at = [&](double q) {
        return values[size_t(q * double(values.size() - 1))];
    };
    std::printf("%s: median %.1f ms, p99 %.1f ms, worst %.1f ms (%zu samples)\n", what, at(0.5),
                at(0.99), values.back(), values.size());
}

} // namespace

int main(int argc, char** argv) {
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    const int count = argc > 1 ? std::atoi(argv[1]) : 100'000;
    const bool kept = argc > 2;
    const auto base =
        kept ? fs::path(argv[2])
             : fs::temp_directory_path() / ("qs-bench-window-" + std::to_string(::getpid()));
    const auto vault = base / "vault";
    ::setenv("QUERNSTEAD_ARCHIVE_DIR", vault.c_str(), 1);
    ::setenv("QUERNSTEAD_SNAPSHOT_DIR", "", 1);
    ::setenv("XDG_CONFIG_HOME", (base / "config").c_str(), 1);
    if (!(kept && fs::exists(vault / ".quernstead" / "index.json")) && !makeVault(vault, count))
        return 1;

    // From here on is what a start costs: the application, the store, the window, the index.
    const auto started = Clock::now();
    qs::test::startWebEngine();
    QGuiApplication app(argc, argv);
    auto* store = new qs::AppStore();
    QQmlApplicationEngine engine;
    auto* window = qs::test::showMainWindow(engine, *store, {1280, 800});
    if (!window) {
        std::fprintf(stderr, "the window didn't load\n");
        return 1;
    }
    bool scanned = false;
    QObject::connect(store, &qs::AppStore::scanFinished, [&] { scanned = true; });
    store->reloadArchive();
    // The columns come once the store knows the vault has mail.
    QQuickItem* list = nullptr;
    Clock::duration firstList{};
    auto firstFrame = QObject::connect(window, &QQuickWindow::frameSwapped, [&] {
        list = list ? list : qs::test::itemNamed(*window, "messageList");
        if (firstList == Clock::duration{} && list && list->property("count").toInt() > 0)
            firstList = Clock::now() - started;
    });
    waitFor(
        "the first list", [&] { return firstList != Clock::duration{}; }, 60'000);
    QObject::disconnect(firstFrame);
    if (!list)
        return 1;
    QQuickItem* column = qs::test::itemNamed(*window, "messageColumn");
    std::printf("first painted list %.0f ms after start (%d rows), peak so far %.0f MB\n",
                milliseconds(firstList), list->property("count").toInt(), peakKiB() / 1024.0);
    waitFor(
        "the scan", [&] { return scanned; }, 120'000);
    std::printf("scan done %.0f ms after start, peak so far %.0f MB\n",
                milliseconds(Clock::now() - started), peakKiB() / 1024.0);

    // Scrolling: a page at a time, each followed by the frame that shows it.
    std::vector<double> frames;
    for (int page = 0; page < 200; ++page) {
        const auto t = Clock::now();
        list->setProperty("contentY", list->property("contentY").toDouble() + list->height());
        untilNextFrame(*window);
        frames.push_back(milliseconds(Clock::now() - t));
    }
    printPercentiles("scrolling a page", frames);

    // Scrubs to months spread over the years: the first frame in which the list has moved, and
    // the frame in which the month's header has reached the top.
    std::vector<double> visible, settled;
    const auto& groups = store->groups();
    for (size_t i = 0; i < 40 && !groups.empty(); ++i) {
        const qs::MonthKey month = groups[(i * 37) % groups.size()].key;
        const double from = list->property("contentY").toDouble();
        const auto t = Clock::now();
        store->scrub(month);
        waitFor(
            "the list to move",
            [&] {
                untilNextFrame(*window);
                return list->property("contentY").toDouble() != from;
            },
            2'000);
        visible.push_back(milliseconds(Clock::now() - t));
        waitFor(
            "the scrub to settle",
            [&] {
                untilNextFrame(*window);
                return !column->property("scrubbing").toBool();
            },
            5'000);
        settled.push_back(milliseconds(Clock::now() - t));
    }
    printPercentiles("scrub until the list has moved", visible);
    printPercentiles("scrub until the month is at the top (animated)", settled);
    std::printf("peak memory %.0f MB\n", peakKiB() / 1024.0);

    delete store;
    if (!kept) {
        std::error_code ignored;
        fs::remove_all(base, ignored);
    }
    return 0;
}
