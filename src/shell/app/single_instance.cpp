#include "shell/app/single_instance.h"

#include <QDataStream>
#include <QDir>
#include <QLocalSocket>
#include <QPointer>

#include <unistd.h>

namespace lumivesper::shell {

namespace {

constexpr char acknowledgement = '\x06';

} // namespace

QString SingleInstance::defaultServerName() {
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (!runtime.isEmpty() && QDir(runtime).exists())
        return QDir(runtime).filePath(QStringLiteral("lumivesper.socket"));
    return QStringLiteral("lumivesper-%1").arg(getuid());
}

SingleInstance::SingleInstance(QString serverName, QObject* parent)
    : QObject(parent), serverName_(std::move(serverName)) {
    server_.setSocketOptions(QLocalServer::UserAccessOption);
    connect(&server_, &QLocalServer::newConnection, this, &SingleInstance::acceptConnection);
}

bool SingleInstance::handOver(const QStringList& files, std::chrono::milliseconds timeout) const {
    QLocalSocket socket;
    socket.connectToServer(serverName_);
    if (!socket.waitForConnected(static_cast<int>(timeout.count())))
        return false;
    QByteArray message;
    QDataStream out(&message, QIODevice::WriteOnly);
    out << files;
    socket.write(message);
    if (!socket.waitForBytesWritten(static_cast<int>(timeout.count())))
        return false;
    // The running instance answers once it has the whole list; a hung one does not.
    return socket.waitForReadyRead(static_cast<int>(timeout.count())) &&
           socket.read(1) == QByteArray(1, acknowledgement);
}

bool SingleInstance::listen() {
    if (server_.listen(serverName_))
        return true;
    if (server_.serverError() != QAbstractSocket::AddressInUseError)
        return false;
    // Nobody answered handOver(), so the socket is a leftover.
    QLocalServer::removeServer(serverName_);
    return server_.listen(serverName_);
}

void SingleInstance::acceptConnection() {
    while (QLocalSocket* connection = server_.nextPendingConnection()) {
        connect(connection, &QLocalSocket::disconnected, connection, &QObject::deleteLater);
        auto* stream = new QDataStream(connection);
        connect(connection, &QObject::destroyed, connection, [stream] { delete stream; });
        connect(connection, &QLocalSocket::readyRead, this, [this, connection, stream] {
            // The list may come in pieces: read it whole or wait for more.
            stream->startTransaction();
            QStringList files;
            *stream >> files;
            if (!stream->commitTransaction())
                return;
            connection->write(QByteArray(1, acknowledgement));
            connection->flush();
            emit filesReceived(files);
        });
    }
}

} // namespace lumivesper::shell
