#include "AddAccountFlow.h"

#include "imap/IMAPClient.h"
#include "model/AppStore.h"
#include "model/MainThread.h"

#include <QPointer>
#include <QThreadPool>
#include <algorithm>

namespace qs {

namespace {

QString text(const std::string& value) {
    return QString::fromStdString(value);
}

} // namespace

AddAccountFlow::AddAccountFlow(QObject* parent) : AddAccountFlow(AppStore::shared(), parent) {}

AddAccountFlow::AddAccountFlow(AppStore& store, QObject* parent) : QObject(parent), store_(store) {}

QVariantList AddAccountFlow::presets() {
    QVariantList cards;
    for (const auto& preset : ProviderPreset::all()) {
        cards.append(QVariantMap{{"id", text(preset.id)},
                                 {"name", text(preset.name)},
                                 {"symbol", text(preset.symbol)},
                                 {"needs", text(preset.needs)}});
    }
    return cards;
}

QVariantMap AddAccountFlow::preset() const {
    const ProviderPreset& preset = draft_.preset();
    const QString name = text(preset.name);
    const bool custom = draft_.isCustom();
    QStringList steps;
    for (const auto& step : preset.steps) {
        steps.append(text(step));
    }
    return QVariantMap{
        {"id", text(preset.id)},
        {"name", name},
        {"custom", custom},
        {"steps", steps},
        {"helpURL", preset.helpURL ? text(*preset.helpURL) : QString()},
        {"note", preset.note ? text(*preset.note) : QString()},
        {"passwordTitle",
         custom ? QStringLiteral("App-specific password") : QStringLiteral("App password")},
        {"emailPrompt", preset.id == "icloud" ? QStringLiteral("you@icloud.com")
                                              : QStringLiteral("you@example.com")},
        {"helpTitle", QStringLiteral("Getting an app password · %1").arg(name)},
        {"helpButton", QStringLiteral("Open %1 security settings").arg(name)},
    };
}

void AddAccountFlow::setLabel(const QString& value) {
    draft_.label = value.toStdString();
    emit draftChanged();
}

void AddAccountFlow::setUsername(const QString& value) {
    draft_.username = value.toStdString();
    emit draftChanged();
}

void AddAccountFlow::setPassword(const QString& value) {
    draft_.password = value.toStdString();
    emit draftChanged();
}

void AddAccountFlow::setHost(const QString& value) {
    draft_.host = value.toStdString();
    emit draftChanged();
}

void AddAccountFlow::setPort(const QString& value) {
    draft_.port = value.toStdString();
    emit draftChanged();
}

void AddAccountFlow::setPlaintext(bool value) {
    draft_.plaintext = value;
    emit draftChanged();
}

QString AddAccountFlow::busyText() const {
    return busy_ ? QStringLiteral("Signing in to %1…").arg(text(draft_.server().host)) : QString();
}

QVariant AddAccountFlow::error() const {
    if (!error_) {
        return {};
    }
    return QVariantMap{{"title", text(error_->title)}, {"advice", text(error_->advice)}};
}

QVariantList AddAccountFlow::mailboxes() const {
    QVariantList rows;
    for (const auto& mailbox : mailboxes_) {
        rows.append(QVariantMap{{"name", text(mailbox.name)},
                                {"displayName", text(mailbox.displayName)},
                                {"chosen", chosen_.contains(mailbox.name)}});
    }
    return rows;
}

QString AddAccountFlow::folderCount() const {
    return QStringLiteral("%1 of %2 folders").arg(chosen_.size()).arg(mailboxes_.size());
}

std::vector<std::string> AddAccountFlow::chosenFolders() const {
    std::vector<std::string> names;
    for (const auto& mailbox : mailboxes_) {
        if (chosen_.contains(mailbox.name)) {
            names.push_back(mailbox.name);
        }
    }
    return names;
}

void AddAccountFlow::choose(const QString& presetId) {
    draft_.presetId = ProviderPreset::named(presetId.toStdString()).id;
    emit draftChanged();
    setError(std::nullopt);
    setStep(Credentials);
}

void AddAccountFlow::connectToServer() {
    if (!canConnect()) {
        return;
    }
    setError(std::nullopt);
    setBusy(true);
    QPointer<AddAccountFlow> flow(this);
    auto stop = signIn_.start();
    QThreadPool::globalInstance()->start([flow, stop, server = draft_.server(),
                                          username = draft_.usernameForUse(),
                                          password = draft_.passwordForUse()] {
        try {
            IMAPClient client(server, signInTimeout, stop);
            client.connect();
            client.login(username, password);
            auto mailboxes = client.list();
            client.logout();
            MainThread::post(flow, [stop, mailboxes = std::move(mailboxes)](AddAccountFlow& f) {
                if (!stop.stop_requested()) {
                    f.presentMailboxes(mailboxes);
                }
            });
        } catch (...) {
            auto message = FriendlyError::describe(std::current_exception(), server.host);
            MainThread::post(flow, [stop, message](AddAccountFlow& f) {
                if (!stop.stop_requested()) {
                    f.setError(message);
                    f.setBusy(false);
                }
            });
        }
    });
}

void AddAccountFlow::presentMailboxes(std::vector<IMAPMailbox> mailboxes) {
    auto defaults = AccountDraft::defaultFolders(draft_.preset().id, mailboxes);
    mailboxes_ = std::move(mailboxes);
    chosen_ = {defaults.begin(), defaults.end()};
    emit foldersChanged();
    setError(std::nullopt);
    setBusy(false);
    setStep(Folders);
}

void AddAccountFlow::setChosen(const QString& name, bool chosen) {
    if (chosen) {
        chosen_.insert(name.toStdString());
    } else {
        chosen_.erase(name.toStdString());
    }
    emit foldersChanged();
}

void AddAccountFlow::save() {
    if (!canSave()) {
        return;
    }
    const MailAccount account = draft_.account(mailboxes_, chosenFolders());
    try {
        store_.addAccount(account, draft_.passwordForUse());
    } catch (const std::exception& failure) {
        // The password store's own words say why (a locked keyring, an unwritable file).
        setError(FriendlyError::Message{"Couldn’t save the password", failure.what()});
        return;
    }
    setError(std::nullopt);
    store_.backUpNow(account);
    emit finished();
}

void AddAccountFlow::reset() {
    signIn_.reset();
    draft_ = AccountDraft{};
    mailboxes_.clear();
    chosen_.clear();
    emit draftChanged();
    emit foldersChanged();
    setBusy(false);
    setError(std::nullopt);
    setStep(Provider);
}

void AddAccountFlow::setStep(Step step) {
    if (step != step_) {
        step_ = step;
        emit stepChanged();
    }
}

void AddAccountFlow::setBusy(bool busy) {
    if (busy != busy_) {
        busy_ = busy;
        emit busyChanged();
        emit draftChanged(); // canConnect follows busy
    }
}

void AddAccountFlow::setError(std::optional<FriendlyError::Message> error) {
    if (error != error_) {
        error_ = std::move(error);
        emit errorChanged();
    }
}

} // namespace qs
