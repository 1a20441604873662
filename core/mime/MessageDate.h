#pragma once

#include "mime/MIMEHeaders.h"
#include "support/Date.h"

#include <optional>

namespace qs::MessageDate {

/// When a message was written or, failing that, when it arrived: its first `Date` field as
/// `MailDate::parse` reads it, otherwise the newest date among its `Received` fields (each
/// dated after its last ";"), otherwise nothing. Never fails.
std::optional<Date> of(const MIMEHeaders& headers);

} // namespace qs::MessageDate
