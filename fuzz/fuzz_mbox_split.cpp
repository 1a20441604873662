// Splitting an mbox must never fail and never invent bytes: every message ends in one line
// end that it didn't end in before (CR LF, or CR alone in a file whose lines end so), and
// unescaping only removes.
#include "backup/Importer.h"
#include "mime/LineEnds.h"

#include <cstdint>
#include <cstdlib>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size) {
    std::string_view input(reinterpret_cast<const char*>(data), size);
    auto messages = qs::Importer::splitMbox(input);
    const bool crOnly = qs::LineEnds::crOnly(input);
    size_t total = 0;
    for (const auto& message : messages) {
        if (crOnly ? !message.ends_with("\r") || message.ends_with("\r\r")
                   : !message.ends_with("\r\n") || message.ends_with("\n\r\n") ||
                         message.ends_with("\r\r\n")) {
            std::abort();
        }
        total += message.size() - (crOnly ? 1 : 2);
    }
    if (total > size) {
        std::abort();
    }
    (void)qs::Importer::fingerprint(input);
    return 0;
}
