#pragma once

#include "backup/ImportOutcome.h"
#include "support/Date.h"
#include "vault/ArchiveLayout.h"

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qs {

/// One import call: the paths the user named, filed below "Imported" one after another, and
/// made durable together at the end. A message whose exact bytes are already somewhere below
/// "Imported" is recognised there (size first, then bytes) and not written again, whatever
/// day, time zone or name it would get now. Used from one thread at a time.
class ImportBatch {
public:
    explicit ImportBatch(ArchiveLayout layout);

    /// Imports one named path: an mbox (by its extension "mbox" or "mbx", or a start of
    /// "From "), a single message file, or a Maildir folder (the files of its `cur` and `new`,
    /// filed under the folder's name). Never throws: what went wrong is in the outcome.
    ImportOutcome add(const std::filesystem::path& path);

    /// `Importer::store` within this batch: files each block that reads as mail and returns
    /// the vault-relative paths, in order. A message without a readable Date or Received date
    /// is dated `undated` (the present moment when none is given). Throws what
    /// `ArchiveLayout::write` throws (std::system_error); the files written before stay.
    std::vector<std::string> store(const std::vector<std::string>& messages,
                                   std::string_view collection,
                                   std::optional<Date> undated = std::nullopt);

    /// Flushes the vault's file system once when this batch wrote a file, so that the new
    /// files are on the disk before anything records them; a batch that wrote nothing flushes
    /// nothing. Throws std::system_error.
    void finish();

    /// The message files this batch has written so far.
    std::int64_t written() const { return written_; }

private:
    const std::string* alreadyFiled(const std::string& message);
    void importMaildir(ImportOutcome& outcome);
    void fileInto(ImportOutcome& outcome, const std::vector<std::string>& messages,
                  std::string_view collection, std::optional<Date> undated);

    ArchiveLayout layout_;
    /// Message files below "Imported" by size, read on first need and kept up to date.
    std::optional<std::map<std::uint64_t, std::vector<std::string>>> filed_;
    std::int64_t written_ = 0;
    std::int64_t flushed_ = 0;
};

} // namespace qs
