#pragma once

class QQmlApplicationEngine;

namespace brindle {
class Updater;
}

namespace qs {

class AppStore;

/// The program entry of the window: makes the application and the store, shows the main window
/// at its remembered size, then, once the event loop runs, loads the vault and starts the
/// scheduler (no backup starts at launch). Closing the window ends the program; a running backup
/// is stopped after its current batch first, so nothing is left half-written.
/// With QUERNSTEAD_SNAPSHOT_DIR set it renders its screens there instead and exits.
class QuernsteadApp {
public:
    static int run(int argc, char** argv);
    /// Makes the store and the symbol shapes known to the window's QML, then loads the main
    /// window; tests that drive the window load it this way too.
    /// The program's updater (made by `load`, started at launch end) is the QML singleton
    /// "Updater".
    static void load(QQmlApplicationEngine& engine, AppStore& store);
    /// The updater `load` made for `engine`.
    static brindle::Updater* updater(QQmlApplicationEngine& engine);
};

} // namespace qs
