#include "support/FakeMailbox.h"

#include <algorithm>
#include <cctype>
#include <ctime>
#include <iomanip>
#include <iterator>
#include <sstream>

namespace qs::test {

namespace {

std::string upper(std::string text) {
    for (char& c : text)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return text;
}

// Month names from the classic locale whatever the program's one is.
std::string internalDate(int64_t seconds) {
    std::time_t time = static_cast<std::time_t>(seconds);
    std::tm parts{};
    ::gmtime_r(&time, &parts);
    std::ostringstream out;
    out.imbue(std::locale::classic());
    out << std::put_time(&parts, "%d-%b-%Y %H:%M:%S +0000");
    return out.str();
}

// "5-Mar-2024" as the Unix seconds of its midnight in UTC; -1 when it doesn't read.
int64_t searchDate(const std::string& text) {
    std::tm parts{};
    std::istringstream in(text);
    in.imbue(std::locale::classic());
    in >> std::get_time(&parts, "%d-%b-%Y");
    return in.fail() ? -1 : static_cast<int64_t>(::timegm(&parts));
}

bool hasFlag(const FakeMailbox::Message& message, const std::string& flag) {
    return std::ranges::any_of(message.flags,
                               [&](const std::string& f) { return upper(f) == upper(flag); });
}

std::string joined(const std::vector<std::string>& words) {
    std::string out;
    for (const std::string& word : words)
        out += (out.empty() ? "" : " ") + word;
    return out;
}

} // namespace

bool FakeMailbox::inSet(const std::string& set, uint32_t uid, uint32_t highest) {
    auto number = [&](const std::string& text) {
        return text == "*" ? highest : static_cast<uint32_t>(std::stoul(text));
    };
    std::istringstream pieces(set);
    for (std::string piece; std::getline(pieces, piece, ',');) {
        size_t colon = piece.find(':');
        uint32_t first = piece.empty() ? 0 : number(piece.substr(0, colon));
        uint32_t last = colon == std::string::npos ? first : number(piece.substr(colon + 1));
        if (!piece.empty() && uid >= std::min(first, last) && uid <= std::max(first, last))
            return true;
    }
    return false;
}

std::string FakeMailbox::capabilities() const {
    return options_.uidplus ? "IMAP4rev1 UIDPLUS" : "IMAP4rev1";
}

std::string FakeMailbox::greeting() const {
    return "* OK [CAPABILITY " + capabilities() + "] fake mailbox ready";
}

void FakeMailbox::addFolder(const std::string& name, uint32_t uidValidity,
                            std::vector<std::string> attributes) {
    edit(name, [&](Folder& folder) {
        folder.uidValidity = uidValidity;
        folder.attributes = std::move(attributes);
    });
}

uint32_t FakeMailbox::add(const std::string& name, std::string body, std::vector<std::string> flags,
                          int64_t date) {
    std::lock_guard lock(mutex_);
    Folder& folder = folders_[name];
    folder.messages.push_back({folder.uidNext++, std::move(body), std::move(flags), date, {}});
    return folder.messages.back().uid;
}

void FakeMailbox::edit(const std::string& name, const std::function<void(Folder&)>& change) {
    std::lock_guard lock(mutex_);
    change(folders_[name]);
}

std::vector<FakeMailbox::Message> FakeMailbox::messages(const std::string& name) const {
    std::lock_guard lock(mutex_);
    auto found = folders_.find(name);
    return found == folders_.end() ? std::vector<Message>{} : found->second.messages;
}

std::vector<uint32_t> FakeMailbox::uids(const std::string& name) const {
    std::vector<uint32_t> result;
    for (const Message& message : messages(name))
        result.push_back(message.uid);
    return result;
}

FakeMailbox::Folder* FakeMailbox::selected() {
    auto found = folders_.find(selected_);
    return found == folders_.end() ? nullptr : &found->second;
}

std::vector<size_t> FakeMailbox::inSelected(const std::string& set) {
    std::vector<size_t> found;
    if (Folder* folder = selected()) {
        uint32_t highest = folder->messages.empty() ? 0 : folder->messages.back().uid;
        for (size_t index = 0; index < folder->messages.size(); ++index)
            if (inSet(set, folder->messages[index].uid, highest))
                found.push_back(index);
    }
    return found;
}

void FakeMailbox::handle(FakeIMAPConnection& connection, const FakeIMAPCommand& command) {
    // Outside the lock, so that an intercept may edit the mailbox.
    if (intercept && intercept(connection, command))
        return;
    std::lock_guard lock(mutex_);
    const std::string& tag = command.tag;
    const std::vector<std::string>& args = command.arguments;
    const std::string& name = command.name;
    const bool expunge = name == "EXPUNGE" || (name == "UID EXPUNGE" && options_.uidplus);
    // Commands on a folder need one selected and their arguments; changes need it writable.
    const size_t needed = name == "UID FETCH"     ? 2
                          : name == "UID STORE"   ? 3
                          : name == "UID EXPUNGE" ? 1
                                                  : 0;
    Folder* folder = selected();
    if ((expunge || name.starts_with("UID ")) && (!folder || args.size() < needed)) {
        connection.send(tag + " BAD No mailbox selected");
    } else if ((expunge || name == "UID STORE") && readOnly_) {
        connection.send(tag + " NO Mailbox is read-only");
    } else if (name == "CAPABILITY") {
        connection.send("* CAPABILITY " + capabilities());
        connection.send(tag + " OK CAPABILITY completed");
    } else if (name == "LOGIN") {
        selected_.clear();
        connection.send(args.size() == 2 && args[0] == options_.user && args[1] == options_.password
                            ? tag + " OK [CAPABILITY " + capabilities() + "] Logged in"
                            : tag + " NO [AUTHENTICATIONFAILED] Authentication failed.");
    } else if (name == "LIST") {
        for (const auto& [folderName, listed] : folders_)
            connection.send("* LIST (" + joined(listed.attributes) + ") \"/\" \"" + folderName +
                            "\"");
        connection.send(tag + " OK List completed");
    } else if (name == "SELECT" || name == "EXAMINE") {
        selected_ = args.empty() ? "" : args[0];
        readOnly_ = name == "EXAMINE";
        if (!(folder = selected())) {
            selected_.clear();
            return connection.send(tag + " NO [NONEXISTENT] Mailbox doesn't exist");
        }
        connection.send("* FLAGS (\\Answered \\Flagged \\Deleted \\Seen \\Draft)");
        connection.send("* " + std::to_string(folder->messages.size()) + " EXISTS");
        connection.send("* OK [UIDVALIDITY " + std::to_string(folder->uidValidity) + "] valid");
        connection.send("* OK [UIDNEXT " + std::to_string(folder->uidNext) + "] next UID");
        connection.send(tag + (readOnly_ ? " OK [READ-ONLY]" : " OK [READ-WRITE]") + " done");
    } else if (name == "UID SEARCH") {
        uint32_t highest = folder->messages.empty() ? 0 : folder->messages.back().uid;
        std::string found;
        for (const Message& message : folder->messages) {
            bool matches = true;
            for (size_t i = 0; i < args.size() && matches; ++i) {
                std::string key = upper(args[i]);
                if (key == "DELETED" || key == "UNDELETED")
                    matches = hasFlag(message, "\\Deleted") == (key == "DELETED");
                else if (key == "UID" && i + 1 < args.size())
                    matches = inSet(args[++i], message.uid, highest);
                else if (key == "BEFORE" && i + 1 < args.size())
                    matches = message.internalDate < searchDate(args[++i]);
                else if (key != "ALL")
                    return connection.send(tag + " BAD Unknown search criterion " + args[i]);
            }
            if (matches)
                found += " " + std::to_string(message.uid);
        }
        connection.send("* SEARCH" + found);
        connection.send(tag + " OK Search completed");
    } else if (name == "UID FETCH") {
        fetch(connection, command);
    } else if (name == "UID STORE") {
        std::istringstream words(args[2].starts_with('(') ? args[2].substr(1, args[2].size() - 2)
                                                          : args[2]);
        std::vector<std::string> flags{std::istream_iterator<std::string>(words), {}};
        for (size_t index : inSelected(args[0])) {
            std::vector<std::string>& set = folder->messages[index].flags;
            for (const std::string& flag : flags) {
                if (args[1].starts_with("-"))
                    std::erase_if(set, [&](const auto& f) { return upper(f) == upper(flag); });
                else if (!hasFlag(folder->messages[index], flag))
                    set.push_back(flag);
            }
        }
        connection.send(tag + " OK Store completed");
    } else if (expunge) {
        std::vector<size_t> chosen = inSelected(name == "UID EXPUNGE" ? args[0] : "1:*");
        for (auto index = chosen.rbegin(); index != chosen.rend(); ++index) {
            if (hasFlag(folder->messages[*index], "\\Deleted")) {
                connection.send("* " + std::to_string(*index + 1) + " EXPUNGE");
                folder->messages.erase(folder->messages.begin() + std::ptrdiff_t(*index));
            }
        }
        connection.send(tag + " OK Expunge completed");
    } else if (name == "LOGOUT") {
        connection.send("* BYE Logging out");
        connection.send(tag + " OK Logout completed");
        connection.close();
    } else {
        connection.send(tag + " BAD Unknown command");
    }
}

void FakeMailbox::fetch(FakeIMAPConnection& connection, const FakeIMAPCommand& command) {
    std::vector<Message>& messages = selected()->messages;
    std::string items = upper(command.arguments[1]);
    auto asked = [&](const char* item) {
        return items.find(item) != std::string::npos;
    };
    bool body = asked("[]");
    bool firstBodies = body && ++bodyFetches_ == 1;
    if (firstBodies)
        connection.sendRaw(beforeFirstBodies);
    for (size_t index : inSelected(command.arguments[0])) {
        Message& message = messages[index];
        std::string line =
            "* " + std::to_string(index + 1) + " FETCH (UID " + std::to_string(message.uid);
        int64_t size = message.reportedSize.value_or(static_cast<int64_t>(message.body.size()));
        if (asked("RFC822.SIZE") && size >= 0)
            line += " RFC822.SIZE " + std::to_string(size);
        if (asked("INTERNALDATE"))
            line += " INTERNALDATE \"" + internalDate(message.internalDate) + "\"";
        if (asked("FLAGS"))
            line += " FLAGS (" + joined(message.flags) + ")";
        if (body) {
            line += " BODY[] {" + std::to_string(message.body.size()) + "}\r\n";
            if (++bodiesSent_ == dropInBody) {
                connection.sendRaw(line + message.body.substr(0, message.body.size() / 2));
                if (!stallInBody)
                    connection.close();
                return;
            }
            line += message.body;
        }
        connection.send(line + ")");
    }
    if (firstBodies)
        connection.sendRaw(afterFirstBodies);
    connection.send(command.tag + " OK Fetch completed");
}

} // namespace qs::test
