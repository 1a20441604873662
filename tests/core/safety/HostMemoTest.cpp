#include "safety/HostMemo.h"

#include "safety/Domains.h"
#include "safety/TrackerTables.h"

#include <gtest/gtest.h>

namespace qs {
namespace {

// Names that differ only in case, IDNA form, trailing dots or characters that lower to ASCII:
// a memo that folded its keys would hand one's answer to another.
const std::vector<std::string> kNames = {"Shop.Example.COM",
                                         "shop.example.com",
                                         "shop.example.com.",
                                         "www.shop.example.co.uk",
                                         "WWW.SHOP.EXAMPLE.CO.UK",
                                         "xn--bcher-kva.example",
                                         "b\xC3\xBC"
                                         "cher.example",
                                         "B\xC3\x9C"
                                         "CHER.example",
                                         "\xE2\x84\xAA"
                                         "ey.example.com",
                                         "\xC4\xB0.co.uk",
                                         "localhost",
                                         "",
                                         "...",
                                         "x.list-manage.com",
                                         "X.LIST-MANAGE.COM",
                                         "list-manage.com.evil.example",
                                         "notsendgrid.net",
                                         "u1.ct.sendgrid.net",
                                         "mailchimp.com.",
                                         "a.b.c.emltrk.com"};

// The tracker-service rule written out from its definition.
bool isServiceByDefinition(const std::string& host) {
    std::string site = Domains::registrable(host);
    for (std::string_view d : TrackerTables::trackerDomains) {
        if (host == d || site == d ||
            (host.size() > d.size() && host.ends_with(d) &&
             host[host.size() - d.size() - 1] == '.')) {
            return true;
        }
    }
    return false;
}

TEST(HostMemoTest, GivesWhatThePlainFunctionsGive) {
    HostMemo memo;
    // Twice over, so the second round is answered from the memo, and the other way round in a
    // fresh memo, so no answer depends on what was asked first.
    for (int round = 0; round < 2; ++round) {
        for (const std::string& name : kNames) {
            EXPECT_EQ(memo.registrable(name), Domains::registrable(name)) << name;
            EXPECT_EQ(memo.isTrackerService(name), isServiceByDefinition(name)) << name;
        }
    }
    HostMemo reversed;
    for (auto it = kNames.rbegin(); it != kNames.rend(); ++it) {
        EXPECT_EQ(reversed.isTrackerService(*it), isServiceByDefinition(*it)) << *it;
        EXPECT_EQ(reversed.registrable(*it), Domains::registrable(*it)) << *it;
    }
    for (const std::string& a : kNames) {
        for (const std::string& b : kNames) {
            EXPECT_EQ(memo.sameRegistrable(a, b),
                      Domains::registrable(a) == Domains::registrable(b))
                << a << " / " << b;
        }
    }
}

TEST(HostMemoTest, StaysRightPastItsSize) {
    HostMemo memo;
    auto name = [](size_t i) {
        return "h" + std::to_string(i) + ".site" + std::to_string(i % 7) + ".co.uk";
    };
    size_t count = HostMemo::kMaxEntries * 3 + 5;
    for (int round = 0; round < 2; ++round) {
        for (size_t i = 0; i < count; ++i) {
            ASSERT_EQ(memo.registrable(name(i)), Domains::registrable(name(i))) << name(i);
            // Two new names at once when the memo is full: the first answer must survive the
            // room made for the second.
            ASSERT_TRUE(memo.sameRegistrable(name(i), "www." + name(i)));
            ASSERT_FALSE(memo.sameRegistrable(name(i), name(i + 1)));
        }
    }
}

} // namespace
} // namespace qs
