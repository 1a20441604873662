// The cost of the safety checks that run for every message at index time (HTMLInspector::inspect
// and SenderCheck::check), next to the cost of parsing the same messages, over the shared corpus
// and over generated newsletters. Prints its figures; asserts nothing.

#include "mime/MIMEParser.h"
#include "safety/HTMLInspector.h"
#include "safety/SenderCheck.h"
#include "support/Corpus.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <functional>
#include <string>
#include <vector>

namespace {

// CPU time of this thread, in seconds: unlike the wall clock, it doesn't count the time other
// programs on a shared machine take from this one.
double threadSeconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return double(now.tv_sec) + double(now.tv_nsec) * 1e-9;
}

// The best of several rounds, in seconds of CPU time.
double bestOf(int rounds, const std::function<void()>& work) {
    double best = 1e30;
    for (int i = 0; i < rounds; ++i) {
        double start = threadSeconds();
        work();
        best = std::min(best, threadSeconds() - start);
    }
    return best;
}

std::string quotedPrintable(std::string_view text) {
    static constexpr char kHex[] = "0123456789ABCDEF";
    std::string out;
    size_t column = 0;
    for (char ch : text) {
        auto c = static_cast<unsigned char>(ch);
        std::string piece;
        if (c == '\n') {
            out += "\r\n";
            column = 0;
            continue;
        }
        if (c == '=' || c >= 0x7F || (c < 0x20 && c != '\t')) {
            piece = {'=', kHex[c >> 4], kHex[c & 15]};
        } else {
            piece = std::string(1, char(c));
        }
        if (column + piece.size() > 75) {
            out += "=\r\n";
            column = 0;
        }
        out += piece;
        column += piece.size();
    }
    return out;
}

// A marketing newsletter of about `targetBytes` of HTML: table layout, styled blocks, product
// images with sizes, links with plain and domain-like text, a few tracking pixels.
std::string newsletter(size_t targetBytes) {
    std::string html = "<!DOCTYPE html><html><head><meta charset=\"utf-8\"><title>Weekly deals"
                       "</title><style>body{margin:0} .btn{padding:12px 24px;background:#c00}"
                       "</style></head><body><table width=\"100%\" cellpadding=\"0\">";
    for (int block = 0; html.size() < targetBytes; ++block) {
        std::string n = std::to_string(block);
        html += "<tr><td class=\"content\" style=\"padding:20px;font-family:Helvetica,Arial\">"
                "<a href=\"https://click.shop.example.com/ls/click?upn=" +
                n + "&amp;utm_source=newsletter\"><img src=\"https://cdn.shop.example.com/p/" + n +
                ".jpg\" width=\"560\" height=\"320\" alt=\"Product " + n +
                "\" style=\"display:block;border:0\"></a>"
                "<h2 style=\"font-size:22px\">Spring offer n&ordm; " +
                n +
                "</h2><p>Our best prices of the season, with free delivery on orders over "
                "&euro;50. Lorem ipsum dolor sit amet, consectetur adipiscing elit, sed do "
                "eiusmod tempor incididunt ut labore et dolore magna aliqua.</p>"
                "<a class=\"btn\" href=\"https://click.shop.example.com/ls/click?upn=b" +
                n + "\">Shop now &rarr;</a> <a href=\"https://click.shop.example.com/x" + n +
                "\">www.shop.example.com</a></td></tr>\n";
        if (block % 40 == 0) {
            html += "<tr><td><img src=\"https://u123.ct.sendgrid.net/wf/open?upn=" + n +
                    "\" width=\"1\" height=\"1\" border=\"0\"></td></tr>\n";
        }
    }
    html += "</table><img src=\"https://x.list-manage.com/track/open.php?u=1\" width=\"1\" "
            "height=\"1\"></body></html>";
    return "From: \"Shop Example\" <news@shop.example.com>\r\n"
           "To: reader@example.org\r\nSubject: Weekly deals\r\n"
           "Date: Sun, 22 Nov 2026 10:00:00 +0000\r\nMessage-ID: <n1@shop.example.com>\r\n"
           "MIME-Version: 1.0\r\nContent-Type: multipart/alternative; boundary=\"b1\"\r\n\r\n"
           "--b1\r\nContent-Type: text/plain; charset=utf-8\r\n\r\nWeekly deals: see the web "
           "version.\r\n--b1\r\nContent-Type: text/html; charset=utf-8\r\n"
           "Content-Transfer-Encoding: quoted-printable\r\n\r\n" +
           quotedPrintable(html) + "\r\n--b1--\r\n";
}

struct Figures {
    double parseSeconds = 0;
    double inspectSeconds = 0;
    double senderSeconds = 0;
    size_t messageBytes = 0;
    size_t htmlBytes = 0;
    size_t messages = 0;
};

volatile int64_t sink = 0;

Figures measure(const std::vector<std::string>& messages, int rounds) {
    Figures f;
    std::vector<qs::ParsedMessage> parsed;
    for (const std::string& m : messages) {
        parsed.push_back(qs::MIMEParser::parse(m));
        f.messageBytes += m.size();
        f.htmlBytes += parsed.back().htmlBody ? parsed.back().htmlBody->size() : 0;
    }
    f.messages = messages.size();
    f.parseSeconds = bestOf(rounds, [&] {
        for (const std::string& m : messages) {
            sink = sink + int64_t(qs::MIMEParser::parse(m).attachments.size());
        }
    });
    f.inspectSeconds = bestOf(rounds, [&] {
        for (const qs::ParsedMessage& p : parsed) {
            if (p.htmlBody) {
                sink = sink + qs::HTMLInspector::inspect(*p.htmlBody).trackerCount;
            }
        }
    });
    f.senderSeconds = bestOf(rounds, [&] {
        for (const qs::ParsedMessage& p : parsed) {
            std::optional<qs::MailAddress> from;
            if (!p.from.empty()) {
                from = p.from.front();
            }
            sink = sink + int64_t(qs::SenderCheck::check(from).size());
        }
    });
    return f;
}

void print(const char* label, const Figures& f) {
    double n = double(f.messages);
    double safety = f.inspectSeconds + f.senderSeconds;
    std::printf("%s: %zu messages, %.1f MB (%.1f MB of HTML)\n", label, f.messages,
                f.messageBytes / 1e6, f.htmlBytes / 1e6);
    std::printf("  parse            %9.1f us/message  %8.1f MB/s of message\n",
                f.parseSeconds / n * 1e6, f.messageBytes / 1e6 / f.parseSeconds);
    std::printf("  inspect          %9.1f us/message  %8.1f MB/s of HTML\n",
                f.inspectSeconds / n * 1e6, f.htmlBytes / 1e6 / f.inspectSeconds);
    std::printf("  SenderCheck      %9.2f us/message\n", f.senderSeconds / n * 1e6);
    std::printf("  safety / parse   %9.1f %%\n", safety / f.parseSeconds * 100);
}

} // namespace

int main() {
    std::vector<std::string> corpus;
    for (qs::test::CorpusMessage& m : qs::test::corpusMessages()) {
        corpus.push_back(std::move(m.bytes));
    }
    print("corpus", measure(corpus, 5));

    std::vector<std::string> htmlCorpus;
    for (const std::string& m : corpus) {
        if (qs::MIMEParser::parse(m).htmlBody) {
            htmlCorpus.push_back(m);
        }
    }
    print("corpus, HTML messages only", measure(htmlCorpus, 5));

    for (size_t size : {50'000, 1'000'000, 5'000'000}) {
        std::vector<std::string> letters(size >= 1'000'000 ? 4 : 40, newsletter(size));
        char label[64];
        std::snprintf(label, sizeof label, "generated newsletters of %zu KB HTML", size / 1000);
        print(label, measure(letters, 3));
    }
    return sink == 42 ? 1 : 0;
}
