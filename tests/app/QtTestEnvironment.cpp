#include "support/QtTestEnvironment.h"

#include <QCoreApplication>

namespace {

[[maybe_unused]] const auto* registered = ::testing::AddGlobalTestEnvironment(
    new qs::test::QtTestEnvironment<QCoreApplication>("test_app", false));

} // namespace
