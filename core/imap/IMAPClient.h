#pragma once

#include "imap/IMAPError.h"
#include "imap/IMAPFetchItem.h"
#include "imap/IMAPResponse.h"
#include "imap/IMAPResponseReader.h"
#include "imap/SelectInfo.h"
#include "imap/Transport.h"
#include "vault/IMAPMailbox.h"
#include "vault/IMAPServer.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

namespace qs {

/// One conversation with one IMAP server, made for one task and then dropped: no retry, no
/// reconnect, no queue. Operations block the calling thread and run one at a time; a caller
/// never overlaps commands (a second command would take the first one's responses).
///
/// Failures are `IMAPError` (see its cases), `IMAPParseError` for a malformed response (not
/// wrapped), and `CancellationError` when the stop token given at creation fires: a blocked
/// wait wakes at once and the error surfaces from the read. After a timeout, a parse error, a
/// cancellation or a throwing callback the conversation is out of step: drop the session.
///
/// The connection is TLS from the first byte (system trust, host name checked), or plain TCP
/// only when `plaintextLocalDev` is set and the host is exactly "127.0.0.1".
class IMAPClient {
public:
    /// An argument of a command: `raw` goes to the wire unchanged; `string` goes quoted, or as
    /// a synchronising literal when it holds CR, LF or non-ASCII bytes.
    struct Arg {
        enum class Kind { raw, string };
        Kind kind;
        std::string text;

        static Arg raw(std::string text) { return {Kind::raw, std::move(text)}; }
        static Arg string(std::string text) { return {Kind::string, std::move(text)}; }
        bool operator==(const Arg&) const = default;
    };

    /// The tagged OK that ended a command.
    struct Completion {
        std::optional<std::string> code;
        std::string text;
        bool operator==(const Completion&) const = default;
    };

    /// Sees every response of a command other than its tagged end. It may move data out of
    /// the response (a message body). It may throw; the error then leaves `run` at once.
    using UntaggedHandler = std::function<void(IMAPResponse&)>;

    /// The largest chunk taken from the connection at once; it goes straight into the reader.
    static constexpr std::size_t maximumChunk = 0x40000;

    /// Touches no network. `timeout` bounds connecting and each silence while a response is
    /// awaited (not the length of a command).
    IMAPClient(IMAPServer server, std::chrono::milliseconds timeout, std::stop_token stop = {});
    /// Closes the connection if still open, sending nothing.
    ~IMAPClient();

    IMAPClient(const IMAPClient&) = delete;
    IMAPClient& operator=(const IMAPClient&) = delete;

    const IMAPServer& server() const { return server_; }
    /// Capability words in upper case, from the greeting, tagged codes and CAPABILITY.
    const std::set<std::string>& capabilities() const { return capabilities_; }
    std::chrono::milliseconds timeout() const { return timeout_; }
    /// Applies from the next wait on.
    void setTimeout(std::chrono::milliseconds timeout) { timeout_ = timeout; }
    /// The longest literal accepted from now on (see IMAPResponseReader): a longer one fails
    /// the read with IMAPParseError "bad literal" before any of it is held.
    void setLiteralLimit(std::size_t limit) { reader_.setLiteralLimit(limit); }
    /// Every byte received on this session, the greeting included; safe to read from any thread.
    int64_t bytesRead() const { return bytesRead_.load(std::memory_order_relaxed); }
    /// True between a successful start of `connect` and `disconnect` / `logout`.
    bool isConnected() const { return transport_ != nullptr; }

    /// Opens the connection and reads the greeting; sends nothing. Throws
    /// `insecureNotAllowed` before any network activity when plaintext is asked for any host
    /// but "127.0.0.1"; `connectionFailed` "bad port" for port 0, with the system's text when
    /// the connection or TLS fails, with the server's text for a BYE greeting; `timeout`;
    /// `protocolError` "no greeting" for anything but an OK or PREAUTH greeting.
    void connect();

    /// Closes the connection if there is one. Never fails, sends nothing, repeatable.
    void disconnect();

    /// Sends one tagged command ("M0001", "M0002", ... past "M9999" to five digits) and reads
    /// to its tagged end. Literals wait for the server's "+"; a tagged answer instead fails as
    /// `commandFailed` with command "literal". A NO or BAD fails as `commandFailed` with
    /// `command`; an untagged BYE fails as `connectionFailed` (except during LOGOUT). Other
    /// responses, and tagged ones with a stale tag, go to `onUntagged`.
    Completion run(std::string_view command, const std::vector<Arg>& args,
                   const UntaggedHandler& onUntagged = {});

    // The commands. Each fails as `run` does unless said otherwise.

    /// CAPABILITY; the refreshed set.
    std::set<std::string> capability();
    /// LOGIN "user" "password"; then CAPABILITY when the set is empty or lacks IMAP4REV1.
    void login(const std::string& user, const std::string& password);
    /// LIST "" "*": every mailbox in server order, selectable or not.
    std::vector<IMAPMailbox> list();
    /// SELECT, or EXAMINE when `readOnly`, of the name as the server spelled it.
    SelectInfo select(const std::string& name, bool readOnly);
    /// UID SEARCH with the criteria as given (raw); the UIDs ascending.
    std::vector<uint32_t> uidSearch(const std::string& criteria);
    /// UID FETCH of UID, size, date and flags; items without a UID dropped. No UIDs: nothing
    /// is sent.
    std::vector<IMAPFetchItem> fetchMeta(const std::vector<uint32_t>& uids);
    /// UID FETCH with BODY.PEEK[] (never marks a message read): each item with a UID and a
    /// body goes to `onMessage` as it arrives, in server order, and is not kept. `onMessage`
    /// may throw, which ends the command. No UIDs: nothing is sent.
    void fetchBodies(const std::vector<uint32_t>& uids,
                     const std::function<void(IMAPFetchItem&&)>& onMessage);
    /// UID STORE set +FLAGS.SILENT (\Deleted) / -FLAGS.SILENT (\Deleted). No UIDs: nothing.
    void markDeleted(const std::vector<uint32_t>& uids);
    void unmarkDeleted(const std::vector<uint32_t>& uids);
    /// UID EXPUNGE of the set when the server has UIDPLUS (returns true); otherwise plain
    /// EXPUNGE, which removes every message flagged \Deleted in the folder (returns false).
    bool expunge(const std::vector<uint32_t>& uids);
    /// LOGOUT, ignoring any failure, then closes the connection. Never fails.
    void logout() noexcept;

private:
    void send(std::string_view bytes);
    IMAPResponse readResponse();
    void parseCapabilities(std::string_view codeText);
    void store(const std::vector<uint32_t>& uids, const char* change);

    IMAPServer server_;
    std::chrono::milliseconds timeout_;
    std::stop_token stop_;
    std::unique_ptr<Transport> transport_;
    IMAPResponseReader reader_;
    int64_t tagCounter_ = 0;
    std::set<std::string> capabilities_;
    std::atomic<int64_t> bytesRead_ = 0;
};

} // namespace qs
