#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace qs::test {

/// A private, real Dovecot on 127.0.0.1 for integration tests: its own configuration, TLS
/// certificate, users and Maildir storage in a temporary folder, on free ports. A trusted
/// fixture's certificate comes from the program's test CA (see trustedCA); an untrusted one's
/// from a CA of its own. Helpers drive `doveadm` and throw std::runtime_error with its output.
class DovecotFixture {
public:
    struct Options {
        /// Also listen for plain IMAP (no TLS).
        bool plainListener = false;
        /// The one host name the certificate names; empty: IP 127.0.0.1 and localhost.
        std::string certificateHost;
        bool trusted = true;
    };

    struct StoredMessage {
        uint32_t uid = 0;
        std::vector<std::string> flags;
    };

    explicit DovecotFixture(const Options& options);
    DovecotFixture() : DovecotFixture(Options{}) {}
    ~DovecotFixture();

    DovecotFixture(const DovecotFixture&) = delete;
    DovecotFixture& operator=(const DovecotFixture&) = delete;

    /// The program's fixture with default options, started on first use and stopped at exit.
    static DovecotFixture& shared();

    uint16_t imapsPort() const { return imapsPort_; }
    /// The plain port; 0 unless `plainListener` was asked for.
    uint16_t imapPort() const { return imapPort_; }
    const std::filesystem::path& directory() const { return directory_; }
    const std::filesystem::path& configFile() const { return configFile_; }
    const std::filesystem::path& caFile() const { return caFile_; }

    void addUser(const std::string& user, const std::string& password);
    /// By its UTF-8 name, with parents ("A/B/C"); existing folders are fine.
    void createFolder(const std::string& user, const std::string& folder);
    /// When a message reached the server (its INTERNALDATE), to the second.
    using Arrival = std::chrono::system_clock::time_point;

    uint32_t deliver(const std::string& user, const std::string& folder, const std::string& message,
                     std::optional<Arrival> arrival = std::nullopt);
    /// Appends messages (arriving now, or at `arrivals`) to an ASCII-named folder in one IMAP
    /// session and returns their UIDs.
    std::vector<uint32_t> deliverAll(const std::string& user, const std::string& folder,
                                     const std::vector<std::string>& messages,
                                     std::vector<Arrival> arrivals = {});
    /// The folder's messages in UID order, with their flags (\Recent left out).
    std::vector<StoredMessage> messages(const std::string& user, const std::string& folder);
    uint32_t uidValidity(const std::string& user, const std::string& folder);
    void setUIDValidity(const std::string& user, const std::string& folder, uint32_t value);
    /// Renumbers a folder as a migrated server: new UIDs (returned in the old order) and a new
    /// UIDVALIDITY.
    std::vector<uint32_t> renumber(const std::string& user, const std::string& folder);

private:
    std::vector<std::string> doveadm(std::vector<std::string> arguments) const;
    void stop();

    std::filesystem::path directory_;
    std::filesystem::path configFile_;
    std::filesystem::path caFile_;
    uint16_t imapsPort_ = 0;
    uint16_t imapPort_ = 0;
    pid_t master_ = -1;
};

} // namespace qs::test
