#include "mime/MimeTypes.h"

#include "mime/TextTrim.h"

#include <array>
#include <utility>

namespace qs::MimeTypes {

namespace {

constexpr std::array<std::pair<std::string_view, std::string_view>, 19> extensions{{
    {"application/pdf", "pdf"},
    {"image/jpeg", "jpg"},
    {"image/png", "png"},
    {"image/gif", "gif"},
    {"image/webp", "webp"},
    {"image/heic", "heic"},
    {"text/plain", "txt"},
    {"text/html", "html"},
    {"text/calendar", "ics"},
    {"application/zip", "zip"},
    {"application/msword", "doc"},
    {"application/vnd.openxmlformats-officedocument.wordprocessingml.document", "docx"},
    {"application/vnd.ms-excel", "xls"},
    {"application/vnd.openxmlformats-officedocument.spreadsheetml.sheet", "xlsx"},
    {"text/csv", "csv"},
    {"application/json", "json"},
    {"audio/mpeg", "mp3"},
    {"video/mp4", "mp4"},
    {"message/rfc822", "eml"},
}};

} // namespace

std::string ext(std::string_view mimeType) {
    for (const auto& [type, extension] : extensions) {
        if (TextTrim::equalsIgnoringCase(type, mimeType)) {
            return std::string(extension);
        }
    }
    return {};
}

} // namespace qs::MimeTypes
