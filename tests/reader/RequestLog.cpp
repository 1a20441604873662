#include "RequestLog.h"

#include <QTcpSocket>

namespace qs::test {

namespace {

// A 1×1 transparent PNG, so an image request that gets through really draws.
const QByteArray picture = QByteArray::fromBase64(
    "iVBORw0KGgoAAAANSUhEUgAAAAEAAAABCAQAAAC1HAwCAAAAC0lEQVR42mNkYAAAAAYAAjCB0C8AAAAASUVORK5CYII=");

} // namespace

RequestLog::RequestLog() {
    server_.listen(QHostAddress::LocalHost, 0);
    connect(&server_, &QTcpServer::newConnection, this, [this] {
        while (QTcpSocket* socket = server_.nextPendingConnection()) {
            ++connections_;
            connect(socket, &QTcpSocket::readyRead, socket, [this, socket] {
                if (!socket->canReadLine())
                    return;
                const QList<QByteArray> line = socket->readLine().split(' ');
                paths_ << QString::fromLatin1(line.value(1));
                socket->write("HTTP/1.1 200 OK\r\nContent-Type: image/png\r\nContent-Length: " +
                              QByteArray::number(picture.size()) + "\r\nConnection: close\r\n\r\n" +
                              picture);
                socket->disconnectFromHost();
            });
            connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        }
    });
}

} // namespace qs::test
