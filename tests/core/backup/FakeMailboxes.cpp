#include "FakeMailboxes.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace qs::test {

namespace {

// A UID set as ranges, so that "1:*" costs nothing even when the greatest UID is 4294967295.
struct UIDRanges {
    std::vector<std::pair<std::uint32_t, std::uint32_t>> ranges;

    bool contains(std::uint32_t uid) const {
        return std::any_of(ranges.begin(), ranges.end(), [&](const auto& range) {
            return range.first <= uid && uid <= range.second;
        });
    }
};

UIDRanges parseSet(const std::string& text, std::uint32_t largest) {
    UIDRanges uids;
    size_t start = 0;
    while (start <= text.size()) {
        size_t comma = text.find(',', start);
        auto piece =
            text.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
        auto read = [&](const std::string& value) {
            return value == "*" ? largest : static_cast<std::uint32_t>(std::stoul(value));
        };
        if (auto colon = piece.find(':'); colon != std::string::npos) {
            auto a = read(piece.substr(0, colon));
            auto b = read(piece.substr(colon + 1));
            uids.ranges.emplace_back(std::max<std::uint32_t>(1, std::min(a, b)), std::max(a, b));
        } else if (!piece.empty()) {
            auto uid = read(piece);
            uids.ranges.emplace_back(uid, uid);
        }
        if (comma == std::string::npos) {
            break;
        }
        start = comma + 1;
    }
    return uids;
}

} // namespace

std::vector<std::string> FakeMailboxes::commands() const {
    std::lock_guard lock(mutex_);
    return commands_;
}

int FakeMailboxes::bodiesSent() const {
    std::lock_guard lock(mutex_);
    return bodiesSent_;
}

std::unique_ptr<FakeIMAPServer> FakeMailboxes::serve() {
    return std::make_unique<FakeIMAPServer>(
        "* OK [CAPABILITY IMAP4rev1] fake ready",
        [this](FakeIMAPConnection& connection, const FakeIMAPCommand& command) {
            handle(connection, command);
        });
}

FakeFolder* FakeMailboxes::find(const std::string& name) {
    for (auto& folder : folders) {
        if (folder.name == name) {
            return &folder;
        }
    }
    return nullptr;
}

void FakeMailboxes::handle(FakeIMAPConnection& connection, const FakeIMAPCommand& command) {
    std::lock_guard lock(mutex_);
    std::string summary = command.name;
    for (const auto& argument : command.arguments) {
        summary += " " + argument;
    }
    commands_.push_back(summary);
    const auto& tag = command.tag;
    const auto& name = command.name;
    const auto& args = command.arguments;

    if (name == "LOGIN") {
        connection.send(tag + " OK [CAPABILITY IMAP4rev1 UIDPLUS] logged in");
    } else if (name == "CAPABILITY") {
        connection.send("* CAPABILITY IMAP4rev1 UIDPLUS");
        connection.send(tag + " OK done");
    } else if (name == "LIST") {
        for (const auto& folder : folders) {
            if (listNothing) {
                break;
            }
            std::string attributes;
            for (const auto& attribute : folder.attributes) {
                attributes += (attributes.empty() ? "" : " ") + attribute;
            }
            connection.send("* LIST (" + attributes + ") \"/\" \"" + folder.name + "\"");
        }
        connection.send(tag + " OK listed");
    } else if (name == "EXAMINE" && !args.empty() && find(args[0])) {
        auto* folder = find(args[0]);
        selected_ = folder->name;
        connection.send("* " + std::to_string(folder->messages.size()) + " EXISTS");
        connection.send("* OK [UIDVALIDITY " + std::to_string(folder->uidValidity) + "] ok");
        connection.send(tag + " OK [READ-ONLY] examined");
    } else if (name == "UID SEARCH" && args.size() == 2 && args[0] == "UID" && find(selected_)) {
        auto* folder = find(selected_);
        std::uint32_t largest = folder->messages.empty() ? 0 : folder->messages.rbegin()->first;
        auto wanted = parseSet(args[1], largest);
        std::string line = "* SEARCH";
        for (const auto& [uid, bytes] : folder->messages) {
            if (wanted.contains(uid) || uid == largest) {
                line += " " + std::to_string(uid);
            }
        }
        connection.send(line);
        connection.send(tag + " OK searched");
    } else if (name == "UID FETCH" && args.size() == 2 && find(selected_)) {
        auto* folder = find(selected_);
        std::uint32_t largest = folder->messages.empty() ? 0 : folder->messages.rbegin()->first;
        auto wanted = parseSet(args[0], largest);
        bool bodies = args[1].find("BODY.PEEK[]") != std::string::npos;
        bool first = bodies && ++bodyFetches_ == 1;
        if (first && !beforeFirstBodies.empty()) {
            connection.sendRaw(beforeFirstBodies);
        }
        int sequence = 0;
        for (const auto& [uid, bytes] : folder->messages) {
            ++sequence;
            if (!wanted.contains(uid)) {
                continue;
            }
            std::string items = "UID " + std::to_string(uid);
            if (std::find(folder->withoutSize.begin(), folder->withoutSize.end(), uid) ==
                folder->withoutSize.end()) {
                auto told = folder->toldSizes.find(uid);
                items +=
                    " RFC822.SIZE " +
                    std::to_string(told != folder->toldSizes.end() ? told->second : bytes.size());
            }
            items += " INTERNALDATE \"05-Mar-2024 10:00:00 +0000\" FLAGS ()";
            if (!bodies) {
                connection.send("* " + std::to_string(sequence) + " FETCH (" + items + ")");
                continue;
            }
            ++bodiesSent_;
            auto head = "* " + std::to_string(sequence) + " FETCH (" + items + " BODY[] {" +
                        std::to_string(bytes.size()) + "}\r\n";
            if (dropInBody && *dropInBody == bodiesSent_) {
                connection.sendRaw(head + bytes.substr(0, bytes.size() / 2));
                connection.close();
                return;
            }
            connection.sendRaw(head + bytes + ")\r\n");
        }
        if (first) {
            connection.sendRaw(afterFirstBodies);
        }
        connection.send(tag + " OK fetched");
    } else if (name == "LOGOUT") {
        if (closeOnLogout) {
            connection.close();
            return;
        }
        connection.send("* BYE bye");
        connection.send(tag + " OK logged out");
        connection.close();
    } else {
        connection.send(tag + " NO not here: " + name);
    }
}

} // namespace qs::test
