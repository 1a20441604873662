#pragma once

#include "support/DovecotFixture.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qs::test {

/// `text` with a CR put before every LF that has none: line ends as a server keeps them, so
/// that what it serves back compares byte for byte.
std::string withCRLF(std::string_view text);

/// Whether `text` holds a CR that no LF follows.
bool hasBareCR(std::string_view text);

/// Which corpus messages `corpusMail` takes, besides leaving out every message a server might
/// rewrite (one with a NUL byte or a bare CR).
struct CorpusMailFilter {
    /// Size bounds of the message as the corpus has it.
    size_t minBytes = 200;
    size_t maxBytes = 50'000;
    /// Only messages that open with a From: field.
    bool fromFirst = true;
    /// Only messages whose last byte is an LF.
    bool endsWithNewline = false;
    /// Messages whose lines already end in CR LF pass too; otherwise any CR leaves one out.
    bool crlfToo = false;

    bool operator==(const CorpusMailFilter&) const = default;
};

/// Real messages of the corpus that pass `filter`, in corpus order, with CR LF line ends; at
/// most `count` of them, all with `count` 0. Throws as corpusMessages() does.
std::vector<std::string> corpusMail(size_t count, const CorpusMailFilter& filter = {});

/// One message to seed, and its arrival (INTERNALDATE) in Unix seconds; without one it arrives
/// at the moment of seeding.
struct SeedMessage {
    std::string bytes;
    std::optional<int64_t> arrival;

    bool operator==(const SeedMessage&) const = default;
};

/// Fills a user's folders in one `doveadm import` from a Maildir tree written under
/// `directory` (removed again afterwards): much faster than delivering one by one, and each new
/// folder's UID n is its n-th message. Folders go in name order. `config` is the server's
/// configuration file. Throws std::runtime_error when doveadm fails, std::filesystem_error when
/// the tree can't be written.
void seedFolders(const std::filesystem::path& directory, const std::filesystem::path& config,
                 const std::string& user,
                 const std::map<std::string, std::vector<SeedMessage>>& folders);

/// The same against a running fixture, in its own folder.
void seedFolders(DovecotFixture& dovecot, const std::string& user,
                 const std::map<std::string, std::vector<SeedMessage>>& folders);
/// The same for messages that all arrive at the moment of seeding.
void seedFolders(DovecotFixture& dovecot, const std::string& user,
                 const std::map<std::string, std::vector<std::string>>& folders);

/// Seeds the generated mailbox of DemoMail, `count` messages from `seed`, into a user's folders,
/// each message arriving when its Date header says. Returns how many went to each folder.
std::map<std::string, size_t> seedDemoMail(DovecotFixture& dovecot, const std::string& user,
                                           uint64_t seed, int count);

} // namespace qs::test
