// Encoded-word decoding over arbitrary header text: must never crash, and must always give
// well-formed UTF-8, whatever charsets and payloads the words claim.
#include "mime/EncodedWords.h"
#include "support/Unicode.h"

#include <cstdint>
#include <cstdlib>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string_view text(reinterpret_cast<const char*>(data), size);
    std::string decoded = qs::EncodedWords::decode(text);
    if (qs::Unicode::isValidUTF8(text) && !qs::Unicode::isValidUTF8(decoded)) {
        std::abort();
    }
    if (auto word = qs::EncodedWords::decodeWord(text); word && word->end > text.size()) {
        std::abort();
    }
    return 0;
}
