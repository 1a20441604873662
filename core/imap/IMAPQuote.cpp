#include "imap/IMAPQuote.h"

namespace qs::IMAPQuote {

bool needsLiteral(std::string_view text) {
    for (unsigned char byte : text) {
        if (byte == '\n' || byte == '\r' || byte > 127) {
            return true;
        }
    }
    return false;
}

std::string quoted(std::string_view text) {
    std::string out;
    out.reserve(text.size() + 2);
    out += '"';
    for (char c : text) {
        if (c == '\\' || c == '"') {
            out += '\\';
        }
        out += c;
    }
    out += '"';
    return out;
}

} // namespace qs::IMAPQuote
