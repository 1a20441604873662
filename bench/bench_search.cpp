// The search index at scale: makeRecord and add throughput, index.json size, save and load
// times, peak memory, and search latency for prefix queries. Prints figures; asserts nothing.
//
//   bench_search [--records N] [--dir PATH] [--makerecord-seconds S] [--keep]
//   bench_search --load PATH [--no-queries]     (load a kept index.json, run the queries)
//
// The load and the searches run in a fresh process (this program re-run with --load), so their
// memory and time are those of an application start, not of the process that built the index.
#include "search/SearchIndex.h"
#include "support/Corpus.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <random>
#include <string>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// CPU seconds of this process: on a shared, busy machine closer to what one free core would
// take than the wall clock.
double cpuSeconds() {
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return double(t.tv_sec) + double(t.tv_nsec) / 1e9;
}

double peakMegabytes() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return double(usage.ru_maxrss) / 1024.0;
}

double currentMegabytes() {
    FILE* f = std::fopen("/proc/self/statm", "r");
    long pages = 0, resident = 0;
    if (f) {
        if (std::fscanf(f, "%ld %ld", &pages, &resident) != 2) {
            resident = 0;
        }
        std::fclose(f);
    }
    return double(resident) * double(sysconf(_SC_PAGESIZE)) / 1048576.0;
}

// ---- Realistic text -------------------------------------------------------------------------

const char* const commonWords[] = {"the",
                                   "to",
                                   "and",
                                   "of",
                                   "a",
                                   "in",
                                   "for",
                                   "is",
                                   "on",
                                   "that",
                                   "by",
                                   "this",
                                   "with",
                                   "you",
                                   "it",
                                   "not",
                                   "or",
                                   "be",
                                   "are",
                                   "from",
                                   "at",
                                   "as",
                                   "your",
                                   "all",
                                   "have",
                                   "new",
                                   "more",
                                   "an",
                                   "was",
                                   "we",
                                   "will",
                                   "can",
                                   "us",
                                   "about",
                                   "if",
                                   "my",
                                   "has",
                                   "but",
                                   "our",
                                   "one",
                                   "other",
                                   "do",
                                   "no",
                                   "time",
                                   "they",
                                   "he",
                                   "up",
                                   "may",
                                   "what",
                                   "which",
                                   "their",
                                   "out",
                                   "use",
                                   "any",
                                   "there",
                                   "see",
                                   "only",
                                   "so",
                                   "his",
                                   "when",
                                   "here",
                                   "who",
                                   "also",
                                   "now",
                                   "help",
                                   "get",
                                   "view",
                                   "first",
                                   "been",
                                   "would",
                                   "how",
                                   "were",
                                   "me",
                                   "some",
                                   "these",
                                   "like",
                                   "service",
                                   "than",
                                   "find",
                                   "price",
                                   "date",
                                   "back",
                                   "top",
                                   "people",
                                   "had",
                                   "list",
                                   "name",
                                   "just",
                                   "over",
                                   "year",
                                   "day",
                                   "into",
                                   "email",
                                   "two",
                                   "health",
                                   "world",
                                   "next",
                                   "used",
                                   "go",
                                   "work",
                                   "last",
                                   "most",
                                   "products",
                                   "music",
                                   "buy",
                                   "data",
                                   "make",
                                   "them",
                                   "should",
                                   "product",
                                   "post",
                                   "her",
                                   "city",
                                   "add",
                                   "policy",
                                   "number",
                                   "such",
                                   "please",
                                   "available",
                                   "copyright",
                                   "support",
                                   "message",
                                   "after",
                                   "best",
                                   "software",
                                   "then",
                                   "jan",
                                   "good",
                                   "video",
                                   "well",
                                   "where",
                                   "info",
                                   "rights",
                                   "public",
                                   "books",
                                   "high",
                                   "school",
                                   "through",
                                   "each",
                                   "links",
                                   "she",
                                   "review",
                                   "years",
                                   "order",
                                   "very",
                                   "privacy",
                                   "book",
                                   "items",
                                   "company",
                                   "read",
                                   "group",
                                   "need",
                                   "many",
                                   "user",
                                   "said",
                                   "does",
                                   "set",
                                   "under",
                                   "general",
                                   "research",
                                   "university",
                                   "january",
                                   "mail",
                                   "full",
                                   "map",
                                   "reviews",
                                   "program",
                                   "life",
                                   "know",
                                   "games",
                                   "way",
                                   "days",
                                   "management",
                                   "part",
                                   "could",
                                   "great",
                                   "united",
                                   "hotel",
                                   "real",
                                   "item",
                                   "international",
                                   "center",
                                   "must",
                                   "store",
                                   "travel",
                                   "comments",
                                   "made",
                                   "development",
                                   "report",
                                   "off",
                                   "member",
                                   "details",
                                   "line",
                                   "terms",
                                   "before",
                                   "hotels",
                                   "did",
                                   "send",
                                   "right",
                                   "type",
                                   "because",
                                   "local",
                                   "those",
                                   "using",
                                   "results",
                                   "office",
                                   "education",
                                   "national",
                                   "car",
                                   "design",
                                   "take",
                                   "posted",
                                   "internet",
                                   "address",
                                   "community",
                                   "within",
                                   "states",
                                   "area",
                                   "want",
                                   "phone",
                                   "shipping",
                                   "reserved",
                                   "subject",
                                   "between",
                                   "forum",
                                   "family",
                                   "long",
                                   "based",
                                   "code",
                                   "show",
                                   "even",
                                   "black",
                                   "check",
                                   "special",
                                   "prices",
                                   "website",
                                   "index",
                                   "being",
                                   "women",
                                   "much",
                                   "sign",
                                   "file",
                                   "link",
                                   "open",
                                   "today",
                                   "technology",
                                   "south",
                                   "case",
                                   "project",
                                   "same",
                                   "pages",
                                   "version",
                                   "section",
                                   "own",
                                   "found",
                                   "sports",
                                   "house",
                                   "related",
                                   "security",
                                   "both",
                                   "county",
                                   "american",
                                   "photo",
                                   "game",
                                   "members",
                                   "power",
                                   "while",
                                   "care",
                                   "network",
                                   "down",
                                   "computer",
                                   "systems",
                                   "three",
                                   "total",
                                   "place",
                                   "end",
                                   "following",
                                   "download",
                                   "him",
                                   "without",
                                   "per",
                                   "access",
                                   "think",
                                   "north",
                                   "resources",
                                   "current",
                                   "posts",
                                   "big",
                                   "media",
                                   "law",
                                   "control",
                                   "water",
                                   "history",
                                   "pictures",
                                   "size",
                                   "art",
                                   "personal",
                                   "since",
                                   "including",
                                   "guide",
                                   "shop",
                                   "directory",
                                   "board",
                                   "location",
                                   "change",
                                   "white",
                                   "text",
                                   "small",
                                   "rating",
                                   "rate",
                                   "government",
                                   "children",
                                   "during",
                                   "return",
                                   "students",
                                   "invoice",
                                   "meeting",
                                   "schedule",
                                   "payment",
                                   "account",
                                   "receipt",
                                   "delivery",
                                   "password",
                                   "thanks",
                                   "regards",
                                   "attached",
                                   "tomorrow",
                                   "monday",
                                   "friday",
                                   "quarterly",
                                   "budget"};

const char* const foreignWords[] = {
    "Grüße",   "für",     "Rechnung",   "Bestätigung", "Straße",      "über",      "Größe",
    "müssen",  "café",    "réunion",    "été",         "déjà",        "première",  "commande",
    "reçu",    "merci",   "señor",      "mañana",      "información", "añadir",    "Привет",
    "спасибо", "встреча", "документ",   "счёт",        "東京",        "会議",      "ありがとう",
    "請求書",  "確認",    "안녕하세요", "회의",        "Ελλάδα",      "συνάντηση", "naïve",
    "résumé",  "Zürich",  "København",  "Łódź",        "İstanbul",    "Ærø",       "smörgåsbord"};

const char* const firstNames[] = {"Anna",   "Ben",   "Chloé",  "David", "Emma", "Frank", "Grace",
                                  "Hiro",   "Ines",  "Jonas",  "Katja", "Liam", "Maria", "Noah",
                                  "Olga",   "Pedro", "Quinn",  "Rosa",  "Sven", "Tara",  "Uma",
                                  "Victor", "Wen",   "Xavier", "Yuki",  "Zoë"};
const char* const lastNames[] = {"Smith",    "Müller",    "García",       "Rossi",   "Nakamura",
                                 "Kowalski", "Johansson", "Dubois",       "O'Brien", "Novak",
                                 "Ivanova",  "Chen",      "Papadopoulos", "Fischer", "Silva",
                                 "Andersen", "Kim",       "Brown"};
const char* const domains[] = {"example.com",
                               "mail.example.org",
                               "corp.example.net",
                               "shop.example",
                               "newsletter.example.com",
                               "bank.example",
                               "university.example.edu",
                               "gmail.example",
                               "startup.example.io"};

class TextMaker {
public:
    explicit TextMaker(uint64_t seed) : random_(seed) {
        // A long tail of made-up words from syllables, with Zipf frequencies behind the
        // common words: real vocabularies are mostly rare words.
        const char* syllables[] = {"ka",  "lo",  "mi", "ren", "sto",  "ber", "qua", "tis", "von",
                                   "dra", "pel", "ux", "gri", "shen", "ot",  "ma",  "ly",  "cor",
                                   "ne",  "pha", "zu", "bri", "tek",  "sol", "ven", "arn", "ix"};
        std::uniform_int_distribution<size_t> pick(0, std::size(syllables) - 1);
        std::uniform_int_distribution<int> count(2, 4);
        for (auto* w : commonWords) {
            vocabulary_.push_back(w);
        }
        while (vocabulary_.size() < 60'000) {
            std::string w;
            for (int i = count(random_); i > 0; --i) {
                w += syllables[pick(random_)];
            }
            vocabulary_.push_back(w);
        }
        std::vector<double> weights(vocabulary_.size());
        for (size_t i = 0; i < weights.size(); ++i) {
            weights[i] = 1.0 / std::pow(double(i + 1), 1.05);
        }
        zipf_ = std::discrete_distribution<size_t>(weights.begin(), weights.end());
    }

    std::mt19937_64& random() { return random_; }

    template <class T, size_t N>
    const T& pick(const T (&items)[N]) {
        return items[std::uniform_int_distribution<size_t>(0, N - 1)(random_)];
    }

    bool chance(double p) { return std::bernoulli_distribution(p)(random_); }

    std::string word() {
        double roll = std::uniform_real_distribution<double>(0, 1)(random_);
        if (roll < 0.015) {
            return foreignWords[std::uniform_int_distribution<size_t>(0, std::size(foreignWords) -
                                                                             1)(random_)];
        }
        if (roll < 0.03) {
            return std::to_string(std::uniform_int_distribution<int>(1, 99999)(random_));
        }
        if (roll < 0.035) {
            // Order numbers, tracking codes: tokens seen once in the whole vault.
            static const char alphabet[] = "ABCDEFGHJKLMNPQRSTUVWXYZ0123456789";
            std::string code;
            for (int i = 0; i < 10; ++i) {
                code += alphabet[std::uniform_int_distribution<size_t>(0, 33)(random_)];
            }
            return code;
        }
        return vocabulary_[zipf_(random_)];
    }

    std::string sentence() {
        std::string s;
        int n = std::uniform_int_distribution<int>(4, 18)(random_);
        for (int i = 0; i < n; ++i) {
            auto w = word();
            if (i == 0 && !w.empty() && w[0] >= 'a' && w[0] <= 'z') {
                w[0] = char(w[0] - 'a' + 'A');
            }
            s += w;
            s += i + 1 == n ? ". " : (chance(0.08) ? ", " : " ");
        }
        return s;
    }

    /// A body of realistic length: most mail is short, some is very long.
    std::string body() {
        double chars = std::exp(std::normal_distribution<double>(7.0, 1.0)(random_));
        chars = std::clamp(chars, 40.0, 60'000.0);
        std::string b;
        while (b.size() < size_t(chars)) {
            b += sentence();
            if (chance(0.2)) {
                b += "\r\n\r\n";
            }
        }
        return b;
    }

    std::string name() { return std::string(pick(firstNames)) + " " + pick(lastNames); }

    std::string email(const std::string& name) {
        std::string local;
        for (char c : name) {
            if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z')) {
                local += char(std::tolower(static_cast<unsigned char>(c)));
            } else if (c == ' ') {
                local += '.';
            }
        }
        return local + "@" + pick(domains);
    }

    std::string subject() {
        std::string s;
        int n = std::uniform_int_distribution<int>(2, 8)(random_);
        for (int i = 0; i < n; ++i) {
            s += (i ? " " : "") + word();
        }
        return s;
    }

private:
    std::mt19937_64 random_;
    std::vector<std::string> vocabulary_;
    std::discrete_distribution<size_t> zipf_;
};

// ---- Real-looking messages for makeRecord ---------------------------------------------------

std::string base64Block(std::mt19937_64& random, size_t bytes) {
    static const char alphabet[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    for (size_t i = 0; i < bytes * 4 / 3; ++i) {
        out += alphabet[random() % 64];
        if (i % 76 == 75) {
            out += "\r\n";
        }
    }
    return out + "\r\n";
}

std::string makeMessage(TextMaker& text, int64_t when) {
    auto fromName = text.name();
    std::string m;
    m += "Received: from mx.example.net (mx.example.net [192.0.2.1]) by mail.example.com\r\n";
    if (text.chance(0.5)) {
        m += "Authentication-Results: mail.example.com; spf=pass smtp.mailfrom=example.com; "
             "dkim=pass header.d=example.com; dmarc=" +
             std::string(text.chance(0.9) ? "pass" : "fail") + " header.from=example.com\r\n";
    }
    m += "From: \"" + fromName + "\" <" + text.email(fromName) + ">\r\n";
    m += "To: ";
    int recipients = std::uniform_int_distribution<int>(1, 4)(text.random());
    for (int i = 0; i < recipients; ++i) {
        auto n = text.name();
        m += (i ? ", " : "") + n + " <" + text.email(n) + ">";
    }
    m += "\r\n";
    if (text.chance(0.3)) {
        auto n = text.name();
        m += "Cc: " + n + " <" + text.email(n) + ">\r\n";
    }
    auto subject = text.subject();
    if (text.chance(0.1)) {
        m += "Subject: =?UTF-8?Q?" + subject.substr(0, 10) + "_=C3=A9t=C3=A9?=\r\n";
    } else {
        m += "Subject: " + subject + "\r\n";
    }
    char date[64];
    time_t t = time_t(when);
    tm parts{};
    gmtime_r(&t, &parts);
    strftime(date, sizeof date, "%a, %d %b %Y %H:%M:%S +0000", &parts);
    m += std::string("Date: ") + date + "\r\n";
    m += "Message-ID: <" + std::to_string(when) + "." + std::to_string(text.random()() % 100000) +
         "@example.com>\r\nMIME-Version: 1.0\r\n";
    auto body = text.body();
    double kind = std::uniform_real_distribution<double>(0, 1)(text.random());
    if (kind < 0.55) {
        m += "Content-Type: text/plain; charset=utf-8\r\nContent-Transfer-Encoding: 8bit\r\n\r\n";
        m += body;
    } else if (kind < 0.85) {
        m += "Content-Type: multipart/alternative; boundary=\"ALT\"\r\n\r\n--ALT\r\n"
             "Content-Type: text/plain; charset=utf-8\r\n\r\n" +
             body + "\r\n--ALT\r\nContent-Type: text/html; charset=utf-8\r\n\r\n<html><body>";
        m += "<p>" + body + "</p>";
        m += "<img src=\"https://cdn.example.com/logo.png\" width=\"200\" height=\"50\">";
        if (text.chance(0.5)) {
            m += "<img src=\"https://track.example.net/open?id=123\" width=\"1\" height=\"1\">";
        }
        m += "<a href=\"https://www.example.com/offer\">View online</a>";
        if (text.chance(0.05)) {
            m += "<a href=\"https://login.example.org/x\">www.bank.example</a>";
        }
        m += "</body></html>\r\n--ALT--\r\n";
    } else {
        m += "Content-Type: multipart/mixed; boundary=\"MIX\"\r\n\r\n--MIX\r\n"
             "Content-Type: text/plain; charset=utf-8\r\n\r\n" +
             body + "\r\n--MIX\r\nContent-Type: application/pdf; name=\"" + text.word() +
             "-report.pdf\"\r\nContent-Disposition: attachment; filename=\"" + text.word() +
             "-report.pdf\"\r\nContent-Transfer-Encoding: base64\r\n\r\n";
        size_t size = size_t(std::exp(std::normal_distribution<double>(10.5, 1.2)(text.random())));
        m += base64Block(text.random(), std::min<size_t>(size, 2'000'000));
        m += "--MIX--\r\n";
    }
    return m;
}

// ---- Records at scale -----------------------------------------------------------------------

qs::SearchIndex::Entry makeEntry(TextMaker& text, size_t i) {
    qs::SearchIndex::Entry e;
    auto& r = e.record;
    auto account = "user" + std::to_string(i % 3) + "@example.com";
    const char* folders[] = {"INBOX", "Sent", "Archive", "Newsletters", "Receipts"};
    std::string folder = folders[i % 5];
    int64_t when = 1'300'000'000 + int64_t(text.random()() % 400'000'000);
    r.path = account + "/" + folder + "/" +
             std::to_string(2011 + (when - 1'300'000'000) / 31'557'600) + "/" +
             std::to_string(when) + "-" + std::to_string(i) + ".eml";
    r.account = account;
    r.folder = folder;
    r.subject = text.subject();
    r.fromName = text.name();
    r.fromEmail = text.email(r.fromName);
    auto toName = text.name();
    auto toEmail = text.email(toName);
    r.to = toName + " <" + toEmail + ">";
    r.date = qs::dateFromUnix(when);
    auto body = text.body();
    r.size = int64_t(body.size() + 1500);
    r.snippet = body.substr(0, 180);
    r.trust = qs::SenderTrust(text.random()() % 4);
    r.trackers = text.chance(0.3) ? 1 : 0;
    r.mtime = double(when) + 0.25;
    if (body.size() > 40'000) {
        body.resize(40'000);
    }
    e.text = r.subject + "\n" + r.fromName + " " + r.fromEmail + " " + toName + " " + toEmail +
             "\n" + body + "\n";
    return e;
}

struct Percentiles {
    double p50, p99, max;
};

Percentiles percentiles(std::vector<double> ms) {
    std::sort(ms.begin(), ms.end());
    auto at = [&](double q) {
        return ms[std::min(ms.size() - 1, size_t(q * double(ms.size())))];
    };
    return {at(0.5), at(0.99), ms.back()};
}

// Runs in a fresh process: load, then queries.
int loadAndSearch(const std::filesystem::path& file, bool queries) {
    double before = currentMegabytes();
    auto start = Clock::now();
    double cpu = cpuSeconds();
    auto index = qs::SearchIndex::load(file);
    double loadSeconds = secondsSince(start);
    std::printf("load: %.3f s wall, %.3f s CPU, for %zu records, %zu tokens (RSS %.0f MB after, "
                "peak %.0f MB, %.0f MB before)\n",
                loadSeconds, cpuSeconds() - cpu, index.count(), index.tokenCount(),
                currentMegabytes(), peakMegabytes(), before);

    if (!queries) {
        return 0;
    }
    // Query words: common ones from the head of the vocabulary, rare ones from the tail of what
    // the index holds.
    TextMaker text(99);
    std::vector<std::string> common = {"the",   "meeting", "invoice", "please",
                                       "order", "service", "report",  "thanks",
                                       "price", "company", "january"};
    std::vector<std::string> commonPrefixes = {"th", "me", "in", "pr", "co", "re", "se", "ma"};
    std::vector<std::string> rare;
    for (int i = 0; i < 200; ++i) {
        auto w = text.word();
        if (w.size() > 8 && index.postings(w).size() < 20) {
            rare.push_back(w);
        }
    }
    if (rare.empty()) {
        rare.push_back("zzzzzz");
    }

    start = Clock::now();
    auto first = index.search("meeting");
    std::printf("first query (builds the date order%s): %.1f ms, %zu results\n",
                "; sorted tokens came with the file", secondsSince(start) * 1000, first.size());

    std::mt19937 random(5);
    auto any = [&](const std::vector<std::string>& from) {
        return from[random() % from.size()];
    };
    struct Kind {
        const char* name;
        std::function<std::string()> make;
    };
    std::vector<Kind> kinds = {
        {"1 word, common",
         [&] {
             return any(common);
         }},
        {"1 word, common 2-letter prefix",
         [&] {
             return any(commonPrefixes);
         }},
        {"1 word, rare",
         [&] {
             return any(rare);
         }},
        {"2 words, common",
         [&] {
             return any(common) + " " + any(common);
         }},
        {"2 words, common prefixes",
         [&] {
             return any(commonPrefixes) + " " + any(commonPrefixes);
         }},
        {"2 words, common + rare",
         [&] {
             return any(common) + " " + any(rare);
         }},
        {"3 words, common",
         [&] {
             return any(common) + " " + any(common) + " " + any(common);
         }},
        {"3 words, prefixes",
         [&] {
             return any(commonPrefixes) + " " + any(commonPrefixes) + " " + any(commonPrefixes);
         }},
        {"3 words, rare last",
         [&] {
             return any(common) + " " + any(common) + " " + any(rare);
         }},
    };
    std::printf("%-34s %8s %8s %8s %8s %8s %12s\n", "query", "p50 ms", "p99 ms", "max ms",
                "cpu p50", "cpu p99", "avg results");
    for (auto& kind : kinds) {
        std::vector<double> times, cpuTimes;
        size_t results = 0;
        for (int i = 0; i < 200; ++i) {
            auto query = kind.make();
            auto t = Clock::now();
            double c = cpuSeconds();
            auto hits = index.search(query);
            cpuTimes.push_back((cpuSeconds() - c) * 1000);
            times.push_back(secondsSince(t) * 1000);
            results += hits.size();
        }
        auto p = percentiles(times);
        auto pc = percentiles(cpuTimes);
        std::printf("%-34s %8.2f %8.2f %8.2f %8.2f %8.2f %12zu\n", kind.name, p.p50, p.p99, p.max,
                    pc.p50, pc.p99, results / times.size());
    }
    std::printf("peak RSS of the load process: %.0f MB\n", peakMegabytes());
    return 0;
}

void makeRecordThroughput(double seconds) {
    // Real files first: the corpus, read once, run over until the time is used.
    auto corpus = qs::test::corpusMessages();
    size_t bytes = 0;
    for (const auto& m : corpus) {
        bytes += m.bytes.size();
    }
    {
        qs::SearchIndex index;
        size_t done = 0;
        size_t doneBytes = 0;
        auto start = Clock::now();
        double cpu = cpuSeconds();
        while (secondsSince(start) < seconds) {
            for (const auto& m : corpus) {
                auto entry = qs::SearchIndex::makeRecord(m.bytes, "c/INBOX/" + m.name, 1.0);
                index.add(std::move(entry.record), entry.text);
                ++done;
                doneBytes += m.bytes.size();
            }
        }
        double elapsed = secondsSince(start);
        double used = cpuSeconds() - cpu;
        std::printf("makeRecord + add, real corpus (%zu messages, %.1f MB, torture tests and "
                    "5 files over 1 MB): %.0f messages/s wall, %.0f messages/s CPU, %.1f MB/s "
                    "CPU\n",
                    corpus.size(), double(bytes) / 1e6, double(done) / elapsed, double(done) / used,
                    double(doneBytes) / 1e6 / used);
    }
    // Then varied real-looking mail: plain, alternative with HTML and trackers, attachments.
    TextMaker text(42);
    std::vector<std::string> messages;
    size_t total = 0;
    for (int i = 0; i < 2000; ++i) {
        messages.push_back(makeMessage(text, 1'400'000'000 + i * 3600));
        total += messages.back().size();
    }
    qs::SearchIndex index;
    auto start = Clock::now();
    double cpu = cpuSeconds();
    size_t done = 0;
    double parseSeconds = 0;
    while (secondsSince(start) < seconds) {
        for (size_t i = 0; i < messages.size(); ++i) {
            auto t = Clock::now();
            auto entry = qs::SearchIndex::makeRecord(
                messages[i], "a/INBOX/2020/" + std::to_string(i) + ".eml", 1.0);
            parseSeconds += secondsSince(t);
            index.add(std::move(entry.record), entry.text);
            ++done;
        }
    }
    double elapsed = secondsSince(start);
    double used = cpuSeconds() - cpu;
    std::printf("makeRecord + add, generated mail (2,000 messages, %.1f MB, 55%% plain, 30%% "
                "HTML alternative, 15%% with attachments): %.0f messages/s wall, %.0f "
                "messages/s CPU (makeRecord alone %.0f/s wall)\n",
                double(total) / 1e6, double(done) / elapsed, double(done) / used,
                double(done) / parseSeconds);
}

} // namespace

int main(int argc, char** argv) {
    size_t records = 100'000;
    double makeRecordSeconds = 5;
    bool keep = false;
    std::filesystem::path dir = std::filesystem::temp_directory_path() / "qs-bench-search";
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        if (arg == "--records" && i + 1 < argc) {
            records = std::stoul(argv[++i]);
        } else if (arg == "--dir" && i + 1 < argc) {
            dir = argv[++i];
        } else if (arg == "--makerecord-seconds" && i + 1 < argc) {
            makeRecordSeconds = std::stod(argv[++i]);
        } else if (arg == "--keep") {
            keep = true;
        } else if (arg == "--load" && i + 1 < argc) {
            std::filesystem::path file = argv[++i];
            return loadAndSearch(file,
                                 !(i + 1 < argc && std::string(argv[i + 1]) == "--no-queries"));
        }
    }
    if (makeRecordSeconds > 0) {
        makeRecordThroughput(makeRecordSeconds);
    }

    TextMaker text(1);
    std::vector<qs::SearchIndex::Entry> entries;
    entries.reserve(records);
    auto start = Clock::now();
    size_t textBytes = 0;
    for (size_t i = 0; i < records; ++i) {
        entries.push_back(makeEntry(text, i));
        textBytes += entries.back().text.size();
    }
    std::printf("\ngenerated %zu records, %.0f MB of search text, in %.1f s\n", records,
                double(textBytes) / 1e6, secondsSince(start));

    qs::SearchIndex index;
    start = Clock::now();
    double cpu = cpuSeconds();
    for (auto& e : entries) {
        index.add(std::move(e.record), e.text);
        std::string().swap(e.text);
    }
    double addSeconds = secondsSince(start);
    double addCPU = cpuSeconds() - cpu;
    std::vector<qs::SearchIndex::Entry>().swap(entries);
    std::printf("add: %.0f records/s wall (%.1f s), %.0f records/s CPU (%.1f s), %zu tokens, "
                "index structures ~%.0f MB, RSS %.0f MB\n",
                double(records) / addSeconds, addSeconds, double(records) / addCPU, addCPU,
                index.tokenCount(), double(index.memoryUsage()) / 1048576.0, currentMegabytes());

    start = Clock::now();
    cpu = cpuSeconds();
    auto hits = index.search("meeting");
    std::printf("first query after adding (sorts %zu tokens, builds the date order): %.1f ms "
                "wall, %.1f ms CPU, %zu results\n",
                index.tokenCount(), secondsSince(start) * 1000, (cpuSeconds() - cpu) * 1000,
                hits.size());

    std::filesystem::create_directories(dir);
    auto file = dir / "index.json";
    start = Clock::now();
    cpu = cpuSeconds();
    index.save(file);
    std::printf("save: %.3f s wall, %.3f s CPU, index.json %.1f MB\n", secondsSince(start),
                cpuSeconds() - cpu, double(std::filesystem::file_size(file)) / 1e6);
    std::printf("peak RSS of the building process: %.0f MB\n", peakMegabytes());
    std::fflush(stdout);

    // Through the shell /proc/self/exe would name the shell: resolve it here.
    std::string command = std::filesystem::read_symlink("/proc/self/exe").string() + " --load '" +
                          file.string() + "'";
    int status = std::system(command.c_str());
    if (!keep) {
        std::filesystem::remove(file);
    }
    return status == 0 ? 0 : 1;
}
