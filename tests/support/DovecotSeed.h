#pragma once

#include "support/DovecotFixture.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace qs::test {

/// Which corpus messages `corpusMail` takes; never one with a NUL byte or a bare CR, which a
/// server might rewrite.
struct CorpusMailFilter {
    size_t minBytes = 200;
    size_t maxBytes = 50'000;
    bool fromFirst = true; // opens with a From: field
    bool endsWithNewline = false;
    bool crlfToo = false; // otherwise any CR leaves a message out
};

/// Up to `count` (0: all) corpus messages that pass `filter`, in order, with CR LF line ends.
std::vector<std::string> corpusMail(size_t count, const CorpusMailFilter& filter = {});

/// A message and its arrival (INTERNALDATE) in Unix seconds; without one, now.
struct SeedMessage {
    std::string bytes;
    std::optional<int64_t> arrival;
};

/// Fills a user's folders in one `doveadm import` from a Maildir tree written under
/// `directory`, much faster than delivering one by one; a new folder's UID n is its n-th message.
void seedFolders(const std::filesystem::path& directory, const std::filesystem::path& config,
                 const std::string& user,
                 const std::map<std::string, std::vector<SeedMessage>>& folders);

void seedFolders(DovecotFixture& dovecot, const std::string& user,
                 const std::map<std::string, std::vector<SeedMessage>>& folders);
void seedFolders(DovecotFixture& dovecot, const std::string& user,
                 const std::map<std::string, std::vector<std::string>>& folders);

/// Seeds `count` messages of the demo mailbox from `seed`; returns how many went to each folder.
std::map<std::string, size_t> seedDemoMail(DovecotFixture& dovecot, const std::string& user,
                                           uint64_t seed, int count);

} // namespace qs::test
