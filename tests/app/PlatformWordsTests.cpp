#include "model/PlatformWords.h"

#include <gtest/gtest.h>

namespace qs {
namespace {

struct Row {
    const char16_t* elsewhere;
    const char16_t* here;
};

TEST(PlatformWords, ReplacesWholeWordsOnly) {
    const Row rows[] = {
        {u"Show Vault in Finder", u"Show Vault in File Manager"},
        {u"It’s kept in your Mac’s Keychain and goes nowhere else.",
         u"It’s kept in your computer’s keyring and goes nowhere else."},
        {u"Click to preview with Quick Look", u"Click to preview with Preview"},
        {u"nothing leaves your Mac except", u"nothing leaves your computer except"},
        {u"Machine and iMac and Macs stay", u"Machine and iMac and Macs stay"},
        {u"Mac", u"computer"},
    };
    for (const Row& row : rows)
        EXPECT_EQ(PlatformWords::adapt(QStringView(row.elsewhere)), QString::fromUtf16(row.here));
}

} // namespace
} // namespace qs
