#include "Updater/ArchiveFetch.h"

#include "Brindle/UpdateError.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>

#include <algorithm>

namespace brindle {

namespace {

// How many new bytes make a progress report worth a redraw.
constexpr int64_t reportStep = 262'144;

int httpStatus(QNetworkReply& reply) {
    return reply.attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
}

} // namespace

ArchiveFetch::ArchiveFetch(QNetworkAccessManager& network, const QUrl& url, int64_t expected,
                           Progress progress, Done done, QObject* parent)
    : QObject(parent), expected_(expected), progress_(std::move(progress)), done_(std::move(done)) {
    bytes_.reserve(qsizetype(std::max<int64_t>(expected, 1)));
    QNetworkRequest request(url);
    request.setAttribute(QNetworkRequest::CacheLoadControlAttribute,
                         QNetworkRequest::AlwaysNetwork);
    reply_ = network.get(request);
    connect(reply_, &QNetworkReply::readyRead, this, &ArchiveFetch::read);
    connect(reply_, &QNetworkReply::finished, this, &ArchiveFetch::finish);
}

void ArchiveFetch::read() {
    if (over_ || !reply_)
        return;
    if (httpStatus(*reply_) != 200)
        return; // an error page is never kept; finish() words it
    const QByteArray chunk = reply_->readAll();
    if (int64_t(bytes_.size()) + chunk.size() > expected_) {
        over_ = true;
        reply_->abort();
        fail(UpdateError{"The download was larger than expected."});
        return;
    }
    bytes_.append(chunk);
    if (int64_t(bytes_.size()) - reported_ > reportStep) {
        reported_ = bytes_.size();
        progress_(std::min(1.0, double(reported_) / double(std::max<int64_t>(expected_, 1))));
    }
}

void ArchiveFetch::finish() {
    if (over_ || !reply_)
        return;
    reply_->deleteLater();
    const int status = httpStatus(*reply_);
    if (status != 0 && status != 200)
        return fail(UpdateError{"The update file couldn’t be downloaded."});
    if (reply_->error() != QNetworkReply::NoError)
        return fail(UpdateError{"The update couldn’t be downloaded. " +
                                reply_->errorString().toStdString()});
    read();
    if (over_)
        return;
    Done done = std::move(done_);
    QByteArray bytes = std::move(bytes_);
    deleteLater();
    done(std::move(bytes), nullptr);
}

void ArchiveFetch::fail(const UpdateError& error) {
    if (reply_)
        reply_->deleteLater();
    Done done = std::move(done_);
    deleteLater();
    done({}, &error);
}

} // namespace brindle
