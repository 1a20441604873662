#include "CleanupWorld.h"

#include <algorithm>
#include <fstream>

namespace qs::test {

CleanupWorld::CleanupWorld(bool uidplus)
    : layout{directory.path() / "vault"}, mailbox(FakeMailbox::Options{uidplus, "user", "pw"}) {
    server = std::make_unique<FakeIMAPServer>(mailbox.greeting(), mailbox.handler());
    account.id = UUID::random();
    account.label = "Test";
    account.username = "user";
    account.server = {"127.0.0.1", server->port(), true};
    account.folders = {"INBOX"};
    account.knownFolders = {{"INBOX", "Inbox", "/", {}}};
    folder.mailbox = "INBOX";
    folder.directory = folderDirectory;
    folder.uidValidity = 1;
}

std::string CleanupWorld::message(int n, size_t padding) {
    return "From: Sender <sender@example.org>\r\nTo: user@example.org\r\nSubject: Message " +
           std::to_string(n) + "\r\nMessage-ID: <" + std::to_string(n) +
           "@example.org>\r\n\r\nBody " + std::to_string(n) + std::string(padding, '.') + "\r\n";
}

uint32_t CleanupWorld::add(const std::string& body, int64_t date, bool filed, bool recorded) {
    uint32_t uid = mailbox.add("INBOX", body, {}, date);
    if (filed) {
        std::filesystem::path file = layout.url(pathOf(uid));
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary | std::ios::trunc) << body;
        if (recorded) {
            folder.files[std::to_string(uid)] = pathOf(uid);
        }
    }
    folder.highestUID = std::max(folder.highestUID, uid);
    return uid;
}

void CleanupWorld::addMany(int count) {
    for (int i = 0; i < count; ++i) {
        add(message(i, static_cast<size_t>(i % 7)));
    }
}

void CleanupWorld::saveSync() {
    AccountSyncState state;
    state.folders["INBOX"] = folder;
    layout.ensure();
    std::ofstream(layout.syncURL(account), std::ios::binary | std::ios::trunc) << state.encode();
}

Cleaner CleanupWorld::cleaner(int64_t chunkSize) const {
    Cleaner result(layout, account, "pw");
    result.chunkSize = chunkSize;
    result.timeout = 10;
    return result;
}

std::vector<std::string> CleanupWorld::sent(std::string_view command) const {
    std::vector<std::string> lines;
    for (const std::string& line : server->received()) {
        size_t space = line.find(' ');
        if (space != std::string::npos && line.compare(space + 1, command.size(), command) == 0) {
            lines.push_back(line.substr(space + 1));
        }
    }
    return lines;
}

std::vector<uint32_t> CleanupWorld::markedOnServer() const {
    std::vector<uint32_t> marked;
    for (const FakeMailbox::Message& message : mailbox.messages("INBOX")) {
        if (std::ranges::count(message.flags, "\\Deleted") > 0) {
            marked.push_back(message.uid);
        }
    }
    return marked;
}

} // namespace qs::test
