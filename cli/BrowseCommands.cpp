// list / search and show: reading the vault.
#include "Commands.h"
#include "TerminalText.h"
#include "Wait.h"

#include "model/SidebarItem.h"
#include "model/SmartFilter.h"
#include "search/SearchCache.h"
#include "support/Date.h"

#include <QDateTime>
#include <QLocale>
#include <iostream>
#include <nlohmann/json.hpp>

namespace qs::cli {

namespace {

std::string localDay(Date date) {
    return QDateTime::fromSecsSinceEpoch(unixSeconds(date)).toString("yyyy-MM-dd").toStdString();
}

std::string isoDate(Date date) {
    return ISODate::format(date);
}

nlohmann::json recordJSON(const MessageRecord& r) {
    return {{"date", isoDate(r.date)},
            {"fromName", r.fromName},
            {"fromEmail", r.fromEmail},
            {"subject", r.subject},
            {"path", r.path},
            {"account", r.account},
            {"folder", r.folder},
            {"size", r.size},
            {"attachments", r.attachments},
            {"trackers", r.trackers},
            {"suspicious", r.isSuspicious()}};
}

/// The vault-relative form of `path`, which may also be absolute or relative to the working
/// folder, as long as it lies inside the vault.
std::string relativeToVault(const AppStore& store, const std::string& path) {
    std::filesystem::path given(path);
    if (!std::filesystem::exists(given))
        return path;
    std::error_code error;
    auto full = std::filesystem::weakly_canonical(given, error);
    auto root = std::filesystem::weakly_canonical(store.archiveRoot().toStdString(), error);
    auto relative = full.lexically_relative(root);
    if (relative.empty() || *relative.begin() == "..")
        return path;
    return relative.generic_string();
}

std::string trustWords(SenderTrust trust) {
    switch (trust) {
    case SenderTrust::verified:
        return "verified by your mail provider";
    case SenderTrust::failed:
        return "failed your mail provider’s checks";
    case SenderTrust::partial:
        return "partly checked by your mail provider";
    case SenderTrust::unknown:
        return "not checked";
    }
    return "not checked";
}

std::string copyKind(CopyStatus::Kind kind) {
    switch (kind) {
    case CopyStatus::Kind::verified:
        return "verified";
    case CopyStatus::Kind::differs:
        return "differs";
    case CopyStatus::Kind::imported:
        return "imported";
    case CopyStatus::Kind::saved:
        return "saved";
    }
    return "saved";
}

/// The account of the vault that `name` means: a configured account's label, or an account
/// folder of the vault as `list` prints it. Nothing (and the known names on standard error)
/// when there is none.
std::optional<std::string> vaultAccount(const AppStore& store, const std::string& name) {
    for (const MailAccount& account : store.accounts()) {
        if (account.label == name)
            return account.directoryName();
    }
    std::vector<std::string> names = store.archiveAccounts();
    if (std::ranges::find(names, name) != names.end())
        return name;
    std::cerr << "No account named “" << name << "” in the vault. The accounts: " << listed(names)
              << ".\n";
    return std::nullopt;
}

/// The first word that reads as an operator of another search syntax, which this search
/// would otherwise take as a word to find.
std::optional<std::string> operatorWord(const std::vector<std::string>& words) {
    static const std::vector<std::string> fields{"from",   "to",      "cc",   "subject", "before",
                                                 "after",  "has",     "in",   "is",      "date",
                                                 "folder", "account", "label"};
    for (const std::string& word : words) {
        if (word == "OR" || word == "AND" || word == "NOT" || word.starts_with("-") ||
            word.find('"') != std::string::npos || word.find('*') != std::string::npos)
            return word;
        auto colon = word.find(':');
        if (colon != std::string::npos &&
            std::ranges::find(fields, word.substr(0, colon)) != fields.end())
            return word;
    }
    return std::nullopt;
}

/// Prints the records shown of `found` matches, as text or as JSON.
int print(const std::vector<const MessageRecord*>& shown, size_t found, bool json) {
    if (json) {
        nlohmann::json out = nlohmann::json::array();
        for (const MessageRecord* r : shown)
            out.push_back(recordJSON(*r));
        std::cout << out.dump(2) << "\n";
        return ok;
    }
    for (const MessageRecord* r : shown) {
        std::cout << localDay(r->date) << "  " << terminalText(r->fromDisplay()) << "  "
                  << (r->subject.empty() ? "(no subject)" : terminalText(r->subject)) << "\n    "
                  << terminalText(r->path) << "\n";
    }
    if (shown.size() < found)
        std::cout << shown.size() << " of ";
    std::cout << plural(static_cast<int64_t>(found), "message") << "\n";
    return ok;
}

} // namespace

int search(AppStore& store, const std::vector<std::string>& words, ListOptions options) {
    if (auto word = operatorWord(words)) {
        std::cerr << "“" << *word
                  << "” looks like a search operator, and there are none: every word must match "
                     "as the start of a word, case and accents ignored. Leave it out.\n";
        return usage;
    }
    std::string query;
    for (const std::string& word : words)
        query += (query.empty() ? "" : " ") + word;
    options.query = query;
    // A search of the whole vault answers from the index as last saved, through its cache: a
    // cold start then reads a few pages instead of the whole index and every folder. Scoped
    // searches, and a vault with no sound index yet, take the full path, which scans first.
    if (!options.filter && !options.account && !options.folder) {
        auto json = store.layout().indexURL();
        if (auto answer =
                SearchCache::answer(SearchCache::beside(json), json, query, options.limit)) {
            std::vector<const MessageRecord*> shown;
            for (const MessageRecord& r : answer->shown)
                shown.push_back(&r);
            return print(shown, answer->found, options.json);
        }
    }
    return list(store, options);
}

int list(AppStore& store, const ListOptions& options) {
    SidebarItem item = SidebarItem::everything();
    if (options.filter) {
        auto filter = SmartFilters::named(*options.filter);
        if (!filter) {
            std::cerr << "Unknown filter “" << *options.filter
                      << "”: use recent, attachments, trackers, suspicious or large.\n";
            return usage;
        }
        item = SidebarItem::ofSmart(*filter);
    } else if (options.folder && !options.account) {
        std::cerr << "--folder needs --account.\n";
        return usage;
    }
    loadArchive(store);
    if (options.account && !options.filter) {
        auto account = vaultAccount(store, *options.account);
        if (!account)
            return failed;
        item = options.folder ? SidebarItem::ofFolder(*account, *options.folder)
                              : SidebarItem::ofAccount(*account);
    }
    store.setSidebar(item);
    store.setQuery(options.query.value_or(""));

    std::vector<RecordRef> shown = store.visible();
    std::stable_sort(shown.begin(), shown.end(),
                     [](const RecordRef& a, const RecordRef& b) { return a->date > b->date; });
    size_t found = shown.size();
    if (options.limit > 0 && shown.size() > options.limit)
        shown.resize(options.limit);
    std::vector<const MessageRecord*> records;
    for (const RecordRef& r : shown)
        records.push_back(r.get());
    return print(records, found, options.json);
}

int show(AppStore& store, const std::string& given, bool json) {
    loadArchive(store);
    std::string path = relativeToVault(store, given);
    bool known = std::any_of(store.records().begin(), store.records().end(),
                             [&](const RecordRef& r) { return r->path == path; });
    if (!known) {
        std::cerr << "No message at " << path << " in the vault.\n";
        return failed;
    }
    store.loadServerSizes();
    runUntil(&store, &AppStore::openMessageChanged, [&] { store.setSelectedPath(path); });
    if (!store.openMessage() || store.openMessage()->record.path != path) {
        std::cerr << "Couldn’t open " << path << ".\n";
        return failed;
    }
    const OpenMessage& m = *store.openMessage();
    const ParsedMessage& p = m.parsed;
    auto addresses = [](const std::vector<MailAddress>& list) {
        std::string text;
        for (const MailAddress& a : list) {
            if (!text.empty())
                text += ", ";
            text += a.name.empty() ? a.email : a.name + " <" + a.email + ">";
        }
        return text;
    };
    std::string from = addresses(p.from);
    std::string subject = p.subject.empty() ? "(no subject)" : p.subject;
    std::string linkTitle =
        QLocale().toString(static_cast<qlonglong>(m.report.linkWarnings.size())).toStdString() +
        (m.report.linkWarnings.size() == 1 ? " link doesn’t go where it says"
                                           : " links don’t go where they say");

    if (json) {
        nlohmann::json out = recordJSON(m.record);
        out["from"] = from;
        out["to"] = addresses(p.to);
        out["cc"] = addresses(p.cc);
        out["trust"] = std::string(toString(m.trust));
        out["authResults"] = m.authResults;
        out["replyTo"] = m.replyTo ? nlohmann::json(m.replyTo->email) : nlohmann::json(nullptr);
        nlohmann::json flags = nlohmann::json::array();
        for (const SenderFlag& f : m.senderFlags) {
            flags.push_back({{"kind", std::string(toString(f.kind))},
                             {"summary", f.summary},
                             {"detail", f.detail}});
        }
        out["senderFlags"] = flags;
        out["trackers"] = m.report.trackerCount;
        out["trackerHosts"] = m.report.trackerHosts;
        out["remoteImages"] = m.report.remoteImageCount;
        nlohmann::json links = nlohmann::json::array();
        for (const LinkWarning& w : m.report.linkWarnings) {
            links.push_back(
                {{"shownDomain", w.shownDomain}, {"actualHost", w.actualHost}, {"href", w.href}});
        }
        out["linkWarnings"] = links;
        out["copy"] = {{"status", copyKind(m.copy.kind)},
                       {"help", m.copy.helpText().toStdString()}};
        nlohmann::json files = nlohmann::json::array();
        for (const MailAttachment& a : p.fileAttachments()) {
            files.push_back({{"filename", a.filename},
                             {"mimeType", a.mimeType},
                             {"size", static_cast<int64_t>(a.data.size())}});
        }
        out["attachments"] = files;
        out["text"] = p.plainText();
        std::cout << out.dump(2) << "\n";
        return ok;
    }

    std::cout << terminalText(subject)
              << "\nFrom: " << (from.empty() ? "(unknown sender)" : terminalText(from)) << "\n";
    if (!p.to.empty())
        std::cout << "To: " << terminalText(addresses(p.to)) << "\n";
    if (!p.cc.empty())
        std::cout << "Cc: " << terminalText(addresses(p.cc)) << "\n";
    if (p.date)
        std::cout << "Date: "
                  << QLocale()
                         .toString(QDateTime::fromSecsSinceEpoch(unixSeconds(*p.date)),
                                   QLocale::LongFormat)
                         .toStdString()
                  << "\n";
    std::cout << "Sender: " << trustWords(m.trust) << "\n";
    if (m.authResults.empty()) {
        std::cout << "  This message has no Authentication-Results header, so there’s nothing to "
                     "check.\n";
    } else {
        std::cout << "  What your mail provider recorded:\n";
        for (const auto& [mechanism, result] : m.authResults) {
            std::cout << "    " << (result == "pass" ? "✓ " : "✗ ") << terminalText(mechanism)
                      << " " << terminalText(result) << "\n";
        }
    }
    if (!m.senderFlags.empty()) {
        std::cout << "\n⚠ This may not be who it says\n";
        for (const SenderFlag& f : m.senderFlags)
            std::cout << "  " << terminalText(f.detail) << "\n";
    }
    if (m.replyTo)
        std::cout << "\n⚠ Replies would go to " << terminalText(m.replyTo->email) << "\n";
    if (!m.report.linkWarnings.empty()) {
        std::cout << "\n⚠ " << linkTitle << "\n";
        for (const LinkWarning& w : m.report.linkWarnings) {
            std::cout << "  " << terminalText(w.shownDomain) << " → " << terminalText(w.actualHost)
                      << "\n";
        }
        std::cout << "  The text shows one website but the link opens another.\n";
    }
    if (m.report.remoteImageCount > 0) {
        std::cout << "\nRemote images are off. Pictures from the web load only when you ask ("
                  << plural(m.report.remoteImageCount, "image") << ").\n";
    }
    if (m.report.trackerCount > 0) {
        std::cout << "\n" << plural(m.report.trackerCount, "tracker") << " blocked";
        if (m.report.trackerHosts.empty()) {
            std::cout << ". Hidden images that report when you open mail never load.\n";
        } else {
            std::cout << ":";
            for (const std::string& host : m.report.trackerHosts)
                std::cout << " From " << terminalText(host) << ".";
            std::cout << " They never load, even if you show images.\n";
        }
    }
    std::cout << "\n"
              << terminalText(m.record.path) << " · " << bytes(m.fileSize) << "\n"
              << m.copy.helpText().toStdString() << "\n";
    auto files = p.fileAttachments();
    if (!files.empty()) {
        std::cout << "\nAttachments:\n";
        for (const MailAttachment& a : files) {
            std::cout << "  " << terminalText(a.filename) << " · " << terminalText(a.mimeType)
                      << " · " << bytes(static_cast<int64_t>(a.data.size())) << "\n";
        }
    }
    std::string text = p.plainText();
    std::cout << "\n"
              << (text.empty() ? "(This message has no text.)" : terminalText(text, true)) << "\n";
    return ok;
}

} // namespace qs::cli
