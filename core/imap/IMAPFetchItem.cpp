#include "imap/IMAPFetchItem.h"

#include "imap/IMAPDate.h"
#include "imap/IMAPKeyword.h"
#include "imap/IMAPNumber.h"

#include <algorithm>

namespace qs {

namespace {

using IMAPKeyword::upper;

} // namespace

std::optional<IMAPFetchItem> IMAPFetchItem::from(std::vector<IMAPValue>& values) {
    if (values.size() < 3 || !values[0].isAtom() || !values[2].isList()) {
        return std::nullopt;
    }
    std::optional<int64_t> sequence = IMAPNumber::int64(*values[0].text());
    std::optional<std::string> word = values[1].text();
    if (!sequence || !word || upper(*word) != "FETCH") {
        return std::nullopt;
    }
    IMAPFetchItem item;
    item.sequence = *sequence;
    std::span<IMAPValue> pairs = values[2].items();
    for (size_t i = 0; i + 1 < pairs.size(); i += 2) {
        std::string key = upper(pairs[i].text().value_or(""));
        IMAPValue& value = pairs[i + 1];
        if (key == "UID") {
            std::optional<std::string> text = value.text();
            item.uid = text ? IMAPNumber::uint32(*text) : std::nullopt;
        } else if (key == "RFC822.SIZE") {
            std::optional<std::string> text = value.text();
            item.size = text ? IMAPNumber::int64(*text) : std::nullopt;
        } else if (key == "INTERNALDATE") {
            std::optional<std::string> text = value.text();
            item.internalDate = text ? IMAPDate::parse(*text) : std::nullopt;
        } else if (key == "FLAGS") {
            item.flags.clear();
            for (const IMAPValue& flag : value.items()) {
                if (std::optional<std::string> text = flag.text()) {
                    item.flags.push_back(std::move(*text));
                }
            }
        } else if (key.starts_with("BODY[") || key == "RFC822") {
            // Any section is taken as the message; the bytes move, they are not copied.
            item.body = value.takeData();
        }
    }
    return item;
}

std::ostream& operator<<(std::ostream& out, const IMAPFetchItem& item) {
    out << "IMAPFetchItem(sequence " << item.sequence << ", uid ";
    if (item.uid) {
        out << *item.uid;
    } else {
        out << "none";
    }
    out << ", size ";
    if (item.size) {
        out << *item.size;
    } else {
        out << "none";
    }
    out << ", internalDate "
        << (item.internalDate ? ISODate::format(*item.internalDate) : std::string("none"))
        << ", flags (";
    for (size_t i = 0; i < item.flags.size(); ++i) {
        out << (i ? " " : "") << item.flags[i];
    }
    out << "), body ";
    if (item.body) {
        out << item.body->size() << " bytes";
    } else {
        out << "none";
    }
    return out << ")";
}

} // namespace qs
