#pragma once

// A fake server's INBOX and a vault holding copies of it, either side open to change.

#include "cleanup/Cleaner.h"
#include "support/FakeIMAPServer.h"
#include "support/FakeMailbox.h"
#include "support/TemporaryDirectory.h"
#include "vault/ArchiveLayout.h"

#include <algorithm>
#include <fstream>
#include <memory>

namespace qs::test {

struct CleanupWorld {
    static constexpr int64_t oldDate = 1704067200, newDate = 1735689600, limitDate = 1717200000;
    static constexpr const char* folderDirectory = "Test/INBOX";

    explicit CleanupWorld(bool uidplus)
        : layout{directory.path() / "vault"}, mailbox(FakeMailbox::Options{uidplus, "user", "pw"}),
          server(std::make_unique<FakeIMAPServer>(mailbox.greeting(), mailbox.handler())) {
        account.id = UUID::random();
        account.label = "Test";
        account.username = "user";
        account.server = {"127.0.0.1", server->port(), true};
        account.folders = {"INBOX"};
        account.knownFolders = {{"INBOX", "Inbox", "/", {}}};
        folder = {"INBOX", folderDirectory, 1, 0, {}, {}, {}, false};
    }

    static std::string message(int n, size_t padding = 0) {
        auto number = std::to_string(n);
        return "From: Sender <sender@example.org>\r\nTo: user@example.org\r\nSubject: Message " +
               number + "\r\nMessage-ID: <" + number + "@example.org>\r\n\r\nBody " + number +
               std::string(padding, '.') + "\r\n";
    }

    /// A message on the server; `filed`: copied to `pathOf`, and in the sync state if `recorded`.
    uint32_t add(const std::string& body, int64_t date = oldDate, bool filed = true,
                 bool recorded = true) {
        uint32_t uid = mailbox.add("INBOX", body, {}, date);
        if (filed) {
            std::filesystem::create_directories(layout.url(pathOf(uid)).parent_path());
            std::ofstream(layout.url(pathOf(uid)), std::ios::binary) << body;
            if (recorded) {
                folder.files[std::to_string(uid)] = pathOf(uid);
            }
        }
        folder.highestUID = std::max(folder.highestUID, uid);
        return uid;
    }

    void addMany(int count) {
        for (int i = 0; i < count; ++i) {
            add(message(i, static_cast<size_t>(i % 7)));
        }
    }

    void saveSync() {
        AccountSyncState state;
        state.folders["INBOX"] = folder;
        layout.saveSync(state, account);
    }

    std::string pathOf(uint32_t uid) const {
        return std::string(folderDirectory) + "/Message " + std::to_string(uid) + ".eml";
    }

    Cleaner cleaner(int64_t chunkSize = 200) const {
        Cleaner result(layout, account, "pw");
        result.chunkSize = chunkSize;
        result.timeout = 10;
        return result;
    }
    CleanupPlan plan() const { return cleaner().plan("INBOX", dateFromUnix(limitDate)); }

    /// The client lines so far that start with `command`, untagged.
    std::vector<std::string> sent(std::string_view command) const {
        std::vector<std::string> lines;
        for (const std::string& line : server->received()) {
            auto untagged = line.substr(std::min(line.find(' '), line.size() - 1) + 1);
            if (untagged.starts_with(command)) {
                lines.push_back(untagged);
            }
        }
        return lines;
    }

    std::vector<uint32_t> onServer() const { return mailbox.uids("INBOX"); }
    std::vector<uint32_t> markedOnServer() const {
        std::vector<uint32_t> marked;
        for (const FakeMailbox::Message& message : mailbox.messages("INBOX")) {
            if (std::ranges::count(message.flags, "\\Deleted") > 0) {
                marked.push_back(message.uid);
            }
        }
        return marked;
    }

    TemporaryDirectory directory;
    ArchiveLayout layout;
    MailAccount account;
    FakeMailbox mailbox;
    std::unique_ptr<FakeIMAPServer> server;
    FolderState folder;
};

} // namespace qs::test
