#include "mime/MimeTypes.h"

#include <gtest/gtest.h>

using namespace qs;

TEST(MimeTypes, Extension) {
    struct Row {
        const char* type;
        const char* ext;
    };
    for (const auto& row : {Row{"IMAGE/JPEG", "jpg"}, Row{"application/pdf", "pdf"},
                            Row{"message/rfc822", "eml"}, Row{"text/calendar", "ics"},
                            Row{"application/vnd.openxmlformats-officedocument."
                                "spreadsheetml.sheet",
                                "xlsx"},
                            Row{"image/tiff", ""}, Row{"", ""}, Row{"image/jpeg ", ""}}) {
        SCOPED_TRACE(row.type);
        EXPECT_EQ(MimeTypes::ext(row.type), row.ext);
    }
}
