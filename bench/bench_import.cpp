// Import of one mbox of generated messages into a fresh vault, then again into the same vault:
// wall time, files written and whether the vault's file system was flushed. A re-import
// recognises every message by its bytes and so writes and flushes nothing. Prints figures;
// asserts nothing.
//
//   bench_import [--messages N] [--dir PATH]
//
// Count the flushes themselves with: strace -f -c -e trace=syncfs,fsync bench_import
#include "backup/ImportBatch.h"
#include "demo/DemoMail.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

struct Run {
    double seconds = 0;
    std::int64_t imported = 0;
    std::int64_t written = 0;
};

Run importOnce(const qs::ArchiveLayout& layout, const std::filesystem::path& mbox) {
    auto start = Clock::now();
    qs::ImportBatch batch(layout);
    auto outcome = batch.add(mbox);
    batch.finish();
    return {std::chrono::duration<double>(Clock::now() - start).count(), outcome.imported,
            batch.written()};
}

} // namespace

int main(int argc, char** argv) {
    int messages = 1200;
    std::filesystem::path dir =
        std::filesystem::temp_directory_path() / ("bench-import-" + std::to_string(::getpid()));
    for (int i = 1; i + 1 < argc; i += 2) {
        std::string option = argv[i];
        if (option == "--messages") {
            messages = std::atoi(argv[i + 1]);
        } else if (option == "--dir") {
            dir = argv[i + 1];
        }
    }
    std::filesystem::create_directories(dir);
    auto mbox = dir / "generated.mbox";
    {
        std::ofstream out(mbox, std::ios::binary);
        for (const auto& message : qs::demo::DemoMail::generate(7, messages)) {
            out << "From demo@example.org Mon Jan  1 00:00:00 2024\n" << message.bytes << "\n";
        }
    }
    qs::ArchiveLayout layout{dir / "vault"};
    auto first = importOnce(layout, mbox);
    auto again = importOnce(layout, mbox);
    for (const auto& [name, run] :
         {std::pair{"first import", first}, std::pair{"re-import", again}}) {
        std::printf("%-13s %6lld messages  %6lld files written  flushed: %-3s  %.3f s\n", name,
                    static_cast<long long>(run.imported), static_cast<long long>(run.written),
                    run.written > 0 ? "yes" : "no", run.seconds);
    }
    std::filesystem::remove_all(dir);
    return 0;
}
