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
/// certificates, users and Maildir storage in a temporary folder, on free ports, never touching
/// the system's Dovecot. Starting takes a moment, so a test program normally starts one, through
/// `shared()`, and uses it in every test (give each test its own user or folder so tests don't
/// see each other's mail).
///
/// Trust: every fixture whose `trusted` option is set presents a server certificate issued by
/// one test CA made once per test program; the first such fixture points SSL_CERT_FILE at that
/// CA, so OpenSSL's default verify paths (the client's "system trust") trust it and nothing
/// else. The certificate names IP 127.0.0.1 and DNS localhost unless `certificateHost` says
/// otherwise. A fixture with `trusted` false gets a certificate from a CA of its own that nobody
/// trusts: that and a certificate for another host name are the two TLS refusals to test.
///
/// Users live in a passwd-file under nobody's uid and gid (Dovecot won't serve mail owned by
/// root); the namespace separator is "/". Helpers drive `doveadm` against this configuration and
/// throw std::runtime_error with its output when it fails. The server stops when the fixture is
/// destroyed (and, should the test program die, when its parent thread goes away).
///
///     auto& dovecot = DovecotFixture::shared();
///     dovecot.addUser("ann", "pw");
///     dovecot.createFolder("ann", "Archive/2024");
///     uint32_t uid = dovecot.deliver("ann", "Archive/2024", "Subject: hi\r\n\r\nbody\r\n");
///     IMAPServer server{"127.0.0.1", dovecot.imapsPort(), "ann", false};
class DovecotFixture {
public:
    struct Options {
        /// Also listen for plain IMAP (no TLS) on 127.0.0.1.
        bool plainListener = false;
        /// The one host name the server certificate names; empty: IP 127.0.0.1 and localhost.
        std::string certificateHost;
        /// Issue the certificate from the trusted test CA (see above).
        bool trusted = true;
    };

    /// One message as the server keeps it.
    struct StoredMessage {
        uint32_t uid = 0;
        std::vector<std::string> flags;
        uint64_t size = 0;
        bool operator==(const StoredMessage&) const = default;
    };

    /// Starts the server and waits until it accepts connections; throws std::runtime_error
    /// carrying Dovecot's log when it doesn't come up.
    explicit DovecotFixture(Options options);
    DovecotFixture() : DovecotFixture(Options{}) {}
    ~DovecotFixture();

    DovecotFixture(const DovecotFixture&) = delete;
    DovecotFixture& operator=(const DovecotFixture&) = delete;

    /// The fixture of this test program with default options, started on first use and stopped
    /// at exit.
    static DovecotFixture& shared();

    uint16_t imapsPort() const { return imapsPort_; }
    /// The plain port; 0 unless `plainListener` was asked for.
    uint16_t imapPort() const { return imapPort_; }
    const std::filesystem::path& directory() const { return directory_; }
    const std::filesystem::path& configFile() const { return configFile_; }
    /// The CA certificate the server's certificate was issued by.
    const std::filesystem::path& caFile() const { return caFile_; }

    /// Adds a user (idempotent for the same name; a later call changes the password).
    void addUser(const std::string& user, const std::string& password);
    /// Creates a folder by its UTF-8 name, with parents ("A/B/C"). Existing folders are fine.
    void createFolder(const std::string& user, const std::string& folder);
    /// When a message reached the server: what IMAP reports as its INTERNALDATE, and what a
    /// backup files it by. Kept to the second.
    using Arrival = std::chrono::system_clock::time_point;

    /// Stores a message in a folder and returns its UID. Without `arrival` the message arrives
    /// now. With one, the folder's name must be ASCII (std::invalid_argument otherwise).
    uint32_t deliver(const std::string& user, const std::string& folder, const std::string& message,
                     std::optional<Arrival> arrival = std::nullopt);
    /// Stores messages in order, appended over IMAP in one session, and returns their UIDs.
    /// With `arrivals` empty every message arrives now; otherwise `arrivals` gives each its
    /// arrival, one for each. Throws std::invalid_argument when the counts differ or the
    /// folder's name isn't ASCII.
    std::vector<uint32_t> deliverAll(const std::string& user, const std::string& folder,
                                     const std::vector<std::string>& messages,
                                     const std::vector<Arrival>& arrivals = {});
    /// The folder's messages in UID order, with their flags (\Recent left out).
    std::vector<StoredMessage> messages(const std::string& user, const std::string& folder);
    /// The folder's UIDVALIDITY, and a way to change it (as a server that rebuilt its index).
    uint32_t uidValidity(const std::string& user, const std::string& folder);
    void setUIDValidity(const std::string& user, const std::string& folder, uint32_t value);
    /// Renumbers a folder as a server that rebuilt or migrated it: every message moved out and
    /// back (so each gets a new UID), then a new UIDVALIDITY. Returns the new UIDs in the old
    /// order.
    std::vector<uint32_t> renumber(const std::string& user, const std::string& folder);
    /// Adds flags to messages by UID, e.g. "\\Deleted".
    void addFlags(const std::string& user, const std::string& folder, uint32_t uid,
                  const std::string& flags);

    /// Dovecot's own log so far, for failure messages.
    std::string log() const;

private:
    /// IMAP APPEND with an INTERNALDATE each, through a pre-authenticated `imap` process.
    std::vector<uint32_t> append(const std::string& user, const std::string& folder,
                                 const std::vector<std::string>& messages,
                                 const std::vector<Arrival>& arrivals) const;
    std::vector<std::string> doveadm(std::vector<std::string> arguments) const;
    void writeUsers() const;
    void stop();

    Options options_;
    std::filesystem::path directory_;
    std::filesystem::path configFile_;
    std::filesystem::path caFile_;
    std::vector<std::pair<std::string, std::string>> users_;
    uint16_t imapsPort_ = 0;
    uint16_t imapPort_ = 0;
    pid_t master_ = -1;
};

} // namespace qs::test
