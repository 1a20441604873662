#include "mime/AddressParser.h"

#include "mime/EncodedWords.h"
#include "mime/TextTrim.h"

namespace qs::AddressParser {

namespace {

// Drops a leading group label ("Team: a@x"): a colon whose prefix can't be part of a name or
// an address. With an angle address in the piece the text before it is a display name, colon
// and all ("Mailing list: <a@x>"), so it stays.
std::string_view withoutGroupLabel(std::string_view text) {
    auto colon = text.find(':');
    if (colon == std::string_view::npos || text.find('<') != std::string_view::npos) {
        return text;
    }
    if (text.substr(0, colon).find_first_of("<@\"") != std::string_view::npos) {
        return text;
    }
    return TextTrim::whitespace(text.substr(colon + 1));
}

std::string decodedName(std::string_view name) {
    return std::string(TextTrim::whitespaceAndNewlines(EncodedWords::decode(name)));
}

} // namespace

std::vector<MailAddress> parse(std::string_view text) {
    std::vector<MailAddress> out;
    bool inQuotes = false;
    int angleDepth = 0;
    int commentDepth = 0;
    size_t start = 0;
    auto take = [&](size_t end) {
        if (auto address = one(text.substr(start, end - start))) {
            out.push_back(std::move(*address));
        }
    };
    for (size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (c == '"' && commentDepth == 0) {
            inQuotes = !inQuotes;
            continue;
        }
        if (inQuotes) {
            continue;
        }
        switch (c) {
        case '<':
            ++angleDepth;
            break;
        case '>':
            angleDepth = angleDepth > 0 ? angleDepth - 1 : 0;
            break;
        case '(':
            ++commentDepth;
            break;
        case ')':
            commentDepth = commentDepth > 0 ? commentDepth - 1 : 0;
            break;
        case ',':
        case ';':
            if (angleDepth == 0 && commentDepth == 0) {
                take(i);
                start = i + 1;
            }
            break;
        default:
            break;
        }
    }
    take(text.size());
    return out;
}

std::optional<MailAddress> one(std::string_view piece) {
    std::string_view text = withoutGroupLabel(TextTrim::whitespaceAndNewlines(piece));
    if (text.empty()) {
        return std::nullopt;
    }
    auto lt = text.rfind('<');
    if (lt != std::string_view::npos) {
        auto gt = text.find('>', lt + 1);
        if (gt != std::string_view::npos) {
            MailAddress address;
            address.email =
                std::string(TextTrim::whitespaceAndNewlines(text.substr(lt + 1, gt - lt - 1)));
            std::string_view quoted = TextTrim::whitespaceAndNewlines(text.substr(0, lt));
            if (!quoted.empty() && quoted.front() == '"' && quoted.back() == '"') {
                // A lone quote is both the opening and the closing one.
                quoted = quoted.size() >= 2 ? quoted.substr(1, quoted.size() - 2) : "";
            }
            std::string name;
            name.reserve(quoted.size());
            for (size_t i = 0; i < quoted.size(); ++i) {
                if (quoted[i] == '\\' && i + 1 < quoted.size() && quoted[i + 1] == '"') {
                    continue;
                }
                name.push_back(quoted[i]);
            }
            address.name = decodedName(name);
            return address;
        }
    }
    auto open = text.find('(');
    if (open != std::string_view::npos) {
        auto close = text.rfind(')');
        if (close != std::string_view::npos && close > open) {
            MailAddress address;
            address.email = std::string(TextTrim::whitespaceAndNewlines(text.substr(0, open)));
            address.name = decodedName(
                TextTrim::whitespaceAndNewlines(text.substr(open + 1, close - open - 1)));
            return address;
        }
    }
    if (text.find('@') != std::string_view::npos) {
        return MailAddress{"", std::string(text)};
    }
    return std::nullopt;
}

} // namespace qs::AddressParser
