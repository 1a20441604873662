// A full backup of a generated mailbox from a local Dovecot over TLS, printed beside two
// yardsticks on the same mailbox: mbsync pulling it into a maildir with default settings, and a
// bare probe that fetches the same messages in the same batches and throws them away. Then the
// time of a rerun that finds nothing new, and what the per-batch flush costs against a flush per
// message. Nothing is asserted.
//
//   bench_backup [messages]          (default 3000, about 107 MB)
//
// QS_BENCH_BACKUP_WRAP="perf record -g --" puts a command in front of the full backup. System
// CPU time is printed apart: on an ext4 without a journal, creating files right after many
// were deleted (a previous run's clean-up) costs a scan of the recently freed inodes per file,
// which shows there; leave a few minutes between runs, or point TMPDIR at a quiet folder.
//
// Each contender runs in a process of its own, started from a parent that holds no mail (the
// mailbox is made and seeded by a child too), so the peak RSS it reports is its own.

#include "backup/BackupPlan.h"
#include "backup/BackupRunner.h"
#include "imap/IMAPClient.h"
#include "support/AtomicFile.h"
#include "support/DovecotFixture.h"
#include "support/DovecotSeed.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <unordered_map>
#include <vector>

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

const char* const password = "secret";

// Real messages from the corpus in CRLF, each made unique by a header of its own; every tenth
// carries a 300 KB attachment so that sizes vary the way a real mailbox's do.
std::vector<std::string> generate(size_t count) {
    const std::vector<std::string> base =
        qs::test::corpusMail(0, {1, 400'000, false, false, false});
    std::vector<std::string> mail;
    for (size_t i = 0; i < count; ++i) {
        auto message = "X-Bench-Sequence: " + std::to_string(i) + "\r\n" + base[i % base.size()];
        if (i % 10 == 9) {
            std::string attachment;
            unsigned state = static_cast<unsigned>(i);
            static const char alphabet[] =
                "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
            while (attachment.size() < 300'000) {
                for (int column = 0; column < 76; ++column) {
                    state = state * 1103515245u + 12345u;
                    attachment += alphabet[(state >> 16) % 64];
                }
                attachment += "\r\n";
            }
            message += "\r\n" + attachment;
        }
        mail.push_back(std::move(message));
    }
    return mail;
}

struct Measured {
    double seconds = 0;
    double cpuSeconds = 0; ///< user + system time of the process
    double systemSeconds = 0;
    long peakKiB = 0;
    int exitCode = 0;
};

// Runs argv to its end in a process of its own: wall time and that process's peak RSS.
Measured measure(const std::vector<std::string>& argv) {
    std::vector<char*> args;
    for (const auto& arg : argv) {
        args.push_back(const_cast<char*>(arg.c_str()));
    }
    args.push_back(nullptr);
    auto start = Clock::now();
    pid_t child = ::fork();
    if (child == 0) {
        ::execvp(args[0], args.data());
        ::_exit(127);
    }
    int status = 0;
    struct rusage usage {};
    ::wait4(child, &status, 0, &usage);
    Measured result;
    result.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    result.peakKiB = usage.ru_maxrss;
    result.cpuSeconds = double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
                        double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
    result.systemSeconds = double(usage.ru_stime.tv_sec) + double(usage.ru_stime.tv_usec) / 1e6;
    result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return result;
}

qs::MailAccount account(std::uint16_t port, const std::string& user) {
    qs::MailAccount result;
    result.id = qs::UUID::parse("00000000-0000-4000-8000-000000000001").value();
    result.label = "Bench";
    result.username = user;
    result.server = {"127.0.0.1", port, false};
    return result;
}

// Child: one backup into `vault`.
int childBackup(std::uint16_t port, const std::string& user, const std::string& vault) {
    qs::BackupRunner runner(qs::ArchiveLayout{vault}, account(port, user), password);
    auto summary = runner.run({});
    std::printf("  filed %d messages, %lld bytes\n", summary.newMessages,
                static_cast<long long>(summary.bytes));
    return 0;
}

// Child: the same conversation as a backup, but every body is dropped on arrival.
int childProbe(std::uint16_t port, const std::string& user) {
    qs::IMAPClient client({"127.0.0.1", port, false}, std::chrono::seconds(60));
    client.connect();
    client.login(user, password);
    client.select("INBOX", true);
    auto uids = client.uidSearch("UID 1:*");
    std::unordered_map<std::uint32_t, std::int64_t> sizes;
    for (const auto& chunk : qs::BackupPlan::chunked(uids, qs::BackupPlan::metaChunk)) {
        for (const auto& item : client.fetchMeta(chunk)) {
            if (item.uid && item.size) {
                sizes[*item.uid] = *item.size;
            }
        }
    }
    std::int64_t bytes = 0;
    for (const auto& batch : qs::BackupPlan::batches(uids, sizes, 40, 6'000'000)) {
        client.fetchBodies(batch, [&](qs::IMAPFetchItem&& item) { bytes += item.body->size(); });
    }
    client.logout();
    std::printf("  fetched %zu messages, %lld bytes\n", uids.size(), static_cast<long long>(bytes));
    return 0;
}

void writeMbsyncConfig(const fs::path& file, const fs::path& maildir, std::uint16_t port,
                       const std::string& user, const fs::path& ca) {
    std::ofstream(file) << "IMAPAccount bench\nHost 127.0.0.1\nPort " << port << "\nUser " << user
                        << "\nPass " << password << "\nSSLType IMAPS\nCertificateFile "
                        << ca.string() << "\n\nIMAPStore remote\nAccount bench\n\n"
                        << "MaildirStore local\nPath " << maildir.string() << "/\nInbox "
                        << maildir.string() << "/INBOX\n\nChannel pull\nFar :remote:\n"
                        << "Near :local:\nPatterns INBOX\nCreate Near\nSync Pull\n"
                        // Only where the sync state lives: beside the mail rather than in the
                        // home folder, so that runs don't see each other's state.
                        << "SyncState *\n";
}

// Files written one by one with a flush each, against the batch rule: unflushed writes and one
// file-system flush per 40 messages.
void flushCost(const std::vector<std::string>& mail, const fs::path& folder) {
    auto run = [&](bool perFile) {
        fs::remove_all(folder);
        fs::create_directories(folder);
        qs::AtomicFile::syncFileSystem(folder);
        auto start = Clock::now();
        for (size_t i = 0; i < mail.size(); ++i) {
            auto path = folder / (std::to_string(i) + ".eml");
            if (perFile) {
                qs::AtomicFile::write(path, mail[i]);
            } else {
                qs::AtomicFile::writeUnflushed(path, mail[i]);
                if (i % 40 == 39 || i + 1 == mail.size()) {
                    qs::AtomicFile::syncFileSystem(folder);
                }
            }
        }
        return std::chrono::duration<double>(Clock::now() - start).count();
    };
    double batch = run(false);
    double each = run(true);
    std::printf("flush per batch of 40 : %7.2f s\nflush per message     : %7.2f s\n", batch, each);
    fs::remove_all(folder);
}

} // namespace

// Child: makes the mailbox and seeds it; writes its size in bytes to `sizeFile`.
int childSeed(size_t count, const std::string& directory, const std::string& config,
              const std::string& user, const std::string& sizeFile) {
    auto mail = generate(count);
    std::int64_t total = 0;
    for (const auto& message : mail) {
        total += static_cast<std::int64_t>(message.size());
    }
    std::vector<qs::test::SeedMessage> inbox;
    for (auto& message : mail) {
        inbox.push_back({std::move(message), std::nullopt});
    }
    qs::test::seedFolders(directory, config, user, {{"INBOX", std::move(inbox)}});
    std::ofstream(sizeFile) << total;
    return 0;
}

int main(int argc, char** argv) {
    if (argc >= 7 && std::strcmp(argv[1], "--seed") == 0) {
        return childSeed(std::strtoul(argv[2], nullptr, 10), argv[3], argv[4], argv[5], argv[6]);
    }
    if (argc >= 4 && std::strcmp(argv[1], "--flush") == 0) {
        flushCost(generate(std::strtoul(argv[2], nullptr, 10)), argv[3]);
        return 0;
    }
    if (argc >= 2 && std::strcmp(argv[1], "--backup") == 0) {
        return childBackup(static_cast<std::uint16_t>(std::atoi(argv[2])), argv[3], argv[4]);
    }
    if (argc >= 2 && std::strcmp(argv[1], "--probe") == 0) {
        return childProbe(static_cast<std::uint16_t>(std::atoi(argv[2])), argv[3]);
    }
    size_t count = argc >= 2 ? std::strtoul(argv[1], nullptr, 10) : 3000;
    std::setvbuf(stdout, nullptr, _IOLBF, 0);

    auto& dovecot = qs::test::DovecotFixture::shared();
    const std::string user = "bench";
    dovecot.addUser(user, password);
    auto work = dovecot.directory() / "bench-work";
    fs::create_directories(work);
    auto self = fs::read_symlink("/proc/self/exe").string();
    auto sizeFile = (work / "size").string();
    auto seeding = measure({self, "--seed", std::to_string(count), dovecot.directory().string(),
                            dovecot.configFile().string(), user, sizeFile});
    if (seeding.exitCode != 0) {
        std::fprintf(stderr, "seeding failed\n");
        return 1;
    }
    std::int64_t total = 0;
    std::ifstream(sizeFile) >> total;
    std::printf("mailbox: %zu messages, %.1f MB, local Dovecot over TLS\n\n", count,
                double(total) / 1e6);
    auto port = std::to_string(dovecot.imapsPort());
    auto report = [&](const char* name, const Measured& m) {
        std::printf("%-22s: %7.2f s (CPU %5.2f s, system %5.2f s)  %7.0f msg/s  %6.1f MB/s  "
                    "peak RSS %6.1f MB%s\n",
                    name, m.seconds, m.cpuSeconds, m.systemSeconds, double(count) / m.seconds,
                    double(total) / 1e6 / m.seconds, double(m.peakKiB) / 1024,
                    m.exitCode == 0 ? "" : "  (FAILED)");
    };

    // The probe first, which also brings the server's files into the page cache for everyone.
    auto probe = measure({self, "--probe", port, user});
    auto vault = (work / "vault").string();
    // QS_BENCH_BACKUP_WRAP, when set, is a command put in front of the full backup (a profiler,
    // "strace -c"), split at spaces.
    std::vector<std::string> backupCommand;
    if (const char* wrap = std::getenv("QS_BENCH_BACKUP_WRAP")) {
        std::string word;
        for (const char* c = wrap;; ++c) {
            if (*c == ' ' || *c == '\0') {
                if (!word.empty()) {
                    backupCommand.push_back(std::move(word));
                    word.clear();
                }
                if (*c == '\0') {
                    break;
                }
            } else {
                word += *c;
            }
        }
    }
    backupCommand.insert(backupCommand.end(), {self, "--backup", port, user, vault});
    auto backup = measure(backupCommand);
    auto rerun = measure({self, "--backup", port, user, vault});
    auto config = work / "mbsyncrc";
    writeMbsyncConfig(config, work / "maildir", dovecot.imapsPort(), user, dovecot.caFile());
    fs::create_directories(work / "maildir");
    auto mbsync = measure({"mbsync", "-q", "-c", config.string(), "pull"});
    auto mbsyncRerun = measure({"mbsync", "-q", "-c", config.string(), "pull"});

    std::printf("\n");
    report("bare probe", probe);
    report("backup", backup);
    report("mbsync", mbsync);
    std::printf("%-22s: %7.2f s (CPU %5.2f s)\n%-22s: %7.2f s (CPU %5.2f s)\n",
                "backup, nothing new", rerun.seconds, rerun.cpuSeconds, "mbsync, nothing new",
                mbsyncRerun.seconds, mbsyncRerun.cpuSeconds);
    std::printf("backup / probe        : %7.2f (wall) %7.2f (CPU)\nmbsync / backup       : %7.2f "
                "(wall)\n\n",
                backup.seconds / probe.seconds, backup.cpuSeconds / probe.cpuSeconds,
                mbsync.seconds / backup.seconds);
    measure({self, "--flush", std::to_string(count), (work / "flush").string()});
    fs::remove_all(work);
    return 0;
}
