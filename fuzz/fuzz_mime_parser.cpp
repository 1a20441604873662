// Parsing any bytes as a message must never fail, stay within the depth limit, keep every body
// inside the message (or, for a message whose lines end in CR alone, inside the copy it is read
// from), and give computed fields for every part.
#include "mime/LineEnds.h"
#include "mime/MIMEParser.h"

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

namespace {

void check(bool condition) {
    if (!condition) {
        std::abort();
    }
}

void walk(const qs::MIMEPart& part, std::string_view message, int depth) {
    check(depth <= qs::MIMEParser::kMaxDepth);
    std::string_view body = part.body.view();
    check(body.empty() || message.empty() ||
          (body.data() >= message.data() &&
           body.data() + body.size() <= message.data() + message.size()));
    check(part.children.empty() || body.empty());
    (void)part.transferEncoding();
    (void)part.filename();
    (void)part.contentID();
    (void)part.disposition();
    (void)part.decodedText();
    for (const auto& child : part.children) {
        walk(child, message, depth + 1);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size) {
    auto buffer = std::make_shared<const std::string>(reinterpret_cast<const char*>(data), size);
    qs::ParsedMessage message = qs::MIMEParser::parse(qs::ByteSlice(buffer));
    // A CR-only message is parsed from a copy with line feeds, which its bodies point into.
    const bool copied = qs::LineEnds::crOnly(*buffer);
    walk(message.root, copied ? std::string_view{} : std::string_view(*buffer), 0);
    for (size_t i = 0; i < message.attachments.size(); ++i) {
        check(message.attachments[i].id == std::int64_t(i));
        check(!message.attachments[i].filename.empty());
    }
    check(message.fileAttachments().size() <= message.attachments.size());
    (void)message.plainText();
    check(qs::MIMEParser::headers(*buffer) == message.headers ||
          size > qs::MIMEParser::kHeaderScanLimit);
    (void)qs::MIMEParser::looksValid(*buffer);
    return 0;
}
