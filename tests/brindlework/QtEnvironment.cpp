// One QCoreApplication and a private home for the whole of test_brindlework; the updater's
// HTTPS requests trust the test CA that the local server's certificate comes from.

#include "support/QtTestEnvironment.h"
#include "support/TestCertificates.h"

#include <QCoreApplication>
#include <QSslCertificate>
#include <QSslConfiguration>

namespace {

class TrustTestCA : public ::testing::Environment {
public:
    void SetUp() override {
        QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
        configuration.setCaCertificates(QSslCertificate::fromPath(
            QString::fromStdString(qs::test::trustedCA().certificate.string())));
        QSslConfiguration::setDefaultConfiguration(configuration);
    }
};

[[maybe_unused]] const auto* application = ::testing::AddGlobalTestEnvironment(
    new qs::test::QtTestEnvironment<QCoreApplication>("test_brindlework", false));
[[maybe_unused]] const auto* trust = ::testing::AddGlobalTestEnvironment(new TrustTestCA);

} // namespace
