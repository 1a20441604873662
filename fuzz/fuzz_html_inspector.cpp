// HTML inspection over arbitrary bytes: must never crash; the hand-written tag and attribute
// scanners, and the search for a domain in ASCII link text, give exactly the matches of the ICU
// patterns they stand for; the document made for display always carries the script ban. (It
// may still hold a tracker by the patterns' reading: an image tag left open at the end of the
// mail is closed by the wrapper's "</body>".)
#include "safety/HTMLInspector.h"
#include "safety/HTMLPatterns.h"
#include "safety/HTMLScanner.h"
#include "safety/SenderCheck.h"
#include "support/Unicode.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

namespace {

std::vector<std::string> patternMatches(const qs::Regex& regex, std::string_view text) {
    icu::UnicodeString unicode = qs::Unicode::fromUTF8(text);
    auto matcher = regex.matcher(unicode);
    std::vector<std::string> out;
    UErrorCode status = U_ZERO_ERROR;
    while (matcher->find(status) && U_SUCCESS(status)) {
        out.push_back(qs::Unicode::toUTF8(matcher->group(status)));
    }
    return out;
}

std::vector<std::string> patternGroups(const qs::Regex& regex, std::string_view text, int group) {
    icu::UnicodeString unicode = qs::Unicode::fromUTF8(text);
    auto matcher = regex.matcher(unicode);
    std::vector<std::string> out;
    UErrorCode status = U_ZERO_ERROR;
    while (matcher->find(status) && U_SUCCESS(status)) {
        out.push_back(qs::Unicode::toUTF8(matcher->group(group, status)));
    }
    return out;
}

std::string repaired(std::string_view text) {
    return qs::Unicode::toUTF8(qs::Unicode::fromUTF8(text));
}

void check(bool condition) {
    if (!condition) {
        std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string_view html(reinterpret_cast<const char*>(data), size);

    std::vector<std::string> images;
    for (std::string_view tag : qs::HTMLScanner::imgTags(html)) {
        images.push_back(repaired(tag));
        std::vector<std::string> attributes;
        for (const auto& attribute : qs::HTMLScanner::attributes(tag)) {
            attributes.push_back(repaired(attribute.whole));
        }
        check(attributes == patternMatches(qs::HTMLPatterns::attrRegex(), tag));
    }
    check(images == patternMatches(qs::HTMLPatterns::imgRegex(), html));
    std::vector<std::string> anchors;
    for (const auto& anchor : qs::HTMLScanner::anchors(html)) {
        anchors.push_back(repaired(anchor.whole));
    }
    check(anchors == patternMatches(qs::HTMLPatterns::anchorRegex(), html));
    qs::HTMLScanner::Tags tags = qs::HTMLScanner::tags(html);
    check(tags.images == qs::HTMLScanner::imgTags(html));
    std::vector<std::string> together;
    for (const auto& anchor : tags.anchors) {
        together.push_back(repaired(anchor.whole));
    }
    check(together == anchors);

    // The first domain named in ASCII text, as the link judgement reads the shown text.
    if (size <= 400 && std::all_of(html.begin(), html.end(),
                                   [](char c) { return static_cast<unsigned char>(c) < 0x80; })) {
        auto groups = patternGroups(qs::HTMLPatterns::domainInText(), html, 1);
        auto domain = qs::HTMLScanner::domainInASCIIText(html);
        check(groups.empty() ? !domain : domain && *domain == groups.front());
    }

    qs::HTMLReport report = qs::HTMLInspector::inspect(html);
    check(report.trackerHosts.size() <= size_t(report.trackerCount));
    std::string shown = qs::HTMLInspector::prepareForDisplay(html, {}, false);
    check(shown.find("script-src 'none'") != std::string::npos);
    (void)qs::HTMLInspector::plainTextDocument(html);

    size_t at = html.find('\n');
    qs::MailAddress address{std::string(html.substr(0, at)),
                            at == std::string_view::npos ? "" : std::string(html.substr(at + 1))};
    (void)qs::SenderCheck::check(address, {"example.com", "ourbank.com"},
                                 {{"jane", "example.org"}});
    return 0;
}
