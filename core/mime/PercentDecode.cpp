#include "mime/PercentDecode.h"

#include "mime/TransferDecoding.h"

namespace qs::PercentDecode {

std::string bytes(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    size_t i = 0;
    while (i < text.size()) {
        char c = text[i];
        if (c == '%' && i + 2 < text.size()) {
            int high = TransferDecoding::hexValue(text[i + 1]);
            int low = TransferDecoding::hexValue(text[i + 2]);
            if (high >= 0 && low >= 0) {
                out.push_back(char((high << 4) | low));
                i += 3;
                continue;
            }
        }
        out.push_back(c);
        ++i;
    }
    return out;
}

} // namespace qs::PercentDecode
