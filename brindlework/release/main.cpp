// brindle-release: makes a release of a program folder. Writes the folder's manifest and
// signed seal, zips it, signs the archive and prints the feed entry to publish.
//
//   brindle-release --key release.pem --program ~/staging/quernstead --identifier org.x.app
//       --name Quernstead --version 1.4.2 --executable bin/quernstead
//       --archive-url https://example.org/quernstead-1.4.2.zip
//       --page-url https://example.org/download --output quernstead-1.4.2.zip
//   brindle-release --key release.pem --public-key   (the key a build checks updates with)

#include "ReleaseMaker.h"

#include <CLI/CLI.hpp>

#include <fstream>
#include <iostream>

int main(int argc, char** argv) {
    CLI::App app{"Makes a signed release of a program folder and prints its feed entry."};
    std::string keyFile, program, identifier, name, version, executable, archiveURL, pageURL,
        output, notes, minimumSystem;
    bool printPublicKey = false;
    app.add_option("--key", keyFile, "Ed25519 private key, PEM")->required();
    app.add_flag("--public-key", printPublicKey, "print the key's public half and stop");
    app.add_option("--program", program, "the program folder to release");
    app.add_option("--identifier", identifier, "the program's identifier");
    app.add_option("--name", name, "the program's name");
    app.add_option("--version", version, "the version released");
    app.add_option("--executable", executable, "the program to start, inside the folder");
    app.add_option("--archive-url", archiveURL, "where the archive will be published");
    app.add_option("--page-url", pageURL, "the download page");
    app.add_option("--output", output, "where to write the archive");
    app.add_option("--notes", notes, "release notes");
    app.add_option("--minimum-system", minimumSystem, "lowest kernel version, such as 5.10");
    CLI11_PARSE(app, argc, argv);

    try {
        const auto key = brindle::SigningKey::fromPEM(keyFile);
        if (printPublicKey) {
            std::cout << key.publicKey() << "\n";
            return 0;
        }
        for (const auto* needed : {&program, &identifier, &name, &version, &executable, &archiveURL,
                                   &pageURL, &output}) {
            if (needed->empty()) {
                std::cerr << "brindle-release: --program, --identifier, --name, --version, "
                             "--executable, --archive-url, --page-url and --output are needed\n";
                return 2;
            }
        }
        const brindle::AppBundle bundle{program, identifier, version, name, executable};
        brindle::ReleaseMaker::seal(bundle, key);
        const std::string archive = brindle::ReleaseMaker::zipFolder(program);
        std::ofstream(output, std::ios::binary) << archive;
        std::cout << brindle::ReleaseMaker::feedEntry(version, pageURL, archiveURL, archive, key,
                                                      notes, minimumSystem)
                  << "\n";
    } catch (const std::exception& error) {
        std::cerr << "brindle-release: " << error.what() << "\n";
        return 1;
    }
    return 0;
}
