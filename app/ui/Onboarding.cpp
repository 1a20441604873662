#include "Onboarding.h"

#include "CommandTable.h"
#include "model/AppStore.h"
#include "model/PlatformWords.h"
#include "model/SettingsKeys.h"

#include <QSettings>

namespace qs {

namespace {

QVariantList capsOf(std::initializer_list<std::string_view> actions) {
    QVariantList combinations;
    for (std::string_view action : actions) {
        if (const auto* command = CommandTable::find(action))
            combinations.append(CommandTable::keycaps(command->keys));
    }
    return combinations;
}

QVariantMap page(const char* symbol, const char16_t* title, const char16_t* text,
                 const char16_t* note = u"", QVariantList keys = {}) {
    return {{"symbol", QString::fromLatin1(symbol)},
            {"title", QString::fromUtf16(title)},
            {"text", PlatformWords::adapt(QStringView(text))},
            {"note", PlatformWords::adapt(QStringView(note))},
            {"keys", keys}};
}

QVariantMap keyRow(const char* label, std::initializer_list<std::string_view> actions) {
    return {{"label", QString::fromUtf8(label)}, {"caps", capsOf(actions)}};
}

} // namespace

Onboarding::Onboarding(QObject* parent) : Onboarding(AppStore::shared(), parent) {}

Onboarding::Onboarding(AppStore& store, QObject* parent) : QObject(parent), store_(store) {
    QSettings settings(SettingsKeys::organisation, SettingsKeys::application);
    visible_ = !settings.value(SettingsKeys::didShowWelcome, false).toBool();
}

QVariantList Onboarding::pages() {
    return {
        page("archivebox", u"A vault, not another inbox",
             u"Quernstead copies every message to this Mac as a plain .eml file — filed by "
             u"account, folder and year — so your mail is yours, offline, for good."),
        page("eye.slash", u"Read without being watched",
             u"Every message opens with remote images and tracking pixels switched off, and "
             u"senders that pretend to be someone else are flagged."),
        page("keyboard", u"Travel by keyboard",
             u"Drag the timeline beside the list to move through the years. Everything else is a "
             u"keystroke away.",
             u"",
             {keyRow("Add a mail account", {"addAccount"}),
              keyRow("Previous / next message", {"previousMessage", "nextMessage"}),
              keyRow("Show images in this message", {"showImages"})}),
        page("person.crop.circle.badge.plus", u"Connect your first account",
             u"Quernstead signs in with an app-specific password from your mail provider. It’s "
             u"kept in your Mac’s Keychain and goes nowhere else.",
             u"The next screen walks you through creating an app password, step by step"),
    };
}

QStringList Onboarding::promises() {
    return {QStringLiteral("One standard .eml per message — opens in any mail app"),
            QStringLiteral("Fast offline search across every account"),
            QStringLiteral("Free up server space once each copy is verified"),
            QStringLiteral("Remote images and tracking pixels never load"),
            QStringLiteral("Look-alike domains and spoofed names are flagged"),
            QStringLiteral("Links that go somewhere other than they say are called out")};
}

QString Onboarding::promiseNote() {
    return PlatformWords::adapt(u"No accounts or servers of ours — nothing leaves your Mac except "
                                u"the sign-in to your provider");
}

void Onboarding::open() {
    if (visible_)
        return;
    visible_ = true;
    emit visibleChanged();
}

void Onboarding::finish() {
    QSettings(SettingsKeys::organisation, SettingsKeys::application)
        .setValue(SettingsKeys::didShowWelcome, true);
    if (!visible_)
        return;
    visible_ = false;
    emit visibleChanged();
}

void Onboarding::connectAccount() {
    finish();
    store_.setShowAddAccount(true);
}

} // namespace qs
