// Splitting an mbox must never fail and never invent bytes: every message ends in one CR LF
// that it didn't end in before, and unescaping only removes.
#include "backup/Importer.h"

#include <cstdint>
#include <cstdlib>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size) {
    std::string_view input(reinterpret_cast<const char*>(data), size);
    auto messages = qs::Importer::splitMbox(input);
    size_t total = 0;
    for (const auto& message : messages) {
        if (!message.ends_with("\r\n") || message.ends_with("\n\r\n") ||
            message.ends_with("\r\r\n")) {
            std::abort();
        }
        total += message.size() - 2;
    }
    if (total > size) {
        std::abort();
    }
    (void)qs::Importer::fingerprint(input);
    return 0;
}
