#include "safety/SenderCheck.h"

#include "safety/SenderTables.h"

#include <gtest/gtest.h>
#include <set>

namespace qs {
namespace {

using Kind = SenderFlag::Kind;

TEST(SenderCheckTest, Skeleton) {
    const std::pair<const char*, const char*> cases[] = {
        {"paypa1", "paypal"},
        {"PayPal", "paypal"},
        {"rnicrosoft", "microsoft"},
        {"pay-pal", "paypal"},
        {"pay_pal", "paypal"},
        {"vvellsfargo", "wellsfargo"},
        {"c1oudflare", "cloudflare"},
        {"cloudflare", "doudflare"},
        {"g00gle", "google"},
        {"4m4z0n", "amazon"},
        {"7357", "test"},
        {"8ank", "bank"},
        {"rrn", "rm"},
        {"", ""},
    };
    for (const auto& [text, expected] : cases) {
        EXPECT_EQ(SenderCheck::skeleton(text), expected) << text;
    }
}

TEST(SenderCheckTest, Distance) {
    struct Case {
        const char* a;
        const char* b;
        int distance;
    };
    const Case cases[] = {
        {"", "", 0},
        {"", "abc", 3},
        {"kitten", "sitting", 3},
        {"paypal", "paypall", 1},
        {"paypal", "paypla", 2},
        {"é", "e", 1},
        {"e\xcc\x81", "é", 1},
        {"ae\xcc\x81", "ab", 1},
        {"日本", "日本語", 1},
        {"\r\n", "\n", 1},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(SenderCheck::distance(c.a, c.b), c.distance) << c.a << " / " << c.b;
        EXPECT_EQ(SenderCheck::distance(c.b, c.a), c.distance) << c.b << " / " << c.a;
    }
}

struct CheckCase {
    const char* name;
    MailAddress address;
    std::vector<SenderFlag> expected;
};

void runCases(const std::vector<CheckCase>& cases, const std::set<std::string>& knownDomains = {},
              const std::map<std::string, std::string>& knownNames = {}) {
    for (const CheckCase& c : cases) {
        EXPECT_EQ(SenderCheck::check(c.address, knownDomains, knownNames), c.expected) << c.name;
    }
}

SenderFlag lookalike(const std::string& reg, const std::string& main) {
    return {Kind::lookalike, reg + " imitates " + main,
            reg + " looks like " + main +
                " but isn’t. Look-alike domains are a common phishing trick."};
}

SenderFlag saysBrand(const std::string& word, const std::string& reg, const std::string& name,
                     const std::string& domain) {
    return {Kind::displayName, "Says " + word + ", sent from " + reg,
            "The name says it’s from " + name + ", but the message came from " + domain +
                ", which isn’t one of " + word + "’s domains."};
}

TEST(SenderCheckTest, NothingToJudge) {
    EXPECT_TRUE(SenderCheck::check(std::nullopt).empty());
    EXPECT_TRUE(SenderCheck::check(MailAddress{"PayPal", ""}).empty());
    EXPECT_TRUE(SenderCheck::check(MailAddress{"PayPal", "@"}).empty());
}

TEST(SenderCheckTest, LookAlikeSenders) {
    runCases({
        {"digit for a letter", {"", "service@paypa1.com"}, {lookalike("paypa1.com", "paypal.com")}},
        {"rn for m",
         {"", "account@rnicrosoft.com"},
         {lookalike("rnicrosoft.com", "microsoft.com")}},
        {"one letter added", {"", "a@paypall.net"}, {lookalike("paypall.net", "paypal.com")}},
        {"hyphenated brand",
         {"", "alerts@secure-chase.com"},
         {lookalike("secure-chase.com", "chase.com")}},
        {"hyphenated short brand",
         {"", "refund@hmrc-tax.co.uk"},
         {lookalike("hmrc-tax.co.uk", "hmrc.gov.uk")}},
        {"hyphenated brand word, not core",
         {"", "x@steam-gift.com"},
         {lookalike("steam-gift.com", "steampowered.com")}},
        {"one edit from a 5-letter brand core",
         {"", "x@adobo.com"},
         {lookalike("adobo.com", "adobe.com")}},
        {"one edit from a 4-letter brand core is no hit", {"", "x@ebey.com"}, {}},
        {"distance closed to short brands", {"", "x@chasse.com"}, {}},
        {"brand name at another top-level domain", {"", "x@paypal.xyz"}, {}},
        {"subdomain of an official domain", {"", "x@mail.paypal.co.uk"}, {}},
        {"ordinary sender", {"Jane Doe", "jane@example.org"}, {}},
    });
}

TEST(SenderCheckTest, PunycodeDomainsAndDisplayNames) {
    const SenderFlag idna{Kind::punycode, "Look-alike characters in xn--pypal-4ve.com",
                          "The sender’s domain mail.xn--pypal-4ve.com uses international "
                          "characters that can imitate ordinary letters."};
    runCases({
        {"idna label", {"", "x@mail.xn--pypal-4ve.com"}, {idna}},
        {"idna label and look-alike",
         {"", "x@xn--80ak6aa92e.paypa1.com"},
         {{Kind::punycode, "Look-alike characters in paypa1.com",
           "The sender’s domain xn--80ak6aa92e.paypa1.com uses international characters that "
           "can imitate ordinary letters."},
          lookalike("paypa1.com", "paypal.com")}},
        {"unicode letters",
         {"", "x@pаypal.com"},
         {{Kind::punycode, "Look-alike characters in pаypal.com",
           "The sender’s domain pаypal.com uses international characters that can imitate "
           "ordinary letters."},
          lookalike("pаypal.com", "paypal.com")}},
        {"domain in the name",
         {"PayPal.com Support", "x@evil.example"},
         {{Kind::displayName, "Name shows paypal.com",
           "The name says paypal.com, but the message came from evil.example."}}},
        {"address in the name",
         {"service@paypal.com", "x@mail.evil.example"},
         {{Kind::displayName, "Name shows paypal.com",
           "The name says paypal.com, but the message came from mail.evil.example."}}},
        {"own address as name", {"jane@example.org", "jane@example.org"}, {}},
        {"own site as name", {"News from www.Example.org", "news@mail.example.org"}, {}},
        {"brand at an unrelated domain",
         {"Amazon", "orders@shipping-notice.example"},
         {saysBrand("Amazon", "shipping-notice.example", "Amazon", "shipping-notice.example")}},
        {"brand at its official domain", {"Amazon", "auto-confirm@amazon.co.uk"}, {}},
        {"brand at its mail service",
         {"Amazon.de", "x@eu-west-1.amazonses.com"},
         {{Kind::displayName, "Name shows amazon.de",
           "The name says amazon.de, but the message came from eu-west-1.amazonses.com."}}},
        {"sister brand's domain", {"Microsoft Outlook", "no-reply@outlook.com"}, {}},
        {"spaced brand",
         {"Pay Pal Team", "x@evil.example"},
         {saysBrand("Paypal", "evil.example", "Pay Pal Team", "evil.example")}},
        {"apostrophe in brand",
         {"Well's Fargo", "x@evil.example"},
         {saysBrand("Wellsfargo", "evil.example", "Well's Fargo", "evil.example")}},
        {"two-word brand written as one",
         {"BankOfAmerica Alerts", "x@evil.example"},
         {saysBrand("Bankofamerica", "evil.example", "BankOfAmerica Alerts", "evil.example")}},
        {"short brand with generic words",
         {"Apple Support", "x@evil.example"},
         {saysBrand("Apple", "evil.example", "Apple Support", "evil.example")}},
        {"short brand among other words", {"Apple Valley Farm", "x@evil.example"}, {}},
        {"short brand is not found inside a word", {"Chasedown Records", "x@evil.example"}, {}},
        {"short brand at its own domain", {"DHL Express", "noreply@dhl.de"}, {}},
        {"brand name at a look-alike domain",
         {"PayPal", "service@paypa1.com"},
         {saysBrand("Paypal", "paypa1.com", "PayPal", "paypa1.com"),
          lookalike("paypa1.com", "paypal.com")}},
        {"brand name at a brand's domain ends the check",
         {"Netflix", "x@paypal.com"},
         {saysBrand("Netflix", "paypal.com", "Netflix", "paypal.com")}},
    });
}

TEST(SenderCheckTest, KnownSenders) {
    const std::set<std::string> known = {"acme-corp.com", "hmrc.gov.uk", "abc.com", "ourbank.com",
                                         "teamwork.org"};
    const std::map<std::string, std::string> names = {{"jane doe", "example.org"},
                                                      {"our bank", "ourbank.com"}};
    runCases(
        {
            {"known name at a new domain",
             {" Jane Doe ", "jane@evil.example"},
             {
                 {Kind::displayName, " Jane Doe  usually writes from example.org",
                  "Mail from “ Jane Doe ” in your vault comes from example.org. This one came from "
                  "evil.example."},
             }},
            {"known name at its usual domain", {"Jane Doe", "jane@mail.example.org"}, {}},
            {"known name at another known domain", {"Jane Doe", "jane@teamwork.org"}, {}},
            {"imitation of a known sender",
             {"Our Bank", "alerts@0urbank.com"},
             {{Kind::displayName, "Our Bank usually writes from ourbank.com",
               "Mail from “Our Bank” in your vault comes from ourbank.com. This one came from "
               "0urbank.com."},
              {Kind::lookalike, "0urbank.com imitates ourbank.com",
               "0urbank.com looks like ourbank.com, a sender already in your vault — but it "
               "isn’t the same domain."}}},
            {"one edit from a known core of 6+",
             {"", "x@ourbanks.net"},
             {{Kind::lookalike, "ourbanks.net imitates ourbank.com",
               "ourbanks.net looks like ourbank.com, a sender already in your vault — but it "
               "isn’t the same domain."}}},
            {"hyphen piece of a known core",
             {"", "x@acme-teamwork.com"},
             {{Kind::lookalike, "acme-teamwork.com imitates teamwork.org",
               "acme-teamwork.com looks like teamwork.org, a sender already in your vault — but "
               "it isn’t the same domain."}}},
            {"three-letter known core never hits", {"", "x@abd.com"}, {}},
            {"three-letter known core as a piece", {"", "x@abc-news.com"}, {}},
            {"known domain itself", {"", "x@ourbank.com"}, {}},
        },
        known, names);
}

TEST(SenderCheckTest, BrandsOwnDomainsGiveNoFlags) {
    for (const SenderTables::Brand& brand : SenderTables::brands()) {
        for (std::string_view domain : brand.domains) {
            std::string name(brand.word);
            name[0] = char(std::toupper(name[0]));
            MailAddress address{name + " Support", "no-reply@" + std::string(domain)};
            std::vector<SenderFlag> flags = SenderCheck::check(address);
            std::vector<SenderFlag> expected;
            EXPECT_EQ(flags, expected) << address;
        }
    }
}

} // namespace
} // namespace qs
