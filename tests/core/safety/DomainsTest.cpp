#include "safety/Domains.h"

#include <gtest/gtest.h>

namespace qs {
namespace {

struct HostCase {
    const char* name;
    const char* url;
    std::optional<std::string> host;
};

TEST(DomainsTest, HostOfURL) {
    const HostCase cases[] = {
        {"plain", "https://www.example.com/path?q=1#top", "www.example.com"},
        {"upper case", "HTTP://WWW.Example.COM/", "www.example.com"},
        {"trimmed", " \n\thttps://example.org/x \r\n", "example.org"},
        {"user info and port", "http://user:pw@mail.example.net:8080/a", "mail.example.net"},
        {"at sign in path", "https://good.com/redirect@evil.com", "good.com"},
        {"at sign in user info", "https://good.com@evil.com/", "evil.com"},
        {"ip literal", "http://[2001:db8::1]:80/", "2001:db8::1"},
        {"the last of several at signs", "http://a@b:c@Host.example@real.example:81/x",
         "real.example"},
        {"query and fragment end the authority", "http://host.example?x@evil.example",
         "host.example"},
        {"fragment ends the authority", "http://host.example#@evil.example", "host.example"},
        {"bracket inside a host name", "http://ex[am]ple.com/", std::nullopt},
        {"bracket in the port", "http://example.com:8[0]/", std::nullopt},
        {"empty port", "http://example.com:/", "example.com"},
        {"ipv4", "http://192.168.1.1/login", "192.168.1.1"},
        {"protocol relative", "//cdn.example.com/img.png", "cdn.example.com"},
        {"percent escape in host", "http://ex%41mple.com/", "example.com"},
        {"mailto has no host", "mailto:someone@example.com", std::nullopt},
        {"relative path", "/images/logo.png", std::nullopt},
        {"bare domain is a path", "example.com/path", std::nullopt},
        {"empty host", "http:///path", std::nullopt},
        {"space inside", "http://exa mple.com/", std::nullopt},
        {"bad percent escape", "http://example.com/%zz", std::nullopt},
        {"non-digit port", "http://example.com:80a/", std::nullopt},
        {"non-ascii", "http://exämple.com/", std::nullopt},
        {"two fragments", "http://example.com/#a#b", std::nullopt},
        {"empty", "   ", std::nullopt},
    };
    // One buffer through all the cases: what a longer earlier host left in it must not show.
    std::string reused = "left over from an earlier, longer host";
    for (const HostCase& c : cases) {
        EXPECT_EQ(Domains::host(c.url), c.host) << c.name;
        bool found = Domains::host(c.url, reused);
        EXPECT_EQ(found, c.host.has_value()) << c.name;
        if (found && c.host) {
            EXPECT_EQ(reused, *c.host) << c.name;
        }
    }
}

TEST(DomainsTest, RegistrableDomain) {
    const std::pair<const char*, const char*> cases[] = {
        {"www.example.com", "example.com"},
        {"example.com", "example.com"},
        {"localhost", "localhost"},
        {"WWW.Example.COM", "example.com"},
        {"..mail.example.com. ", "example.com"},
        {"shop.example.co.uk", "example.co.uk"},
        {"a.shop.example.co.uk", "example.co.uk"},
        {"a.shop.example.co.de", "co.de"},
        {"bbc.co.uk", "bbc.co.uk"},
        {"co.uk", "co.uk"},
        {"x.y.com.au", "y.com.au"},
        {"x.y.net.au", "y.net.au"},
        {"x.y.ac.uk", "y.ac.uk"},
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

TEST(DomainsTest, SuffixTableHasExactlyTheListedPairs) {
    const char* listed[] = {"co.uk",  "org.uk", "ac.uk", "gov.uk", "com.au", "net.au",
                            "org.au", "co.nz",  "co.jp", "co.in",  "co.kr",  "com.br",
                            "com.cn", "com.mx", "co.za", "com.sg", "com.tr", "com.hk"};
    for (const char* suffix : listed) {
        EXPECT_TRUE(Domains::isTwoLevelSuffix(suffix)) << suffix;
    }
    for (const char* other : {"com.uk", "co.au", "org.nz", "ne.jp", "com.de", "uk", ""}) {
        EXPECT_FALSE(Domains::isTwoLevelSuffix(other)) << other;
    }
}

} // namespace
} // namespace qs
