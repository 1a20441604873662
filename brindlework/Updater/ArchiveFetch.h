#pragma once

#include <QByteArray>
#include <QObject>
#include <QPointer>
#include <QUrl>

#include <cstdint>
#include <functional>

class QNetworkAccessManager;
class QNetworkReply;

namespace brindle {

struct UpdateError;

/// Fetches an archive of a known size into memory. More bytes than expected stop it at once,
/// which bounds memory against a hostile or broken server. Progress is reported after every
/// 262,144 bytes or more, as a fraction of the expected size capped at 1.
class ArchiveFetch : public QObject {
    Q_OBJECT

public:
    using Progress = std::function<void(double)>;
    /// Called once: the bytes, or the failure in the user's words.
    using Done = std::function<void(QByteArray bytes, const UpdateError* error)>;

    ArchiveFetch(QNetworkAccessManager& network, const QUrl& url, int64_t expected,
                 Progress progress, Done done, QObject* parent);

private:
    void read();
    void finish();
    void fail(const UpdateError& error);

    QPointer<QNetworkReply> reply_;
    int64_t expected_;
    Progress progress_;
    Done done_;
    QByteArray bytes_;
    int64_t reported_ = 0;
    bool over_ = false;
};

} // namespace brindle
