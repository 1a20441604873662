#include "model/OpenMessage.h"

#include "mime/ByteSlice.h"
#include "mime/MIMEParser.h"
#include "safety/HTMLInspector.h"
#include "safety/ReplyToCheck.h"
#include "safety/SenderCheck.h"

#include <memory>

namespace qs {

OpenMessage OpenMessage::build(std::string data, MessageRecord record,
                               std::optional<int64_t> serverSize,
                               const std::set<std::string>& knownDomains,
                               const std::map<std::string, std::string>& knownNames) {
    OpenMessage message;
    auto bytes = std::make_shared<const std::string>(std::move(data));
    message.parsed = MIMEParser::parse(ByteSlice(bytes));
    if (message.parsed.htmlBody) {
        message.report = HTMLInspector::inspect(*message.parsed.htmlBody);
    }
    auto reading = senderTrustFrom(message.parsed.headers);
    message.trust = reading.trust;
    message.authResults = std::move(reading.results);
    message.copy = CopyStatus::judge(*bytes, record, serverSize);
    message.replyTo = ReplyToCheck::mismatch(message.parsed.from, message.parsed.replyTo);
    std::optional<MailAddress> sender;
    if (!message.parsed.from.empty()) {
        sender = message.parsed.from.front();
    }
    message.senderFlags = SenderCheck::check(sender, knownDomains, knownNames);
    message.fileSize = static_cast<int64_t>(bytes->size());
    message.record = std::move(record);
    return message;
}

} // namespace qs
