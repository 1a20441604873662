#pragma once

// The reader's web engine as tests need it: before the application object, without GPU, and as
// root without its sandbox (which refuses to run as root). Never so in the shipped program.

#include "ui/MailScheme.h"

#include <QtWebEngineQuick/qtwebenginequickglobal.h>

#include <cstdlib>
#include <string>
#include <unistd.h>

namespace qs::test {

inline void startWebEngine() {
    std::string flags = "--disable-gpu";
    if (::geteuid() == 0)
        flags += " --no-sandbox";
    ::setenv("QTWEBENGINE_CHROMIUM_FLAGS", flags.c_str(), 1);
    MailScheme::registerScheme();
    QtWebEngineQuick::initialize();
}

} // namespace qs::test
