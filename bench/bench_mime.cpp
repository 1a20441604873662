// Parse throughput of MIMEParser over the shared corpus and over 10,000 generated messages,
// beside GMime parsing the same bytes and extracting the same text bodies; and the peak memory
// of parsing one 50 MB message, measured in a fresh child process (VmHWM).
//
//   bench_mime                 all figures
//   bench_mime --peak KIND F   (internal) parse file F with KIND "ours" or "gmime" and print
//                              the growth of the peak resident size in bytes
#include "mime/MIMEParser.h"
#include "support/Corpus.h"
#include "support/FileIO.h"

#ifdef QS_HAVE_GMIME
#include <gmime/gmime.h>
#endif

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

// What both parsers must produce per message, so neither skips work the other does.
struct Extracted {
    size_t textBytes = 0;
    size_t parts = 0;
};

Extracted parseOurs(std::string_view bytes) {
    qs::ParsedMessage message = qs::MIMEParser::parse(bytes);
    Extracted out;
    out.textBytes = (message.textBody ? message.textBody->size() : 0) +
                    (message.htmlBody ? message.htmlBody->size() : 0) + message.subject.size();
    out.parts = message.attachments.size();
    return out;
}

#ifdef QS_HAVE_GMIME
void collectText(GMimeObject*, GMimeObject* part, gpointer data) {
    auto* out = static_cast<Extracted*>(data);
    ++out->parts;
    if (GMIME_IS_TEXT_PART(part) && !g_mime_part_is_attachment(GMIME_PART(part))) {
        char* text = g_mime_text_part_get_text(GMIME_TEXT_PART(part));
        if (text) {
            out->textBytes += strlen(text);
            g_free(text);
        }
    }
}

Extracted parseGMime(std::string_view bytes) {
    Extracted out;
    GMimeStream* stream = g_mime_stream_mem_new_with_buffer(bytes.data(), bytes.size());
    GMimeParser* parser = g_mime_parser_new_with_stream(stream);
    GMimeMessage* message = g_mime_parser_construct_message(parser, nullptr);
    if (message) {
        if (const char* subject = g_mime_message_get_subject(message)) {
            out.textBytes += strlen(subject);
        }
        g_mime_message_foreach(message, collectText, &out);
        g_object_unref(message);
    }
    g_object_unref(parser);
    g_object_unref(stream);
    return out;
}
#endif

struct Throughput {
    double megabytesPerSecond;
    double messagesPerSecond;
    size_t textBytes;
};

// Best of `rounds` passes over all messages.
template <typename Parse>
Throughput measure(const std::vector<std::string>& messages, int rounds, Parse parse) {
    size_t bytes = 0;
    for (const auto& m : messages) {
        bytes += m.size();
    }
    double best = 1e300;
    size_t textBytes = 0;
    for (int round = 0; round < rounds; ++round) {
        auto start = Clock::now();
        size_t text = 0;
        for (const auto& m : messages) {
            text += parse(m).textBytes;
        }
        double seconds = std::chrono::duration<double>(Clock::now() - start).count();
        best = std::min(best, seconds);
        textBytes = text;
    }
    return {double(bytes) / 1e6 / best, double(messages.size()) / best, textBytes};
}

std::string base64(std::string_view data, size_t lineLength = 76) {
    static constexpr char kAlphabet[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    out.reserve(data.size() * 4 / 3 + data.size() / 50 + 8);
    size_t column = 0;
    for (size_t i = 0; i < data.size(); i += 3) {
        uint32_t n = uint32_t(uint8_t(data[i])) << 16;
        if (i + 1 < data.size()) {
            n |= uint32_t(uint8_t(data[i + 1])) << 8;
        }
        if (i + 2 < data.size()) {
            n |= uint8_t(data[i + 2]);
        }
        out += kAlphabet[(n >> 18) & 63];
        out += kAlphabet[(n >> 12) & 63];
        out += i + 1 < data.size() ? kAlphabet[(n >> 6) & 63] : '=';
        out += i + 2 < data.size() ? kAlphabet[n & 63] : '=';
        column += 4;
        if (column >= lineLength) {
            out += "\r\n";
            column = 0;
        }
    }
    return out;
}

std::string randomBytes(std::mt19937& rng, size_t size) {
    std::string out(size, '\0');
    for (auto& c : out) {
        c = char(rng() & 0xFF);
    }
    return out;
}

std::string prose(std::mt19937& rng, size_t words) {
    static const char* kWords[] = {"the",     "backup",  "vault",    "message", "server",
                                   "archive", "meeting", "invoice",  "réunion", "größe",
                                   "quarter", "report",  "attached", "thanks",  "tomorrow"};
    std::string out;
    for (size_t i = 0; i < words; ++i) {
        out += kWords[rng() % 15];
        out += (i % 12 == 11) ? "\r\n" : " ";
    }
    return out;
}

// One generated message of a shape chosen by `rng`: plain, alternative, mixed with
// attachments, related with inline images, Latin-1 quoted-printable, or a digest.
std::string generated(std::mt19937& rng, int index) {
    std::string head = "From: =?UTF-8?Q?J=C3=BCrgen?= <j" + std::to_string(index) +
                       "@example.com>\r\nTo: \"Doe, Jane\" <jane@example.org>, bob@example.net\r\n"
                       "Subject: =?UTF-8?B?UmU6IFF1YXJ0ZXJseSByZXBvcnQ=?= " +
                       std::to_string(index) +
                       "\r\nDate: Tue, 5 Mar 2024 10:00:00 +0100\r\nMessage-ID: <" +
                       std::to_string(index) + "@example.com>\r\nMIME-Version: 1.0\r\n";
    std::string text = prose(rng, 40 + rng() % 400);
    std::string html = "<html><body><p>" + prose(rng, 60 + rng() % 600) + "</p></body></html>";
    switch (rng() % 6) {
    case 0:
        return head + "Content-Type: text/plain; charset=utf-8\r\n\r\n" + text;
    case 1:
        return head +
               "Content-Type: multipart/alternative; boundary=\"alt\"\r\n\r\n--alt\r\n"
               "Content-Type: text/plain; charset=utf-8\r\n\r\n" +
               text + "\r\n--alt\r\nContent-Type: text/html; charset=utf-8\r\n\r\n" + html +
               "\r\n--alt--\r\n";
    case 2: {
        std::string message = head +
                              "Content-Type: multipart/mixed; boundary=\"mix\"\r\n\r\n--mix\r\n"
                              "Content-Type: text/plain; charset=utf-8\r\n\r\n" +
                              text + "\r\n";
        int count = 1 + int(rng() % 3);
        for (int i = 0; i < count; ++i) {
            message += "--mix\r\nContent-Type: application/pdf; name=\"doc" + std::to_string(i) +
                       ".pdf\"\r\nContent-Disposition: attachment; filename=\"doc" +
                       std::to_string(i) + ".pdf\"\r\nContent-Transfer-Encoding: base64\r\n\r\n" +
                       base64(randomBytes(rng, 2000 + rng() % 30000)) + "\r\n";
        }
        return message + "--mix--\r\n";
    }
    case 3:
        return head +
               "Content-Type: multipart/related; boundary=\"rel\"\r\n\r\n--rel\r\n"
               "Content-Type: text/html; charset=utf-8\r\n\r\n" +
               html +
               "<img src=\"cid:logo@x\">\r\n--rel\r\nContent-Type: image/png\r\n"
               "Content-ID: <logo@x>\r\nContent-Transfer-Encoding: base64\r\n\r\n" +
               base64(randomBytes(rng, 1000 + rng() % 8000)) + "\r\n--rel--\r\n";
    case 4: {
        std::string latin = "Caf=E9 cr=E8me br=FBl=E9e, " + text;
        return head +
               "Content-Type: text/plain; charset=iso-8859-1\r\n"
               "Content-Transfer-Encoding: quoted-printable\r\n\r\n" +
               latin;
    }
    default:
        return head +
               "Content-Type: multipart/digest; boundary=\"dig\"\r\n\r\n--dig\r\n\r\n"
               "Subject: one\r\n\r\n" +
               text + "\r\n--dig\r\n\r\nSubject: two\r\n\r\n" + text + "\r\n--dig--\r\n";
    }
}

// About 50 MB: text and HTML bodies and seven base64 attachments of 5 MB each.
std::string largeMessage() {
    std::mt19937 rng(50);
    std::string message = "From: a@example.com\r\nSubject: large\r\n"
                          "Content-Type: multipart/mixed; boundary=\"big\"\r\n\r\n--big\r\n"
                          "Content-Type: multipart/alternative; boundary=\"alt\"\r\n\r\n--alt\r\n"
                          "Content-Type: text/plain\r\n\r\n" +
                          prose(rng, 200000) + "\r\n--alt\r\nContent-Type: text/html\r\n\r\n<p>" +
                          prose(rng, 200000) + "</p>\r\n--alt--\r\n";
    for (int i = 0; i < 7; ++i) {
        message += "--big\r\nContent-Type: application/octet-stream; name=\"blob" +
                   std::to_string(i) + ".bin\"\r\nContent-Transfer-Encoding: base64\r\n\r\n" +
                   base64(randomBytes(rng, 5'000'000)) + "\r\n";
    }
    return message + "--big--\r\n";
}

// Peak resident size of this process image in kilobytes. Read from VmHWM rather than
// getrusage: ru_maxrss carries the parent's peak across fork and exec, VmHWM starts afresh
// with the new image.
long maxResidentKilobytes() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.starts_with("VmHWM:")) {
            return std::atol(line.c_str() + 6);
        }
    }
    return -1;
}

// Child side of the memory figure: a warm-up parse loads the charset tables first, so the
// growth measured is that of reading and parsing the file alone.
int peakChild(std::string_view kind, const char* path) {
    std::string warmUp = "Subject: x\r\nContent-Type: text/plain; charset=iso-8859-1\r\n\r\n\xE9";
    long before = maxResidentKilobytes();
    size_t text = 0;
    if (kind == "ours") {
        (void)parseOurs(warmUp);
        before = maxResidentKilobytes();
        // Read into one buffer and hand it over: the parts slice it without a copy.
        qs::ParsedMessage message = qs::MIMEParser::parse(qs::ByteSlice(qs::FileIO::read(path)));
        text = message.plainText().size() + message.attachments.size();
    } else {
#ifdef QS_HAVE_GMIME
        g_mime_init();
        (void)parseGMime(warmUp);
        before = maxResidentKilobytes();
        std::string bytes = qs::FileIO::read(path);
        text = parseGMime(bytes).textBytes;
#endif
    }
    long after = maxResidentKilobytes();
    std::printf("%ld %zu\n", (after - before) * 1024, text);
    return 0;
}

// Runs this program as a fresh child (so no memory of the parent counts) and reads the figure.
long peakGrowth(const char* self, const char* kind, const std::string& path) {
    int pipeFDs[2];
    if (pipe(pipeFDs) != 0) {
        return -1;
    }
    pid_t pid = fork();
    if (pid == 0) {
        dup2(pipeFDs[1], STDOUT_FILENO);
        close(pipeFDs[0]);
        execl(self, self, "--peak", kind, path.c_str(), static_cast<char*>(nullptr));
        _exit(127);
    }
    close(pipeFDs[1]);
    char buffer[128] = {};
    ssize_t n = read(pipeFDs[0], buffer, sizeof buffer - 1);
    close(pipeFDs[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    return n > 0 ? std::atol(buffer) : -1;
}

void report(const char* what, const Throughput& t) {
    std::printf("  %-28s %8.1f MB/s %10.0f messages/s   (text extracted: %zu bytes)\n", what,
                t.megabytesPerSecond, t.messagesPerSecond, t.textBytes);
}

} // namespace

int main(int argc, char** argv) {
    if (argc == 4 && std::string_view(argv[1]) == "--peak") {
        return peakChild(argv[2], argv[3]);
    }
#ifdef QS_HAVE_GMIME
    g_mime_init();
#endif
    std::vector<std::string> corpus;
    size_t corpusBytes = 0;
    for (auto& message : qs::test::corpusMessages()) {
        corpusBytes += message.bytes.size();
        corpus.push_back(std::move(message.bytes));
    }
    std::mt19937 rng(2024);
    std::vector<std::string> generatedSet;
    size_t generatedBytes = 0;
    for (int i = 0; i < 10'000; ++i) {
        generatedSet.push_back(generated(rng, i));
        generatedBytes += generatedSet.back().size();
    }

    std::printf("corpus: %zu messages, %.1f MB\n", corpus.size(), double(corpusBytes) / 1e6);
    report("MIMEParser", measure(corpus, 5, parseOurs));
#ifdef QS_HAVE_GMIME
    report("GMime 3", measure(corpus, 5, parseGMime));
#endif
    std::printf("generated: %zu messages, %.1f MB\n", generatedSet.size(),
                double(generatedBytes) / 1e6);
    report("MIMEParser", measure(generatedSet, 3, parseOurs));
#ifdef QS_HAVE_GMIME
    report("GMime 3", measure(generatedSet, 3, parseGMime));
#endif

    std::string large = largeMessage();
    auto path = std::filesystem::temp_directory_path() /
                ("qs-bench-mime-" + std::to_string(getpid()) + ".eml");
    {
        std::ofstream out(path, std::ios::binary);
        out.write(large.data(), std::streamsize(large.size()));
    }
    large.clear();
    large.shrink_to_fit();
    size_t size = std::filesystem::file_size(path);
    std::printf("one message of %.1f MB (7 base64 attachments of 5 MB):\n", double(size) / 1e6);
    long ours = peakGrowth(argv[0], "ours", path.string());
    std::printf("  %-28s peak growth %7.1f MB = %.2f x the message (target: under 3)\n",
                "MIMEParser", double(ours) / 1e6, double(ours) / double(size));
#ifdef QS_HAVE_GMIME
    long theirs = peakGrowth(argv[0], "gmime", path.string());
    std::printf("  %-28s peak growth %7.1f MB = %.2f x the message\n", "GMime 3",
                double(theirs) / 1e6, double(theirs) / double(size));
#endif
    std::filesystem::remove(path);
    return 0;
}
