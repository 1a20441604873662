#include "ui/QuernsteadApp.h"

#include <QtQml/QQmlExtensionPlugin>

// The window's QML module is linked in statically.
Q_IMPORT_QML_PLUGIN(QuernsteadPlugin)

int main(int argc, char** argv) {
    return qs::QuernsteadApp::run(argc, argv);
}
