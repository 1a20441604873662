#pragma once

#include <QObject>
#include <QStringList>
#include <QTcpServer>

namespace qs::test {

/// A web server on 127.0.0.1 that answers every request with a small picture and remembers
/// every connection and every request path, in order: the witness of what a view fetched.
class RequestLog : public QObject {
    Q_OBJECT

public:
    RequestLog();
    quint16 port() const { return server_.serverPort(); }
    QString base() const { return QStringLiteral("http://127.0.0.1:%1").arg(port()); }
    const QStringList& paths() const { return paths_; }
    int connections() const { return connections_; }
    void clear() {
        paths_.clear();
        connections_ = 0;
    }

private:
    QTcpServer server_;
    QStringList paths_;
    int connections_ = 0;
};

} // namespace qs::test
