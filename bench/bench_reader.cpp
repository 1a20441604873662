// The reader on the real web engine: how long from selecting a message to its body on screen,
// for a short text message, a 100 KB newsletter and a message with a 20 MB attachment; and the
// memory of the program and its engine processes while 500 messages open one after another.
// Run under a display (xvfb-run -a bench_reader).

#include "model/AppStore.h"
#include "support/QuickWindow.h"
#include "support/WebEngineStart.h"

#include <QDir>
#include <QGuiApplication>
#include <QQmlApplicationEngine>
#include <QSignalSpy>
#include <QtQml/QQmlExtensionPlugin>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

Q_IMPORT_QML_PLUGIN(QuernsteadPlugin)

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

void write(const fs::path& vault, const std::string& name, const std::string& headers,
           const std::string& body) {
    const auto path = vault / "Robin" / "INBOX" / "2024" / (name + ".eml");
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary)
        << "From: Ada <ada@example.org>\r\nTo: robin@example.org\r\n"
           "Date: Tue, 16 Jan 2024 10:00:00 +0000\r\nSubject: "
        << name << "\r\nMIME-Version: 1.0\r\n"
        << headers << "\r\n"
        << body;
}

std::string newsletter(size_t bytes, int seed) {
    std::string html = "<html><head><style>p{color:#333}</style></head><body><table>";
    for (int row = 0; html.size() < bytes; ++row)
        html += "<tr><td><img src=\"http://127.0.0.1:9/i" + std::to_string(seed) + "-" +
                std::to_string(row) + ".png\" width=\"120\" height=\"80\"></td><td><p>Issue " +
                std::to_string(seed) + ", story " + std::to_string(row) +
                ": the harbour market opens early this week, with bread, cheese and late "
                "plums. <a href=\"https://shop.example/s\">shop.example</a></p></td></tr>";
    return html + "</table></body></html>";
}

void makeVault(const fs::path& vault) {
    const std::string html = "Content-Type: text/html; charset=utf-8\r\n";
    write(vault, "small", "Content-Type: text/plain; charset=utf-8\r\n",
          "Hello Robin,\r\n\r\nSee you on Sunday.\r\n\r\nAda\r\n");
    write(vault, "newsletter", html, newsletter(100'000, 0));
    std::string attachment;
    const std::string line(76, 'A');
    while (attachment.size() < 27'000'000) // base64 of about 20 MB
        attachment += line + "\r\n";
    write(vault, "attachment", "Content-Type: multipart/mixed; boundary=\"b\"\r\n",
          "--b\r\nContent-Type: text/plain\r\n\r\nThe recordings.\r\n--b\r\nContent-Type: "
          "application/octet-stream; name=\"take.wav\"\r\nContent-Transfer-Encoding: "
          "base64\r\n\r\n" +
              attachment + "--b--\r\n");
    for (int i = 0; i < 500; ++i)
        write(vault, "run" + std::to_string(i), html, newsletter(20'000, i));
}

// When each step of an open was reached, in milliseconds from the selection: the message read
// and prepared, the page's load begun and ended, the next frame on screen.
struct Steps {
    double ready = 0, begun = 0, loaded = 0, painted = 0;
};

double since(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

// Selects the message and waits for its page to load and the next frame to reach the screen.
Steps openAndPaint(qs::AppStore& store, QQuickWindow& window, QObject& view,
                   const std::string& name) {
    Steps steps;
    const auto started = Clock::now();
    auto ready = QObject::connect(&store, &qs::AppStore::openMessageChanged,
                                  [&] { steps.ready = since(started); });
    QSignalSpy loads(&view, SIGNAL(loadingChanged(QWebEngineLoadingInfo)));
    const bool loaded = qs::test::loadPage(
        view,
        [&] {
            store.setSelectedPath("Robin/INBOX/2024/" + name + ".eml");
            while (loads.isEmpty() && loads.wait(30'000))
                steps.begun = since(started);
        },
        30'000);
    steps.loaded = since(started);
    QObject::disconnect(ready);
    QSignalSpy swaps(&window, &QQuickWindow::frameSwapped);
    window.update();
    const bool painted = swaps.wait(5'000);
    steps.painted = since(started);
    // A figure from a state that wasn't reached is said to be one.
    if (!loaded || !painted)
        std::fprintf(stderr, "%s never finished loading or painting\n", name.c_str());
    return steps;
}

long rssKiB(const std::string& pid) {
    std::ifstream status("/proc/" + pid + "/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind("VmRSS:", 0) == 0)
            return std::atol(line.c_str() + 6);
    return 0;
}

// This program and the engine's helper processes it started.
long totalRssKiB() {
    long total = rssKiB("self");
    const std::string self = std::to_string(::getpid());
    for (const auto& entry : fs::directory_iterator("/proc")) {
        std::ifstream status(entry.path() / "status");
        std::string line;
        while (std::getline(status, line))
            if (line.rfind("PPid:", 0) == 0 && std::to_string(std::atol(line.c_str() + 5)) == self)
                total += rssKiB(entry.path().filename().string());
    }
    return total;
}

} // namespace

int main(int argc, char** argv) {
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    const auto base = fs::temp_directory_path() / ("qs-bench-reader-" + std::to_string(::getpid()));
    const auto vault = base / "vault";
    makeVault(vault);
    ::setenv("QUERNSTEAD_ARCHIVE_DIR", vault.c_str(), 1);
    ::setenv("XDG_CONFIG_HOME", (base / "config").c_str(), 1);
    qs::test::startWebEngine();
    QGuiApplication app(argc, argv);
    auto* store = new qs::AppStore();
    QQmlApplicationEngine engine;
    auto* window = qs::test::showMainWindow(engine, *store, {1280, 800});
    if (!window)
        return 1;
    QSignalSpy scanned(store, &qs::AppStore::scanFinished);
    store->reloadArchive();
    if (!scanned.wait(120'000))
        std::fprintf(stderr, "the vault wasn't scanned in time\n");
    QObject* view = qs::test::itemNamed(*window, "mailWebView");
    if (!view) {
        std::fprintf(stderr, "no reader in the window\n");
        return 1;
    }
    openAndPaint(*store, *window, *view, "run0"); // the engine's first start is not a figure

    for (const char* name : {"small", "newsletter", "attachment"}) {
        std::vector<Steps> opens;
        for (int i = 0; i < 9; ++i) {
            openAndPaint(*store, *window, *view, "run1");
            opens.push_back(openAndPaint(*store, *window, *view, name));
        }
        const auto median = [&](double Steps::*step) {
            std::vector<double> times;
            for (const Steps& s : opens)
                times.push_back(s.*step);
            std::sort(times.begin(), times.end());
            return times[times.size() / 2];
        };
        std::printf("select to body painted, %-10s: median %.1f ms (message ready %.1f, load "
                    "begun %.1f, loaded %.1f; 9 opens)\n",
                    name, median(&Steps::painted), median(&Steps::ready), median(&Steps::begun),
                    median(&Steps::loaded));
    }

    const long before = totalRssKiB();
    for (int i = 0; i < 500; ++i) {
        openAndPaint(*store, *window, *view, "run" + std::to_string(i));
        if (i == 99 || i == 499)
            std::printf("memory after %d opens: %.1f MB (program and engine; %.1f MB before)\n",
                        i + 1, double(totalRssKiB()) / 1024, double(before) / 1024);
    }
    delete store;
    std::error_code ignored;
    fs::remove_all(base, ignored);
    return 0;
}
