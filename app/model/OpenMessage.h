#pragma once

#include "mime/MailAddress.h"
#include "mime/ParsedMessage.h"
#include "model/CopyStatus.h"
#include "safety/HTMLReport.h"
#include "safety/SenderFlag.h"
#include "safety/SenderTrust.h"
#include "search/MessageRecord.h"

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace qs {

/// The message being read, built afresh from its file on every open; identified by
/// `record.path`.
struct OpenMessage {
    MessageRecord record;
    ParsedMessage parsed;
    /// Empty when the message has no HTML body.
    HTMLReport report;
    SenderTrust trust = SenderTrust::unknown;
    /// Mechanism to result ("spf" → "pass").
    std::map<std::string, std::string> authResults;
    /// The reply address when it points to another site than the sender.
    std::optional<MailAddress> replyTo;
    std::vector<SenderFlag> senderFlags;
    CopyStatus copy;
    /// Bytes of the file as read.
    int64_t fileSize = 0;

    /// Everything the reader shows of `data`, the file of `record`. Pure and total: parsing
    /// never fails. `serverSize`, `knownDomains` and `knownNames` are the store's at the time
    /// of the click.
    static OpenMessage build(std::string data, MessageRecord record,
                             std::optional<int64_t> serverSize,
                             const std::set<std::string>& knownDomains,
                             const std::map<std::string, std::string>& knownNames);

    friend bool operator==(const OpenMessage&, const OpenMessage&) = default;
};

} // namespace qs
