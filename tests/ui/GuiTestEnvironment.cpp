// One QGuiApplication on the offscreen platform and a private home for the whole of test_ui.

#include "support/QtTestEnvironment.h"
#include "support/WebEngineStart.h"

#include <QGuiApplication>

namespace {

// The window holds the reader's web engine, which starts before the application object.
[[maybe_unused]] const auto* registered = [] {
    qs::test::startWebEngine();
    return ::testing::AddGlobalTestEnvironment(
        new qs::test::QtTestEnvironment<QGuiApplication>("test_ui", true));
}();

} // namespace
