#include "mime/MIMEParser.h"

#include "support/Corpus.h"

#include <gtest/gtest.h>

namespace qs {
namespace {

TEST(Corpus, HelperFindsEveryFileAndMessage) {
    auto files = test::corpusFiles();
    EXPECT_EQ(files.size(), 700u);
    EXPECT_EQ(std::count_if(files.begin(), files.end(), test::isMbox), 46);
    EXPECT_EQ(test::corpusMessages().size(), 879u);
}

} // namespace
} // namespace qs
