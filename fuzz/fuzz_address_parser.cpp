// Address lists over arbitrary text: must never crash; every address found has an address
// part taken from the input.
#include "mime/AddressParser.h"

#include <cstdint>
#include <cstdlib>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string_view text(reinterpret_cast<const char*>(data), size);
    for (const auto& address : qs::AddressParser::parse(text)) {
        if (!address.email.empty() && text.find(address.email) == std::string_view::npos) {
            std::abort();
        }
        (void)address.domain();
        (void)address.formatted();
    }
    return 0;
}
