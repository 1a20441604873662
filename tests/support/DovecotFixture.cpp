#include "support/DovecotFixture.h"

#include "support/Loopback.h"
#include "support/Subprocess.h"
#include "support/TemporaryDirectory.h"
#include "support/TestCertificates.h"

#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <iomanip>
#include <sstream>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace qs::test {

namespace fs = std::filesystem;

namespace {

// Dovecot refuses to serve mail owned by root; nobody's ids are always there.
constexpr uid_t mailUID = 65534;
constexpr gid_t mailGID = 65534;

bool accepts(uint16_t port) {
    int fd = Loopback::connect(port);
    return fd >= 0 && ::close(fd) == 0;
}

void replaceAll(std::string& text, std::string_view from, const std::string& to) {
    for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at)) {
        text.replace(at, from.size(), to);
        at += to.size();
    }
}

// Everything under the fixture's folder, nothing shared with a system Dovecot. A plain port of
// 0 turns that listener off. One passwd-file per user (%u): Dovecot re-reads a changed file at
// most once a second, but opens a file it hasn't seen at once, so a user added now can sign in
// now.
constexpr const char* configTemplate = R"(protocols = imap
listen = 127.0.0.1
base_dir = @DIR@/run
state_dir = @DIR@/state
log_path = @DIR@/dovecot.log
default_internal_user = dovecot
default_login_user = dovenull
first_valid_uid = 1
mail_location = maildir:~/Maildir
mail_fsync = never
disable_plaintext_auth = no
auth_mechanisms = plain login
auth_failure_delay = 0
ssl = yes
ssl_cert = <@DIR@/server-chain.pem
ssl_key = <@DIR@/server.key
ssl_min_protocol = TLSv1.2
passdb {
  driver = passwd-file
  args = scheme=PLAIN @DIR@/users/%u
}
userdb {
  driver = passwd-file
  args = @DIR@/users/%u
}
namespace inbox {
  inbox = yes
  separator = /
}
protocol imap {
  mail_max_userip_connections = 1000
}
service imap-login {
  inet_listener imap {
    port = @IMAP@
  }
  inet_listener imaps {
    port = @IMAPS@
    ssl = yes
  }
}
)";

} // namespace

DovecotFixture::DovecotFixture(const Options& options) {
    directory_ = ScratchFiles::makeSharedFolder("qs-dovecot-");
    try {
        CertificateAuthority ca =
            options.trusted ? trustedCA() : makeCA(directory_, "Untrusted Quernstead Test CA");
        caFile_ = ca.certificate;
        issueServerCertificate(ca, directory_, options.certificateHost);

        for (const char* sub : {"run", "state", "home", "users"})
            fs::create_directories(directory_ / sub);
        imapsPort_ = Loopback::freePort();
        imapPort_ = options.plainListener ? Loopback::freePort() : 0;

        configFile_ = directory_ / "dovecot.conf";
        std::string config = configTemplate;
        replaceAll(config, "@DIR@", directory_.string());
        replaceAll(config, "@IMAP@", std::to_string(imapPort_));
        replaceAll(config, "@IMAPS@", std::to_string(imapsPort_));
        ScratchFiles::write(configFile_, config);

        master_ = ::fork();
        if (master_ < 0)
            throw std::runtime_error(std::string("fork: ") + std::strerror(errno));
        if (master_ == 0) {
            // Dovecot goes with the test program, even when that one crashes.
            ::prctl(PR_SET_PDEATHSIG, SIGTERM);
            int log = ::open((directory_ / "dovecot.log").c_str(),
                             O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
            ::dup2(log, 1);
            ::dup2(log, 2);
            ::execlp("dovecot", "dovecot", "-F", "-c", configFile_.c_str(),
                     static_cast<char*>(nullptr));
            ::_exit(127);
        }

        // A server coming up has no event to wait on from here; poll its port in short steps.
        auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        for (;;) {
            int status = 0;
            if (::waitpid(master_, &status, WNOHANG) == master_) {
                master_ = -1;
                throw std::runtime_error("dovecot exited at start: " +
                                         ScratchFiles::read(directory_ / "dovecot.log"));
            }
            if (accepts(imapsPort_) && (imapPort_ == 0 || accepts(imapPort_)))
                break;
            if (std::chrono::steady_clock::now() > deadline)
                throw std::runtime_error("dovecot did not start: " +
                                         ScratchFiles::read(directory_ / "dovecot.log"));
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    } catch (...) {
        stop();
        throw;
    }
}

DovecotFixture::~DovecotFixture() {
    stop();
}

void DovecotFixture::stop() {
    if (master_ > 0) {
        ::kill(master_, SIGTERM);
        int status = 0;
        while (::waitpid(master_, &status, 0) < 0 && errno == EINTR) {
        }
        master_ = -1;
    }
    std::error_code ignored;
    fs::remove_all(directory_, ignored);
}

DovecotFixture& DovecotFixture::shared() {
    static DovecotFixture fixture;
    return fixture;
}

void DovecotFixture::addUser(const std::string& user, const std::string& password) {
    fs::path home = directory_ / "home" / user;
    fs::create_directories(home);
    if (::chown(home.c_str(), mailUID, mailGID) != 0)
        throw std::runtime_error("chown " + home.string() + ": " + std::strerror(errno));
    std::string line = user + ":{PLAIN}" + password + ":" + std::to_string(mailUID) + ":" +
                       std::to_string(mailGID) + "::" + home.string() + "::\n";
    fs::path path = directory_ / "users" / user;
    if (ScratchFiles::read(path) != line) {
        // Replaced whole so that Dovecot never sees half a file.
        ScratchFiles::write(path.string() + ".new", line);
        fs::rename(path.string() + ".new", path);
    }
}

std::vector<std::string> DovecotFixture::doveadm(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), {"doveadm", "-c", configFile_.string()});
    std::string output = runChecked(arguments);
    std::vector<std::string> lines;
    std::istringstream stream(output);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

void DovecotFixture::createFolder(const std::string& user, const std::string& folder) {
    ProcessResult result = runProcess(
        {"doveadm", "-c", configFile_.string(), "mailbox", "create", "-u", user, folder});
    // An existing folder is fine: doveadm then says so and exits non-zero.
    if (result.exitCode != 0 && result.output.find("already exists") == std::string::npos)
        throw std::runtime_error("doveadm mailbox create " + folder + ": " + result.output);
}

uint32_t DovecotFixture::deliver(const std::string& user, const std::string& folder,
                                 const std::string& message, std::optional<Arrival> arrival) {
    return deliverAll(user, folder, {message}, {arrival.value_or(std::chrono::system_clock::now())})
        .front();
}

std::vector<uint32_t> DovecotFixture::deliverAll(const std::string& user, const std::string& folder,
                                                 const std::vector<std::string>& messages,
                                                 std::vector<Arrival> arrivals) {
    if (arrivals.empty())
        arrivals.assign(messages.size(), std::chrono::system_clock::now());
    // Dovecot takes a message's received date from APPEND's date-time only (doveadm save has
    // no such option). LITERAL+ lets the whole session go in as one script.
    std::string script;
    for (size_t i = 0; i < messages.size(); ++i) {
        std::time_t seconds = std::chrono::system_clock::to_time_t(arrivals.at(i));
        std::tm utc{};
        ::gmtime_r(&seconds, &utc);
        std::ostringstream date; // month names from the classic locale, not the program's
        date.imbue(std::locale::classic());
        date << std::put_time(&utc, "%d-%b-%Y %H:%M:%S +0000");
        script += "A" + std::to_string(i) + " APPEND \"" + folder + "\" \"" + date.str() + "\" {" +
                  std::to_string(messages[i].size()) + "+}\r\n" + messages[i] + "\r\n";
    }
    std::string output =
        runChecked({"doveadm", "-c", configFile_.string(), "exec", "imap", "-u", user},
                   script + "Z LOGOUT\r\n");
    // Each append answers "A<i> OK [APPENDUID <validity> <uid>] ...".
    std::vector<uint32_t> uids;
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string tag, status, code, validity, uid;
        words >> tag >> status >> code >> validity >> uid;
        if (tag == "A" + std::to_string(uids.size()) && status == "OK" && code == "[APPENDUID")
            uids.push_back(static_cast<uint32_t>(std::stoul(uid)));
    }
    if (uids.size() != messages.size())
        throw std::runtime_error("APPEND to " + folder + " failed: " + output);
    return uids;
}

std::vector<DovecotFixture::StoredMessage> DovecotFixture::messages(const std::string& user,
                                                                    const std::string& folder) {
    std::vector<std::string> lines =
        doveadm({"-f", "tab", "fetch", "-u", user, "uid flags", "mailbox", folder, "all"});
    std::vector<StoredMessage> result;
    // The first line names the fields; then the UID and the flags of each message.
    for (size_t i = 1; i < lines.size(); ++i) {
        std::istringstream words(lines[i]);
        StoredMessage message;
        if (!(words >> message.uid))
            continue;
        // \Recent belongs to doveadm's own session, not to the message.
        for (std::string flag; words >> flag;)
            if (flag != "\\Recent")
                message.flags.push_back(flag);
        result.push_back(std::move(message));
    }
    return result;
}

uint32_t DovecotFixture::uidValidity(const std::string& user, const std::string& folder) {
    std::vector<std::string> lines =
        doveadm({"-f", "tab", "mailbox", "status", "-u", user, "uidvalidity", folder});
    if (lines.size() < 2)
        throw std::runtime_error("doveadm mailbox status gave no uidvalidity for " + folder);
    // "mailbox<TAB>uidvalidity" heads the output; the value is the last field.
    return static_cast<uint32_t>(std::stoul(lines[1].substr(lines[1].rfind('\t') + 1)));
}

void DovecotFixture::setUIDValidity(const std::string& user, const std::string& folder,
                                    uint32_t value) {
    doveadm({"mailbox", "update", "-u", user, "--uid-validity", std::to_string(value), folder});
}

std::vector<uint32_t> DovecotFixture::renumber(const std::string& user, const std::string& folder) {
    auto aside = folder + "-renumbering";
    auto old = uidValidity(user, folder);
    createFolder(user, aside);
    doveadm({"move", "-u", user, aside, "mailbox", folder, "all"});
    doveadm({"move", "-u", user, folder, "mailbox", aside, "all"});
    doveadm({"mailbox", "delete", "-u", user, aside});
    setUIDValidity(user, folder, old + 1000);
    std::vector<uint32_t> uids;
    for (const auto& message : messages(user, folder))
        uids.push_back(message.uid);
    return uids;
}

} // namespace qs::test
