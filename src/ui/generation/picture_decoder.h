#pragma once

#include "generation/base64.h"

#include <QHash>
#include <QImage>
#include <QObject>
#include <QString>
#include <QThreadPool>

namespace lumivesper::ui {

// Decodes encoded pictures (PNG, JPEG, ...) on worker threads and hands them back scaled to fit
// a square of `maxSide`, on the main thread. Each key shows one picture: a result for a key that
// has been asked for again since is dropped, so a slow decode never overwrites a newer picture.
class PictureDecoder final : public QObject {
    Q_OBJECT

public:
    explicit PictureDecoder(QObject* parent = nullptr);
    ~PictureDecoder() override; // waits for the decodes under way

    void decode(const QString& key, generation::Bytes bytes, int maxSide);
    // Forgets the key: a decode still under way for it is dropped.
    void forget(const QString& key);

    // Blocks until every decode asked for so far has been delivered; for tests.
    void waitForPending();

signals:
    // `image` is null when the bytes were no picture.
    void decoded(const QString& key, const QImage& image);

private:
    void deliver(const QString& key, quint64 serial, const QImage& image);

    QThreadPool pool_;
    QHash<QString, quint64> latest_;
    quint64 nextSerial_ = 0;
};

} // namespace lumivesper::ui
