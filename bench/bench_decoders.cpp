// Throughput of the lenient decoders that run for every message at index time: transfer
// decodings, charset conversion, encoded words, addresses, dates and HTML to text.
//
//   bench_decoders [--benchmark_filter=REGEX]
#include "mime/AddressParser.h"
#include "mime/Charsets.h"
#include "mime/EncodedWords.h"
#include "mime/HTMLText.h"
#include "mime/HeaderParams.h"
#include "mime/MailDate.h"
#include "mime/TransferDecoding.h"

#include <benchmark/benchmark.h>

#include <string>

namespace {

constexpr size_t bodySize = 1 << 20; // a large attachment or text body

std::string pseudoRandomBytes(size_t size) {
    std::string out(size, '\0');
    uint32_t state = 12345;
    for (auto& c : out) {
        state = state * 1103515245 + 12345;
        c = char(state >> 16);
    }
    return out;
}

std::string base64Body() {
    static const char* alphabet =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string raw = pseudoRandomBytes(bodySize / 4 * 3);
    std::string out;
    size_t column = 0;
    for (size_t i = 0; i + 2 < raw.size(); i += 3) {
        uint32_t v = uint32_t(uint8_t(raw[i])) << 16 | uint32_t(uint8_t(raw[i + 1])) << 8 |
                     uint8_t(raw[i + 2]);
        for (int k = 0; k < 4; ++k) {
            out.push_back(alphabet[(v >> (18 - 6 * k)) & 63]);
        }
        if ((column += 4) == 76) {
            out += "\r\n";
            column = 0;
        }
    }
    return out;
}

std::string quotedPrintableBody() {
    std::string out;
    while (out.size() < bodySize) {
        out += "Caf=C3=A9 au lait, pr=C3=AAt =C3=A0 servir. Lorem ipsum dolor sit amet, =\r\n"
               "consectetur adipiscing elit =E2=80=94 sed do eiusmod tempor.\r\n";
    }
    return out;
}

std::string latin1Body() {
    std::string out;
    while (out.size() < bodySize) {
        out += "Caf\xe9 cr\xe8me br\xfbl\xe9"
               "e, na\xefve fa\xe7"
               "ade. \x93Quoted\x94 \x96 dash.\r\n";
    }
    return out;
}

std::string htmlBody() {
    std::string out = "<html><head><title>Newsletter</title><style>p{color:red}</style></head>"
                      "<body>";
    while (out.size() < 200 * 1024) {
        out += "<div class=\"row\"><p>Hello&nbsp;there, this is <b>news</b> &amp; more "
               "&#8212; read <a href=\"https://example.com/x?a=1&amp;b=2\">here</a>.</p>"
               "<!-- tracking --><br><img src=\"cid:logo\" alt=\"\"></div>\n";
    }
    return out + "</body></html>";
}

void setBytes(benchmark::State& state, size_t perIteration) {
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(perIteration));
}

void Base64(benchmark::State& state) {
    std::string body = base64Body();
    for (auto _ : state) {
        benchmark::DoNotOptimize(qs::TransferDecoding::base64(body));
    }
    setBytes(state, body.size());
}
BENCHMARK(Base64);

void QuotedPrintable(benchmark::State& state) {
    std::string body = quotedPrintableBody();
    for (auto _ : state) {
        benchmark::DoNotOptimize(qs::TransferDecoding::quotedPrintable(body));
    }
    setBytes(state, body.size());
}
BENCHMARK(QuotedPrintable);

void CharsetUTF8(benchmark::State& state) {
    std::string body = qs::TransferDecoding::quotedPrintable(quotedPrintableBody());
    for (auto _ : state) {
        benchmark::DoNotOptimize(qs::Charsets::string(body, "utf-8"));
    }
    setBytes(state, body.size());
}
BENCHMARK(CharsetUTF8);

void CharsetLatin1(benchmark::State& state) {
    std::string body = latin1Body();
    for (auto _ : state) {
        benchmark::DoNotOptimize(qs::Charsets::string(body, "iso-8859-1"));
    }
    setBytes(state, body.size());
}
BENCHMARK(CharsetLatin1);

void CharsetMislabelledFallback(benchmark::State& state) {
    // Labelled ASCII, really Windows-1252: strict UTF-8 fails, then Windows-1252 succeeds.
    std::string body = latin1Body();
    for (auto _ : state) {
        benchmark::DoNotOptimize(qs::Charsets::string(body, "us-ascii"));
    }
    setBytes(state, body.size());
}
BENCHMARK(CharsetMislabelledFallback);

void EncodedWordSubject(benchmark::State& state) {
    const std::string subject = "Re: =?UTF-8?Q?Caf=C3=A9_au_lait?= =?UTF-8?B?4oCUIGNyw6htZQ==?= "
                                "and =?iso-8859-1?Q?na=EFve?= text";
    for (auto _ : state) {
        benchmark::DoNotOptimize(qs::EncodedWords::decode(subject));
    }
    setBytes(state, subject.size());
}
BENCHMARK(EncodedWordSubject);

void PlainSubject(benchmark::State& state) {
    const std::string subject = "Quarterly report for the finance team, final version";
    for (auto _ : state) {
        benchmark::DoNotOptimize(qs::EncodedWords::decode(subject));
    }
    setBytes(state, subject.size());
}
BENCHMARK(PlainSubject);

void HeaderParameters(benchmark::State& state) {
    const std::string value = "attachment; filename*0*=UTF-8''Quarterly%20report%20; "
                              "filename*1=\"final.pdf\"; size=123456; creation-date=\"x\"";
    for (auto _ : state) {
        benchmark::DoNotOptimize(qs::HeaderParams::parse(value));
    }
}
BENCHMARK(HeaderParameters);

void AddressList(benchmark::State& state) {
    const std::string to = "\"Doe, Jane\" <jane@example.com>, bob@example.org (Bob), "
                           "=?UTF-8?Q?Andr=C3=A9?= <andre@example.fr>, Team: a@x, b@y;";
    for (auto _ : state) {
        benchmark::DoNotOptimize(qs::AddressParser::parse(to));
    }
}
BENCHMARK(AddressList);

void DateFirstForm(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(qs::MailDate::parse("Tue, 5 Mar 2024 10:00:00 +0100 (CET)"));
    }
}
BENCHMARK(DateFirstForm)->ThreadRange(1, 2);

void DateLastForm(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(qs::MailDate::parse("5 Mar 2024 10:00:00 UTC"));
    }
}
BENCHMARK(DateLastForm);

void HTMLToPlain(benchmark::State& state) {
    std::string html = htmlBody();
    for (auto _ : state) {
        benchmark::DoNotOptimize(qs::HTMLText::toPlain(html));
    }
    setBytes(state, html.size());
}
BENCHMARK(HTMLToPlain);

} // namespace

BENCHMARK_MAIN();
