#include "safety/Domains.h"
#include "safety/HostMemo.h"

#include <gtest/gtest.h>
#include <ranges>

namespace qs {
namespace {

TEST(DomainsTest, HostOfURL) {
    const std::pair<const char*, std::optional<std::string>> cases[] = {
        {"https://www.example.com/path?q=1#top", "www.example.com"},
        {" \n\thttps://example.org/x \r\n", "example.org"},
        {"http://user:pw@mail.example.net:8080/a", "mail.example.net"},
        {"https://good.com/redirect@evil.com", "good.com"},
        {"http://[2001:db8::1]:80/", "2001:db8::1"},
        {"http://a@b:c@Host.example@real.example:81/x", "real.example"},
        {"http://ex[am]ple.com/", std::nullopt},
        {"http://example.com:8[0]/", std::nullopt},
        {"http://example.com:/", "example.com"},
        {"//cdn.example.com/img.png", "cdn.example.com"},
        {"http://%45x%41mple.com/", "example.com"},
        {"mailto:someone@example.com", std::nullopt},
        {"example.com/path", std::nullopt},
        {"http:///path", std::nullopt},
        {"http://example.com/%zz", std::nullopt},
        {"http://exämple.com/", std::nullopt},
        {"http://example.com/#a#b", std::nullopt},
        {"   ", std::nullopt},
    };
    // One buffer through all the cases: what a longer earlier host left in it must not show.
    std::string reused = "left over from an earlier, longer host";
    for (const auto& [url, host] : cases) {
        EXPECT_EQ(Domains::host(url), host) << url;
        EXPECT_EQ(Domains::host(url, reused), host.has_value()) << url;
        if (host) {
            EXPECT_EQ(reused, *host) << url;
        }
    }
}

TEST(DomainsTest, RegistrableDomain) {
    const std::pair<const char*, const char*> cases[] = {
        {"www.example.com", "example.com"},
        {"localhost", "localhost"},
        {"WWW.Example.COM", "example.com"},
        {"..mail.example.com. ", "example.com"},
        {"shop.example.co.uk", "example.co.uk"},
        {"a.shop.example.co.de", "co.de"},
        {"bbc.co.uk", "bbc.co.uk"},
        {"co.uk", "co.uk"},
        {"x.tax.service.gov.uk", "service.gov.uk"},
        {"x.y.net.uk", "net.uk"},
        {"a..b", "a..b"},
        {"a..b..c", "b.c"},
        {"", ""},
    };
    for (const auto& [name, expected] : cases) {
        EXPECT_EQ(Domains::registrable(name), expected) << name;
    }
}

TEST(HostMemoTest, GivesWhatThePlainFunctionsGive) {
    // Names that differ only in case, IDNA form, trailing dots or characters that lower to
    // ASCII: a memo that folded its keys would hand one's answer to another.
    std::vector<std::string> names;
    for (auto name : std::views::split(
             std::string_view("Shop.Example.COM|shop.example.com|shop.example.com.|"
                              "www.shop.example.co.uk|WWW.SHOP.EXAMPLE.CO.UK|xn--bcher-kva.example|"
                              "b\u00FCcher.example|B\u00DCCHER.example|\u212Aey.example.com|"
                              "\u0130.co.uk|localhost||...|x.list-manage.com|X.LIST-MANAGE.COM|"
                              "list-manage.com.evil.example|notsendgrid.net|u1.ct.sendgrid.net|"
                              "mailchimp.com.|a.b.c.emltrk.com"),
             '|')) {
        names.emplace_back(name.begin(), name.end());
    }
    HostMemo memo;
    for (int round = 0; round < 2; ++round) {
        for (const std::string& a : names) {
            EXPECT_EQ(memo.registrable(a), Domains::registrable(a)) << a;
            EXPECT_EQ(memo.isTrackerService(a), HostMemo().isTrackerService(a)) << a;
            for (const std::string& b : names) {
                EXPECT_EQ(memo.sameRegistrable(a, b),
                          Domains::registrable(a) == Domains::registrable(b))
                    << a << " / " << b;
            }
        }
    }
    // Past its size, two new names at once: the first answer must survive the room made for
    // the second.
    HostMemo full;
    auto name = [](size_t i) {
        return "h" + std::to_string(i) + ".site" + std::to_string(i % 7) + ".co.uk";
    };
    for (int round = 0; round < 2; ++round) {
        for (size_t i = 0; i < HostMemo::kMaxEntries * 3 + 5; ++i) {
            ASSERT_EQ(full.registrable(name(i)), Domains::registrable(name(i))) << name(i);
            ASSERT_TRUE(full.sameRegistrable(name(i), "www." + name(i)));
            ASSERT_FALSE(full.sameRegistrable(name(i), name(i + 1)));
        }
    }
}

} // namespace
} // namespace qs
