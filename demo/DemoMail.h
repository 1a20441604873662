#pragma once

#include "support/Date.h"

#include <cstdint>
#include <string>
#include <vector>

namespace qs::demo {

/// One generated message and the mailbox it belongs in.
struct DemoMessage {
    /// Mailbox name as the server knows it ("INBOX", "Archive", "Newsletters", "Sent").
    std::string folder;
    /// The whole message, CR LF line ends.
    std::string bytes;
    /// The instant its Date header names: when the message reached the server, too.
    Date date;
    bool operator==(const DemoMessage&) const = default;
};

/// A fictional person's mailbox over fifteen years, for the demo and for tests: family and
/// work mail, newsletters with tracking pixels and remote images, a few look-alike and
/// display-name phishing messages with misleading links, attachments, and bodies in several
/// charsets and transfer encodings. Every name and domain is invented (".example" domains).
///
/// Deterministic: the same seed gives the same bytes on every machine (no library
/// distributions, no clock). Messages come oldest first; dates run from January of
/// `lastYear - 14` to the end of `lastYear`.
class DemoMail {
public:
    /// The mailboxes the generator fills, in the order a server would list them.
    static const std::vector<std::string>& folders();

    /// `count` messages from `seed`.
    static std::vector<DemoMessage> generate(uint64_t seed, int count = 600, int lastYear = 2025);
};

} // namespace qs::demo
