#pragma once

#include <filesystem>
#include <string>

namespace qs::test {

/// A certificate authority for test servers: its key and certificate.
struct CertificateAuthority {
    std::filesystem::path key;
    std::filesystem::path certificate;
};

/// A new CA in `folder`, named `name`; nobody trusts it unless told to.
CertificateAuthority makeCA(const std::filesystem::path& folder, const std::string& name);

/// The test CA of this test program, made on first use and removed when the program exits.
/// Making it points SSL_CERT_FILE and SSL_CERT_DIR at it, so OpenSSL's default verify paths
/// (a client's "system trust") trust it and nothing else.
const CertificateAuthority& trustedCA();

/// Writes "server.key", "server.pem" and "server-chain.pem" (leaf then CA) to `folder`: a
/// server certificate issued by `ca` for `host`, or for IP 127.0.0.1 and DNS localhost when
/// `host` is empty.
void issueServerCertificate(const CertificateAuthority& ca, const std::filesystem::path& folder,
                            const std::string& host);

} // namespace qs::test
