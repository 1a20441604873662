#include "Brindle/AppBundle.h"
#include "Brindle/UpdateFeed.h"
#include "Brindle/UpdateLogic.h"
#include "SigningKey.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <fstream>

namespace brindle {
namespace {

namespace fs = std::filesystem;

// Runs of digits order as numbers; unreadable pieces of a minimum system are skipped, so "x"
// moves the next field up.
TEST(UpdateLogic, OrdersVersionsAndComparesTheMinimumSystemFieldByField) {
    const struct {
        const char *candidate, *current;
        bool newer;
    } versions[] = {
        {"1.10", "1.9", true},      {"1.2", "1.2", false},  {"1.2.0", "1.2", true},
        {"1.02", "1.2", false},     {"1.2b", "1.2a", true}, {"100000000000000000001", "9", true},
        {"1.0", "1.0-beta", false},
    };
    for (const auto& row : versions)
        EXPECT_EQ(UpdateLogic::isNewer(row.candidate, row.current), row.newer)
            << row.candidate << " against " << row.current;
    const struct {
        std::optional<std::string> minimum;
        const char* release;
        bool supported;
    } systems[] = {
        {std::nullopt, "1.0", true}, {"14", "14.2.1", true},      {"14.3", "14.2.1", false},
        {"13.5.1", "13.5.1", true},  {"13.5.2", "13.5.1", false}, {"6.1", "6.10.0-18-amd64", true},
        {"6.x.2", "6.1", false},     {"6.x.2", "6.2", true},      {"5.10.0.7", "5.10", true},
    };
    for (const auto& row : systems)
        EXPECT_EQ(
            UpdateLogic::systemSupports(row.minimum, UpdateLogic::parseSystemVersion(row.release)),
            row.supported)
            << row.minimum.value_or("(none)") << " against " << row.release;
    const std::pair<const char*, SystemVersion> releases[] = {
        {"5.15.153.1-microsoft-standard-WSL2", {5, 15, 153}},
        {"4.19.0+", {4, 19, 0}},
        {"", {0, 0, 0}},
    };
    for (const auto& [release, version] : releases)
        EXPECT_EQ(UpdateLogic::parseSystemVersion(release), version) << release;
}

TEST(UpdateLogic, AcceptsOnlyAGenuineSignature) {
    const SigningKey key = SigningKey::generate();
    const SigningKey other = SigningKey::generate();
    const std::string data = "PK\x03\x04 the archive";
    const std::string signature = key.sign(data);
    std::string flipped = data;
    flipped[5] ^= 1;
    std::string shortKey = key.publicKey();
    shortKey = shortKey.substr(0, shortKey.size() - 4);
    const struct {
        const char* name;
        std::string data;
        std::string signature;
        std::string publicKey;
        bool valid;
    } rows[] = {
        {"genuine", data, signature, key.publicKey(), true},
        {"one flipped byte of data", flipped, signature, key.publicKey(), false},
        {"another key", data, signature, other.publicKey(), false},
        {"signature not base64", data, "not base64!", key.publicKey(), false},
        {"key not base64", data, signature, "%%%%", false},
        {"key of the wrong length", data, signature, shortKey, false},
        {"empty signature", data, "", key.publicKey(), false},
    };
    for (const auto& row : rows)
        EXPECT_EQ(UpdateLogic::verify(row.data, row.signature, row.publicKey), row.valid)
            << row.name;
}

TEST(UpdateFeed, DecodesRequiredAndOptionalKeysAndIgnoresUnknownOnes) {
    const auto full = UpdateFeed::decode(R"({"version":"1.4.2","url":"https://example.org/dl",
        "notes":"Faster.","minimumSystemVersion":"6.1","extra":[1,2],
        "download":{"url":"https://example.org/a.zip","length":1234,"edSignature":"c2ln",
                    "more":true}})");
    ASSERT_TRUE(full);
    EXPECT_EQ(*full, (UpdateFeed{"1.4.2", "https://example.org/dl", "Faster.", "6.1",
                                 UpdateFeed::Download{"https://example.org/a.zip", 1234, "c2ln"}}));
    // clang-format off
    const struct {
        const char* name;
        const char* json;
        bool decodes;
    } rows[] = {
        {"no download: manual download stays possible", R"({"version":"2.0","url":"https://example.org"})", true},
        {"null optionals", R"({"version":"2.0","url":"u","notes":null,"download":null})", true},
        {"no version", R"({"url":"https://example.org"})", false},
        {"no url", R"({"version":"2.0"})", false},
        {"version a number", R"({"version":2.0,"url":"u"})", false},
        {"notes a number", R"({"version":"2","url":"u","notes":3})", false},
        {"download without length", R"({"version":"2","url":"u","download":{"url":"a","edSignature":"s"}})", false},
        {"download length a fraction", R"({"version":"2","url":"u","download":{"url":"a","length":1.5,"edSignature":"s"}})", false},
        {"download without signature", R"({"version":"2","url":"u","download":{"url":"a","length":1}})", false},
        {"download a text", R"({"version":"2","url":"u","download":"a.zip"})", false},
        {"an array", R"([{"version":"2","url":"u"}])", false},
        {"not JSON", "<html>gateway timeout</html>", false},
    };
    // clang-format on
    for (const auto& row : rows)
        EXPECT_EQ(UpdateFeed::decode(row.json).has_value(), row.decodes) << row.name;
    EXPECT_FALSE(UpdateFeed::decode(R"({"version":"2.0","url":"u"})")->download);
}

TEST(AppBundle, IsFoundBesideTheProgramOrOneFolderUp) {
    qs::test::TemporaryDirectory directory;
    const fs::path root = directory.path() / "opt/quernstead";
    fs::create_directories(root / "bin/deeper");
    const AppBundle bundle{root, "org.example.app", "1.0", "App", "bin/app"};
    std::ofstream(root / AppBundle::manifestName) << bundle.manifest();
    std::ofstream(directory.path() / "opt" / AppBundle::manifestName)
        << R"({"identifier":"org.example.app","version":"1.0","name":"App"})";
    const struct {
        fs::path program;
        std::optional<AppBundle> found;
    } rows[] = {
        {root / "app", bundle},
        {root / "bin/app", bundle},
        {root / "bin/deeper/app", std::nullopt},
        // A manifest without "executable" isn't a bundle.
        {directory.path() / "opt/app", std::nullopt},
        {directory.path() / "elsewhere/app", std::nullopt},
    };
    for (const auto& row : rows) {
        auto found = AppBundle::containing(row.program);
        if (found)
            found->path = fs::canonical(found->path);
        EXPECT_EQ(found, row.found) << row.program;
    }
}

} // namespace
} // namespace brindle
