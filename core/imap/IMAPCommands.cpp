// The commands of IMAPClient: each one or two calls of run, their results gathered from the

#include "imap/IMAPKeyword.h" // untagged responses. Responses that don't fit are skipped, as servers may send unsolicited
// data at any time.
#include "imap/IMAPClient.h"

#include "imap/IMAPNumber.h"
#include "imap/ModifiedUTF7.h"
#include "imap/UIDSet.h"

#include <algorithm>

namespace qs {

namespace {

using IMAPKeyword::upper;

bool isWord(const IMAPValue& value, std::string_view word) {
    std::optional<std::string> text = value.text();
    return text && upper(*text) == word;
}

// `LIST (attributes) delimiter name`, or nothing.
std::optional<IMAPMailbox> mailboxFrom(const std::vector<IMAPValue>& values) {
    if (values.size() < 4 || !isWord(values[0], "LIST")) {
        return std::nullopt;
    }
    std::optional<std::string> name = values[3].text();
    if (!name) {
        return std::nullopt;
    }
    IMAPMailbox mailbox;
    for (const IMAPValue& attribute : values[1].items()) {
        if (std::optional<std::string> text = attribute.text()) {
            mailbox.attributes.push_back(std::move(*text));
        }
    }
    mailbox.delimiter = values[2].text();
    mailbox.displayName = ModifiedUTF7::decode(*name);
    mailbox.name = std::move(*name);
    return mailbox;
}

std::vector<std::string> codePieces(const std::string& code) {
    std::vector<std::string> pieces;
    size_t i = 0;
    while (i < code.size()) {
        size_t end = std::min(code.find(' ', i), code.size());
        if (end > i) {
            pieces.push_back(code.substr(i, end - i));
        }
        i = end + 1;
    }
    return pieces;
}

} // namespace

std::set<std::string> IMAPClient::capability() {
    run("CAPABILITY", {});
    return capabilities_;
}

void IMAPClient::login(const std::string& user, const std::string& password) {
    run("LOGIN", {Arg::string(user), Arg::string(password)});
    // Servers often show their full list only after sign-in; a tagged [CAPABILITY ...] on the
    // LOGIN answer has already refreshed it.
    if (capabilities_.empty() || !capabilities_.contains("IMAP4REV1")) {
        run("CAPABILITY", {});
    }
}

std::vector<IMAPMailbox> IMAPClient::list() {
    std::vector<IMAPMailbox> mailboxes;
    run("LIST", {Arg::string(""), Arg::string("*")}, [&](IMAPResponse& response) {
        if (const IMAPResponse::Untagged* untagged = response.untagged()) {
            if (std::optional<IMAPMailbox> mailbox = mailboxFrom(untagged->values)) {
                mailboxes.push_back(std::move(*mailbox));
            }
        }
    });
    return mailboxes;
}

SelectInfo IMAPClient::select(const std::string& name, bool readOnly) {
    SelectInfo info;
    info.readOnly = readOnly;
    Completion done =
        run(readOnly ? "EXAMINE" : "SELECT", {Arg::string(name)}, [&](IMAPResponse& response) {
            if (const IMAPResponse::Untagged* untagged = response.untagged()) {
                const std::vector<IMAPValue>& values = untagged->values;
                if (values.size() >= 2 && isWord(values[1], "EXISTS")) {
                    std::optional<std::string> count = values[0].text();
                    if (std::optional<int64_t> exists =
                            count ? IMAPNumber::int64(*count) : std::nullopt) {
                        info.exists = *exists;
                    }
                }
            } else if (const IMAPResponse::UntaggedStatus* status = response.untaggedStatus();
                       status && status->code) {
                std::vector<std::string> pieces = codePieces(*status->code);
                if (pieces.size() >= 2 && upper(pieces[0]) == "UIDVALIDITY") {
                    info.uidValidity = IMAPNumber::uint32(pieces[1]).value_or(0);
                } else if (pieces.size() >= 2 && upper(pieces[0]) == "UIDNEXT") {
                    info.uidNext = IMAPNumber::uint32(pieces[1]);
                }
            }
        });
    // Only a grant upward counts: READ-ONLY on a SELECT is deliberately not looked at.
    if (done.code && upper(*done.code) == "READ-WRITE") {
        info.readOnly = false;
    }
    return info;
}

std::vector<uint32_t> IMAPClient::uidSearch(const std::string& criteria) {
    std::vector<uint32_t> uids;
    run("UID SEARCH", {Arg::raw(criteria)}, [&](IMAPResponse& response) {
        const IMAPResponse::Untagged* untagged = response.untagged();
        if (!untagged || untagged->values.empty() || !isWord(untagged->values[0], "SEARCH")) {
            return;
        }
        for (size_t i = 1; i < untagged->values.size(); ++i) {
            std::optional<std::string> text = untagged->values[i].text();
            if (std::optional<uint32_t> uid = text ? IMAPNumber::uint32(*text) : std::nullopt) {
                uids.push_back(*uid);
            }
        }
    });
    std::sort(uids.begin(), uids.end());
    return uids;
}

std::vector<IMAPFetchItem> IMAPClient::fetchMeta(const std::vector<uint32_t>& uids) {
    std::vector<IMAPFetchItem> items;
    if (uids.empty()) {
        return items;
    }
    run("UID FETCH",
        {Arg::raw(UIDSet::string(uids)), Arg::raw("(UID RFC822.SIZE INTERNALDATE FLAGS)")},
        [&](IMAPResponse& response) {
            if (IMAPResponse::Untagged* untagged = response.untagged()) {
                std::optional<IMAPFetchItem> item = IMAPFetchItem::from(untagged->values);
                if (item && item->uid) {
                    items.push_back(std::move(*item));
                }
            }
        });
    return items;
}

void IMAPClient::fetchBodies(const std::vector<uint32_t>& uids,
                             const std::function<void(IMAPFetchItem&&)>& onMessage) {
    if (uids.empty()) {
        return;
    }
    run("UID FETCH",
        {Arg::raw(UIDSet::string(uids)),
         Arg::raw("(UID RFC822.SIZE INTERNALDATE FLAGS BODY.PEEK[])")},
        [&](IMAPResponse& response) {
            if (IMAPResponse::Untagged* untagged = response.untagged()) {
                std::optional<IMAPFetchItem> item = IMAPFetchItem::from(untagged->values);
                if (item && item->uid && item->body) {
                    onMessage(std::move(*item));
                }
            }
        });
}

void IMAPClient::store(const std::vector<uint32_t>& uids, const char* change) {
    if (uids.empty()) {
        return;
    }
    run("UID STORE", {Arg::raw(UIDSet::string(uids)), Arg::raw(change)});
}

void IMAPClient::markDeleted(const std::vector<uint32_t>& uids) {
    store(uids, "+FLAGS.SILENT (\\Deleted)");
}

void IMAPClient::unmarkDeleted(const std::vector<uint32_t>& uids) {
    store(uids, "-FLAGS.SILENT (\\Deleted)");
}

bool IMAPClient::expunge(const std::vector<uint32_t>& uids) {
    if (capabilities_.contains("UIDPLUS")) {
        run("UID EXPUNGE", {Arg::raw(UIDSet::string(uids))});
        return true;
    }
    run("EXPUNGE", {});
    return false;
}

void IMAPClient::logout() noexcept {
    try {
        run("LOGOUT", {});
    } catch (...) {
        // Leaving is best effort: whatever the server did, the session ends here.
    }
    disconnect();
}

} // namespace qs
