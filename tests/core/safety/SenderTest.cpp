#include "safety/ReplyToCheck.h"
#include "safety/SenderCheck.h"
#include "safety/SenderTables.h"
#include "safety/SenderTrust.h"

#include <gtest/gtest.h>
#include <set>

namespace qs {
namespace {

using Kind = SenderFlag::Kind;

TEST(SenderCheckTest, SkeletonAndDistance) {
    for (const auto& [text, expected] : {std::pair{"rnicrosoft", "microsoft"},
                                         {"pay-pal", "paypal"},
                                         {"4m4z0n", "amazon"},
                                         {"rrn", "rm"}}) {
        EXPECT_EQ(SenderCheck::skeleton(text), expected) << text;
    }
    const std::tuple<const char*, const char*, int> distances[] = {
        {"", "abc", 3},        {"kitten", "sitting", 3}, {"paypal", "paypla", 2},
        {"é", "e", 1},         {"e\xcc\x81", "é", 1},    {"ae\xcc\x81", "ab", 1},
        {"日本", "日本語", 1}, {"\r\n", "\n", 1}};
    for (const auto& [a, b, distance] : distances) {
        EXPECT_EQ(SenderCheck::distance(a, b), distance) << a << " / " << b;
        EXPECT_EQ(SenderCheck::distance(b, a), distance) << b << " / " << a;
    }
}

using CheckCase = std::pair<MailAddress, std::vector<SenderFlag>>;

void runCases(const std::vector<CheckCase>& cases, const std::set<std::string>& knownDomains = {},
              const std::map<std::string, std::string>& knownNames = {}) {
    for (const auto& [address, expected] : cases) {
        EXPECT_EQ(SenderCheck::check(address, knownDomains, knownNames), expected) << address;
    }
}

SenderFlag lookalike(const std::string& reg, const std::string& main) {
    return {Kind::lookalike, reg + " imitates " + main,
            reg + " looks like " + main +
                " but isn’t. Look-alike domains are a common phishing trick."};
}

SenderFlag namesDomain(const std::string& shown, const std::string& domain) {
    return {Kind::displayName, "Name shows " + shown,
            "The name says " + shown + ", but the message came from " + domain + "."};
}

SenderFlag idna(const std::string& shown, const std::string& domain) {
    return {Kind::punycode, "Look-alike characters in " + shown,
            "The sender’s domain " + domain +
                " uses international characters that can imitate ordinary letters."};
}

SenderFlag saysBrand(const std::string& word, const std::string& reg, const std::string& name,
                     const std::string& domain) {
    return {Kind::displayName, "Says " + word + ", sent from " + reg,
            "The name says it’s from " + name + ", but the message came from " + domain +
                ", which isn’t one of " + word + "’s domains."};
}

TEST(SenderCheckTest, AgainstBrands) {
    EXPECT_TRUE(SenderCheck::check(std::nullopt).empty());
    runCases({
        {{"PayPal", ""}, {}},
        {{"", "service@paypa1.com"}, {lookalike("paypa1.com", "paypal.com")}},
        {{"", "a@paypall.net"}, {lookalike("paypall.net", "paypal.com")}},
        {{"", "alerts@secure-chase.com"}, {lookalike("secure-chase.com", "chase.com")}},
        {{"", "refund@hmrc-tax.co.uk"}, {lookalike("hmrc-tax.co.uk", "hmrc.gov.uk")}},
        {{"", "x@steam-gift.com"}, {lookalike("steam-gift.com", "steampowered.com")}},
        {{"", "x@ebey.com"}, {}},
        {{"", "x@chasse.com"}, {}},
        {{"", "x@paypal.xyz"}, {}},
        {{"", "x@mail.paypal.co.uk"}, {}},
        {{"Jane Doe", "jane@example.org"}, {}},
        {{"", "x@mail.xn--pypal-4ve.com"}, {idna("xn--pypal-4ve.com", "mail.xn--pypal-4ve.com")}},
        {{"", "x@xn--80ak6aa92e.paypa1.com"},
         {idna("paypa1.com", "xn--80ak6aa92e.paypa1.com"), lookalike("paypa1.com", "paypal.com")}},
        {{"", "x@pаypal.com"},
         {idna("pаypal.com", "pаypal.com"), lookalike("pаypal.com", "paypal.com")}},
        {{"PayPal.com Support", "x@evil.example"}, {namesDomain("paypal.com", "evil.example")}},
        {{"service@paypal.com", "x@mail.evil.example"},
         {namesDomain("paypal.com", "mail.evil.example")}},
        {{"jane@example.org", "jane@example.org"}, {}},
        {{"Amazon", "orders@shipping-notice.example"},
         {saysBrand("Amazon", "shipping-notice.example", "Amazon", "shipping-notice.example")}},
        {{"Amazon", "auto-confirm@amazon.co.uk"}, {}},
        {{"Amazon.de", "x@eu-west-1.amazonses.com"},
         {namesDomain("amazon.de", "eu-west-1.amazonses.com")}},
        {{"Pay Pal Team", "x@evil.example"},
         {saysBrand("Paypal", "evil.example", "Pay Pal Team", "evil.example")}},
        {{"Apple Support", "x@evil.example"},
         {saysBrand("Apple", "evil.example", "Apple Support", "evil.example")}},
        {{"Apple Valley Farm", "x@evil.example"}, {}},
        {{"Chasedown Records", "x@evil.example"}, {}},
        {{"PayPal", "service@paypa1.com"},
         {saysBrand("Paypal", "paypa1.com", "PayPal", "paypa1.com"),
          lookalike("paypa1.com", "paypal.com")}},
        {{"Netflix", "x@paypal.com"},
         {saysBrand("Netflix", "paypal.com", "Netflix", "paypal.com")}},
    });
}

TEST(SenderCheckTest, KnownSenders) {
    const std::set<std::string> known = {"acme-corp.com", "hmrc.gov.uk", "abc.com", "ourbank.com",
                                         "teamwork.org"};
    const std::map<std::string, std::string> names = {{"jane doe", "example.org"},
                                                      {"our bank", "ourbank.com"}};
    auto usually = [](const std::string& name, const std::string& usual, const std::string& now) {
        return SenderFlag{Kind::displayName, name + " usually writes from " + usual,
                          "Mail from “" + name + "” in your vault comes from " + usual +
                              ". This one came from " + now + "."};
    };
    auto imitates = [](const std::string& reg, const std::string& known) {
        return SenderFlag{Kind::lookalike, reg + " imitates " + known,
                          reg + " looks like " + known +
                              ", a sender already in your vault — but it isn’t the same domain."};
    };
    runCases(
        {
            {{" Jane Doe ", "jane@evil.example"},
             {usually(" Jane Doe ", "example.org", "evil.example")}},
            {{"Jane Doe", "jane@mail.example.org"}, {}},
            {{"Jane Doe", "jane@teamwork.org"}, {}},
            {{"Our Bank", "alerts@0urbank.com"},
             {usually("Our Bank", "ourbank.com", "0urbank.com"),
              imitates("0urbank.com", "ourbank.com")}},
            {{"", "x@ourbanks.net"}, {imitates("ourbanks.net", "ourbank.com")}},
            {{"", "x@acme-teamwork.com"}, {imitates("acme-teamwork.com", "teamwork.org")}},
            {{"", "x@abc-news.com"}, {}},
            {{"", "x@ourbank.com"}, {}},
        },
        known, names);
}

TEST(SenderCheckTest, BrandsOwnDomainsGiveNoFlags) {
    for (const SenderTables::Brand& brand : SenderTables::brands()) {
        for (std::string_view domain : brand.domains) {
            std::string name(brand.word);
            name[0] = char(std::toupper(name[0]));
            MailAddress address{name + " Support", "no-reply@" + std::string(domain)};
            EXPECT_TRUE(SenderCheck::check(address).empty()) << address;
        }
    }
}

TEST(SenderTrustTest, DecisionsAndStoredName) {
    auto ar = [](const char* value) {
        return std::vector<MIMEHeaderField>{{"Authentication-Results", value}};
    };
    const std::pair<std::vector<MIMEHeaderField>, std::string> rows[] = {
        {ar("mx.example; spf=fail smtp.mailfrom=x; dmarc=pass"), "verified {dmarc=pass, spf=fail}"},
        {ar("mx; spf=softfail; dkim=none"), "partial {dkim=none, spf=softfail}"},
        {ar("mx; dkim=softfail; dmarc=none"), "failed {dkim=softfail, dmarc=none}"},
        {ar("mx; spf=pass; dkim=pass; dmarc=fail"), "failed {dkim=pass, dmarc=fail, spf=pass}"},
        {ar("mx; dmarc=permerror"), "failed {dmarc=permerror}"},
        // Of one mechanism's several results a fail or neutral stays; a later fail replaces a pass.
        {ar("mx; dkim=pass header.d=a; dkim=fail header.d=b"), "failed {dkim=fail}"},
        {ar("mx; dkim=fail header.d=a; dkim=pass header.d=b"), "failed {dkim=fail}"},
        {ar("mx; dkim=neutral; dkim=pass; spf=pass"), "partial {dkim=neutral, spf=pass}"},
        {ar("MX; SPF = Pass; DKIM=PASS (good)"), "verified {dkim=pass, spf=pass}"},
        {ar("mx; xspf=fail; dkim-x=1; arc=pass"), "unknown {}"},
        // Only the topmost field counts; ARC only without any.
        {{{"authentication-results", "mx; spf=pass; dkim=pass"},
          {"Authentication-Results", "mx; dmarc=fail"}},
         "verified {dkim=pass, spf=pass}"},
        {{{"ARC-Authentication-Results", "i=1; mx; dkim=fail"}}, "failed {dkim=fail}"},
        {{{"ARC-Authentication-Results", "i=1; mx; dkim=fail"},
          {"Authentication-Results", "mx; dmarc=pass"}},
         "verified {dmarc=pass}"},
        {{{"Received", "from x"}}, "unknown {}"},
    };
    for (const auto& [fields, expected] : rows) {
        EXPECT_EQ(::testing::PrintToString(senderTrustFrom(MIMEHeaders(fields))), expected)
            << ::testing::PrintToString(fields);
    }
    for (SenderTrust trust :
         {SenderTrust::verified, SenderTrust::failed, SenderTrust::partial, SenderTrust::unknown}) {
        EXPECT_EQ(nlohmann::json(trust).get<SenderTrust>(), trust);
    }
    EXPECT_THROW(nlohmann::json("Verified").get<SenderTrust>(), nlohmann::json::exception);
}

TEST(ReplyToCheckTest, Mismatch) {
    using Addresses = std::vector<MailAddress>;
    const MailAddress shop{"Shop", "news@shop.example.com"};
    const std::tuple<Addresses, Addresses, std::optional<MailAddress>> cases[] = {
        // from, reply-to, the reply-to address on another site
        {{}, {{"", "a@evil.example"}}, std::nullopt},
        {{{"x", "@"}}, {{"", "a@evil.example"}}, std::nullopt},
        {{shop}, {}, std::nullopt},
        {{shop}, {{"", "help@support.example.com"}}, std::nullopt},
        {{shop}, {{"Bad", "bad@example.net"}}, MailAddress{"Bad", "bad@example.net"}},
        {{shop},
         {{"", "a@example.com"}, {"", "@"}, {"", "b@other.org"}, {"", "c@third.org"}},
         MailAddress{"", "b@other.org"}},
        {{shop, {"", "x@other.org"}}, {{"", "y@other.org"}}, MailAddress{"", "y@other.org"}},
    };
    for (const auto& [from, replyTo, expected] : cases) {
        EXPECT_EQ(ReplyToCheck::mismatch(from, replyTo), expected)
            << ::testing::PrintToString(replyTo);
    }
}

} // namespace
} // namespace qs
