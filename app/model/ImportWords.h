#pragma once

#include "backup/ImportOutcome.h"

#include <QString>
#include <vector>

namespace qs::ImportWords {

/// Why a named path gave nothing, as one line: "{path}: wasn’t a valid email",
/// "{path}: couldn’t be read — {the platform's words}", and so on. Empty for an outcome
/// without a reason.
QString line(const ImportOutcome& outcome);

/// The toast when an import filed nothing and passed over `skipped` messages or files: the
/// words of a file that couldn’t be read or copied when any was, otherwise “Nothing imported
/// — {m} file(s) wasn’t/weren’t a valid email”.
QString nothingImported(const std::vector<ImportOutcome>& outcomes, std::int64_t skipped);

} // namespace qs::ImportWords
