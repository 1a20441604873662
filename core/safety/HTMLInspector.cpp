#include "safety/HTMLInspector.h"

#include "mime/HTMLText.h"
#include "safety/Domains.h"
#include "safety/HTMLPatterns.h"
#include "safety/HTMLScanner.h"
#include "safety/HostMemo.h"
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

// An attribute's value without its quotes: a quoted value loses its first and last character
// (whether or not the last is the closing quote).
std::string_view unquoted(std::string_view value) {
    if (value.front() == '"' || value.front() == '\'') {
        return value.size() >= 2 ? value.substr(1, value.size() - 2) : std::string_view();
    }
    return value;
}

// An attribute's value as the dictionary holds it: unquoted, then entities decoded.
std::string attributeValue(std::string_view value) {
    value = unquoted(value);
    return value.find('&') == std::string_view::npos ? std::string(value)
                                                     : HTMLText::decodeEntities(value);
}

// The same value as a view: of the tag itself when there is nothing to decode (most values),
// else of `decoded`.
std::string_view attributeValue(std::string_view value, std::string& decoded) {
    value = unquoted(value);
    if (value.find('&') == std::string_view::npos) {
        return value;
    }
    decoded = HTMLText::decodeEntities(value);
    return decoded;
}

bool equalsIgnoringASCIICase(std::string_view a, std::string_view b) {
    return a.size() == b.size() && TextUtil::startsWithIgnoringCase(a, b);
}

// What the tracker test reads of an <img> tag: views of the tag's text, or of `decoded` for
// values with entities, so it stays where it was filled in.
struct ImageFacts {
    ImageFacts() = default;
    ImageFacts(const ImageFacts&) = delete;
    ImageFacts& operator=(const ImageFacts&) = delete;

    std::optional<std::string_view> source;
    std::optional<std::string_view> width;
    std::optional<std::string_view> height;
    std::optional<std::string_view> style;
    /// A `hidden` attribute with a value, or the word among the valueless ones.
    bool hidden = false;
    /// The decoded values of source, width, height and style, where they needed decoding.
    std::array<std::string, 4> decoded;
};

// What one inspection reuses from tag to tag: the facts of the hosts it has met, and buffers
// whose room stays allocated.
struct Inspection {
    HostMemo hosts;
    /// The host of the URL at hand.
    std::string host;
    /// A link's tag, where it must be rebuilt to be read.
    std::string tag;
    /// A link's plain text.
    std::string text;
    /// The domain that a link's text names.
    std::string domain;
    /// The attributes of the tag at hand.
    std::vector<HTMLScanner::Attribute> attributes;
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
void readFacts(std::string_view tag, ImageFacts& facts, Inspection& inspection) {
    size_t copied = 0;
    HTMLScanner::attributes(tag, inspection.attributes);
    for (const HTMLScanner::Attribute& attribute : inspection.attributes) {
        size_t start = size_t(attribute.whole.data() - tag.data());
        facts.hidden = facts.hidden || holdsHiddenWord(tag.substr(copied, start - copied));
        copied = start + attribute.whole.size();
        std::string_view name = attribute.name;
        if (equalsIgnoringASCIICase(name, "src")) {
            facts.source = attributeValue(attribute.value, facts.decoded[0]);
        } else if (equalsIgnoringASCIICase(name, "width")) {
            facts.width = attributeValue(attribute.value, facts.decoded[1]);
        } else if (equalsIgnoringASCIICase(name, "height")) {
            facts.height = attributeValue(attribute.value, facts.decoded[2]);
        } else if (equalsIgnoringASCIICase(name, "style")) {
            facts.style = attributeValue(attribute.value, facts.decoded[3]);
        } else if (equalsIgnoringASCIICase(name, "hidden")) {
            facts.hidden = true;
        }
    }
    facts.hidden = facts.hidden || holdsHiddenWord(tag.substr(copied));
}

// A width or height as a number of pixels: lower-cased, "px" deleted, trimmed, and then the
// whole of it a floating-point number. "100%" or "auto" is no size at all.
std::optional<double> pixelSize(std::string_view value) {
    // Short ASCII values, which is what sizes are, are worked on in place: lowering ASCII
    // doesn't need the Unicode rules, and deleting "px" goes left to right as `replaceAll` does.
    constexpr size_t kShortValue = 64;
    std::array<char, kShortValue> buffer;
    std::string slow;
    std::string_view text;
    if (value.size() <= kShortValue && TextUtil::isASCII(value)) {
        size_t length = 0;
        for (size_t i = 0; i < value.size(); ++i) {
            char c = value[i];
            char next = i + 1 < value.size() ? value[i + 1] : '\0';
            if ((c == 'p' || c == 'P') && (next == 'x' || next == 'X')) {
                ++i;
                continue;
            }
            buffer[length++] = (c >= 'A' && c <= 'Z') ? char(c - 'A' + 'a') : c;
        }
        text = std::string_view(buffer.data(), length);
    } else {
        slow = TextUtil::lower(value);
        TextUtil::replaceAll(slow, "px", "");
        text = slow;
    }
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

// The style rules that hide an image, looked for in the style lower-cased and without blanks:
// a property name, a colon and the start of a value.
struct HidingRule {
    std::string_view property;
    std::string_view value;
};
constexpr std::array<HidingRule, 7> kHidingRules = {{{"display", "none"},
                                                     {"visibility", "hidden"},
                                                     {"opacity", "0"},
                                                     {"width", "1px"},
                                                     {"height", "1px"},
                                                     {"width", "0"},
                                                     {"height", "0"}}};

char lowerASCII(char c) {
    return (c >= 'A' && c <= 'Z') ? char(c - 'A' + 'a') : c;
}

// Whether `word` ends just before `end` (or, for `wordAfter`, starts at `start`) once blanks
// are dropped and letters lowered.
bool wordBefore(std::string_view text, size_t end, std::string_view word) {
    for (size_t k = word.size(); k > 0; --k, --end) {
        while (end > 0 && isASCIISpace(text[end - 1])) {
            --end;
        }
        if (end == 0 || lowerASCII(text[end - 1]) != word[k - 1]) {
            return false;
        }
    }
    return true;
}

bool wordAfter(std::string_view text, size_t start, std::string_view word) {
    for (size_t k = 0; k < word.size(); ++k, ++start) {
        while (start < text.size() && isASCIISpace(text[start])) {
            ++start;
        }
        if (start == text.size() || lowerASCII(text[start]) != word[k]) {
            return false;
        }
    }
    return true;
}

// Whether one of the hiding rules stands in the style. Every rule holds one colon, so in an
// ASCII style each colon is looked at, with the rule's property before it and its value after
// it, passing over blanks and lowering letters on the way: the same as searching a compact
// lower-case copy, without making one.
bool hidesImage(std::string_view style) {
    if (!TextUtil::isASCII(style)) {
        std::string compact;
        compact.reserve(style.size());
        for (char c : TextUtil::lower(style)) {
            if (!isASCIISpace(c)) {
                compact.push_back(c);
            }
        }
        return std::any_of(kHidingRules.begin(), kHidingRules.end(), [&](const HidingRule& rule) {
            std::string text = std::string(rule.property) + ":" + std::string(rule.value);
            return compact.find(text) != std::string::npos;
        });
    }
    for (size_t colon = style.find(':'); colon != std::string_view::npos;
         colon = style.find(':', colon + 1)) {
        // Most declarations are settled by the first character of their value.
        size_t value = colon + 1;
        while (value < style.size() && isASCIISpace(style[value])) {
            ++value;
        }
        if (value == style.size()) {
            break;
        }
        char first = lowerASCII(style[value]);
        if (std::none_of(kHidingRules.begin(), kHidingRules.end(),
                         [&](const HidingRule& rule) { return rule.value.front() == first; })) {
            continue;
        }
        for (const HidingRule& rule : kHidingRules) {
            if (wordAfter(style, colon + 1, rule.value) &&
                wordBefore(style, colon, rule.property)) {
                return true;
            }
        }
    }
    return false;
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
    // A tag such as an image's runs long, so its end, and any "<" before that end, are found
    // with byte searches rather than a loop over its characters. The next ">" is kept until
    // passed, so that many "<" with no ">" after them don't each search to the end.
    constexpr size_t npos = std::string_view::npos;
    size_t close = 0;
    bool closeFound = false;
    size_t i = 0;
    while (i < content.size()) {
        char c = content[i];
        if (c == '<') {
            if (!closeFound || (close != npos && close <= i)) {
                close = content.find('>', i + 1);
                closeFound = true;
            }
            if (close != npos && close > i + 1 &&
                content.substr(i + 1, close - i - 1).find('<') == npos) {
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
    if (label.size() < 3 || label.size() > 4) {
        return false; // most labels, "com" aside, settled without comparing
    }
    static constexpr std::array<std::string_view, 14> extensions = {
        "pdf", "png",  "jpg", "jpeg", "gif", "doc", "docx",
        "zip", "html", "htm", "txt",  "csv", "xls", "xlsx"};
    return std::find(extensions.begin(), extensions.end(), label) != extensions.end();
}

// The link's content as plain text (before trimming), written into `out`. Plain words without
// markup, entities or more than two line feeds are what most links hold; for them the
// conversion comes down to collapsing runs of blanks, done here directly, which gives the same
// text once trimmed.
void linkText(std::string_view content, std::string& out) {
    if (TextUtil::findFirstOf(content, "<&") != std::string_view::npos ||
        std::count(content.begin(), content.end(), '\n') > 2 || !Unicode::isValidUTF8(content)) {
        out = HTMLText::toPlain(content);
        return;
    }
    // A blank here: a space, a tab or U+00A0; the length of its bytes, or 0.
    auto blankAt = [&](size_t i) -> size_t {
        if (content[i] == ' ' || content[i] == '\t') {
            return 1;
        }
        return content[i] == '\xC2' && i + 1 < content.size() && content[i + 1] == '\xA0' ? 2 : 0;
    };
    out.clear();
    size_t i = 0;
    while (i < content.size()) {
        size_t start = i;
        while (i < content.size() && blankAt(i) == 0) {
            ++i;
        }
        out.append(content.substr(start, i - start));
        if (i < content.size()) {
            out.push_back(' '); // a run of blanks becomes one space
            while (i < content.size()) {
                size_t length = blankAt(i);
                if (length == 0) {
                    break;
                }
                i += length;
            }
        }
    }
}

// The text to read a link's attributes from: "<a " + group 1 + ">", as the pattern reads it.
// The leading "a" takes a value only when the group's first character after blanks is "=";
// otherwise, the group alone reads the same (it starts at a character that isn't a letter, by
// the pattern's word boundary), and is used without copying. A first character outside ASCII
// might be a blank to the pattern, so that case too is copied.
std::string_view linkTag(std::string_view group, std::string& buffer) {
    size_t first = 0;
    while (first < group.size() && isASCIISpace(group[first])) {
        ++first;
    }
    if (first == group.size() ||
        (group[first] != '=' && static_cast<unsigned char>(group[first]) < 0x80)) {
        return group;
    }
    buffer.assign("<a ").append(group).append(">");
    return buffer;
}

// The first domain named in a link's shown text, lower-cased, written into `out`; false when
// it names none. ASCII text, nearly all of it, is searched without converting it to UTF-16.
bool domainShown(std::string_view shown, std::string& out) {
    if (TextUtil::isASCII(shown)) {
        auto domain = HTMLScanner::domainInASCIIText(shown);
        if (!domain) {
            return false;
        }
        out.assign(*domain);
        TextUtil::lowerASCIIInPlace(out);
        return true;
    }
    icu::UnicodeString shownText = Unicode::fromUTF8(shown);
    icu::RegexMatcher& matcher = threadMatcher(HTMLPatterns::domainInText(), shownText);
    UErrorCode status = U_ZERO_ERROR;
    if (!matcher.find(0, status) || U_FAILURE(status)) {
        return false;
    }
    icu::UnicodeString domainText = matcher.group(1, status);
    domainText.toLower(icu::Locale::getRoot());
    out = Unicode::toUTF8(domainText);
    return true;
}

std::optional<LinkWarning> judgeLink(const HTMLScanner::Anchor& anchor, Inspection& inspection) {
    if (!mayNameDomain(anchor.content)) {
        return std::nullopt;
    }
    std::optional<std::string_view> href;
    std::string decodedHref;
    HTMLScanner::attributes(linkTag(anchor.attributes, inspection.tag), inspection.attributes);
    for (const HTMLScanner::Attribute& attribute : inspection.attributes) {
        if (equalsIgnoringASCIICase(attribute.name, "href")) {
            href = attributeValue(attribute.value, decodedHref);
        }
    }
    if (!href || !TextUtil::startsWithIgnoringCase(*href, "http")) {
        return std::nullopt;
    }
    std::string& actualHost = inspection.host;
    if (!Domains::host(*href, actualHost)) {
        return std::nullopt;
    }
    linkText(anchor.content, inspection.text);
    std::string_view shown = TextUtil::trimWhitespace(inspection.text);
    if (shown.empty() || (shown.size() > kMaxShownTextCharacters &&
                          Unicode::graphemeCount(shown) > kMaxShownTextCharacters)) {
        return std::nullopt;
    }
    std::string& shownDomain = inspection.domain;
    if (!domainShown(shown, shownDomain)) {
        return std::nullopt;
    }
    std::string_view lastLabel = shownDomain;
    if (size_t dot = lastLabel.rfind('.'); dot != std::string_view::npos) {
        lastLabel.remove_prefix(dot + 1);
    }
    if (lastLabel.size() < 2 || !TextUtil::isAllLetters(lastLabel) || isFileExtension(lastLabel)) {
        return std::nullopt;
    }
    if (inspection.hosts.sameRegistrable(shownDomain, actualHost)) {
        return std::nullopt;
    }
    return LinkWarning{std::string(shown), shownDomain, actualHost, std::string(*href)};
}

std::vector<LinkWarning> linkWarnings(const std::vector<HTMLScanner::Anchor>& anchors,
                                      Inspection& inspection) {
    std::vector<LinkWarning> out;
    for (const HTMLScanner::Anchor& anchor : anchors) {
        if (auto warning = judgeLink(anchor, inspection)) {
            out.push_back(std::move(*warning));
        }
    }
    return out;
}

bool isTracker(const ImageFacts& facts, Inspection& inspection) {
    const std::optional<std::string_view>& source = facts.source;
    if (!source || !TextUtil::startsWithIgnoringCase(*source, "http")) {
        return false;
    }
    for (const std::optional<std::string_view>* dimension : {&facts.width, &facts.height}) {
        if (*dimension) {
            if (auto size = pixelSize(**dimension); size && *size <= 2.0) {
                return true;
            }
        }
    }
    if (facts.style && hidesImage(*facts.style)) {
        return true;
    }
    if (facts.hidden) {
        return true;
    }
    if (!Domains::host(*source, inspection.host) ||
        !inspection.hosts.isTrackerService(inspection.host)) {
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
    auto view = [&](std::string_view key, std::optional<std::string_view>& into) {
        if (const std::string* value = find(attrs, key)) {
            into = *value;
        }
    };
    view("src", facts.source);
    view("width", facts.width);
    view("height", facts.height);
    view("style", facts.style);
    const std::string* bare = find(attrs, "__bare");
    facts.hidden = find(attrs, "hidden") || (bare && containsWord(*bare, "hidden"));
    Inspection inspection;
    return isTracker(facts, inspection);
}

HTMLReport inspect(std::string_view html) {
    HTMLReport report;
    Inspection inspection;
    HTMLScanner::Tags tags = HTMLScanner::tags(html);
    for (std::string_view tag : tags.images) {
        ImageFacts facts;
        readFacts(tag, facts, inspection);
        const std::optional<std::string_view>& source = facts.source;
        if (!source || !TextUtil::startsWithIgnoringCase(*source, "http")) {
            continue;
        }
        if (!isTracker(facts, inspection)) {
            ++report.remoteImageCount;
            continue;
        }
        ++report.trackerCount;
        if (Domains::host(*source, inspection.host)) {
            const std::string& site = inspection.hosts.registrable(inspection.host);
            if (std::find(report.trackerHosts.begin(), report.trackerHosts.end(), site) ==
                report.trackerHosts.end()) {
                report.trackerHosts.push_back(site);
            }
        }
    }
    report.linkWarnings = linkWarnings(tags.anchors, inspection);
    return report;
}

std::vector<LinkWarning> linkWarnings(std::string_view html) {
    Inspection inspection;
    return linkWarnings(HTMLScanner::anchors(html), inspection);
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
    Inspection inspection;
    for (std::string_view tag : HTMLScanner::imgTags(current)) {
        ImageFacts facts;
        readFacts(tag, facts, inspection);
        if (!isTracker(facts, inspection)) {
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
