#pragma once

// A large generated vault for the browsing and window benchmarks: messages spread over about
// 25 years, three accounts of twelve folders, indexed once so that a start finds its index.

#include "model/ArchiveScan.h"

#include <ctime>
#include <filesystem>
#include <fstream>
#include <string>

namespace qs::bench {

inline std::string largeVaultMessage(int i) {
    static const char* words[] = {"invoice", "meeting", "report", "holiday", "budget",
                                  "garden",  "travel",  "family", "project", "review"};
    std::time_t seconds = 946'684'800 + static_cast<std::time_t>(i) * 7'919; // ~25 years
    std::tm parts{};
    ::gmtime_r(&seconds, &parts);
    char stamp[64];
    std::strftime(stamp, sizeof stamp, "%a, %d %b %Y %H:%M:%S +0000", &parts);
    std::string subject =
        std::string(words[i % 10]) + " " + words[(i / 10) % 10] + " number " + std::to_string(i);
    return "From: Sender " + std::to_string(i % 500) + " <s" + std::to_string(i % 500) +
           "@example" + std::to_string(i % 50) +
           ".org>\r\nTo: me@example.net\r\nSubject: " + subject + "\r\nDate: " + stamp +
           "\r\nMessage-ID: <" + std::to_string(i) + "@example.org>\r\n\r\nBody of " + subject +
           ", with a few more " + words[(i / 7) % 10] + " words.\r\n";
}

/// Writes `count` messages below `vault` and its index file.
inline void writeLargeVault(const std::filesystem::path& vault, int count) {
    for (int i = 0; i < count; ++i) {
        auto path = vault / ("Account" + std::to_string(i % 3)) /
                    ("Folder " + std::to_string(i % 12)) / (std::to_string(i) + ".eml");
        if (i % 12 == i % 3 || i < 36) {
            std::filesystem::create_directories(path.parent_path());
        }
        std::ofstream(path, std::ios::binary) << largeVaultMessage(i);
    }
    ArchiveScan::run(vault, vault / ".quernstead" / "index.json", {});
}

} // namespace qs::bench
