#include "support/TestCertificates.h"

#include "support/Subprocess.h"
#include "support/TemporaryDirectory.h"

#include <cstdlib>
#include <unistd.h>

namespace qs::test {

namespace fs = std::filesystem;

namespace {

// `openssl req` making a new P-256 key without a passphrase, then `more`.
void newKey(std::vector<std::string> more) {
    std::vector<std::string> command{
        "openssl", "req", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes"};
    command.insert(command.end(), more.begin(), more.end());
    runChecked(command);
}

} // namespace

CertificateAuthority makeCA(const fs::path& folder, const std::string& name) {
    CertificateAuthority ca{folder / "ca.key", folder / "ca.pem"};
    newKey({"-x509", "-keyout", ca.key.string(), "-out", ca.certificate.string(), "-days", "3",
            "-subj", "/CN=" + name, "-addext", "basicConstraints=critical,CA:TRUE", "-addext",
            "keyUsage=critical,keyCertSign,cRLSign"});
    return ca;
}

// Made once per test program and removed when it exits. Only by the process that made it: a
// forked child leaving must not take it along.
const CertificateAuthority& trustedCA() {
    struct Owned {
        fs::path folder = ScratchFiles::makeSharedFolder("qs-test-ca-");
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
    ScratchFiles::write(folder / "server.ext", "subjectAltName=" + names +
                                                   "\nbasicConstraints=CA:FALSE"
                                                   "\nkeyUsage=digitalSignature,keyEncipherment"
                                                   "\nextendedKeyUsage=serverAuth\n");
    newKey({"-keyout", (folder / "server.key").string(), "-out", (folder / "server.csr").string(),
            "-subj", "/CN=" + (host.empty() ? std::string("127.0.0.1") : host)});
    runChecked({"openssl", "x509", "-req", "-in", (folder / "server.csr").string(), "-CA",
                ca.certificate.string(), "-CAkey", ca.key.string(), "-CAcreateserial", "-out",
                (folder / "server.pem").string(), "-days", "3", "-extfile",
                (folder / "server.ext").string()});
    ScratchFiles::write(folder / "server-chain.pem", ScratchFiles::read(folder / "server.pem") +
                                                         ScratchFiles::read(ca.certificate));
}

} // namespace qs::test
