#include "mime/MIMEParser.h"

#include "mime/AddressParser.h"
#include "mime/EncodedWords.h"
#include "mime/LineEnds.h"
#include "mime/MailDate.h"
#include "mime/MimeTypes.h"
#include "mime/TextTrim.h"
#include "mime/TransferDecoding.h"

#include <array>
#include <cstring>

namespace qs::MIMEParser {

namespace {

// Lists that `collect` grows while it walks the tree.
struct Collected {
    std::vector<std::string> texts;
    std::vector<std::string> htmls;
    std::vector<MailAttachment> attachments;
};

// Lower-case ASCII.
std::string lower(std::string_view text) {
    return TextTrim::asciiLower(text);
}

// The first occurrence of `needle` in `hay` at or after `from` that starts a line (at offset 0
// or right after a line feed), or npos. Delimiters are matched as bytes.
size_t findAtLineStart(std::string_view hay, std::string_view needle, size_t from) {
    while (from < hay.size()) {
        const void* hit =
            memmem(hay.data() + from, hay.size() - from, needle.data(), needle.size());
        if (!hit) {
            return std::string_view::npos;
        }
        size_t at = size_t(static_cast<const char*>(hit) - hay.data());
        if (at == 0 || hay[at - 1] == '\n') {
            return at;
        }
        from = at + 1;
    }
    return std::string_view::npos;
}

enum class DelimiterKind { none, separator, closing };

// What follows the marker on a delimiter line may only be whitespace, or `--` (closing) and
// anything after it. Tabs, carriage returns and spaces are ignored wherever they stand.
DelimiterKind classifyDelimiterRest(std::string_view rest) {
    size_t dashes = 0;
    for (char c : rest) {
        if (c == ' ' || c == '\t' || c == '\r') {
            continue;
        }
        if (c != '-') {
            return DelimiterKind::none;
        }
        if (++dashes == 2) {
            return DelimiterKind::closing;
        }
    }
    return dashes == 0 ? DelimiterKind::separator : DelimiterKind::none;
}

std::string_view withoutLineEnd(std::string_view piece) {
    if (!piece.empty() && piece.back() == '\n') {
        piece.remove_suffix(1);
    }
    if (!piece.empty() && piece.back() == '\r') {
        piece.remove_suffix(1);
    }
    return piece;
}

std::string extensionFor(const ContentType& type) {
    if (type.subtype == "rfc822") {
        return "eml";
    }
    return MimeTypes::ext(lower(type.mimeType()));
}

MailAttachment makeAttachment(const MIMEPart& part,
                              const std::optional<HeaderParams::Parsed>& disposition,
                              const std::vector<MailAttachment>& list) {
    MailAttachment attachment;
    attachment.id = int64_t(list.size());
    if (auto name = part.filename()) {
        attachment.filename = std::move(*name);
    } else {
        attachment.filename = "attachment-" + std::to_string(list.size() + 1);
        if (std::string ext = extensionFor(part.contentType); !ext.empty()) {
            attachment.filename += "." + ext;
        }
    }
    attachment.mimeType = part.contentType.mimeType();
    attachment.data = part.decodedBody();
    attachment.contentID = part.contentID();
    if (disposition) {
        attachment.isInline = lower(disposition->value) == "inline";
    } else {
        attachment.isInline = attachment.contentID.has_value();
    }
    return attachment;
}

void collect(const MIMEPart& part, Collected& into);

// Alternatives offer one content in several forms. The text kept is the first form that has
// any, the HTML the last (the richest, by the usual order of alternatives): the tie-breaks
// differ on purpose. Attachments found in any form are all kept.
void collectAlternative(const MIMEPart& part, Collected& into) {
    Collected local;
    std::vector<std::string> text;
    std::vector<std::string> html;
    bool haveText = false;
    for (const MIMEPart& child : part.children) {
        local.texts.clear();
        local.htmls.clear();
        collect(child, local);
        if (!haveText && !local.texts.empty()) {
            text = std::move(local.texts);
            haveText = true;
        }
        if (!local.htmls.empty()) {
            html = std::move(local.htmls);
        }
    }
    for (auto& t : text) {
        into.texts.push_back(std::move(t));
    }
    for (auto& h : html) {
        into.htmls.push_back(std::move(h));
    }
    // Made-up names keep the numbers they got in the local list; only the ids are renumbered.
    for (auto& attachment : local.attachments) {
        attachment.id = int64_t(into.attachments.size());
        into.attachments.push_back(std::move(attachment));
    }
}

void collect(const MIMEPart& part, Collected& into) {
    const ContentType& type = part.contentType;
    if (type.isMultipart()) {
        if (type.subtype == "alternative") {
            collectAlternative(part, into);
            return;
        }
        for (const MIMEPart& child : part.children) {
            collect(child, into);
        }
        return;
    }
    auto disposition = part.disposition();
    bool attachment =
        (disposition && lower(disposition->value) == "attachment") || type.type != "text";
    if (!attachment && type.subtype == "html") {
        into.htmls.push_back(part.decodedText());
        return;
    }
    // A name alone doesn't make plain or enriched text an attachment: many mailers name the
    // body part.
    if (!attachment && (type.subtype == "plain" || type.subtype == "enriched")) {
        into.texts.push_back(part.decodedText());
        return;
    }
    into.attachments.push_back(makeAttachment(part, disposition, into.attachments));
}

std::string join(const std::vector<std::string>& pieces, std::string_view separator) {
    size_t total = 0;
    for (const auto& piece : pieces) {
        total += piece.size() + separator.size();
    }
    std::string out;
    out.reserve(total);
    for (size_t i = 0; i < pieces.size(); ++i) {
        if (i) {
            out += separator;
        }
        out += pieces[i];
    }
    return out;
}

std::vector<MailAddress> addresses(const MIMEHeaders& headers, std::string_view name) {
    if (const std::string* value = headers.first(name)) {
        return AddressParser::parse(*value);
    }
    return {};
}

} // namespace

HeadAndBody splitHeaderBody(std::string_view bytes) {
    if (bytes.empty()) {
        return {};
    }
    if (bytes[0] == '\n') {
        return {bytes.substr(0, 0), bytes.substr(1)};
    }
    if (bytes.size() >= 2 && bytes[0] == '\r' && bytes[1] == '\n') {
        return {bytes.substr(0, 0), bytes.substr(2)};
    }
    size_t at = 0;
    while ((at = bytes.find('\n', at)) != std::string_view::npos) {
        if (at + 1 < bytes.size() && bytes[at + 1] == '\n') {
            return {bytes.substr(0, at + 1), bytes.substr(at + 2)};
        }
        if (at + 2 < bytes.size() && bytes[at + 1] == '\r' && bytes[at + 2] == '\n') {
            return {bytes.substr(0, at + 1), bytes.substr(at + 3)};
        }
        ++at;
    }
    return {bytes, bytes.substr(bytes.size())};
}

std::vector<std::string_view> splitMultipart(std::string_view body, std::string_view boundary) {
    std::vector<std::string_view> pieces;
    std::string marker = "--";
    marker += boundary;

    bool seen = false;
    size_t pieceStart = 0;
    size_t from = 0;
    while (true) {
        size_t at = findAtLineStart(body, marker, from);
        if (at == std::string_view::npos) {
            break;
        }
        size_t restStart = at + marker.size();
        size_t lineEnd = body.find('\n', restStart);
        size_t next = lineEnd == std::string_view::npos ? body.size() : lineEnd + 1;
        if (lineEnd == std::string_view::npos) {
            lineEnd = body.size();
        }
        DelimiterKind kind = classifyDelimiterRest(body.substr(restStart, lineEnd - restStart));
        if (kind == DelimiterKind::none) {
            from = next;
            continue;
        }
        if (seen) {
            pieces.push_back(withoutLineEnd(body.substr(pieceStart, at - pieceStart)));
        }
        seen = true;
        pieceStart = next;
        if (kind == DelimiterKind::closing) {
            return pieces;
        }
        from = next;
    }
    if (seen && pieceStart < body.size()) {
        pieces.push_back(body.substr(pieceStart));
    }
    return pieces;
}

MIMEPart parsePart(const ByteSlice& bytes, int depth, const ContentType& defaultType) {
    HeadAndBody split = splitHeaderBody(bytes.view());
    MIMEPart part;
    part.headers = MIMEHeaders::parse(split.head);
    std::optional<ContentType> declared;
    if (const std::string* value = part.headers.first("Content-Type")) {
        declared = ContentType::parse(*value);
    }
    part.contentType = declared ? std::move(*declared) : defaultType;
    part.body = bytes.slice(split.body);

    const std::string* boundary = part.contentType.param("boundary");
    if (part.contentType.isMultipart() && boundary && !boundary->empty() && depth < kMaxDepth) {
        const ContentType& childDefault = part.contentType.subtype == "digest"
                                              ? ContentType::defaultMessage()
                                              : ContentType::defaultText();
        std::vector<std::string_view> pieces = splitMultipart(part.body.view(), *boundary);
        part.children.reserve(pieces.size());
        for (std::string_view piece : pieces) {
            part.children.push_back(parsePart(bytes.slice(piece), depth + 1, childDefault));
        }
        // Split or not, a multipart's own body is gone: one whose boundary never occurs
        // deliberately yields nothing rather than its raw bytes as text.
        part.body = ByteSlice();
    }
    return part;
}

ParsedMessage parse(std::string_view data) {
    return parse(ByteSlice(std::string(data)));
}

ParsedMessage parse(const ByteSlice& data) {
    // Lines ending in CR alone are read on a copy with line feeds; the bytes stay as they are.
    if (LineEnds::crOnly(data.view())) {
        return parse(ByteSlice(LineEnds::withLineFeeds(data.view())));
    }
    ParsedMessage message;
    message.root = parsePart(data, 0, ContentType::defaultText());
    Collected collected;
    collect(message.root, collected);

    const MIMEHeaders& headers = message.root.headers;
    message.headers = headers;
    if (const std::string* subject = headers.first("Subject")) {
        message.subject =
            std::string(TextTrim::whitespaceAndNewlines(EncodedWords::decode(*subject)));
    }
    message.from = addresses(headers, "From");
    message.to = addresses(headers, "To");
    message.cc = addresses(headers, "Cc");
    message.replyTo = addresses(headers, "Reply-To");
    if (const std::string* date = headers.first("Date")) {
        message.date = MailDate::parse(*date);
    }
    if (const std::string* id = headers.first("Message-ID")) {
        std::string_view trimmed(*id);
        auto trimmable = [](char c) {
            return c == '<' || c == '>' || c == ' ' || c == '\t';
        };
        while (!trimmed.empty() && trimmable(trimmed.front())) {
            trimmed.remove_prefix(1);
        }
        while (!trimmed.empty() && trimmable(trimmed.back())) {
            trimmed.remove_suffix(1);
        }
        message.messageID = std::string(trimmed);
    }
    if (!collected.texts.empty()) {
        message.textBody = join(collected.texts, "\n\n");
    }
    if (!collected.htmls.empty()) {
        message.htmlBody = join(collected.htmls, "<hr>");
    }
    message.attachments = std::move(collected.attachments);
    return message;
}

MIMEHeaders headers(std::string_view data) {
    std::string_view capped = data.substr(0, kHeaderScanLimit);
    if (LineEnds::crOnly(capped)) {
        return MIMEHeaders::parse(splitHeaderBody(LineEnds::withLineFeeds(capped)).head);
    }
    return MIMEHeaders::parse(splitHeaderBody(capped).head);
}

bool looksValid(std::string_view data) {
    if (data.empty()) {
        return false;
    }
    static constexpr std::array<std::string_view, 7> kMailFields = {
        "from", "date", "subject", "message-id", "to", "received", "return-path"};
    for (const MIMEHeaderField& field : headers(data).fields) {
        for (std::string_view name : kMailFields) {
            if (TextTrim::equalsIgnoringCase(field.name, name)) {
                return true;
            }
        }
    }
    return false;
}

} // namespace qs::MIMEParser
