#include "support/TestCertificates.h"

#include "support/Subprocess.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <unistd.h>

namespace qs::test {

namespace fs = std::filesystem;

namespace {

// Readable by every user: a server running under another uid reads its chain from here.
fs::path makeTemporaryFolder(const char* prefix) {
    std::string pattern = (fs::temp_directory_path() / (std::string(prefix) + "XXXXXX")).string();
    if (::mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error(std::string("mkdtemp: ") + std::strerror(errno));
    }
    fs::permissions(pattern, fs::perms::owner_all | fs::perms::group_read | fs::perms::group_exec |
                                 fs::perms::others_read | fs::perms::others_exec);
    return pattern;
}

void writeFile(const fs::path& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
    if (!out) {
        throw std::runtime_error("cannot write " + path.string());
    }
}

std::string readFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

} // namespace

CertificateAuthority makeCA(const fs::path& folder, const std::string& name) {
    CertificateAuthority ca{folder / "ca.key", folder / "ca.pem"};
    runChecked({"openssl",
                "req",
                "-x509",
                "-newkey",
                "ec",
                "-pkeyopt",
                "ec_paramgen_curve:prime256v1",
                "-nodes",
                "-keyout",
                ca.key.string(),
                "-out",
                ca.certificate.string(),
                "-days",
                "3",
                "-subj",
                "/CN=" + name,
                "-addext",
                "basicConstraints=critical,CA:TRUE",
                "-addext",
                "keyUsage=critical,keyCertSign,cRLSign"});
    return ca;
}

// Made once per test program and removed when it exits. Only by the process that made it: a
// forked child leaving must not take it along.
const CertificateAuthority& trustedCA() {
    struct Owned {
        fs::path folder = makeTemporaryFolder("qs-test-ca-");
        pid_t owner = ::getpid();
        CertificateAuthority ca = makeCA(folder, "Quernstead Test CA");
        Owned() {
            ::setenv("SSL_CERT_FILE", ca.certificate.c_str(), 1);
            ::setenv("SSL_CERT_DIR", folder.c_str(), 1);
        }
        Owned(const Owned&) = delete;
        ~Owned() {
            if (::getpid() == owner) {
                std::error_code ignored;
                fs::remove_all(folder, ignored);
            }
        }
    };
    static const Owned owned;
    return owned.ca;
}

void issueServerCertificate(const CertificateAuthority& ca, const fs::path& folder,
                            const std::string& host) {
    std::string names = host.empty() ? "IP:127.0.0.1,DNS:localhost" : "DNS:" + host;
    writeFile(folder / "server.ext", "subjectAltName=" + names +
                                         "\nbasicConstraints=CA:FALSE"
                                         "\nkeyUsage=digitalSignature,keyEncipherment"
                                         "\nextendedKeyUsage=serverAuth\n");
    runChecked({"openssl", "req", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1",
                "-nodes", "-keyout", (folder / "server.key").string(), "-out",
                (folder / "server.csr").string(), "-subj",
                "/CN=" + (host.empty() ? std::string("127.0.0.1") : host)});
    runChecked({"openssl", "x509", "-req", "-in", (folder / "server.csr").string(), "-CA",
                ca.certificate.string(), "-CAkey", ca.key.string(), "-CAcreateserial", "-out",
                (folder / "server.pem").string(), "-days", "3", "-extfile",
                (folder / "server.ext").string()});
    writeFile(folder / "server-chain.pem",
              readFile(folder / "server.pem") + readFile(ca.certificate));
}

} // namespace qs::test
