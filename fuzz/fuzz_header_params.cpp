// Structured header parameters (quotes, escapes, RFC 2231 sections and charsets) over
// arbitrary text: must never crash, and every decoded value must be well-formed UTF-8.
#include "mime/HeaderParams.h"
#include "support/Unicode.h"

#include <cstdint>
#include <cstdlib>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string_view text(reinterpret_cast<const char*>(data), size);
    auto parsed = qs::HeaderParams::parse(text);
    bool validInput = qs::Unicode::isValidUTF8(text);
    for (const auto& [name, value] : parsed.params) {
        // Only values that went through a charset decode are promised to be UTF-8.
        if (validInput && !qs::Unicode::isValidUTF8(value)) {
            std::abort();
        }
        (void)name;
    }
    return 0;
}
