#include "vault/AccountSyncState.h"
#include "vault/MailAccount.h"

#include "support/JSON.h"

#include <gtest/gtest.h>

namespace {

using nlohmann::json;

qs::MailAccount sampleAccount() {
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
    return account;
}

const std::string validAccountsFile =
    R"([{"id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","label":"Home","username":"bob",)"
    R"("server":{"host":"127.0.0.1","port":1143,"plaintextLocalDev":true},"provider":"custom",)"
    R"("folders":[],"knownFolders":[{"name":"INBOX","displayName":"INBOX","attributes":[]}]}])";

TEST(MailAccountJSON, EncodesCompactWithUpperCaseIdAndWholeSecondUTCDates) {
    auto text = qs::MailAccount::encodeList({sampleAccount()});
    EXPECT_EQ(text.find('\n'), std::string::npos);
    EXPECT_EQ(text.find(": "), std::string::npos);
    EXPECT_NE(text.find(R"("id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F")"), std::string::npos);
    EXPECT_NE(text.find(R"("lastBackup":"2023-11-14T22:13:20Z")"), std::string::npos);
    EXPECT_NE(text.find(R"("name":"&AMQ-rger")"), std::string::npos);
    // A NIL delimiter is left out, not written as null.
    EXPECT_EQ(text.find("null"), std::string::npos);
}

TEST(MailAccountJSON, RoundTripsToTheSameAccountLessSubSeconds) {
    auto account = sampleAccount();
    auto decoded = qs::MailAccount::decodeList(qs::MailAccount::encodeList({account}));
    ASSERT_TRUE(decoded);
    ASSERT_EQ(decoded->size(), 1u);
    account.lastBackup = qs::dateFromUnix(1'700'000'000);
    EXPECT_EQ(decoded->front(), account);
    EXPECT_EQ(std::hash<qs::MailAccount>()(decoded->front()),
              std::hash<qs::MailAccount>()(account));
}

TEST(MailAccountJSON, MissingOptionalKeysDecodeAsAbsent) {
    auto decoded = qs::MailAccount::decodeList(validAccountsFile);
    ASSERT_TRUE(decoded);
    ASSERT_EQ(decoded->size(), 1u);
    const auto& account = decoded->front();
    EXPECT_FALSE(account.lastBackup);
    EXPECT_FALSE(account.passwordCommand);
    EXPECT_EQ(account.server, (qs::IMAPServer{"127.0.0.1", 1143, true}));
    EXPECT_FALSE(account.knownFolders.at(0).delimiter);
}

// Every required key, taken away in turn from an otherwise valid file, makes the whole file
// unreadable (one bad entry is as bad as a bad file).
TEST(MailAccountJSON, AnyMissingRequiredKeyRejectsTheWholeFile) {
    const std::vector<std::vector<std::string>> paths = {{"id"},
                                                         {"label"},
                                                         {"username"},
                                                         {"server"},
                                                         {"provider"},
                                                         {"folders"},
                                                         {"knownFolders"},
                                                         {"server", "host"},
                                                         {"server", "port"},
                                                         {"server", "plaintextLocalDev"},
                                                         {"knownFolders", "0", "name"},
                                                         {"knownFolders", "0", "displayName"},
                                                         {"knownFolders", "0", "attributes"}};
    for (const auto& path : paths) {
        auto file = json::parse(validAccountsFile);
        // A second, intact account must not rescue the file.
        file.push_back(file[0]);
        json* object = &file[0];
        for (size_t i = 0; i + 1 < path.size(); ++i) {
            object = object->is_array() ? &(*object)[std::stoul(path[i])] : &(*object)[path[i]];
        }
        object->erase(path.back());
        EXPECT_FALSE(qs::MailAccount::decodeList(file.dump())) << "without " << path.back();
    }
}

TEST(MailAccountJSON, DamagedValuesAreRejected) {
    struct Case {
        const char* name;
        std::string from;
        std::string to;
    };
    const std::vector<Case> cases = {
        {"port above 16 bits", R"("port":1143)", R"("port":70000)"},
        {"negative port", R"("port":1143)", R"("port":-1)"},
        {"port as text", R"("port":1143)", R"("port":"993")"},
        {"id not a UUID", R"("id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F")", R"("id":"E621E1F8")"},
        {"folders not strings", R"("folders":[])", R"("folders":[1])"},
        {"flag not a boolean", R"("plaintextLocalDev":true)", R"("plaintextLocalDev":1)"},
    };
    for (const auto& c : cases) {
        auto text = validAccountsFile;
        text.replace(text.find(c.from), c.from.size(), c.to);
        EXPECT_FALSE(qs::MailAccount::decodeList(text)) << c.name;
    }
    EXPECT_FALSE(qs::MailAccount::decodeList(""));
    EXPECT_FALSE(qs::MailAccount::decodeList(validAccountsFile.substr(0, 60)));
    EXPECT_FALSE(qs::MailAccount::decodeList(R"({"id":"x"})"));
    EXPECT_TRUE(qs::MailAccount::decodeList("[]"));
}

TEST(MailAccount, DirectoryNameComesFromTheLabel) {
    auto account = sampleAccount();
    EXPECT_EQ(account.directoryName(), "Work ✉");
    account.label = "///";
    EXPECT_EQ(account.directoryName(), "");
    account.label = std::string(100, 'a');
    EXPECT_EQ(account.directoryName(), std::string(60, 'a'));
}

TEST(IMAPMailbox, IsSelectableUnlessNoselectOrNonExistentInAnyCase) {
    const std::vector<std::pair<std::vector<std::string>, bool>> cases = {
        {{}, true},
        {{"\\Noselect"}, false},
        {{"\\HasNoChildren", "\\NOSELECT"}, false},
        {{"\\nonexistent"}, false},
        {{"Noselect"}, true},
        {{"\\Noselected"}, true}};
    for (const auto& [attributes, selectable] : cases) {
        qs::IMAPMailbox mailbox{"A", "A", "/", attributes};
        EXPECT_EQ(mailbox.isSelectable(), selectable) << mailbox;
    }
}

qs::FolderState sampleFolder() {
    qs::FolderState state;
    state.mailbox = "INBOX";
    state.directory = "Work/INBOX";
    state.uidValidity = 4'294'967'295u;
    state.highestUID = 17;
    state.files = {{"3", "Work/INBOX/2020/2020-01-02 Hi 3.eml"},
                   {"17", "Work/INBOX/2021/2021-05-06 Yo 17.eml"}};
    state.lastRun = qs::dateFromUnix(1'600'000'000);
    state.sizes = std::map<std::string, std::int64_t>{{"3", 1200}, {"17", 5'000'000'000}};
    return state;
}

TEST(AccountSyncStateJSON, RoundTripsWithFullRangeNumbers) {
    qs::AccountSyncState state;
    state.folders["INBOX"] = sampleFolder();
    auto fresh = qs::FolderState{};
    fresh.mailbox = "Sent";
    fresh.directory = "Work/Sent";
    state.folders["Sent"] = fresh;
    auto text = state.encode();
    EXPECT_NE(text.find(R"("lastRun":"2020-09-13T12:26:40Z")"), std::string::npos);
    auto decoded = qs::AccountSyncState::decode(text);
    ASSERT_TRUE(decoded);
    EXPECT_EQ(*decoded, state);
    // A fresh folder writes neither lastRun nor sizes.
    auto sent = json::parse(text)["folders"]["Sent"];
    EXPECT_FALSE(sent.contains("lastRun"));
    EXPECT_FALSE(sent.contains("sizes"));
}

TEST(AccountSyncStateJSON, OldFileWithoutSizesDecodesWithSizesAbsent) {
    auto decoded = qs::AccountSyncState::decode(
        R"({"folders":{"INBOX":{"mailbox":"INBOX","directory":"W/INBOX","uidValidity":7,)"
        R"("highestUID":2,"files":{"2":"W/INBOX/2020/a 2.eml"}}}})");
    ASSERT_TRUE(decoded);
    const auto& folder = decoded->folders.at("INBOX");
    EXPECT_FALSE(folder.sizes);
    EXPECT_FALSE(folder.lastRun);
    EXPECT_EQ(folder.uidValidity, 7u);
    EXPECT_EQ(folder.files.at("2"), "W/INBOX/2020/a 2.eml");
}

TEST(AccountSyncStateJSON, DamagedFilesDecodeToNothing) {
    auto valid = json::parse(qs::AccountSyncState{{{"INBOX", sampleFolder()}}}.encode());
    const std::vector<std::string> required = {"mailbox", "directory", "uidValidity", "highestUID",
                                               "files"};
    for (const auto& key : required) {
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
    EXPECT_FALSE(qs::AccountSyncState::decode(R"({"folders":)"));
    EXPECT_TRUE(qs::AccountSyncState::decode(R"({"folders":{}})"));
}

} // namespace
