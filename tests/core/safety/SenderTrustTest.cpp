#include "safety/SenderTrust.h"

#include <gtest/gtest.h>

namespace qs {
namespace {

MIMEHeaders headers(std::vector<MIMEHeaderField> fields) {
    return MIMEHeaders(std::move(fields));
}

TEST(SenderTrustTest, Decisions) {
    struct Case {
        const char* name;
        const char* value;
        SenderTrust trust;
        std::map<std::string, std::string> results;
    };
    const Case cases[] = {
        {"dmarc pass beats spf fail",
         "mx.example; spf=fail smtp.mailfrom=x; dmarc=pass",
         SenderTrust::verified,
         {{"spf", "fail"}, {"dmarc", "pass"}}},
        {"spf softfail, dkim none",
         "mx; spf=softfail; dkim=none",
         SenderTrust::partial,
         {{"spf", "softfail"}, {"dkim", "none"}}},
        {"dkim softfail, dmarc none",
         "mx; dkim=softfail; dmarc=none",
         SenderTrust::failed,
         {{"dkim", "softfail"}, {"dmarc", "none"}}},
        {"spf and dkim pass",
         "mx; spf=pass; dkim=pass",
         SenderTrust::verified,
         {{"spf", "pass"}, {"dkim", "pass"}}},
        {"spf pass alone", "mx; spf=pass", SenderTrust::partial, {{"spf", "pass"}}},
        {"dmarc fail despite passes",
         "mx; spf=pass; dkim=pass; dmarc=fail",
         SenderTrust::failed,
         {{"spf", "pass"}, {"dkim", "pass"}, {"dmarc", "fail"}}},
        {"dmarc permerror", "mx; dmarc=permerror", SenderTrust::failed, {{"dmarc", "permerror"}}},
        {"spf hard fail without dmarc", "mx; spf=fail", SenderTrust::failed, {{"spf", "fail"}}},
        {"spf softfail alone isn't failure",
         "mx; spf=softfail",
         SenderTrust::partial,
         {{"spf", "softfail"}}},
        {"dkim fail with dmarc pass",
         "mx; dkim=fail; dmarc=pass",
         SenderTrust::verified,
         {{"dkim", "fail"}, {"dmarc", "pass"}}},
        {"later fail replaces a pass",
         "mx; dkim=pass header.d=a; dkim=fail header.d=b",
         SenderTrust::failed,
         {{"dkim", "fail"}}},
        {"a fail is never replaced",
         "mx; dkim=fail header.d=a; dkim=pass header.d=b",
         SenderTrust::failed,
         {{"dkim", "fail"}}},
        {"a neutral is never replaced",
         "mx; dkim=neutral; dkim=pass; spf=pass",
         SenderTrust::partial,
         {{"dkim", "neutral"}, {"spf", "pass"}}},
        {"case and blanks",
         "MX; SPF = Pass; DKIM=PASS (good)",
         SenderTrust::verified,
         {{"spf", "pass"}, {"dkim", "pass"}}},
        {"whole words only", "mx; xspf=fail; dkim-x=1; arc=pass", SenderTrust::unknown, {}},
        {"no results", "mx.example.com; none", SenderTrust::unknown, {}},
    };
    for (const Case& c : cases) {
        SenderTrustReading reading =
            senderTrustFrom(headers({{"Subject", "x"}, {"Authentication-Results", c.value}}));
        EXPECT_EQ(reading, (SenderTrustReading{c.trust, c.results})) << c.name;
    }
}

TEST(SenderTrustTest, OnlyTheTopmostFieldCounts) {
    auto reading = senderTrustFrom(headers({{"authentication-results", "mx; spf=pass; dkim=pass"},
                                            {"Authentication-Results", "mx; dmarc=fail"}}));
    EXPECT_EQ(reading.trust, SenderTrust::verified);
    EXPECT_EQ(reading.results.count("dmarc"), 0u);
}

TEST(SenderTrustTest, ARCOnlyWithoutAuthenticationResults) {
    EXPECT_EQ(
        senderTrustFrom(headers({{"ARC-Authentication-Results", "i=1; mx; dkim=fail"}})).trust,
        SenderTrust::failed);
    EXPECT_EQ(senderTrustFrom(headers({{"ARC-Authentication-Results", "i=1; mx; dkim=fail"},
                                       {"Authentication-Results", "mx; dmarc=pass"}}))
                  .trust,
              SenderTrust::verified);
    EXPECT_EQ(senderTrustFrom(headers({{"Received", "from x"}})),
              (SenderTrustReading{SenderTrust::unknown, {}}));
}

TEST(SenderTrustTest, StoredAsItsName) {
    for (SenderTrust trust :
         {SenderTrust::verified, SenderTrust::failed, SenderTrust::partial, SenderTrust::unknown}) {
        nlohmann::json json = trust;
        EXPECT_EQ(json.get<std::string>(), toString(trust));
        EXPECT_EQ(json.get<SenderTrust>(), trust);
    }
    EXPECT_THROW(nlohmann::json("Verified").get<SenderTrust>(), nlohmann::json::exception);
    EXPECT_THROW(nlohmann::json(3).get<SenderTrust>(), nlohmann::json::exception);
}

} // namespace
} // namespace qs
