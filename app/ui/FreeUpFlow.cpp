#include "FreeUpFlow.h"

#include "model/AppStore.h"
#include "model/CleanupModel.h"

#include <QDateTime>
#include <QLocale>
#include <algorithm>

namespace qs {

namespace {

QString text(const std::string& value) {
    return QString::fromStdString(value);
}

QString dateText(QDate date) {
    return QLocale().toString(date, QStringLiteral("MMM d, yyyy"));
}

QString sizeText(int64_t bytes) {
    return QLocale().formattedDataSize(bytes, 1, QLocale::DataSizeSIFormat);
}

QString count(int64_t n) {
    return QLocale().toString(qlonglong(n));
}

Date startOf(QDate date) {
    return Date(std::chrono::seconds(date.startOfDay().toSecsSinceEpoch()));
}

} // namespace

FreeUpFlow::FreeUpFlow(QObject* parent) : FreeUpFlow(AppStore::shared(), parent) {}

FreeUpFlow::FreeUpFlow(AppStore& store, QObject* parent)
    : QObject(parent), store_(store), cleanup_(store.cleanup()) {
    for (auto signal :
         {&CleanupModel::stageChanged, &CleanupModel::planChanged, &CleanupModel::checkedChanged,
          &CleanupModel::busyChanged, &CleanupModel::errorChanged, &CleanupModel::releasedChanged,
          &CleanupModel::resultChanged}) {
        connect(&cleanup_, signal, this, &FreeUpFlow::changed);
    }
    connect(&store_, &AppStore::accountsChanged, this, &FreeUpFlow::changed);
    before_ = yearsBefore(QDate::currentDate(), years_);
}

QString FreeUpFlow::phrase(int64_t verified) {
    return QStringLiteral("RELEASE ") + QString::number(verified);
}

bool FreeUpFlow::confirms(const QString& typed, int64_t verified) {
    return typed == phrase(verified);
}

bool FreeUpFlow::canContinue(int64_t checked, int64_t items, int64_t verified, bool safe) {
    return checked == items && verified > 0 && safe;
}

QString FreeUpFlow::title(int stage) {
    switch (static_cast<CleanupStage>(stage)) {
    case CleanupStage::choose:
        return QStringLiteral("Choose what to release");
    case CleanupStage::verify:
        return QStringLiteral("Verifying every copy");
    case CleanupStage::release:
        return QStringLiteral("Release from the server");
    case CleanupStage::done:
        return QStringLiteral("Released — copies safe");
    }
    return {};
}

QString FreeUpFlow::keptSentence(int64_t kept) {
    return kept == 1 ? QStringLiteral("1 message was kept on the server because its copy "
                                      "couldn’t be verified.")
                     : QStringLiteral("%1 messages were kept on the server because their copies "
                                      "couldn’t be verified.")
                           .arg(count(kept));
}

QDate FreeUpFlow::yearsBefore(QDate today, int years) {
    return today.addYears(-years);
}

const MailAccount* FreeUpFlow::account() const {
    const auto& accounts = store_.accounts();
    auto found =
        std::ranges::find(accounts, accountId_, [](const MailAccount& a) { return a.id.string(); });
    return found != accounts.end() ? &*found : nullptr;
}

QVariantList FreeUpFlow::accounts() const {
    QVariantList list;
    for (const auto& account : store_.accounts()) {
        list.append(QVariantMap{{"id", text(account.id.string())}, {"label", text(account.label)}});
    }
    return list;
}

void FreeUpFlow::setAccountId(const QString& id) {
    accountId_ = id.toStdString();
    mailbox_ = "INBOX";
    if (const MailAccount* chosen = account()) {
        const auto& known = chosen->knownFolders;
        if (std::ranges::find(known, mailbox_, &IMAPMailbox::name) == known.end() &&
            !chosen->folders.empty()) {
            mailbox_ = chosen->folders.front();
        }
    }
    emit changed();
}

QVariantList FreeUpFlow::folders() const {
    QVariantList list;
    if (const MailAccount* chosen = account()) {
        for (const auto& mailbox : chosen->knownFolders) {
            list.append(QVariantMap{{"name", text(mailbox.name)},
                                    {"displayName", text(mailbox.displayName)}});
        }
    }
    return list;
}

void FreeUpFlow::setMailbox(const QString& mailbox) {
    mailbox_ = mailbox.toStdString();
    emit changed();
}

QVariantList FreeUpFlow::yearPresets() {
    QVariantList list;
    for (int years : presetYears) {
        list.append(years);
    }
    std::sort(list.begin(), list.end(),
              [](const QVariant& a, const QVariant& b) { return a.toInt() < b.toInt(); });
    return list;
}

void FreeUpFlow::setYears(int years) {
    years_ = years;
    if (years > 0) {
        before_ = yearsBefore(QDate::currentDate(), years);
    }
    emit changed();
}

void FreeUpFlow::setBeforeText(const QString& text) {
    const QDate date = QDate::fromString(text.trimmed(), Qt::ISODate);
    if (date.isValid()) {
        before_ = date;
        years_ = 0;
        emit changed();
    }
}

bool FreeUpFlow::gmailNote() const {
    const MailAccount* chosen = account();
    return chosen && chosen->provider == "gmail" && mailbox_ != "[Gmail]/All Mail";
}

void FreeUpFlow::setConfirmation(const QString& text) {
    confirmation_ = text;
    emit changed();
}

void FreeUpFlow::start() {
    // A walk under way belongs to the account it began on; the release must reach that one.
    if (cleanup_.stage() != CleanupStage::choose) {
        return;
    }
    confirmation_.clear();
    years_ = presetYears[0];
    before_ = yearsBefore(QDate::currentDate(), years_);
    setAccountId(store_.accounts().empty() ? QString()
                                           : text(store_.accounts().front().id.string()));
}

void FreeUpFlow::verify() {
    if (const MailAccount* chosen = account()) {
        confirmation_.clear();
        store_.checkCleanup(*chosen, mailbox_, startOf(before_));
    }
}

void FreeUpFlow::continueToRelease() {
    if (view().value("canContinue").toBool()) {
        cleanup_.setStage(CleanupStage::release);
    }
}

void FreeUpFlow::backToVerify() {
    if (cleanup_.stage() == CleanupStage::release && !cleanup_.busy()) {
        cleanup_.setStage(CleanupStage::verify);
    }
}

void FreeUpFlow::release() {
    const auto& plan = cleanup_.plan();
    const MailAccount* chosen = account();
    if (plan && chosen && !cleanup_.busy() &&
        confirms(confirmation_, int64_t(plan->verified().size()))) {
        store_.runCleanup(*chosen);
    }
}

QVariantMap FreeUpFlow::view() const {
    const auto& plan = cleanup_.plan();
    const QString folder = plan ? text(plan->displayName) : text(mailbox_);
    const QString date = dateText(before_);
    QVariantMap view{
        {"title", title(int(cleanup_.stage()))},
        {"stage", int(cleanup_.stage())},
        {"busy", cleanup_.busy()},
        {"asking",
         QStringLiteral("Asking the server %1 which messages are older than %2").arg(folder, date)},
        {"nothing", QStringLiteral("Nothing in %1 is older than %2.").arg(folder, date)},
        {"hasPlan", plan.has_value()},
    };
    if (const auto& error = cleanup_.error()) {
        view["error"] = QVariantMap{{"title", text(error->title)}, {"advice", text(error->advice)}};
    }
    if (const auto& result = cleanup_.result()) {
        view["result"] = text(*result);
    }
    if (const auto& released = cleanup_.released()) {
        view["released"] =
            QVariantMap{{"done", qlonglong(released->done)}, {"total", qlonglong(released->total)}};
    }
    if (!plan) {
        return view;
    }
    const int64_t items = int64_t(plan->items.size());
    const int64_t verified = int64_t(plan->verified().size());
    const int64_t kept = int64_t(plan->unverified().size());
    QVariantList rows;
    QVariantList keptRows;
    for (const auto& item : plan->items) {
        if (item.status.kind == CleanupItem::Status::Kind::pending) {
            continue;
        }
        const bool proven = item.status.kind == CleanupItem::Status::Kind::verified;
        QVariantMap row{
            {"date", item.date
                         ? dateText(QDateTime::fromSecsSinceEpoch(unixSeconds(*item.date)).date())
                         : QString()},
            {"size", sizeText(item.serverSize)},
            {"verified", proven},
            {"status", proven ? QStringLiteral("Verified") : text(item.keptReason().value_or(""))},
            {"symbol", proven ? QStringLiteral("checkmark.shield.fill")
                              : QStringLiteral("arrow.uturn.backward.circle.fill")}};
        rows.append(row);
        if (!proven) {
            keptRows.append(row);
        }
    }
    view.insert({
        {"items", qlonglong(items)},
        {"checked", cleanup_.checked()},
        {"checkedText", QStringLiteral("%1 checked").arg(count(cleanup_.checked()))},
        {"verified", qlonglong(verified)},
        {"kept", qlonglong(kept)},
        {"rows", rows},
        {"keptRows", keptRows},
        {"keptSentence", kept > 0 ? keptSentence(kept) : QString()},
        {"keptTitle", QStringLiteral("Kept on the server · %1").arg(count(kept))},
        {"unsafe", !plan->canDeleteSafely()},
        {"unsafeText",
         QStringLiteral("The server lacks UIDPLUS and %1 other message(s) are already "
                        "marked deleted, so removing ours would remove theirs too.")
             .arg(count(plan->otherDeletedOnServer))},
        {"canContinue", !cleanup_.busy() && canContinue(cleanup_.checked(), items, verified,
                                                        plan->canDeleteSafely())},
        {"spaceFreed", sizeText(plan->verifiedBytes())},
        {"olderThan", dateText(QDateTime::fromSecsSinceEpoch(unixSeconds(plan->before)).date())},
        {"keptLine", QStringLiteral("%1 stay").arg(count(kept))},
        {"releaseWords",
         QStringLiteral("Releasing permanently deletes these %1 messages from the server (your "
                        "provider may keep them in Trash for a while). Type <b>%2</b> to confirm.")
             .arg(count(verified), phrase(verified))},
        {"releaseTitle", QStringLiteral("Release %1 from Server").arg(count(verified))},
        {"canRelease", !cleanup_.busy() && confirms(confirmation_, verified)},
    });
    return view;
}

} // namespace qs
