// SearchIndex::makeRecord: one message file's bytes to its record and search text.
#include "search/SearchIndex.h"

#include "mime/MIMEParser.h"
#include "mime/MessageDate.h"
#include "safety/HTMLInspector.h"
#include "safety/ReplyToCheck.h"
#include "safety/SenderCheck.h"
#include "safety/SenderTrust.h"
#include "safety/TextUtil.h"
#include "support/Regex.h"
#include "support/Unicode.h"

#include <chrono>
#include <cstdlib>
#include <memory>
#include <unicode/brkiter.h>
#include <unicode/utext.h>

namespace qs {

namespace {

/// The snippet's length in user-perceived characters: about two lines of the message list.
constexpr size_t snippetLength = 180;

/// How much of the body is searchable, in user-perceived characters: enough for any letter a
/// person writes, while a pasted log or a huge newsletter can't flood the index.
constexpr size_t searchableBodyLength = 40'000;

/// The first stretch of the body squeezed for the snippet; doubled until it yields more
/// characters than the snippet needs, so a long body is never squeezed whole.
constexpr size_t snippetWindow = 2048;

/// The first `count` extended grapheme clusters of UTF-8 text, and whether the text had more.
std::string_view graphemePrefix(std::string_view text, size_t count, bool* more = nullptr) {
    if (more) {
        *more = false;
    }
    if (text.size() <= count) {
        // A cluster holds at least one byte.
        return text;
    }
    if (TextUtil::isASCII(text.substr(0, count + 1))) {
        // In ASCII only CR LF makes a cluster of two bytes.
        size_t clusters = 0;
        size_t i = 0;
        while (i < text.size() && clusters < count && static_cast<unsigned char>(text[i]) < 0x80) {
            i += (text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n') ? 2 : 1;
            ++clusters;
        }
        if (clusters == count && (i == text.size() || static_cast<unsigned char>(text[i]) < 0x80)) {
            if (more) {
                *more = i < text.size();
            }
            return text.substr(0, i);
        }
    }
    UErrorCode status = U_ZERO_ERROR;
    UText ut = UTEXT_INITIALIZER;
    utext_openUTF8(&ut, text.data(), int64_t(text.size()), &status);
    if (U_FAILURE(status)) {
        return text;
    }
    auto& it = Unicode::characterIterator();
    it.setText(&ut, status);
    it.first();
    int32_t end = it.next(int32_t(count));
    it.setText(icu::UnicodeString());
    utext_close(&ut);
    if (end == icu::BreakIterator::DONE) {
        return text;
    }
    if (more) {
        *more = size_t(end) < text.size();
    }
    return text.substr(0, size_t(end));
}

/// The body with every run of white space (`\s+`) made one blank, cut to the snippet length.
std::string snippetOf(std::string_view body) {
    static const Regex whiteSpace(std::string_view("\\s+"));
    for (size_t window = snippetWindow;; window *= 2) {
        std::string_view part = body.substr(0, std::min(window, body.size()));
        bool complete = part.size() == body.size();
        auto squeezed = Unicode::toUTF8(
            whiteSpace.replaceAll(Unicode::fromUTF8(part), icu::UnicodeString(u' ')));
        // The window's cut can spoil its last character and the one before (a mark cut off
        // from its letter), so two characters beyond the snippet must be in hand.
        bool more = false;
        graphemePrefix(squeezed, snippetLength + 1, &more);
        if (complete || more) {
            return std::string(graphemePrefix(squeezed, snippetLength));
        }
    }
}

Date dateFromSeconds(double seconds) {
    return Date(std::chrono::duration_cast<Date::duration>(std::chrono::duration<double>(seconds)));
}

} // namespace

SearchIndex::Entry SearchIndex::makeRecord(std::string_view data, std::string_view path,
                                           double mtime) {
    Entry entry;
    MessageRecord& r = entry.record;
    ParsedMessage message = MIMEParser::parse(data);

    r.path = std::string(path);
    std::vector<std::string_view> components;
    for (size_t start = 0; start <= path.size();) {
        size_t slash = std::min(path.find('/', start), path.size());
        if (slash > start) {
            components.push_back(path.substr(start, slash - start));
        }
        start = slash + 1;
    }
    if (!components.empty()) {
        r.account = std::string(components[0]);
    }
    if (components.size() > 1) {
        r.folder = std::string(components[1]);
    }

    std::string body = message.plainText();
    HTMLReport report;
    if (message.htmlBody) {
        report = HTMLInspector::inspect(*message.htmlBody);
    }
    r.trust = senderTrustFrom(message.headers).trust;

    r.subject = message.subject;
    if (!message.from.empty()) {
        r.fromName = message.from.front().name;
        r.fromEmail = message.from.front().email;
    }
    for (const auto* list : {&message.to, &message.cc}) {
        for (const auto& address : *list) {
            if (!r.to.empty()) {
                r.to += ", ";
            }
            r.to += address.formatted();
        }
    }
    r.snippet = snippetOf(body);
    // Without a readable Date the delivery stamped in Received beats the file's time, which a
    // copy of the vault may have lost.
    auto date = message.date ? message.date : MessageDate::of(message.headers);
    r.date = date ? *date : dateFromSeconds(mtime);
    r.size = int64_t(data.size());
    auto files = message.fileAttachments();
    r.attachments = int64_t(files.size());
    r.trackers = report.trackerCount;
    r.remoteImages = report.remoteImageCount;
    r.replyToMismatch = ReplyToCheck::mismatch(message.from, message.replyTo).has_value();
    r.linkWarnings = int64_t(report.linkWarnings.size());
    r.mtime = mtime;
    std::optional<MailAddress> sender;
    if (!message.from.empty()) {
        sender = message.from.front();
    }
    auto flags = SenderCheck::check(sender);
    if (!flags.empty()) {
        r.senderFlag = flags.front().summary;
    }

    // Subject, the addresses, the start of the body and the attachment names, one per line.
    std::string& text = entry.text;
    std::string_view searchableBody = graphemePrefix(body, searchableBodyLength);
    text.reserve(r.subject.size() + r.to.size() + searchableBody.size() + 64);
    text += r.subject;
    text += '\n';
    bool first = true;
    for (const auto* list : {&message.from, &message.to, &message.cc}) {
        for (const auto& address : *list) {
            if (!first) {
                text += ' ';
            }
            first = false;
            text += address.name;
            text += ' ';
            text += address.email;
        }
    }
    text += '\n';
    text += searchableBody;
    text += '\n';
    for (size_t i = 0; i < files.size(); ++i) {
        if (i > 0) {
            text += ' ';
        }
        text += files[i].filename;
    }
    return entry;
}

} // namespace qs
