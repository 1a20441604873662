#include "safety/HTMLInspector.h"

#include "mime/HTMLText.h"
#include "safety/Domains.h"
#include "safety/HTMLPatterns.h"
#include "safety/HTMLScanner.h"
#include "safety/TextUtil.h"
#include "safety/ThreadMatcher.h"
#include "safety/TrackerTables.h"
#include "support/Unicode.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <unicode/locid.h>
#include <unicode/uchar.h>
#include <unicode/utf8.h>
#include <unordered_set>

namespace qs::HTMLInspector {

namespace {

// A link's visible text longer than this is prose, not a claim about where the link goes.
constexpr size_t kMaxShownTextCharacters = 199;

constexpr std::string_view kTrackerComment = "<!-- tracker removed by Quernstead -->";

constexpr std::string_view kHeadBlock =
    "<meta charset=\"utf-8\">\n"
    "<meta http-equiv=\"Content-Security-Policy\" content=\"script-src 'none'; object-src "
    "'none'\">\n"
    "<style>html{background:#fff} body{margin:18px 22px;font:14px "
    "-apple-system,system-ui,sans-serif;color:#1d1d1f;word-wrap:break-word} "
    "img{max-width:100%;height:auto} table{max-width:100%}</style>";

constexpr std::string_view kPlainTextHead =
    "<!doctype html><html><head><meta charset=\"utf-8\">\n"
    "<style>\n"
    ":root{color-scheme:light dark}\n"
    "body{margin:18px 22px;font:14px/1.55 "
    "-apple-system,system-ui,sans-serif;white-space:pre-wrap;word-wrap:break-word;color:#"
    "1d1d1f;background:transparent}\n"
    "a{color:#1e3c72}\n"
    "@media (prefers-color-scheme: dark){body{color:#ececf0} a{color:#5cc4b6}}\n"
    "</style></head><body>";

bool isASCIISpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v';
}

std::string_view trimASCIISpace(std::string_view text) {
    while (!text.empty() && isASCIISpace(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && isASCIISpace(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

const std::string* find(const TagAttributes& attributes, std::string_view key) {
    auto it = attributes.find(key);
    return it == attributes.end() ? nullptr : &it->second;
}

// An attribute's value as the dictionary holds it: a quoted value loses its first and last
// character (whether or not the last is the closing quote), then entities are decoded.
std::string attributeValue(std::string_view value) {
    if (value.front() == '"' || value.front() == '\'') {
        value = value.size() >= 2 ? value.substr(1, value.size() - 2) : std::string_view();
    }
    return value.find('&') == std::string_view::npos ? std::string(value)
                                                     : HTMLText::decodeEntities(value);
}

bool equalsIgnoringASCIICase(std::string_view a, std::string_view b) {
    return a.size() == b.size() && TextUtil::startsWithIgnoringCase(a, b);
}

// What the tracker test reads of an <img> tag.
struct ImageFacts {
    std::optional<std::string> source;
    std::optional<std::string> width;
    std::optional<std::string> height;
    std::optional<std::string> style;
    /// A `hidden` attribute with a value, or the word among the valueless ones.
    bool hidden = false;
};

// True when a piece of a tag outside its name=value pairs holds the word "hidden" once split
// at blanks, "<", ">" and "/". Comparing ASCII letters without case is the same as lowering
// first: no other character lowers to these letters alone.
bool holdsHiddenWord(std::string_view text) {
    constexpr std::string_view separators = " \t\n\r</>";
    size_t i = 0;
    while (i < text.size()) {
        size_t start = TextUtil::findFirstNotOf(text, separators, i);
        if (start == std::string_view::npos) {
            break;
        }
        size_t end = TextUtil::findFirstOf(text, separators, start);
        if (end == std::string_view::npos) {
            end = text.size();
        }
        if (equalsIgnoringASCIICase(text.substr(start, end - start), "hidden")) {
            return true;
        }
        i = end;
    }
    return false;
}

// The facts straight from the tag's text, reading the same attributes as `attributes` would
// but decoding only the few values the test needs.
ImageFacts factsOf(std::string_view tag) {
    ImageFacts facts;
    size_t copied = 0;
    for (const HTMLScanner::Attribute& attribute : HTMLScanner::attributes(tag)) {
        size_t start = size_t(attribute.whole.data() - tag.data());
        facts.hidden = facts.hidden || holdsHiddenWord(tag.substr(copied, start - copied));
        copied = start + attribute.whole.size();
        std::string_view name = attribute.name;
        if (equalsIgnoringASCIICase(name, "src")) {
            facts.source = attributeValue(attribute.value);
        } else if (equalsIgnoringASCIICase(name, "width")) {
            facts.width = attributeValue(attribute.value);
        } else if (equalsIgnoringASCIICase(name, "height")) {
            facts.height = attributeValue(attribute.value);
        } else if (equalsIgnoringASCIICase(name, "style")) {
            facts.style = attributeValue(attribute.value);
        } else if (equalsIgnoringASCIICase(name, "hidden")) {
            facts.hidden = true;
        }
    }
    facts.hidden = facts.hidden || holdsHiddenWord(tag.substr(copied));
    return facts;
}

// A width or height as a number of pixels: lower-cased, "px" deleted, trimmed, and then the
// whole of it a floating-point number. "100%" or "auto" is no size at all.
std::optional<double> pixelSize(const std::string& value) {
    std::string text = TextUtil::lower(value);
    TextUtil::replaceAll(text, "px", "");
    std::string_view number = trimASCIISpace(text);
    if (number.size() > 1 && number[0] == '+' && number[1] != '-') {
        number.remove_prefix(1);
    }
    if (number.empty()) {
        return std::nullopt;
    }
    double result = 0;
    auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), result);
    if (error != std::errc() || end != number.data() + number.size()) {
        return std::nullopt;
    }
    return result;
}

// The registrable domain of an image's source, if it has a host.
std::optional<std::string> sourceSite(std::string_view source) {
    auto host = Domains::host(source);
    if (!host) {
        return std::nullopt;
    }
    return Domains::registrable(*host);
}

bool containsWord(std::string_view words, std::string_view word) {
    size_t start = 0;
    while (start <= words.size()) {
        size_t end = words.find(' ', start);
        if (end == std::string_view::npos) {
            end = words.size();
        }
        if (words.substr(start, end - start) == word) {
            return true;
        }
        start = end + 1;
    }
    return false;
}

// Standard Base64 without line breaks.
void appendBase64(std::string& out, std::string_view bytes) {
    static constexpr char kAlphabet[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    out.reserve(out.size() + (bytes.size() + 2) / 3 * 4);
    size_t i = 0;
    const auto* data = reinterpret_cast<const unsigned char*>(bytes.data());
    for (; i + 3 <= bytes.size(); i += 3) {
        uint32_t n = uint32_t(data[i]) << 16 | uint32_t(data[i + 1]) << 8 | data[i + 2];
        out.push_back(kAlphabet[n >> 18]);
        out.push_back(kAlphabet[(n >> 12) & 63]);
        out.push_back(kAlphabet[(n >> 6) & 63]);
        out.push_back(kAlphabet[n & 63]);
    }
    if (size_t rest = bytes.size() - i; rest > 0) {
        uint32_t n = uint32_t(data[i]) << 16 | (rest == 2 ? uint32_t(data[i + 1]) << 8 : 0);
        out.push_back(kAlphabet[n >> 18]);
        out.push_back(kAlphabet[(n >> 12) & 63]);
        out.push_back(rest == 2 ? kAlphabet[(n >> 6) & 63] : '=');
        out.push_back('=');
    }
}

// Whether the plain text of a link's content could hold a dot, and so name a domain; most
// links ("Read more", a bare image) are settled here without converting their HTML. The
// characters of a tag "<...>" with no other "<" inside never reach the plain text, whatever
// else the conversion removes around it; a "." anywhere else may, and so may an entity that
// can turn into one: a numeric one, or one that "&amp;", "&zwj;" or "&zwnj;" completes.
bool mayNameDomain(std::string_view content) {
    size_t i = 0;
    while (i < content.size()) {
        char c = content[i];
        if (c == '<') {
            size_t close = TextUtil::findFirstOf(content, "<>", i + 1);
            if (close != std::string_view::npos && content[close] == '>' && close > i + 1) {
                i = close + 1;
                continue;
            }
        } else if (c == '.') {
            return true;
        } else if (c == '&' && i + 1 < content.size()) {
            char next = content[i + 1];
            if (next == '#' || next == 'a' || next == 'A' || next == 'z' || next == 'Z') {
                return true;
            }
        }
        ++i;
    }
    return false;
}

bool isFileExtension(std::string_view label) {
    static constexpr std::array<std::string_view, 14> extensions = {
        "pdf", "png",  "jpg", "jpeg", "gif", "doc", "docx",
        "zip", "html", "htm", "txt",  "csv", "xls", "xlsx"};
    return std::find(extensions.begin(), extensions.end(), label) != extensions.end();
}

// The link's content as plain text (before trimming). Plain words without markup, entities or
// more than two line feeds are what most links hold; for them the conversion comes down to
// collapsing runs of blanks, done here directly, which gives the same text once trimmed.
std::string linkText(std::string_view content) {
    if (TextUtil::findFirstOf(content, "<&") != std::string_view::npos ||
        std::count(content.begin(), content.end(), '\n') > 2 || !Unicode::isValidUTF8(content)) {
        return HTMLText::toPlain(content);
    }
    std::string out;
    out.reserve(content.size());
    bool inBlanks = false;
    for (size_t i = 0; i < content.size(); ++i) {
        bool blank = content[i] == ' ' || content[i] == '\t';
        size_t length = 1;
        if (content[i] == '\xC2' && i + 1 < content.size() && content[i + 1] == '\xA0') {
            blank = true; // U+00A0
            length = 2;
        }
        if (blank) {
            if (!inBlanks) {
                out.push_back(' ');
            }
            inBlanks = true;
            i += length - 1;
        } else {
            out.push_back(content[i]);
            inBlanks = false;
        }
    }
    return out;
}

std::optional<LinkWarning> judgeLink(const HTMLScanner::Anchor& anchor) {
    if (!mayNameDomain(anchor.content)) {
        return std::nullopt;
    }
    // Read from "<a " + group 1 + ">" as written: the leading "a" can itself take a value
    // ("<a =href=...>"), so the group alone would not always read the same.
    std::string tag;
    tag.reserve(anchor.attributes.size() + 4);
    tag.append("<a ").append(anchor.attributes).append(">");
    std::optional<std::string> href;
    for (const HTMLScanner::Attribute& attribute : HTMLScanner::attributes(tag)) {
        if (equalsIgnoringASCIICase(attribute.name, "href")) {
            href = attributeValue(attribute.value);
        }
    }
    if (!href || !TextUtil::startsWithIgnoringCase(*href, "http")) {
        return std::nullopt;
    }
    auto actualHost = Domains::host(*href);
    if (!actualHost) {
        return std::nullopt;
    }
    std::string plain = linkText(anchor.content);
    std::string_view shown = TextUtil::trimWhitespace(plain);
    if (shown.empty() || (shown.size() > kMaxShownTextCharacters &&
                          Unicode::graphemeCount(shown) > kMaxShownTextCharacters)) {
        return std::nullopt;
    }
    icu::UnicodeString shownText = Unicode::fromUTF8(shown);
    icu::RegexMatcher& matcher = threadMatcher(HTMLPatterns::domainInText(), shownText);
    UErrorCode status = U_ZERO_ERROR;
    if (!matcher.find(0, status) || U_FAILURE(status)) {
        return std::nullopt;
    }
    icu::UnicodeString domainText = matcher.group(1, status);
    domainText.toLower(icu::Locale::getRoot());
    std::string shownDomain = Unicode::toUTF8(domainText);
    std::string_view lastLabel = shownDomain;
    if (size_t dot = lastLabel.rfind('.'); dot != std::string_view::npos) {
        lastLabel.remove_prefix(dot + 1);
    }
    if (lastLabel.size() < 2 || !TextUtil::isAllLetters(lastLabel) || isFileExtension(lastLabel)) {
        return std::nullopt;
    }
    if (Domains::registrable(shownDomain) == Domains::registrable(*actualHost)) {
        return std::nullopt;
    }
    return LinkWarning{std::string(shown), std::move(shownDomain), std::move(*actualHost), *href};
}

bool isTracker(const ImageFacts& facts) {
    const std::optional<std::string>& source = facts.source;
    if (!source || !TextUtil::startsWithIgnoringCase(*source, "http")) {
        return false;
    }
    for (const std::optional<std::string>* dimension : {&facts.width, &facts.height}) {
        if (*dimension) {
            if (auto size = pixelSize(**dimension); size && *size <= 2.0) {
                return true;
            }
        }
    }
    if (const std::optional<std::string>& style = facts.style) {
        std::string compact;
        compact.reserve(style->size());
        for (char c : TextUtil::lower(*style)) {
            if (!isASCIISpace(c)) {
                compact.push_back(c);
            }
        }
        static constexpr std::array<std::string_view, 7> hiding = {
            "display:none", "visibility:hidden", "opacity:0", "width:1px",
            "height:1px",   "width:0",           "height:0"};
        for (std::string_view rule : hiding) {
            if (compact.find(rule) != std::string::npos) {
                return true;
            }
        }
    }
    if (facts.hidden) {
        return true;
    }
    auto host = Domains::host(*source);
    if (!host) {
        return false;
    }
    // The host itself, each of its parent domains, and its registrable domain, looked up in a
    // set of the service domains rather than compared with each of them.
    static const std::unordered_set<std::string_view> services(
        TrackerTables::trackerDomains.begin(), TrackerTables::trackerDomains.end());
    std::string_view h = *host;
    bool knownService = services.contains(h);
    for (size_t dot = h.find('.'); !knownService && dot != std::string_view::npos;
         dot = h.find('.', dot + 1)) {
        knownService = services.contains(h.substr(dot + 1));
    }
    knownService = knownService || services.contains(Domains::registrable(h));
    if (!knownService) {
        return false;
    }
    std::string lowerSource = TextUtil::lower(*source);
    for (std::string_view hint : TrackerTables::trackerPathHints) {
        if (lowerSource.find(hint) != std::string::npos) {
            return true;
        }
    }
    return !facts.width && !facts.height;
}

} // namespace

TagAttributes attributes(std::string_view tag) {
    TagAttributes out;
    // What stands outside the name=value pairs, for "__bare".
    std::string rest;
    size_t copied = 0;
    for (const HTMLScanner::Attribute& attribute : HTMLScanner::attributes(tag)) {
        size_t start = size_t(attribute.whole.data() - tag.data());
        rest.append(tag.substr(copied, start - copied)).push_back(' ');
        copied = start + attribute.whole.size();
        std::string key(attribute.name);
        TextUtil::lowerASCIIInPlace(key);
        out[std::move(key)] = attributeValue(attribute.value);
    }
    rest.append(tag.substr(copied));
    std::string lowered = TextUtil::lower(rest);
    std::string bare;
    size_t i = 0;
    while (i < lowered.size()) {
        size_t start = TextUtil::findFirstNotOf(lowered, " \t\n\r</>", i);
        if (start == std::string::npos) {
            break;
        }
        size_t end = TextUtil::findFirstOf(lowered, " \t\n\r</>", start);
        if (end == std::string::npos) {
            end = lowered.size();
        }
        if (!bare.empty()) {
            bare.push_back(' ');
        }
        bare.append(lowered, start, end - start);
        i = end;
    }
    if (!bare.empty()) {
        out["__bare"] = std::move(bare);
    }
    return out;
}

bool isTracker(const TagAttributes& attrs) {
    ImageFacts facts;
    auto copy = [&](std::string_view key, std::optional<std::string>& into) {
        if (const std::string* value = find(attrs, key)) {
            into = *value;
        }
    };
    copy("src", facts.source);
    copy("width", facts.width);
    copy("height", facts.height);
    copy("style", facts.style);
    const std::string* bare = find(attrs, "__bare");
    facts.hidden = find(attrs, "hidden") || (bare && containsWord(*bare, "hidden"));
    return isTracker(facts);
}

HTMLReport inspect(std::string_view html) {
    HTMLReport report;
    std::vector<std::string> hosts;
    for (std::string_view tag : HTMLScanner::imgTags(html)) {
        ImageFacts facts = factsOf(tag);
        const std::optional<std::string>& source = facts.source;
        if (!source || !TextUtil::startsWithIgnoringCase(*source, "http")) {
            continue;
        }
        if (isTracker(facts)) {
            ++report.trackerCount;
            if (auto site = sourceSite(*source);
                site && std::find(report.trackerHosts.begin(), report.trackerHosts.end(), *site) ==
                            report.trackerHosts.end()) {
                report.trackerHosts.push_back(std::move(*site));
            }
        } else {
            ++report.remoteImageCount;
        }
    }
    report.linkWarnings = linkWarnings(html);
    return report;
}

std::vector<LinkWarning> linkWarnings(std::string_view html) {
    std::vector<LinkWarning> out;
    for (const HTMLScanner::Anchor& anchor : HTMLScanner::anchors(html)) {
        if (auto warning = judgeLink(anchor)) {
            out.push_back(std::move(*warning));
        }
    }
    return out;
}

std::string prepareForDisplay(std::string_view html, const std::vector<MailAttachment>& attachments,
                              bool /*dark*/) {
    std::string inlined;
    std::string_view current = html;
    for (const MailAttachment& attachment : attachments) {
        // An empty id would turn every "cid:" into this one image.
        if (!attachment.contentID || attachment.contentID->empty() ||
            attachment.data.size() >= kMaxInlineImageBytes) {
            continue;
        }
        std::string reference = "cid:" + *attachment.contentID;
        if (current.find(reference) == std::string_view::npos) {
            continue;
        }
        std::string dataURL = "data:" + attachment.mimeType + ";base64,";
        appendBase64(dataURL, attachment.data.view());
        std::string replaced(current);
        TextUtil::replaceAll(replaced, reference, dataURL);
        inlined = std::move(replaced);
        current = inlined;
    }

    std::string cleaned;
    cleaned.reserve(current.size() + kHeadBlock.size() + 64);
    size_t copied = 0;
    for (std::string_view tag : HTMLScanner::imgTags(current)) {
        if (!isTracker(factsOf(tag))) {
            continue;
        }
        size_t start = size_t(tag.data() - current.data());
        cleaned.append(current.substr(copied, start - copied)).append(kTrackerComment);
        copied = start + tag.size();
    }
    cleaned.append(current.substr(copied));

    if (auto headEnd = HTMLScanner::endOfHeadTag(cleaned)) {
        cleaned.insert(*headEnd, kHeadBlock);
        return cleaned;
    }
    std::string out;
    out.reserve(cleaned.size() + kHeadBlock.size() + 64);
    out.append("<!doctype html><html><head>")
        .append(kHeadBlock)
        .append("</head><body>")
        .append(cleaned)
        .append("</body></html>");
    return out;
}

std::string plainTextDocument(std::string_view text) {
    static const Regex links(std::string_view(R"((https?://[^\s<]+))"));
    std::string escaped = HTMLText::escape(text);
    icu::UnicodeString source = Unicode::fromUTF8(escaped);
    UErrorCode status = U_ZERO_ERROR;
    icu::UnicodeString linked =
        threadMatcher(links, source)
            .replaceAll(icu::UnicodeString(u"<a href=\"$1\">$1</a>"), status);
    std::string out(kPlainTextHead);
    linked.toUTF8String(out);
    out.append("</body></html>");
    return out;
}

} // namespace qs::HTMLInspector
