#include "mime/MIMEPart.h"

#include "mime/Charsets.h"
#include "mime/EncodedWords.h"
#include "mime/TextTrim.h"
#include "mime/TransferDecoding.h"

namespace qs {

namespace {

bool isIDTrim(char c) {
    return c == '<' || c == '>' || c == ' ' || c == '\t';
}

} // namespace

std::string MIMEPart::transferEncoding() const {
    const std::string* value = headers.first("Content-Transfer-Encoding");
    if (!value) {
        return "7bit";
    }
    return TextTrim::asciiLower(TextTrim::whitespace(*value));
}

std::optional<HeaderParams::Parsed> MIMEPart::disposition() const {
    const std::string* value = headers.first("Content-Disposition");
    if (!value) {
        return std::nullopt;
    }
    return HeaderParams::parse(*value);
}

std::optional<std::string> MIMEPart::filename() const {
    if (auto parsed = disposition()) {
        auto it = parsed->params.find("filename");
        if (it != parsed->params.end() && !it->second.empty()) {
            return EncodedWords::decode(it->second);
        }
    }
    if (const std::string* name = contentType.param("name"); name && !name->empty()) {
        return EncodedWords::decode(*name);
    }
    return std::nullopt;
}

std::optional<std::string> MIMEPart::contentID() const {
    const std::string* value = headers.first("Content-ID");
    if (!value) {
        return std::nullopt;
    }
    std::string_view id(*value);
    while (!id.empty() && isIDTrim(id.front())) {
        id.remove_prefix(1);
    }
    while (!id.empty() && isIDTrim(id.back())) {
        id.remove_suffix(1);
    }
    return std::string(id);
}

ByteSlice MIMEPart::decodedBody() const {
    std::string encoding = transferEncoding();
    // Only these two change the bytes; every other encoding leaves the body as it is, so the
    // shared buffer is handed out instead of a copy.
    if (encoding == "base64" || encoding == "quoted-printable") {
        return ByteSlice(TransferDecoding::decode(body.view(), encoding));
    }
    return body;
}

std::string MIMEPart::decodedText() const {
    return Charsets::string(decodedBody().view(), contentType.charset());
}

std::ostream& operator<<(std::ostream& out, const MIMEPart& part) {
    out << "{" << part.contentType.mimeType();
    if (part.children.empty()) {
        out << " " << part.body.size() << " bytes";
    } else {
        out << " [";
        for (size_t i = 0; i < part.children.size(); ++i) {
            out << (i ? ", " : "") << part.children[i];
        }
        out << "]";
    }
    return out << "}";
}

} // namespace qs
