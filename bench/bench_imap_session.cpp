// End-to-end fetch throughput of IMAPClient against a private Dovecot on 127.0.0.1: TLS and
// plain TCP, large bodies and a batch of small ones, with the client thread's CPU time beside
// the wall time (Dovecot runs on the same two cores). Nothing is asserted.
//
//   bench_imap_session [megabytes-per-large-message] [small-messages]

#include "imap/IMAPClient.h"
#include "support/DovecotFixture.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>

namespace {

using namespace std::chrono_literals;

double threadSeconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return double(now.tv_sec) + double(now.tv_nsec) / 1e9;
}

std::string message(size_t bytes, int seed) {
    std::string text = "Subject: bench " + std::to_string(seed) + "\r\n\r\n";
    for (size_t line = 0; text.size() < bytes; ++line) {
        text += std::string(70, char('a' + (line + seed) % 26)) + "\r\n";
    }
    return text;
}

void measure(const char* label, const std::string& user, qs::test::DovecotFixture& dovecot,
             bool plain, size_t uids, size_t expectedBytes) {
    qs::IMAPServer server{"127.0.0.1", plain ? dovecot.imapPort() : dovecot.imapsPort(), plain};
    qs::IMAPClient client(server, 60s);
    auto wallStart = std::chrono::steady_clock::now();
    client.connect();
    client.login(user, "pw");
    client.select("INBOX", true);
    std::vector<uint32_t> all;
    for (uint32_t uid = 1; uid <= uids; ++uid) {
        all.push_back(uid);
    }
    double cpuStart = threadSeconds();
    size_t bytes = 0;
    size_t count = 0;
    client.fetchBodies(all, [&](qs::IMAPFetchItem&& item) {
        bytes += item.body->size();
        ++count;
    });
    double cpu = threadSeconds() - cpuStart;
    double wall =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - wallStart).count();
    client.logout();
    std::printf("%-26s %s  %5zu messages  %8.1f MB  wall %6.3f s (%7.1f MB/s)  client CPU %6.3f s "
                "(%7.1f MB/s)%s\n",
                label, plain ? "plain" : "TLS  ", count, bytes / 1e6, wall, bytes / 1e6 / wall, cpu,
                bytes / 1e6 / cpu, bytes == expectedBytes ? "" : "  (byte count differs!)");
}

} // namespace

int main(int argc, char** argv) {
    size_t megabytes = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 20;
    size_t smallCount = argc > 2 ? std::strtoul(argv[2], nullptr, 10) : 200;

    qs::test::DovecotFixture::Options options;
    options.plainListener = true;
    qs::test::DovecotFixture dovecot(options);
    dovecot.addUser("large", "pw");
    dovecot.addUser("small", "pw");
    size_t largeBytes = 0;
    for (int i = 0; i < 3; ++i) {
        std::string text = message(megabytes * 1000000, i);
        largeBytes += text.size();
        dovecot.deliver("large", "INBOX", text);
    }
    // doveadm per message is slow, but it only sets the stage.
    size_t smallBytes = 0;
    for (size_t i = 0; i < smallCount; ++i) {
        std::string text = message(4000, int(i));
        smallBytes += text.size();
        dovecot.deliver("small", "INBOX", text);
    }
    for (bool plain : {false, true}) {
        measure("large (3 bodies)", "large", dovecot, plain, 3, largeBytes);
        measure("small (4 KB bodies)", "small", dovecot, plain, smallCount, smallBytes);
    }
    return 0;
}
