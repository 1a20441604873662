// Framing and parsing throughput of the IMAP response reader, printed beside a plain memcpy of
// the same bytes in the same run. Nothing is asserted.
//
//   bench_imap [megabytes-per-message] [messages]
//
// The stream is what a batch of `UID FETCH … BODY.PEEK[]` looks like on the wire: one FETCH
// response per message, each holding the message as a literal, delivered in 256 KiB chunks
// appended to the reader; every body is taken out of its response as the fetch callback would
// take it. A second figure has the bytes received as the client receives them: written into the
// area the reader offers (a literal's own string once it is announced), at most 256 KiB at a
// time, the copy from the stream standing in for the one from the connection.

#include "imap/IMAPResponseReader.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace {

/// CPU time of this thread: the machine may be busy with other work, and wall time would
/// measure that too.
double threadSeconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return double(now.tv_sec) + double(now.tv_nsec) / 1e9;
}

constexpr std::size_t chunkSize = 0x40000; // what one receive gives at most
constexpr int rounds = 9;                  // best of, to keep scheduling noise out

volatile std::size_t sink;

/// Mail-like bytes: short CRLF lines of printable text.
std::string body(std::size_t size, unsigned seed) {
    std::string out;
    out.reserve(size);
    unsigned state = seed;
    while (out.size() < size) {
        state = state * 1103515245u + 12345u;
        std::size_t line = 40 + (state >> 16) % 36;
        for (std::size_t i = 0; i < line && out.size() < size; ++i) {
            state = state * 1103515245u + 12345u;
            out += char('!' + (state >> 16) % 90);
        }
        out += "\r\n";
    }
    out.resize(size);
    return out;
}

std::string fetchStream(std::size_t messageSize, int messages) {
    std::string stream;
    for (int i = 1; i <= messages; ++i) {
        std::string text = body(messageSize, unsigned(i));
        stream += "* " + std::to_string(i) + " FETCH (UID " + std::to_string(1000 + i) +
                  " RFC822.SIZE " + std::to_string(text.size()) +
                  " INTERNALDATE \"17-Jul-1996 02:44:25 -0700\" FLAGS (\\Seen) BODY[] {" +
                  std::to_string(text.size()) + "}\r\n" + text + ")\r\n";
    }
    stream += "M0001 OK UID FETCH completed\r\n";
    return stream;
}

template <typename F>
double bestSeconds(F&& work) {
    double best = 1e30;
    for (int round = 0; round < rounds; ++round) {
        double started = threadSeconds();
        work();
        best = std::min(best, threadSeconds() - started);
    }
    return best;
}

double megabytesPerSecond(std::size_t bytes, double seconds) {
    return bytes / seconds / 1e6;
}

/// Takes every complete response out of the reader, and each FETCH's body out of its response
/// whole, as the client does; the bytes of the bodies taken.
std::size_t takeBodies(qs::IMAPResponseReader& reader) {
    std::size_t bodyBytes = 0;
    while (auto response = reader.next()) {
        if (auto* untagged = response->untagged(); untagged && untagged->values.size() == 3) {
            auto items = untagged->values[2].items();
            if (items.size() >= 2) {
                if (auto taken = items.back().takeData()) {
                    bodyBytes += taken->size();
                }
            }
        }
    }
    return bodyBytes;
}

/// Reader and parser over the stream in transport-sized chunks, bodies taken out whole.
std::size_t readStream(qs::IMAPResponseReader& reader, std::string_view stream, std::size_t chunk) {
    std::size_t bodyBytes = 0;
    for (std::size_t at = 0; at < stream.size(); at += chunk) {
        reader.append(stream.substr(at, chunk));
        bodyBytes += takeBodies(reader);
    }
    return bodyBytes;
}

/// The same through the reader's receive area, as `IMAPClient` feeds it.
std::size_t receiveStream(qs::IMAPResponseReader& reader, std::string_view stream) {
    std::size_t bodyBytes = 0;
    for (std::size_t at = 0; at < stream.size();) {
        std::span<char> area = reader.receiveArea(chunkSize);
        std::size_t count = std::min(area.size(), stream.size() - at);
        std::memcpy(area.data(), stream.data() + at, count);
        reader.commit(count);
        at += count;
        bodyBytes += takeBodies(reader);
    }
    return bodyBytes;
}

void compareWithMemcpy(const char* label, std::size_t messageSize, int messages) {
    std::string stream = fetchStream(messageSize, messages);

    // One reader for all rounds, as one lives for a whole session of batches.
    qs::IMAPResponseReader reader;
    double parsed = bestSeconds([&] { sink = readStream(reader, stream, chunkSize); });
    qs::IMAPResponseReader receiver;
    double received = bestSeconds([&] { sink = receiveStream(receiver, stream); });

    // The floor: the same bytes copied once, chunk by chunk, into one message-sized buffer
    // that is reused, as the reader's buffer and a taken body are: the same memory footprint,
    // without any framing or parsing.
    std::size_t perMessage = stream.size() / std::size_t(messages);
    std::string destination(perMessage + chunkSize, '\0');
    double copied = bestSeconds([&] {
        for (std::size_t at = 0; at < stream.size(); at += chunkSize) {
            std::size_t n = std::min(chunkSize, stream.size() - at);
            std::memcpy(destination.data() + at % perMessage, stream.data() + at, n);
        }
        sink = std::size_t(destination[perMessage / 2]);
    });

    std::printf("%-22s %6.1f MB  reader+parser %6.0f MB/s   memcpy %6.0f MB/s   ratio %.2fx"
                "   received into the reader %6.0f MB/s, ratio %.2fx\n",
                label, stream.size() / 1e6, megabytesPerSecond(stream.size(), parsed),
                megabytesPerSecond(stream.size(), copied), parsed / copied,
                megabytesPerSecond(stream.size(), received), received / copied);
}

void byteAtATime() {
    // One 4 MiB response fed one byte per call: the scan resumes where it stopped, so the work
    // stays linear in the bytes received.
    std::string stream = fetchStream(4 << 20, 1);
    qs::IMAPResponseReader reader;
    double seconds = bestSeconds([&] { sink = readStream(reader, stream, 1); });
    std::printf("%-22s %6.1f MB  reader+parser %6.1f MB/s\n", "one byte per append",
                stream.size() / 1e6, megabytesPerSecond(stream.size(), seconds));
}

void smallResponses() {
    std::string stream;
    constexpr int count = 200000;
    for (int i = 1; i <= count; ++i) {
        stream += "* " + std::to_string(i) + " FETCH (UID " + std::to_string(i + 7) +
                  " RFC822.SIZE 4711 FLAGS (\\Seen \\Answered))\r\n";
    }
    qs::IMAPResponseReader reader;
    double seconds = bestSeconds([&] { sink = readStream(reader, stream, chunkSize); });
    std::printf("%-22s %6.1f MB  %8.0f responses/s (%.0f MB/s)\n", "small FETCH responses",
                stream.size() / 1e6, count / seconds, megabytesPerSecond(stream.size(), seconds));
}

} // namespace

int main(int argc, char** argv) {
    double megabytes = argc > 1 ? std::atof(argv[1]) : 0;
    int messages = argc > 2 ? std::atoi(argv[2]) : 0;
    if (megabytes > 0 && messages > 0) {
        compareWithMemcpy("custom", std::size_t(megabytes * 1e6), messages);
        return 0;
    }
    compareWithMemcpy("40 x 150 KB bodies", 150000, 40);
    compareWithMemcpy("40 x 1 MB bodies", 1000000, 40);
    compareWithMemcpy("3 x 20 MB bodies", 20000000, 3);
    byteAtATime();
    smallResponses();
    return 0;
}
