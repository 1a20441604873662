#include "mime/LineEnds.h"

namespace qs::LineEnds {

bool crOnly(std::string_view bytes) {
    size_t end = bytes.find_first_of("\r\n");
    return end != std::string_view::npos && bytes[end] == '\r' &&
           (end + 1 == bytes.size() || bytes[end + 1] != '\n');
}

std::string withLineFeeds(std::string_view bytes) {
    std::string out(bytes);
    for (size_t i = 0; i < out.size(); ++i) {
        if (out[i] == '\r' && (i + 1 == out.size() || out[i + 1] != '\n')) {
            out[i] = '\n';
        }
    }
    return out;
}

} // namespace qs::LineEnds
