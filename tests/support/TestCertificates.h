#pragma once

#include <filesystem>
#include <string>

namespace qs::test {

struct CertificateAuthority {
    std::filesystem::path key;
    std::filesystem::path certificate;
};

CertificateAuthority makeCA(const std::filesystem::path& folder, const std::string& name);

/// The program's test CA, made on first use; SSL_CERT_FILE and SSL_CERT_DIR then point at it,
/// so a client's "system trust" trusts it and nothing else.
const CertificateAuthority& trustedCA();

/// Writes "server.key", "server.pem" and "server-chain.pem" to `folder`, for `host` or, when
/// empty, for 127.0.0.1 and localhost.
void issueServerCertificate(const CertificateAuthority& ca, const std::filesystem::path& folder,
                            const std::string& host);

} // namespace qs::test
