#pragma once

#include <QLocalServer>
#include <QObject>
#include <QStringList>

#include <chrono>

namespace lumivesper::shell {

// One running application per user: the first launch listens on a local socket, a later one hands
// its files (absolute paths, possibly none) to it and exits.
class SingleInstance final : public QObject {
    Q_OBJECT

public:
    // The socket lives in the user's runtime folder, or carries the user id in the shared one.
    static QString defaultServerName();

    explicit SingleInstance(QString serverName = defaultServerName(), QObject* parent = nullptr);

    // True when a running instance acknowledged the files within `timeout`.
    bool handOver(const QStringList& files,
                  std::chrono::milliseconds timeout = std::chrono::seconds(3)) const;

    // Becomes the running instance; a socket left behind by a crashed one is replaced.
    bool listen();

signals:
    // A later launch asked to be shown, with the files it was given.
    void filesReceived(const QStringList& files);

private:
    void acceptConnection();

    QString serverName_;
    QLocalServer server_;
};

} // namespace lumivesper::shell
