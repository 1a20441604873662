#include "vault/AccountSyncState.h"
#include "vault/MailAccount.h"

#include "support/JSON.h"

#include <gtest/gtest.h>

namespace {

using nlohmann::json;

const std::string validAccountsFile =
    R"([{"id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","label":"Home","username":"bob",)"
    R"("server":{"host":"127.0.0.1","port":1143,"plaintextLocalDev":true},"provider":"custom",)"
    R"("folders":[],"knownFolders":[{"name":"INBOX","displayName":"INBOX","attributes":[]}]}])";

// Compact, upper-case id, whole UTC seconds, a NIL delimiter left out; optional keys optional.
TEST(MailAccountJSON, EncodesCompactlyAndRoundTrips) {
    qs::MailAccount account;
    account.id = *qs::UUID::parse("e621e1f8-c36c-495a-93fc-0c247a3e6e5f");
    account.label = "Work ✉";
    account.username = "ann@example.org";
    account.server = {"imap.example.org", 993, false};
    account.provider = "custom";
    account.folders = {"INBOX", "Archiv/2019"};
    account.knownFolders = {{"INBOX", "INBOX", "/", {"\\HasNoChildren"}},
                            {"&AMQ-rger", "Ärger", std::nullopt, {}}};
    account.lastBackup = qs::dateFromUnix(1'700'000'000) + std::chrono::milliseconds(750);
    account.passwordCommand = "pass show \"mail/work\"";
    auto text = qs::MailAccount::encodeList({account});
    EXPECT_EQ(text.find('\n'), std::string::npos);
    EXPECT_EQ(text.find(": "), std::string::npos);
    EXPECT_NE(text.find(R"("id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F")"), std::string::npos);
    EXPECT_NE(text.find(R"("lastBackup":"2023-11-14T22:13:20Z")"), std::string::npos);
    EXPECT_NE(text.find(R"("name":"&AMQ-rger")"), std::string::npos);
    EXPECT_EQ(text.find("null"), std::string::npos);
    auto decoded = qs::MailAccount::decodeList(text);
    account.lastBackup = qs::dateFromUnix(1'700'000'000);
    EXPECT_EQ(decoded, std::vector<qs::MailAccount>{account});
    EXPECT_EQ(std::hash<qs::MailAccount>()(decoded->front()),
              std::hash<qs::MailAccount>()(account));
    EXPECT_EQ(account.directoryName(), "Work ✉");
    account.label = std::string(100, '/') + std::string(100, 'a');
    EXPECT_EQ(account.directoryName(), std::string(60, 'a'));

    auto minimal = qs::MailAccount::decodeList(validAccountsFile);
    ASSERT_TRUE(minimal && minimal->size() == 1);
    EXPECT_FALSE(minimal->front().lastBackup);
    EXPECT_FALSE(minimal->front().passwordCommand);
    EXPECT_EQ(minimal->front().server, (qs::IMAPServer{"127.0.0.1", 1143, true}));
    EXPECT_FALSE(minimal->front().knownFolders.at(0).delimiter);
}

// A second, intact account doesn't rescue a bad one.
TEST(MailAccountJSON, AnyMissingKeyOrDamagedValueRejectsTheWholeFile) {
    for (const char* key :
         {"/id", "/label", "/username", "/server", "/provider", "/folders", "/knownFolders",
          "/server/host", "/server/port", "/server/plaintextLocalDev", "/knownFolders/0/name",
          "/knownFolders/0/displayName", "/knownFolders/0/attributes"}) {
        auto file = json::parse(validAccountsFile);
        file.push_back(file[0]);
        json::json_pointer at(std::string("/0") + key);
        file[at.parent_pointer()].erase(at.back());
        EXPECT_FALSE(qs::MailAccount::decodeList(file.dump())) << "without " << key;
    }
    const std::pair<std::string, std::string> damage[] = {
        {R"("port":1143)", R"("port":70000)"},
        {R"("port":1143)", R"("port":-1)"},
        {R"("port":1143)", R"("port":"993")"},
        {R"("id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F")", R"("id":"E621E1F8")"},
        {R"("folders":[])", R"("folders":[1])"},
        {R"("plaintextLocalDev":true)", R"("plaintextLocalDev":1)"},
        {validAccountsFile, validAccountsFile.substr(0, 60)},
        {validAccountsFile, R"({"id":"x"})"},
    };
    for (const auto& [from, to] : damage) {
        auto text = validAccountsFile;
        text.replace(text.find(from), from.size(), to);
        EXPECT_FALSE(qs::MailAccount::decodeList(text)) << to;
    }
    EXPECT_TRUE(qs::MailAccount::decodeList("[]"));
}

TEST(IMAPMailbox, IsSelectableUnlessNoselectOrNonExistentInAnyCase) {
    const std::vector<std::pair<std::vector<std::string>, bool>> cases = {
        {{"\\HasNoChildren", "\\NOSELECT"}, false},
        {{"\\nonexistent"}, false},
        {{"Noselect"}, true},
        {{"\\Noselected"}, true}};
    for (const auto& [attributes, selectable] : cases) {
        qs::IMAPMailbox mailbox{"A", "A", "/", attributes};
        EXPECT_EQ(mailbox.isSelectable(), selectable) << mailbox;
    }
}

TEST(AccountSyncStateJSON, RoundTripsAndRejectsDamage) {
    qs::AccountSyncState state;
    auto& inbox = state.folders["INBOX"];
    inbox = {"INBOX", "Work/INBOX", 4'294'967'295u, 17, {{"3", "W/2020/a 3.eml"}}, {}, {}, false};
    inbox.lastRun = qs::dateFromUnix(1'600'000'000);
    inbox.sizes = std::map<std::string, std::int64_t>{{"3", 1200}, {"17", 5'000'000'000}};
    state.folders["Sent"] = {"Sent", "Work/Sent", 0, 0, {}, {}, {}, false};
    auto text = state.encode();
    EXPECT_NE(text.find(R"("lastRun":"2020-09-13T12:26:40Z")"), std::string::npos);
    EXPECT_EQ(qs::AccountSyncState::decode(text), state);
    auto sent = json::parse(text)["folders"]["Sent"];
    EXPECT_FALSE(sent.contains("lastRun"));
    EXPECT_FALSE(sent.contains("sizes"));

    auto valid = json::parse(text);
    for (const char* key : {"mailbox", "directory", "uidValidity", "highestUID", "files"}) {
        auto damaged = valid;
        damaged["folders"]["INBOX"].erase(key);
        EXPECT_FALSE(qs::AccountSyncState::decode(damaged.dump())) << "without " << key;
    }
    const std::vector<std::pair<std::string, json>> badValues = {
        {"uidValidity", 4'294'967'296ll}, {"highestUID", -1},       {"uidValidity", 1.5},
        {"files", json::array()},         {"lastRun", "yesterday"}, {"sizes", json{{"3", "big"}}},
    };
    for (const auto& [key, value] : badValues) {
        auto damaged = valid;
        damaged["folders"]["INBOX"][key] = value;
        EXPECT_FALSE(qs::AccountSyncState::decode(damaged.dump())) << key << " = " << value;
    }
    EXPECT_FALSE(qs::AccountSyncState::decode("{}"));
    EXPECT_TRUE(qs::AccountSyncState::decode(R"({"folders":{}})"));
}

} // namespace
