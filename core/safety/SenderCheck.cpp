#include "safety/SenderCheck.h"

#include "safety/Domains.h"
#include "safety/SenderTables.h"
#include "safety/TextUtil.h"
#include "safety/ThreadMatcher.h"
#include "support/Regex.h"
#include "support/Unicode.h"

#include <algorithm>
#include <array>
#include <unicode/uchar.h>
#include <unicode/utf8.h>
#include <unordered_set>

namespace qs::SenderCheck {

namespace {

using SenderTables::Brand;

// Below these lengths a single edit turns too many ordinary names into a brand or a known
// sender, so only exact skeletons and hyphenated pieces count.
constexpr size_t kMinBrandCoreForDistance = 5;
constexpr size_t kMinKnownCoreForDistance = 6;
// Learned domains shorter than this before the first dot are never compared at all.
constexpr size_t kMinKnownCore = 4;

// A brand with what the look-alike test needs, computed once.
struct BrandEntry {
    const Brand* brand;
    std::string core;
    std::string coreSkeleton;
    bool isShort;
};

struct Tables {
    std::vector<BrandEntry> brands;
    std::unordered_set<std::string_view> officialDomains;
};

std::string_view firstLabel(std::string_view domain) {
    return domain.substr(0, domain.find('.'));
}

const Tables& tables() {
    static const Tables built = [] {
        Tables t;
        for (const Brand& brand : SenderTables::brands()) {
            std::string core(firstLabel(brand.domains.front()));
            t.brands.push_back(
                {&brand, core, skeleton(core), SenderTables::isShortBrand(brand.word)});
            t.officialDomains.insert(brand.domains.begin(), brand.domains.end());
        }
        return t;
    }();
    return built;
}

bool isOfficial(const Brand& brand, std::string_view domain) {
    return std::find(brand.domains.begin(), brand.domains.end(), domain) != brand.domains.end();
}

// User-perceived characters of `text`; plain ASCII (without CR LF pairs) takes a fast path.
std::vector<std::string_view> characters(std::string_view text) {
    if (TextUtil::isASCII(text) && text.find('\r') == std::string_view::npos) {
        std::vector<std::string_view> out;
        out.reserve(text.size());
        for (size_t i = 0; i < text.size(); ++i) {
            out.push_back(text.substr(i, 1));
        }
        return out;
    }
    return Unicode::graphemes(text);
}

size_t characterCount(std::string_view text) {
    return TextUtil::isASCII(text) ? text.size() : Unicode::graphemeCount(text);
}

// True when two ASCII texts are exactly one insertion, deletion or substitution apart.
bool oneEditApartASCII(std::string_view a, std::string_view b) {
    if (a.size() > b.size()) {
        std::swap(a, b);
    }
    if (b.size() - a.size() > 1) {
        return false;
    }
    size_t prefix = 0;
    while (prefix < a.size() && a[prefix] == b[prefix]) {
        ++prefix;
    }
    if (a.size() == b.size()) {
        return prefix < a.size() && a.substr(prefix + 1) == b.substr(prefix + 1);
    }
    return a.substr(prefix) == b.substr(prefix + 1);
}

// True when the two texts are exactly one edit apart; a length gap over one settles it early.
bool oneEditApart(std::string_view a, std::string_view b) {
    if (TextUtil::isASCII(a) && TextUtil::isASCII(b) && a.find('\r') == std::string_view::npos &&
        b.find('\r') == std::string_view::npos) {
        return oneEditApartASCII(a, b);
    }
    size_t lengthA = characterCount(a);
    size_t lengthB = characterCount(b);
    if ((lengthA > lengthB ? lengthA - lengthB : lengthB - lengthA) > 1) {
        return false;
    }
    return distance(a, b) == 1;
}

std::vector<std::string_view> split(std::string_view text, char separator) {
    std::vector<std::string_view> out;
    size_t start = 0;
    while (true) {
        size_t end = text.find(separator, start);
        out.push_back(text.substr(start, end == std::string_view::npos ? end : end - start));
        if (end == std::string_view::npos) {
            return out;
        }
        start = end + 1;
    }
}

// The words of a display name: runs of letters and numbers (with their combining marks).
std::vector<std::string> words(std::string_view name) {
    std::vector<std::string> out;
    std::string current;
    const auto* s = reinterpret_cast<const uint8_t*>(name.data());
    int32_t i = 0;
    auto length = int32_t(name.size());
    while (i < length) {
        int32_t start = i;
        UChar32 c;
        U8_NEXT(s, i, length, c);
        bool inWord = c >= 0 && (U_GET_GC_MASK(c) &
                                 (U_GC_L_MASK | U_GC_N_MASK | (current.empty() ? 0 : U_GC_M_MASK)));
        if (inWord) {
            current.append(name.substr(size_t(start), size_t(i - start)));
        } else if (!current.empty()) {
            out.push_back(std::move(current));
            current.clear();
        }
    }
    if (!current.empty()) {
        out.push_back(std::move(current));
    }
    return out;
}

std::string capitalized(std::string_view word) {
    std::string out(word);
    if (!out.empty() && out[0] >= 'a' && out[0] <= 'z') {
        out[0] = char(out[0] - 'a' + 'A');
    }
    return out;
}

std::string_view lastLabel(std::string_view domain) {
    size_t dot = domain.rfind('.');
    return dot == std::string_view::npos ? domain : domain.substr(dot + 1);
}

bool claims(const BrandEntry& entry, const std::vector<std::string>& nameWords,
            const std::string& collapsed) {
    std::string_view word = entry.brand->word;
    bool named = std::find(nameWords.begin(), nameWords.end(), word) != nameWords.end();
    if (entry.isShort) {
        return named && std::all_of(nameWords.begin(), nameWords.end(), [&](const auto& w) {
                   return w == word || SenderTables::isGenericWord(w);
               });
    }
    return named || (word.size() >= 6 && collapsed.find(word) != std::string::npos);
}

std::optional<SenderFlag> domainInName(std::string_view name, std::string_view domain,
                                       const std::string& reg) {
    static const Regex domainRegex(
        std::string_view(R"(([a-z0-9-]+(?:\.[a-z0-9-]+)*\.[a-z]{2,24}))"), UREGEX_CASE_INSENSITIVE);
    if (name.find('.') == std::string_view::npos) {
        return std::nullopt; // the pattern needs a dot; most names have none
    }
    icu::UnicodeString text = Unicode::fromUTF8(name);
    icu::RegexMatcher& matcher = threadMatcher(domainRegex, text);
    UErrorCode status = U_ZERO_ERROR;
    if (!matcher.find(0, status) || U_FAILURE(status)) {
        return std::nullopt;
    }
    std::string found = Unicode::toUTF8(matcher.group(1, status));
    if (size_t at = found.rfind('@'); at != std::string::npos) {
        found.erase(0, at + 1);
    }
    std::string shown = Domains::registrable(found);
    if (!TextUtil::isAllLetters(lastLabel(shown)) || shown == reg) {
        return std::nullopt;
    }
    return SenderFlag{SenderFlag::Kind::displayName, "Name shows " + shown,
                      "The name says " + shown + ", but the message came from " +
                          std::string(domain) + "."};
}

} // namespace

std::string skeleton(std::string_view text) {
    static constexpr std::array<std::pair<std::string_view, std::string_view>, 12> confusables = {{
        {"rn", "m"},
        {"vv", "w"},
        {"cl", "d"},
        {"0", "o"},
        {"1", "l"},
        {"3", "e"},
        {"5", "s"},
        {"4", "a"},
        {"7", "t"},
        {"8", "b"},
        {"-", ""},
        {"_", ""},
    }};
    std::string out = TextUtil::lower(text);
    for (const auto& [from, to] : confusables) {
        TextUtil::replaceAll(out, from, to);
    }
    return out;
}

int distance(std::string_view a, std::string_view b) {
    std::vector<std::string_view> left = characters(a);
    std::vector<std::string_view> right = characters(b);
    if (left.empty()) {
        return int(right.size());
    }
    if (right.empty()) {
        return int(left.size());
    }
    std::vector<int> previous(right.size() + 1);
    std::vector<int> row(right.size() + 1);
    for (size_t j = 0; j <= right.size(); ++j) {
        previous[j] = int(j);
    }
    for (size_t i = 1; i <= left.size(); ++i) {
        row[0] = int(i);
        for (size_t j = 1; j <= right.size(); ++j) {
            int substitution = previous[j - 1] + (left[i - 1] == right[j - 1] ? 0 : 1);
            row[j] = std::min({previous[j] + 1, row[j - 1] + 1, substitution});
        }
        std::swap(previous, row);
    }
    return previous[right.size()];
}

std::vector<SenderFlag> check(const std::optional<MailAddress>& address,
                              const std::set<std::string>& knownDomains,
                              const std::map<std::string, std::string>& knownNames) {
    std::vector<SenderFlag> flags;
    if (!address) {
        return flags;
    }
    const std::string domain = address->domain();
    if (domain.empty()) {
        return flags;
    }
    const std::string reg = Domains::registrable(domain);
    const std::string core(firstLabel(reg));
    const std::string name = TextUtil::lower(address->name);
    auto hasFlag = [&](SenderFlag::Kind kind) {
        return std::any_of(flags.begin(), flags.end(),
                           [&](const SenderFlag& f) { return f.kind == kind; });
    };

    // 1. International characters or an IDNA label in the domain.
    bool punycode = !TextUtil::isASCII(domain);
    for (std::string_view label : split(domain, '.')) {
        punycode = punycode || label.starts_with("xn--");
    }
    if (punycode) {
        flags.push_back({SenderFlag::Kind::punycode, "Look-alike characters in " + reg,
                         "The sender’s domain " + domain +
                             " uses international characters that can imitate ordinary "
                             "letters."});
    }

    // 2. A domain written in the display name.
    if (auto flag = domainInName(name, domain, reg)) {
        flags.push_back(std::move(*flag));
    }

    // 3. A name the vault knows, writing from a new domain.
    std::string key(TextUtil::trimWhitespace(name));
    if (!hasFlag(SenderFlag::Kind::displayName) && !key.empty()) {
        if (auto it = knownNames.find(key);
            it != knownNames.end() && it->second != reg && !knownDomains.contains(reg)) {
            const std::string& usual = it->second;
            flags.push_back({SenderFlag::Kind::displayName,
                             address->name + " usually writes from " + usual,
                             "Mail from “" + address->name + "” in your vault comes from " + usual +
                                 ". This one came from " + domain + "."});
        }
    }

    // 4. A brand in the display name, sent from none of the brand's domains.
    const Tables& t = tables();
    if (!hasFlag(SenderFlag::Kind::displayName)) {
        std::vector<std::string> nameWords = words(name);
        std::string collapsed;
        for (const std::string& w : nameWords) {
            collapsed += w;
        }
        for (const BrandEntry& entry : t.brands) {
            if (!claims(entry, nameWords, collapsed)) {
                continue;
            }
            if (isOfficial(*entry.brand, reg)) {
                continue;
            }
            std::string word = capitalized(entry.brand->word);
            flags.push_back({SenderFlag::Kind::displayName, "Says " + word + ", sent from " + reg,
                             "The name says it’s from " + address->name +
                                 ", but the message came from " + domain + ", which isn’t one of " +
                                 word + "’s domains."});
            break;
        }
    }

    // 5. A domain that imitates a brand. A brand's own domain ends the whole check here.
    if (t.officialDomains.contains(reg)) {
        return flags;
    }
    const std::string coreSkeleton = skeleton(core);
    const std::vector<std::string_view> parts = split(core, '-');
    for (const BrandEntry& entry : t.brands) {
        bool hit = (entry.coreSkeleton == coreSkeleton && entry.core != core) ||
                   (!entry.isShort && entry.core.size() >= kMinBrandCoreForDistance &&
                    oneEditApart(coreSkeleton, entry.coreSkeleton)) ||
                   (parts.size() >= 2 && std::any_of(parts.begin(), parts.end(), [&](auto part) {
                        return part == entry.core || part == entry.brand->word;
                    }));
        if (hit) {
            std::string main(entry.brand->domains.front());
            flags.push_back({SenderFlag::Kind::lookalike, reg + " imitates " + main,
                             reg + " looks like " + main +
                                 " but isn’t. Look-alike domains are a common phishing trick."});
            break;
        }
    }

    // 6. A domain that imitates a sender already in the vault.
    if (knownDomains.contains(reg) || hasFlag(SenderFlag::Kind::lookalike)) {
        return flags;
    }
    for (const std::string& known : knownDomains) { // sorted, so the first hit is stable
        std::string_view knownCore = firstLabel(known);
        if (characterCount(knownCore) < kMinKnownCore) {
            continue;
        }
        std::string knownSkeleton = skeleton(knownCore);
        bool hit =
            (knownSkeleton == coreSkeleton && knownCore != core) ||
            (characterCount(knownCore) >= kMinKnownCoreForDistance &&
             oneEditApart(coreSkeleton, knownSkeleton)) ||
            (parts.size() >= 2 && std::find(parts.begin(), parts.end(), knownCore) != parts.end());
        if (hit) {
            flags.push_back({SenderFlag::Kind::lookalike, reg + " imitates " + known,
                             reg + " looks like " + known +
                                 ", a sender already in your vault — but it isn’t the same "
                                 "domain."});
            break;
        }
    }
    return flags;
}

} // namespace qs::SenderCheck
