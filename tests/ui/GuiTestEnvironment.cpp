// One QGuiApplication on the offscreen platform and a private home for the whole of test_ui.

#include "support/QtTestEnvironment.h"

#include <QGuiApplication>

namespace {

[[maybe_unused]] const auto* registered = ::testing::AddGlobalTestEnvironment(
    new qs::test::QtTestEnvironment<QGuiApplication>("test_ui", true));

} // namespace
