#pragma once

#include "support/Date.h"

#include <QDate>
#include <QObject>
#include <QString>
#include <QVariant>
#include <QtQml/qqmlregistration.h>
#include <optional>
#include <string>

namespace qs {

class AppStore;
class CleanupModel;
struct MailAccount;

/// The free-up-space sheet's own state (account, folder, date limit, the typed confirmation)
/// and every word and gate the sheet shows, read from the store's cleanup walk. The walk itself
/// (survey, verification, release) is the store's; this only starts, stops and steers it.
class FreeUpFlow : public QObject {
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(QVariantList accounts READ accounts NOTIFY changed)
    Q_PROPERTY(QString accountId READ accountId WRITE setAccountId NOTIFY changed)
    Q_PROPERTY(QVariantList folders READ folders NOTIFY changed)
    Q_PROPERTY(QString mailbox READ mailbox WRITE setMailbox NOTIFY changed)
    Q_PROPERTY(QVariantList yearPresets READ yearPresets CONSTANT)
    Q_PROPERTY(int years READ years WRITE setYears NOTIFY changed)
    Q_PROPERTY(QString beforeText READ beforeText WRITE setBeforeText NOTIFY changed)
    Q_PROPERTY(bool gmailNote READ gmailNote NOTIFY changed)
    Q_PROPERTY(QString confirmation READ confirmation WRITE setConfirmation NOTIFY changed)
    Q_PROPERTY(QVariantMap view READ view NOTIFY changed)

public:
    /// Whole years the "Older than" row offers; the first is where the sheet starts.
    static constexpr int presetYears[] = {2, 1, 3, 5, 10};

    explicit FreeUpFlow(QObject* parent = nullptr);
    FreeUpFlow(AppStore& store, QObject* parent);

    QVariantList accounts() const;
    QString accountId() const { return QString::fromStdString(accountId_); }
    void setAccountId(const QString& id);
    /// The account's known folders: name (IMAP) and displayName.
    QVariantList folders() const;
    QString mailbox() const { return QString::fromStdString(mailbox_); }
    void setMailbox(const QString& mailbox);
    static QVariantList yearPresets();
    /// The chosen preset, or 0 for a date of the user's own.
    int years() const { return years_; }
    void setYears(int years);
    /// `before` as yyyy-MM-dd; setting a valid date picks the custom state.
    QString beforeText() const { return before_.toString(Qt::ISODate); }
    void setBeforeText(const QString& text);
    bool gmailNote() const;
    QString confirmation() const { return confirmation_; }
    void setConfirmation(const QString& text);
    /// Everything the steps show, as words and gates; see FreeUpFlow.cpp.
    QVariantMap view() const;

    /// The first account and its INBOX (or first folder); the default limit; no confirmation.
    /// Nothing while a walk is past its first step, so reopening keeps its account.
    Q_INVOKABLE void start();
    /// "Verify Copies": surveys and verifies the chosen folder before the limit.
    Q_INVOKABLE void verify();
    Q_INVOKABLE void continueToRelease();
    /// From release back to verify, keeping the plan.
    Q_INVOKABLE void backToVerify();
    /// "Release {n} from Server", only once the confirmation matches.
    Q_INVOKABLE void release();

    /// "RELEASE " and the count in plain decimal digits.
    static QString phrase(int64_t verified);
    /// Exact, case-sensitive and untrimmed.
    static bool confirms(const QString& typed, int64_t verified);
    /// The walk has checked every item, proven at least one, and the folder is safe to touch.
    static bool canContinue(int64_t checked, int64_t items, int64_t verified, bool safe);
    /// The header's title for a cleanup stage (0 to 3).
    static QString title(int stage);
    /// "{n} message{s} {were/was} kept on the server because {their copies/its copy} couldn’t
    /// be verified."
    static QString keptSentence(int64_t kept);
    /// `now` less whole calendar years, as a local date.
    static QDate yearsBefore(QDate today, int years);

signals:
    void changed();

private:
    const MailAccount* account() const;

    AppStore& store_;
    CleanupModel& cleanup_;
    std::string accountId_;
    std::string mailbox_ = "INBOX";
    int years_ = presetYears[0];
    QDate before_;
    QString confirmation_;
};

} // namespace qs
