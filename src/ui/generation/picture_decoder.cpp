#include "ui/generation/picture_decoder.h"

#include <QCoreApplication>
#include <QMetaObject>
#include <QPointer>

namespace lumivesper::ui {

PictureDecoder::PictureDecoder(QObject* parent) : QObject(parent) {
    pool_.setMaxThreadCount(2);
}

PictureDecoder::~PictureDecoder() {
    pool_.clear();
    pool_.waitForDone();
}

void PictureDecoder::decode(const QString& key, generation::Bytes bytes, int maxSide) {
    const quint64 serial = ++nextSerial_;
    latest_[key] = serial;
    QPointer<PictureDecoder> self(this);
    pool_.start([self, key, serial, maxSide, bytes = std::move(bytes)] {
        QImage image = QImage::fromData(reinterpret_cast<const uchar*>(bytes.data()),
                                        static_cast<int>(bytes.size()));
        if (!image.isNull() && (image.width() > maxSide || image.height() > maxSide))
            image = image.scaled(maxSide, maxSide, Qt::KeepAspectRatio, Qt::SmoothTransformation);
        // The pool is drained before the decoder goes, so `self` is alive here; the queued call
        // runs on the decoder's thread and is dropped with the decoder.
        QMetaObject::invokeMethod(
            self.data(),
            [self, key, serial, image] {
                if (self)
                    self->deliver(key, serial, image);
            },
            Qt::QueuedConnection);
    });
}

void PictureDecoder::forget(const QString& key) {
    latest_.remove(key);
}

void PictureDecoder::deliver(const QString& key, quint64 serial, const QImage& image) {
    const auto found = latest_.find(key);
    if (found == latest_.end() || found.value() != serial)
        return;
    latest_.erase(found);
    emit decoded(key, image);
}

void PictureDecoder::waitForPending() {
    pool_.waitForDone();
    QCoreApplication::sendPostedEvents(this);
}

} // namespace lumivesper::ui
