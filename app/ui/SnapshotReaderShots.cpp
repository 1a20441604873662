// The reader's pictures for the snapshot mode: each message is picked from the demo vault by
// what the index knows of it, and opened a step before its picture so that it has loaded.

#include "SnapshotRunner.h"

#include "model/AppStore.h"

#include <QQuickItem>

namespace qs {

namespace {

// The first record that satisfies `wanted`, newest first.
std::optional<std::string> pick(const AppStore& store,
                                const std::function<bool(const MessageRecord&)>& wanted) {
    for (const auto& record : store.records())
        if (wanted(*record))
            return record->path;
    return std::nullopt;
}

} // namespace

void SnapshotRunner::planReaderShots(const QString& prefix) {
    const auto add = [&](const char* name, std::function<bool()> prepare) {
        shots_.push_back({*name ? prefix + QLatin1String(name) : QString(), std::move(prepare)});
    };
    const auto reader = [this](const char* property, bool value) {
        if (QObject* view = find(QStringLiteral("messageReader")))
            view->setProperty(property, value);
    };
    add("", [this] {
        store_.showEverything();
        store_.setSelectedPath(pick(store_, [](const MessageRecord& r) {
            return r.senderFlag && r.replyToMismatch && r.linkWarnings > 0 && r.remoteImages > 0 &&
                   r.trackers > 0;
        }));
        return false;
    });
    add("reader-suspicious", [reader] {
        reader("showLinks", true);
        return false;
    });
    add("reader-auth", [reader] {
        reader("showAuth", true);
        return false;
    });
    add("", [this, reader] {
        reader("showAuth", false);
        store_.setSelectedPath(
            pick(store_, [](const MessageRecord& r) { return r.remoteImages > 0; }));
        return false;
    });
    add("reader-images", [this] {
        if (store_.selectedPath())
            store_.allowImages(QString::fromStdString(*store_.selectedPath()));
        return false;
    });
    add("reader-plain", [this] {
        store_.setSelectedPath(pick(store_, [](const MessageRecord& r) {
            return r.remoteImages == 0 && r.trackers == 0 && r.linkWarnings == 0 &&
                   r.attachments == 0 && r.account != "Imported";
        }));
        return false;
    });
    add("", [this] {
        store_.setSelectedPath(std::nullopt);
        return false;
    });
}

} // namespace qs
