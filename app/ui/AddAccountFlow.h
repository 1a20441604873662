#pragma once

#include "model/AccountDraft.h"
#include "model/FriendlyError.h"
#include "model/TaskHandle.h"
#include "vault/IMAPMailbox.h"

#include <QObject>
#include <QVariant>
#include <QtQml/qqmlregistration.h>
#include <chrono>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace qs {

class AppStore;

/// The add-account sheet's state and operations: pick a provider, sign in (tested against the
/// server on a worker thread before anything is kept), choose folders, then save and start the
/// first backup. Nothing reaches the store or the password store before `save`; `reset` (the
/// sheet's Cancel) drops everything and stops a sign-in in flight.
class AddAccountFlow : public QObject {
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(int step READ step NOTIFY stepChanged)
    Q_PROPERTY(QVariantList presets READ presets CONSTANT)
    Q_PROPERTY(QVariantMap preset READ preset NOTIFY draftChanged)
    Q_PROPERTY(QString label READ label WRITE setLabel NOTIFY draftChanged)
    Q_PROPERTY(QString username READ username WRITE setUsername NOTIFY draftChanged)
    Q_PROPERTY(QString password READ password WRITE setPassword NOTIFY draftChanged)
    Q_PROPERTY(QString host READ host WRITE setHost NOTIFY draftChanged)
    Q_PROPERTY(QString port READ port WRITE setPort NOTIFY draftChanged)
    Q_PROPERTY(bool plaintext READ plaintext WRITE setPlaintext NOTIFY draftChanged)
    Q_PROPERTY(bool offersPlaintext READ offersPlaintext NOTIFY draftChanged)
    Q_PROPERTY(bool canConnect READ canConnect NOTIFY draftChanged)
    Q_PROPERTY(bool busy READ busy NOTIFY busyChanged)
    Q_PROPERTY(QString busyText READ busyText NOTIFY busyChanged)
    Q_PROPERTY(QVariant error READ error NOTIFY errorChanged)
    Q_PROPERTY(QVariantList mailboxes READ mailboxes NOTIFY foldersChanged)
    Q_PROPERTY(QString folderCount READ folderCount NOTIFY foldersChanged)
    Q_PROPERTY(bool canSave READ canSave NOTIFY foldersChanged)

public:
    enum Step { Provider, Credentials, Folders };
    Q_ENUM(Step)

    /// How long the sign-in waits through a silence of the server.
    static constexpr std::chrono::seconds signInTimeout{30};

    /// Works on the program's one store.
    explicit AddAccountFlow(QObject* parent = nullptr);
    AddAccountFlow(AppStore& store, QObject* parent);

    int step() const { return step_; }
    /// Each preset's card: id, name, symbol, needs.
    static QVariantList presets();
    /// The chosen preset for the credentials step: id, name, custom, steps, helpURL, note and
    /// the words that depend on it (passwordTitle, emailPrompt, helpTitle, helpButton).
    QVariantMap preset() const;
    QString label() const { return QString::fromStdString(draft_.label); }
    QString username() const { return QString::fromStdString(draft_.username); }
    QString password() const { return QString::fromStdString(draft_.password); }
    QString host() const { return QString::fromStdString(draft_.host); }
    QString port() const { return QString::fromStdString(draft_.port); }
    bool plaintext() const { return draft_.plaintext; }
    void setLabel(const QString& value);
    void setUsername(const QString& value);
    void setPassword(const QString& value);
    void setHost(const QString& value);
    void setPort(const QString& value);
    void setPlaintext(bool value);
    bool offersPlaintext() const { return draft_.offersPlaintext(); }
    bool canConnect() const { return draft_.canConnect() && !busy_; }
    bool busy() const { return busy_; }
    /// "Signing in to {host}…" while connecting, else empty.
    QString busyText() const;
    /// Null, or a map of title and advice.
    QVariant error() const;
    /// The server's mailboxes in its order: name, displayName, chosen.
    QVariantList mailboxes() const;
    /// "{n} of {total} folders".
    QString folderCount() const;
    bool canSave() const { return !chosen_.empty(); }

    const AccountDraft& draft() const { return draft_; }
    const std::optional<FriendlyError::Message>& errorMessage() const { return error_; }
    /// The chosen mailbox names, in the server's order.
    std::vector<std::string> chosenFolders() const;

    /// Takes the preset (an unknown id is "custom") and moves to the credentials step.
    Q_INVOKABLE void choose(const QString& presetId);
    /// Signs in, lists the mailboxes and logs out on a worker thread; on success the defaults
    /// are chosen and the step moves to folders, on failure the friendly error shows and the
    /// step stays. Nothing while busy or while `canConnect` is false.
    Q_INVOKABLE void connectToServer();
    Q_INVOKABLE void setChosen(const QString& name, bool chosen);
    /// Keeps the password and adds the account, then backs it up and emits `finished`. When
    /// the password can't be kept the error titled "Couldn’t save the password" shows, nothing
    /// is added and the step stays.
    Q_INVOKABLE void save();
    /// The end of a good sign-in: these are the server's mailboxes, the defaults are chosen and
    /// the step moves to folders.
    void presentMailboxes(std::vector<IMAPMailbox> mailboxes);
    /// Back to an empty draft on the first step; a sign-in in flight is stopped and forgotten.
    Q_INVOKABLE void reset();

signals:
    void stepChanged();
    void draftChanged();
    void busyChanged();
    void errorChanged();
    void foldersChanged();
    /// The account was saved and its first backup started.
    void finished();

private:
    void setStep(Step step);
    void setBusy(bool busy);
    void setError(std::optional<FriendlyError::Message> error);

    AppStore& store_;
    Step step_ = Provider;
    AccountDraft draft_;
    bool busy_ = false;
    std::optional<FriendlyError::Message> error_;
    std::vector<IMAPMailbox> mailboxes_;
    std::set<std::string> chosen_;
    TaskHandle signIn_;
};

} // namespace qs
