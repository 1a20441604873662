// The cost of the safety checks that run for every message at index time (HTMLInspector::inspect
// and SenderCheck::check), next to the cost of parsing the same messages, over the shared corpus
// and over generated newsletters: campaign mail of realistic size and make-up, and a denser
// stress case at sizes past real mail. Prints its figures; asserts nothing. With "profile
// realistic" or "profile dense" it only inspects one newsletter over and over, for a profiler.

#include "mime/MIMEParser.h"
#include "safety/HTMLInspector.h"
#include "safety/HTMLScanner.h"
#include "safety/SenderCheck.h"
#include "support/Corpus.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <set>
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

// A newsletter as mail-marketing services send them, about `targetBytes` of HTML: a preheader,
// a "view in browser" link, a logo, then product cards with heavy inline styles, each with an
// image link, a title link and a button, all through one click-tracking host with long opaque
// tokens; images from two CDN hosts; social icons, a footer naming the site, unsubscribe and
// preference links, and an open-tracking pixel. Some 200 links and 50 images per 100 KB, most
// links going to the same host, few showing a domain: the proportions of real campaign mail.
std::string realisticNewsletter(size_t targetBytes) {
    auto token = [](int n, size_t length) {
        static constexpr char kAlphabet[] =
            "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
        std::string out;
        uint32_t state = uint32_t(n) * 2654435761u + 12345;
        for (size_t i = 0; i < length; ++i) {
            state = state * 1103515245u + 12345;
            out.push_back(kAlphabet[(state >> 16) & 63]);
        }
        return out;
    };
    int links = 0;
    auto click = [&](const char* label) {
        return "https://click.e.shop.example.com/?qs=" + token(links++, 180) + "&amp;l=" + label;
    };
    const std::string td = "style=\"padding:0 24px 16px 24px;font-family:'Helvetica Neue',"
                           "Helvetica,Arial,sans-serif;font-size:15px;line-height:22px;"
                           "color:#333333;mso-line-height-rule:exactly;\"";
    std::string html =
        "<!DOCTYPE html PUBLIC \"-//W3C//DTD XHTML 1.0 Transitional//EN\" "
        "\"http://www.w3.org/TR/xhtml1/DTD/xhtml1-transitional.dtd\"><html "
        "xmlns=\"http://www.w3.org/1999/xhtml\"><head><meta http-equiv=\"Content-Type\" "
        "content=\"text/html; charset=UTF-8\"><meta name=\"viewport\" "
        "content=\"width=device-width, initial-scale=1.0\"><title>This week at Shop</title>"
        "<style type=\"text/css\">body{margin:0;padding:0} table,td{border-collapse:collapse;"
        "mso-table-lspace:0pt;mso-table-rspace:0pt} img{border:0;outline:none;"
        "text-decoration:none;-ms-interpolation-mode:bicubic} @media only screen and "
        "(max-width:600px){.col{width:100%!important;display:block!important}}</style>"
        "</head><body style=\"margin:0;padding:0;background-color:#f4f4f4;\">"
        "<div style=\"display:none;max-height:0;overflow:hidden;\">New arrivals, up to 40% "
        "off and free delivery this weekend only.</div>"
        "<table role=\"presentation\" width=\"100%\" cellpadding=\"0\" cellspacing=\"0\" "
        "border=\"0\" bgcolor=\"#f4f4f4\"><tr><td align=\"center\">"
        "<table role=\"presentation\" width=\"600\" cellpadding=\"0\" cellspacing=\"0\" "
        "border=\"0\" style=\"width:600px;background:#ffffff;\"><tr><td " +
        td + " align=\"right\"><a href=\"" + click("view") +
        "\" style=\"color:#999999;font-size:11px;\">View this email in your browser</a></td>"
        "</tr><tr><td align=\"center\" style=\"padding:24px;\"><a href=\"" +
        click("logo") +
        "\" target=\"_blank\"><img src=\"https://img.shop.example.com/brand/logo@2x.png\" "
        "width=\"180\" height=\"48\" alt=\"Shop\" style=\"display:block;border:0;\"></a>"
        "</td></tr>\n";
    std::string footer =
        "<tr><td align=\"center\" style=\"padding:24px;background:#222222;\">"
        "<a href=\"https://www.facebook.com/shopexample\"><img "
        "src=\"https://img.shop.example.com/social/fb.png\" width=\"32\" height=\"32\" "
        "alt=\"Facebook\"></a> <a href=\"https://www.instagram.com/shopexample\"><img "
        "src=\"https://img.shop.example.com/social/ig.png\" width=\"32\" height=\"32\" "
        "alt=\"Instagram\"></a> <a href=\"https://twitter.com/shopexample\"><img "
        "src=\"https://img.shop.example.com/social/tw.png\" width=\"32\" height=\"32\" "
        "alt=\"Twitter\"></a></td></tr><tr><td " +
        td +
        " align=\"center\"><p style=\"font-size:12px;color:#999999;\">You are receiving "
        "this email because you signed up at <a href=\"" +
        click("home") +
        "\" style=\"color:#999999;\">www.shop.example.com</a>. Shop Example Ltd, 1 High "
        "Street, London.<br><a href=\"https://shop.example.com/unsubscribe?u=" +
        token(7, 40) + "\" style=\"color:#999999;\">Unsubscribe</a> &middot; <a href=\"" +
        click("prefs") +
        "\" style=\"color:#999999;\">Update your preferences</a> &middot; <a href=\"" +
        click("privacy") +
        "\" style=\"color:#999999;\">shop.example.com/privacy</a></p></td></tr></table>"
        "</td></tr></table><img src=\"https://u4810.ct.sendgrid.net/wf/open?upn=" +
        token(9, 120) +
        "\" alt=\"\" width=\"1\" height=\"1\" border=\"0\" style=\"height:1px "
        "!important;width:1px !important;border-width:0 !important;margin:0 "
        "!important;padding:0 !important;\"></body></html>";
    for (int card = 0; html.size() + footer.size() < targetBytes; ++card) {
        std::string n = std::to_string(card);
        const char* cdn = card % 3 == 0 ? "https://img.shop.example.com/p/"
                                        : "https://images.shopcdn.example.net/c/";
        html +=
            "<tr><td " + td + "><a href=\"" + click("img") + "\" target=\"_blank\"><img src=\"" +
            cdn + n + "/600x400.jpg\" width=\"552\" height=\"368\" alt=\"Linen shirt " + n +
            "\" style=\"display:block;width:100%;max-width:552px;height:auto;border:0;\">"
            "</a></td></tr><tr><td " +
            td + "><a href=\"" + click("title") +
            "\" style=\"color:#111111;text-decoration:none;font-weight:bold;font-size:"
            "18px;\">Linen shirt, style " +
            n +
            "</a><br>Soft washed linen in six colours. Was &pound;45, now &pound;29. <a href=\"" +
            click("colours") +
            "\" style=\"color:#c0392b;\">See all colours</a>"
            "</td></tr><tr><td " +
            td +
            " align=\"center\"><table role=\"presentation\" cellpadding=\"0\" "
            "cellspacing=\"0\" border=\"0\"><tr><td bgcolor=\"#c0392b\" "
            "style=\"border-radius:4px;\"><a href=\"" +
            click("cta") +
            "\" style=\"display:inline-block;padding:12px 28px;font-size:15px;"
            "color:#ffffff;text-decoration:none;border-radius:4px;\">Shop now</a></td>"
            "</tr></table></td></tr>\n";
    }
    return html + footer;
}

// A text/html message around `html`, quoted-printable as campaign mail usually is.
std::string htmlMessage(const std::string& html) {
    return "From: \"Shop Example\" <news@shop.example.com>\r\n"
           "To: reader@example.org\r\nSubject: This week at Shop\r\n"
           "Date: Sun, 22 Nov 2026 10:00:00 +0000\r\nMessage-ID: <n2@shop.example.com>\r\n"
           "MIME-Version: 1.0\r\nContent-Type: multipart/alternative; boundary=\"b1\"\r\n\r\n"
           "--b1\r\nContent-Type: text/plain; charset=utf-8\r\n\r\nThis week at Shop: see "
           "the web version.\r\n--b1\r\nContent-Type: text/html; charset=utf-8\r\n"
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

// The links, images and distinct link hosts of one newsletter, to show what a case holds.
void describe(const std::string& html) {
    std::set<std::string> hosts;
    auto anchors = qs::HTMLScanner::anchors(html);
    for (const auto& anchor : anchors) {
        std::string_view a = anchor.attributes;
        if (size_t at = a.find("://"); at != std::string_view::npos) {
            a.remove_prefix(at + 3);
            hosts.emplace(a.substr(0, a.find_first_of("/?\"")));
        }
    }
    std::printf("  (each: %zu KB of HTML, %zu links to %zu hosts, %zu images)\n",
                html.size() / 1000, anchors.size(), hosts.size(),
                qs::HTMLScanner::imgTags(html).size());
}

} // namespace

// With "profile dense" or "profile realistic" (and optionally a number of seconds), runs only
// the inspection of one newsletter over and over, for a profiler.
int main(int argc, char** argv) {
    if (argc >= 3 && std::string_view(argv[1]) == "profile") {
        bool dense = std::string_view(argv[2]) == "dense";
        std::string message =
            dense ? newsletter(1'000'000) : htmlMessage(realisticNewsletter(100'000));
        std::string html = *qs::MIMEParser::parse(message).htmlBody;
        double seconds = argc >= 4 ? std::atof(argv[3]) : 10;
        double start = threadSeconds();
        int64_t runs = 0;
        while (threadSeconds() - start < seconds) {
            sink = sink + qs::HTMLInspector::inspect(html).trackerCount;
            ++runs;
        }
        std::printf("%lld inspections, %.1f us each\n", static_cast<long long>(runs),
                    (threadSeconds() - start) / double(runs) * 1e6);
        return 0;
    }

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

    // Typical campaign mail sizes: most stay under the 102 KB at which a large webmail clips.
    for (size_t size : {30'000, 100'000}) {
        std::string html = realisticNewsletter(size);
        std::vector<std::string> letters(200, htmlMessage(html));
        char label[80];
        std::snprintf(label, sizeof label, "realistic newsletters of %zu KB HTML", size / 1000);
        print(label, measure(letters, 5));
        describe(html);
    }

    // A dense stress case: a link every 300 bytes, a third of them showing a domain, at sizes
    // well past real newsletters.
    for (size_t size : {50'000, 1'000'000, 5'000'000}) {
        std::vector<std::string> letters(size >= 1'000'000 ? 4 : 40, newsletter(size));
        char label[64];
        std::snprintf(label, sizeof label, "generated newsletters of %zu KB HTML", size / 1000);
        print(label, measure(letters, 3));
        describe(*qs::MIMEParser::parse(letters.front()).htmlBody);
    }
    return sink == 42 ? 1 : 0;
}
