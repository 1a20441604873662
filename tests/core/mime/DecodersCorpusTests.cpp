// The header decoders over every message of the real-world corpus: what real mail holds must
// decode to well-formed text, and every From that names an address must give one.
#include "mime/AddressParser.h"
#include "mime/EncodedWords.h"
#include "mime/MIMEParser.h"
#include "mime/MailDate.h"
#include "mime/TextTrim.h"
#include "support/Corpus.h"
#include "support/Unicode.h"

#include <gtest/gtest.h>

using namespace qs;

TEST(DecodersCorpus, HeadersDecodeToTextAndAddresses) {
    size_t subjects = 0;
    size_t encodedSubjects = 0;
    size_t dates = 0;
    size_t parsedDates = 0;
    for (const auto& message : test::corpusMessages()) {
        SCOPED_TRACE(message.name);
        for (const auto& field : MIMEParser::headers(message.bytes).fields) {
            if (TextTrim::equalsIgnoringCase(field.name, "subject")) {
                ++subjects;
                std::string decoded = EncodedWords::decode(field.value);
                EXPECT_TRUE(Unicode::isValidUTF8(decoded)) << field.value;
                if (decoded != field.value) {
                    ++encodedSubjects;
                    // A decoded subject never keeps the word that was decoded.
                    EXPECT_EQ(decoded.find(field.value), std::string::npos);
                }
            } else if (TextTrim::equalsIgnoringCase(field.name, "from") ||
                       TextTrim::equalsIgnoringCase(field.name, "to")) {
                auto addresses = AddressParser::parse(field.value);
                if (field.value.find('@') != std::string::npos) {
                    EXPECT_FALSE(addresses.empty()) << field.value;
                }
                for (const auto& address : addresses) {
                    EXPECT_TRUE(Unicode::isValidUTF8(address.name)) << field.value;
                    EXPECT_NE(field.value.find(address.email), std::string::npos);
                }
            } else if (TextTrim::equalsIgnoringCase(field.name, "date")) {
                ++dates;
                if (auto date = MailDate::parse(field.value)) {
                    ++parsedDates;
                    // Whatever parses lies between 1900 (the RFC's own examples are of 1969)
                    // and 2100.
                    EXPECT_GT(unixSeconds(*date), -2208988800) << field.value;
                    EXPECT_LT(unixSeconds(*date), 4102444800) << field.value; // 2100
                }
            }
        }
    }
    // The corpus is mostly well-formed mail: most of it has dates in the RFC 5322 forms, and
    // some of it has encoded subjects. These guard against a decoder that silently gives up.
    EXPECT_GT(subjects, 500u);
    EXPECT_GT(encodedSubjects, 20u);
    EXPECT_GT(parsedDates * 10, dates * 9);
}
