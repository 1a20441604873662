// Searching a large vault from a cold process: `quernstead-cli search` timed as a user runs it
// (a new process each time, through the search cache), next to notmuch and mu on the same
// messages when they are installed and the messages are on disk; the window's index open time and
// peak memory, and how soon its list can show from the cache; and the cost of saving after 100 new
// messages. Prints figures; asserts nothing.
//
//   bench_search_cache --messages N [--data DIR] [--files] [--runs R] [--open-runs R]
//                      [--no-search]
//
// The vault is made once under DIR (default /work/bench-data) and reused. With --files the
// messages are written as files and indexed by a scan (needed for notmuch and mu); without, only
// index.json and its cache are made, from the same generated messages.
#include "LargeVault.h"
#include "search/SearchCache.h"
#include "search/SearchIndex.h"
#include "search/SearchIndexCoder.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <span>
#include <spawn.h>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

struct Run {
    double seconds = 0;
    int status = -1;
};

/// Runs `arguments` with standard output (and unless kept, standard error) to /dev/null.
Run spawn(const std::vector<std::string>& arguments, const std::vector<std::string>& extraEnv = {},
          bool keepErrors = false) {
    std::vector<char*> argv;
    for (const auto& a : arguments) {
        argv.push_back(const_cast<char*>(a.c_str()));
    }
    argv.push_back(nullptr);
    std::vector<std::string> envStrings(extraEnv);
    for (char** e = environ; *e != nullptr; ++e) {
        envStrings.emplace_back(*e);
    }
    std::vector<char*> envp;
    for (auto& e : envStrings) {
        envp.push_back(e.data());
    }
    envp.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    if (!keepErrors) {
        posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    }
    Run run;
    auto start = Clock::now();
    pid_t pid = 0;
    if (posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), envp.data()) == 0) {
        int status = 0;
        ::waitpid(pid, &status, 0);
        run.seconds = secondsSince(start);
        run.status = status;
    }
    posix_spawn_file_actions_destroy(&actions);
    return run;
}

struct Percentiles {
    double p50, p99;
};

Percentiles percentiles(std::vector<double> samples) {
    std::sort(samples.begin(), samples.end());
    auto at = [&](double q) {
        return samples[std::min(samples.size() - 1, size_t(q * double(samples.size() - 1) + 0.5))];
    };
    return {at(0.5) * 1000, at(0.99) * 1000};
}

std::string messagePath(int i) {
    return "Account" + std::to_string(i % 3) + "/Folder " + std::to_string(i % 12) + "/" +
           std::to_string(i) + ".eml";
}

qs::SearchIndex buildInMemory(int count) {
    qs::SearchIndex index;
    for (int i = 0; i < count; ++i) {
        auto entry = qs::SearchIndex::makeRecord(qs::bench::largeVaultMessage(i), messagePath(i),
                                                 1'700'000'000.0 + i);
        index.add(std::move(entry.record), entry.text);
    }
    return index;
}

/// Processor seconds (user and system) this process has used so far: on a busy machine a
/// steadier figure than the wall clock.
double processorSeconds() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    auto seconds = [](const timeval& t) {
        return double(t.tv_sec) + double(t.tv_usec) / 1e6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

/// Peak resident memory of this process's own image (VmHWM): unlike the rusage figure, not
/// inherited from a large parent across the spawn.
double peakMegabytes() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.starts_with("VmHWM:")) {
            return std::atof(line.c_str() + 6) / 1024.0;
        }
    }
    return 0;
}

// The children below print their own figures to standard error, as one line each.
// The window's scan loads the index (from the cache when fresh) and lists the very records
// it holds; --open-json takes the path taken without a sound cache.
int openAsTheWindowDoes(const fs::path& json, bool fromCache) {
    auto start = Clock::now();
    auto index = fromCache ? qs::SearchCache::loadIndex(qs::SearchCache::beside(json), json)
                           : qs::SearchIndex::load(json);
    auto records = index.sharedRecords();
    std::fprintf(stderr, "  open %-10s (%zu records) %6.2f s (%.2f s processor), peak %.0f MB\n",
                 fromCache ? "from cache" : "from JSON", records.size(), secondsSince(start),
                 processorSeconds(), peakMegabytes());
    return 0;
}

int listFromTheCache(const fs::path& json) {
    auto start = Clock::now();
    auto cache = qs::SearchCache::open(qs::SearchCache::beside(json), json);
    auto records = cache ? cache->records() : std::nullopt;
    std::fprintf(stderr, "  first list from the cache (%zu)  %8.2f s, peak %.0f MB\n",
                 records ? records->size() : 0, secondsSince(start), peakMegabytes());
    return records ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
    int count = 20'000;
    int runs = 30;
    int openRuns = 3;
    bool searches = true;
    bool files = false;
    fs::path data = "/work/bench-data";
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        if (a == "--open" && i + 1 < argc) {
            return openAsTheWindowDoes(argv[++i], true);
        } else if (a == "--open-json" && i + 1 < argc) {
            return openAsTheWindowDoes(argv[++i], false);
        } else if (a == "--list-from-cache" && i + 1 < argc) {
            return listFromTheCache(argv[++i]);
        } else if (a == "--messages" && i + 1 < argc) {
            count = std::atoi(argv[++i]);
        } else if (a == "--runs" && i + 1 < argc) {
            runs = std::atoi(argv[++i]);
        } else if (a == "--data" && i + 1 < argc) {
            data = argv[++i];
        } else if (a == "--open-runs" && i + 1 < argc) {
            openRuns = std::max(1, std::atoi(argv[++i]));
        } else if (a == "--no-search") {
            searches = false;
        } else if (a == "--files") {
            files = true;
        }
    }
    fs::path vault = data / ((files ? "files-" : "index-") + std::to_string(count));
    fs::path json = vault / ".quernstead" / "index.json";
    fs::path cache = qs::SearchCache::beside(json);
    std::printf("vault %s, %d messages\n", vault.c_str(), count);

    qs::SearchIndex index;
    if (!fs::exists(json)) {
        auto start = Clock::now();
        if (files) {
            qs::bench::writeLargeVault(vault, count);
            std::printf("  generated and indexed by a scan    %8.1f s\n", secondsSince(start));
        } else {
            index = buildInMemory(count);
            std::printf("  generated in memory                %8.1f s\n", secondsSince(start));
            start = Clock::now();
            index.save(json);
            std::printf("  index.json written                 %8.1f s\n", secondsSince(start));
        }
    }
    std::printf("  index.json                         %8.1f MB\n",
                double(fs::file_size(json)) / 1e6);
    fs::remove(cache);
    auto start = Clock::now();
    qs::SearchCache::rebuild(cache, json);
    std::printf("  cache rebuilt from index.json      %8.2f s, %.1f MB\n", secondsSince(start),
                double(fs::file_size(cache)) / 1e6);

    struct Query {
        const char* kind;
        std::string ours;
        std::string notmuch;
        std::string mu;
    };
    std::string rare = std::to_string(count / 2 + 7);
    const Query queries[] = {
        {"rare word", rare, rare, rare},
        {"common word", "body", "body", "body"},
        {"prefix", "inv", "inv*", "inv*"},
        {"two words", "invoice meeting", "invoice and meeting", "invoice meeting"}};
    if (searches) {
        std::printf("\ncold-process search, --limit 20, %d runs each (p50 / p99 ms, matches)\n",
                    runs);
    }
    for (const auto& q : searches ? std::span(queries) : std::span<const Query>()) {
        auto answer = qs::SearchCache::answer(cache, json, q.ours, 20);
        std::vector<double> samples;
        for (int r = 0; r < runs; ++r) {
            auto run = spawn({QS_CLI_PATH, "search", q.ours, "--limit", "20"},
                             {"QUERNSTEAD_ARCHIVE_DIR=" + vault.string()});
            samples.push_back(run.seconds);
        }
        auto p = percentiles(samples);
        std::printf("  quernstead-cli %-12s %8.1f / %6.1f ms   %zu\n", q.kind, p.p50, p.p99,
                    answer ? answer->found : 0);
    }

    if (searches && files && std::system("command -v notmuch >/dev/null 2>&1") == 0) {
        fs::path home = data / ("notmuch-" + std::to_string(count));
        fs::create_directories(home);
        fs::path config = home / "config";
        std::ofstream(config) << "[database]\npath=" << vault.string()
                              << "\nmail_root=" << vault.string()
                              << "\n[new]\nignore=.quernstead;.notmuch\n";
        std::vector<std::string> env{"NOTMUCH_CONFIG=" + config.string()};
        if (!fs::exists(vault / ".notmuch")) {
            auto run = spawn({"/usr/bin/notmuch", "new", "--quiet"}, env);
            std::printf("  notmuch new (first index)          %8.1f s\n", run.seconds);
        }
        for (const auto& q : queries) {
            std::vector<double> samples;
            for (int r = 0; r < runs; ++r) {
                samples.push_back(
                    spawn({"/usr/bin/notmuch", "search", "--limit=20", q.notmuch}, env).seconds);
            }
            auto p = percentiles(samples);
            std::printf("  notmuch search %-12s %8.1f / %6.1f ms\n", q.kind, p.p50, p.p99);
        }
    }

    if (searches && files && std::system("command -v mu >/dev/null 2>&1") == 0) {
        // mu reads maildirs only: the same files, hard-linked into one maildir's cur folder.
        fs::path home = data / ("mu-" + std::to_string(count));
        fs::path maildir = home / "maildir";
        if (!fs::exists(home / "xapian")) {
            fs::remove_all(home);
            for (const char* sub : {"cur", "new", "tmp"}) {
                fs::create_directories(maildir / sub);
            }
            for (const auto& entry : fs::recursive_directory_iterator(vault)) {
                auto name = entry.path().filename().string();
                if (entry.is_regular_file() && name.ends_with(".eml")) {
                    auto link = maildir / "cur" /
                                (std::to_string(std::hash<std::string>()(entry.path().string())) +
                                 ".bench:2,S");
                    fs::create_hard_link(entry.path(), link);
                }
            }
            spawn({"/usr/bin/mu", "init", "--muhome=" + home.string(),
                   "--maildir=" + maildir.string()});
            auto run = spawn({"/usr/bin/mu", "index", "--muhome=" + home.string()});
            std::printf("  mu index (first index)             %8.1f s\n", run.seconds);
        }
        for (const auto& q : queries) {
            std::vector<double> samples;
            for (int r = 0; r < runs; ++r) {
                samples.push_back(
                    spawn({"/usr/bin/mu", "find", "--muhome=" + home.string(), "--maxnum=20", q.mu})
                        .seconds);
            }
            auto p = percentiles(samples);
            std::printf("  mu find        %-12s %8.1f / %6.1f ms\n", q.kind, p.p50, p.p99);
        }
    }

    std::printf("\nthe window's index open (a fresh process each), %d runs\n", openRuns);
    std::fflush(stdout);
    for (const char* how : {"--open", "--open-json", "--list-from-cache"}) {
        for (int r = 0; r < openRuns; ++r) {
            spawn({"/proc/self/exe", how, json.string()}, {}, true);
        }
    }

    // What the scan does after a backup filed 100 new messages: the index loaded from its
    // cache, the records added, index.json saved (patched, flushed to the disk, renamed) and
    // its cache written; then index.json alone and the cache alone. A folder of its own, so
    // that the vault's own files are never the ones written.
    std::printf("\nsaving after 100 new messages, %d runs (median)\n", openRuns);
    fs::path scratchFolder = vault / ".quernstead" / "save-scratch";
    fs::path scratch = scratchFolder / "index.json";
    fs::path scratchCache = qs::SearchCache::beside(scratch);
    fs::remove_all(scratchFolder);
    if (index.count() == 0) {
        index = qs::SearchCache::loadIndex(cache, json);
    }
    start = Clock::now();
    qs::SearchCache::save(index, scratch);
    std::printf("  first save, written whole          %8.2f s\n", secondsSince(start));
    index = qs::SearchIndex();
    int next = count;
    auto loadAndAdd = [&] {
        auto loaded = qs::SearchCache::loadIndex(scratchCache, scratch);
        for (int end = next + 100; next < end; ++next) {
            auto entry = qs::SearchIndex::makeRecord(qs::bench::largeVaultMessage(next),
                                                     messagePath(next), 1'700'000'000.0 + next);
            loaded.add(std::move(entry.record), entry.text);
        }
        return loaded;
    };
    std::vector<double> encodes, saves, caches, together;
    size_t bytes = 0;
    // Each timed save starts with nothing of the runs before it left to write to the disk.
    auto settled = [] {
        ::sync();
        return Clock::now();
    };
    for (int r = 0; r < openRuns; ++r) {
        auto loaded = loadAndAdd();
        start = settled();
        qs::SearchCache::save(loaded, scratch);
        together.push_back(secondsSince(start));
        if (!qs::SearchCache::open(scratchCache, scratch)) {
            std::printf("  (the cache written with the save is not sound)\n");
        }
        loaded = loadAndAdd();
        start = Clock::now();
        bytes = 0;
        qs::SearchIndexCoder::encode(loaded,
                                     [&](std::string_view piece) { bytes += piece.size(); });
        encodes.push_back(secondsSince(start));
        start = settled();
        loaded.save(scratch);
        saves.push_back(secondsSince(start));
        auto stamp = qs::SearchCacheLayout::FileStamp::of(scratch);
        start = settled();
        qs::SearchCache::write(loaded, scratchCache, *stamp);
        caches.push_back(secondsSince(start));
    }
    auto median = [](const std::vector<double>& samples) {
        return percentiles(samples).p50 / 1000;
    };
    std::printf("  encoding the JSON alone            %8.2f s, %.0f MB\n", median(encodes),
                double(bytes) / 1e6);
    std::printf("  index.json patched (flushed)       %8.2f s\n", median(saves));
    std::printf("  cache rewritten                    %8.2f s\n", median(caches));
    std::printf("  both, as a scan saves (2 threads)  %8.2f s\n", median(together));
    fs::remove_all(scratchFolder);
    return 0;
}
