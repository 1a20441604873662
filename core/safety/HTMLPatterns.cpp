#include "safety/HTMLPatterns.h"

namespace qs::HTMLPatterns {

const Regex& imgRegex() {
    static const Regex regex(std::string_view(R"(<img\b[^>]*>)"), UREGEX_CASE_INSENSITIVE);
    return regex;
}

const Regex& attrRegex() {
    static const Regex regex(std::string_view(R"(([a-zA-Z-]+)\s*=\s*("[^"]*"|'[^']*'|[^\s>]+))"));
    return regex;
}

const Regex& anchorRegex() {
    static const Regex regex(std::string_view(R"(<a\b([^>]*)>([\s\S]*?)</a\s*>)"),
                             UREGEX_CASE_INSENSITIVE);
    return regex;
}

const Regex& domainInText() {
    static const Regex regex(
        std::string_view(R"((?:https?://)?((?:[a-z0-9-]+\.)+[a-z]{2,24})(?:[/:?#]\S*)?)"),
        UREGEX_CASE_INSENSITIVE);
    return regex;
}

} // namespace qs::HTMLPatterns
