#include "mime/TransferDecoding.h"

#include <array>
#include <cstdint>
#include <cstring>

namespace qs::TransferDecoding {

namespace {

constexpr uint8_t notBase64 = 0xFF;

constexpr std::array<uint8_t, 256> makeBase64Table() {
    std::array<uint8_t, 256> table{};
    for (auto& v : table) {
        v = notBase64;
    }
    constexpr std::string_view alphabet =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    for (size_t i = 0; i < alphabet.size(); ++i) {
        table[uint8_t(alphabet[i])] = uint8_t(i);
    }
    return table;
}

constexpr std::array<uint8_t, 256> base64Table = makeBase64Table();

} // namespace

std::string decode(std::string_view bytes, std::string_view encoding) {
    if (encoding == "base64") {
        return base64(bytes);
    }
    if (encoding == "quoted-printable") {
        return quotedPrintable(bytes);
    }
    return std::string(bytes);
}

std::string base64(std::string_view bytes) {
    // Written through a pointer into a buffer sized for the most the input can give, then cut.
    std::string out(bytes.size() / 4 * 3 + 3, '\0');
    char* write = out.data();
    uint32_t accumulator = 0;
    int held = 0; // sextets in the accumulator
    // The decoder's state where the current line began: a line that turns out not to be base64
    // is taken back whole.
    char* lineWrite = write;
    uint32_t lineAccumulator = 0;
    int lineHeld = 0;
    bool lineHasData = false;
    bool blankAfterData = false;
    bool started = false; // a whole line of data has been read
    // The data ends at its padding or at the first line that isn't base64: what follows is a
    // list footer or junk, which decoded would turn the part into noise.
    for (size_t i = 0; i < bytes.size(); ++i) {
        char c = bytes[i];
        uint8_t value = base64Table[uint8_t(c)];
        // Words with blanks between them are text ("Sent from my phone"), never base64.
        if (value != notBase64 && !blankAfterData) {
            lineHasData = true;
            accumulator = (accumulator << 6) | value;
            if (++held == 4) {
                write[0] = char(accumulator >> 16);
                write[1] = char(accumulator >> 8);
                write[2] = char(accumulator);
                write += 3;
                accumulator = 0;
                held = 0;
            }
            continue;
        }
        if (c == '\n') {
            started = started || lineHasData;
            lineWrite = write;
            lineAccumulator = accumulator;
            lineHeld = held;
            lineHasData = false;
            blankAfterData = false;
            continue;
        }
        if (c == '=') {
            break;
        }
        if (c == ' ' || c == '\t' || c == '\r') {
            blankAfterData = lineHasData;
            continue;
        }
        // Not base64: the line is taken back. Before any data it is passed over; after, the
        // data has ended.
        write = lineWrite;
        accumulator = lineAccumulator;
        held = lineHeld;
        lineHasData = false;
        blankAfterData = false;
        if (started) {
            break;
        }
        size_t next = bytes.find('\n', i);
        if (next == std::string_view::npos) {
            break;
        }
        i = next - 1; // the line feed itself is handled next round
    }
    // A short last group decodes as if padded; a single leftover sextet carries no whole byte.
    if (held == 2) {
        *write++ = char(accumulator >> 4);
    } else if (held == 3) {
        *write++ = char(accumulator >> 10);
        *write++ = char(accumulator >> 2);
    }
    out.resize(size_t(write - out.data()));
    return out;
}

std::string quotedPrintable(std::string_view bytes, bool /*header*/) {
    // Output is never longer than the input.
    std::string out(bytes.size(), '\0');
    char* write = out.data();
    const char* in = bytes.data();
    const size_t n = bytes.size();
    size_t i = 0;
    while (i < n) {
        // Copy the run up to the next `=` in one go.
        const void* equals = std::memchr(in + i, '=', n - i);
        size_t run = equals ? size_t(static_cast<const char*>(equals) - (in + i)) : n - i;
        std::memcpy(write, in + i, run);
        write += run;
        i += run;
        if (i == n) {
            break;
        }
        if (i + 2 < n) {
            int high = hexValue(in[i + 1]);
            int low = hexValue(in[i + 2]);
            if (high >= 0 && low >= 0) {
                *write++ = char((high << 4) | low);
                i += 3;
                continue;
            }
        }
        // Not an escape: perhaps a soft line break, possibly with blanks before the line end.
        size_t j = i + 1;
        while (j < n && (in[j] == ' ' || in[j] == '\t')) {
            ++j;
        }
        if (j == n) {
            break;
        }
        if (in[j] == '\r') {
            ++j;
            if (j == n) {
                break;
            }
        }
        if (in[j] == '\n') {
            i = j + 1;
            continue;
        }
        *write++ = '=';
        ++i;
    }
    out.resize(size_t(write - out.data()));
    return out;
}

} // namespace qs::TransferDecoding
