#pragma once

#include <array>
#include <string_view>

/// The fixed lists behind the tracker test. Constant data, shared by every thread.
namespace qs::TrackerTables {

/// Registrable domains of mail-marketing, sales-engagement and analytics services whose
/// images exist to report that a message was opened. A short list scanned linearly, only for
/// images that no cheaper rule has decided.
extern const std::array<std::string_view, 44> trackerDomains;

/// Substrings of an image address (lower case) that mark an open-tracking pixel of one of
/// those services.
extern const std::array<std::string_view, 9> trackerPathHints;

} // namespace qs::TrackerTables
