// One QCoreApplication and a private home for the whole of test_app.

#include "support/QtTestEnvironment.h"

#include <QCoreApplication>

namespace {

[[maybe_unused]] const auto* registered = ::testing::AddGlobalTestEnvironment(
    new qs::test::QtTestEnvironment<QCoreApplication>("test_app", false));

} // namespace
