#include "mime/MailAddress.h"

#include <gtest/gtest.h>

using namespace qs;

TEST(MailAddress, ComputedProperties) {
    MailAddress named{"Jane Doe", "Jane@Example.COM"};
    EXPECT_EQ(named.display(), "Jane Doe");
    EXPECT_EQ(named.formatted(), "Jane Doe <Jane@Example.COM>");
    EXPECT_EQ(named.domain(), "example.com");

    MailAddress bare{"", "bob@y"};
    EXPECT_EQ(bare.display(), "bob@y");
    EXPECT_EQ(bare.formatted(), "bob@y");

    struct Row {
        const char* email;
        const char* domain;
    };
    for (const auto& row : {Row{"a@b@C.org", "c.org"}, Row{"a@x.org@", "x.org"},
                            Row{"NoAt", "noat"}, Row{"", ""}, Row{"@@", ""}}) {
        SCOPED_TRACE(row.email);
        EXPECT_EQ((MailAddress{"", row.email}.domain()), row.domain);
    }
}

TEST(MailAddress, JSONHasExactlyNameAndEmail) {
    MailAddress address{"André", "a@x"};
    nlohmann::json json = address;
    EXPECT_EQ(json, nlohmann::json::parse(R"({"name":"André","email":"a@x"})"));
    EXPECT_EQ(json.get<MailAddress>(), address);
    EXPECT_THROW(nlohmann::json::parse(R"({"email":"a@x"})").get<MailAddress>(),
                 nlohmann::json::exception);
    EXPECT_THROW(nlohmann::json::parse(R"({"name":"","email":3})").get<MailAddress>(),
                 nlohmann::json::exception);
}
