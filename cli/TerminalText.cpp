#include "TerminalText.h"

namespace qs::cli {

namespace {

constexpr std::string_view replacement = "\xEF\xBF\xBD"; // U+FFFD

// U+2400 + c, the Control Pictures block, as UTF-8 (E2 90 80 + c).
void appendPicture(std::string& out, unsigned char c) {
    unsigned code = c == 0x7F ? 0x2421 : 0x2400 + c;
    out.push_back(char(0xE0 | (code >> 12)));
    out.push_back(char(0x80 | ((code >> 6) & 0x3F)));
    out.push_back(char(0x80 | (code & 0x3F)));
}

// U+202A-U+202E (embeddings, overrides) are E2 80 AA-AE; U+2066-U+2069 (isolates) E2 81 A6-A9.
bool isBidiControl(std::string_view text, size_t i) {
    if (i + 2 >= text.size() || static_cast<unsigned char>(text[i]) != 0xE2) {
        return false;
    }
    auto second = static_cast<unsigned char>(text[i + 1]);
    auto third = static_cast<unsigned char>(text[i + 2]);
    return (second == 0x80 && third >= 0xAA && third <= 0xAE) ||
           (second == 0x81 && third >= 0xA6 && third <= 0xA9);
}

} // namespace

std::string terminalText(std::string_view text, bool multiline) {
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        auto c = static_cast<unsigned char>(text[i]);
        if (c < 0x20 || c == 0x7F) {
            // A CR that ends a line with its LF moves nothing; alone it rewrites the line.
            bool lineEnd = c == '\n' || (c == '\r' && i + 1 < text.size() && text[i + 1] == '\n');
            if (multiline && (lineEnd || c == '\t')) {
                out.push_back(char(c));
            } else {
                appendPicture(out, c);
            }
        } else if (c == 0xC2 && i + 1 < text.size() &&
                   static_cast<unsigned char>(text[i + 1]) >= 0x80 &&
                   static_cast<unsigned char>(text[i + 1]) <= 0x9F) {
            out += replacement; // a C1 control: U+0080-U+009F
            ++i;
        } else if (isBidiControl(text, i)) {
            out += replacement;
            i += 2;
        } else {
            out.push_back(char(c));
        }
    }
    return out;
}

} // namespace qs::cli
