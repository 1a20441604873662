// demo-server: a private Dovecot on 127.0.0.1 over TLS, with its own CA, holding the fictional
// mailbox of DemoMail. Writes a shell fragment naming the port, the user, the password and the
// CA to trust into the file given, then waits for SIGINT or SIGTERM and stops the server.
//
//     demo-server ENV_FILE [SEED] [COUNT]
#include "support/DovecotSeed.h"

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iostream>

int main(int argc, char** argv) {
    if (argc < 2) {
        std::cerr << "usage: demo-server ENV_FILE [SEED] [COUNT]\n";
        return 2;
    }
    uint64_t seed = argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 1;
    int count = argc > 3 ? std::atoi(argv[3]) : 600;
    try {
        qs::test::DovecotFixture server;
        const std::string user = "robin", password = "demo-password";
        server.addUser(user, password);
        // Each message arrives when its Date header says, so a backup files the mail over its
        // fifteen years rather than all under this one.
        qs::test::seedDemoMail(server, user, seed, count);
        // Blocked only now: Dovecot inherits the mask of this process when it starts, and must
        // still hear the fixture's SIGTERM. A signal during the start ends this program and
        // Dovecot follows its parent.
        sigset_t stopSignals;
        sigemptyset(&stopSignals);
        sigaddset(&stopSignals, SIGINT);
        sigaddset(&stopSignals, SIGTERM);
        pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
        {
            std::ofstream out(argv[1]);
            out << "DEMO_PORT=" << server.imapsPort() << "\nDEMO_USER=" << user
                << "\nDEMO_PASSWORD=" << password << "\nSSL_CERT_FILE='"
                << std::getenv("SSL_CERT_FILE") << "'\nSSL_CERT_DIR='"
                << std::getenv("SSL_CERT_DIR") << "'\n";
        }
        int received = 0;
        sigwait(&stopSignals, &received);
    } catch (const std::exception& error) {
        std::cerr << "demo-server: " << error.what() << "\n";
        return 1;
    }
    return 0;
}
