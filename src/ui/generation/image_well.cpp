#include "ui/generation/image_well.h"

#include "ui/qt_text.h"
#include "ui/symbol_icons.h"

#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileInfo>
#include <QKeyEvent>
#include <QMimeData>
#include <QPainter>
#include <QPainterPath>
#include <QToolButton>
#include <QUrl>

namespace lumivesper::ui {

namespace {

constexpr double cornerRadius = 10;

// The first local file among the dragged URLs.
QString droppedFile(const QMimeData* mime) {
    if (!mime || !mime->hasUrls())
        return {};
    for (const QUrl& url : mime->urls())
        if (url.isLocalFile() && QFileInfo(url.toLocalFile()).isFile())
            return url.toLocalFile();
    return {};
}

} // namespace

ImageWell::ImageWell(QWidget* parent) : QWidget(parent) {
    setObjectName(QStringLiteral("imageWell"));
    setAccessibleName(QStringLiteral("Starting Image"));
    setAccessibleDescription(QStringLiteral("Drop an image here, or click to choose one"));
    setToolTip(QStringLiteral("Drop an image here, or click to choose one"));
    setAcceptDrops(true);
    setCursor(Qt::PointingHandCursor);
    setFocusPolicy(Qt::StrongFocus);
    setMinimumSize(240, 150);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);

    remove_ = new QToolButton(this);
    remove_->setObjectName(QStringLiteral("removeStartingImage"));
    remove_->setAccessibleName(QStringLiteral("Remove Starting Image"));
    remove_->setToolTip(QStringLiteral("Remove Starting Image"));
    remove_->setText(QStringLiteral("✕"));
    remove_->setCursor(Qt::ArrowCursor);
    remove_->setAutoRaise(true);
    remove_->setStyleSheet(QStringLiteral(
        "QToolButton { background: rgba(0,0,0,150); color: white; border-radius: 12px;"
        " min-width: 24px; min-height: 24px; font-weight: bold; }"
        "QToolButton:hover { background: rgba(0,0,0,200); }"));
    remove_->hide();
    connect(remove_, &QToolButton::clicked, this, &ImageWell::removeRequested);
}

void ImageWell::setPicture(const QImage& picture, const QString& name) {
    picture_ = picture;
    name_ = name;
    remove_->setVisible(!name_.isEmpty());
    setAccessibleDescription(name_.isEmpty() ? QStringLiteral("Drop an image here, or click to "
                                                              "choose one")
                                             : name_);
    update();
}

void ImageWell::clear() {
    setPicture({}, {});
}

void ImageWell::resizeEvent(QResizeEvent*) {
    remove_->move(width() - remove_->sizeHint().width() - 8, 8);
}

void ImageWell::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF frame = QRectF(rect()).adjusted(1, 1, -1, -1);
    QPainterPath rounded;
    rounded.addRoundedRect(frame, cornerRadius, cornerRadius);
    const QColor accent = palette().color(QPalette::Highlight);

    if (!picture_.isNull()) {
        // Fill the frame, cropping what does not fit, as a photo in a frame.
        painter.setClipPath(rounded);
        const QSizeF scaled =
            QSizeF(picture_.size()).scaled(frame.size(), Qt::KeepAspectRatioByExpanding);
        const QRectF target(frame.center() - QPointF(scaled.width() / 2, scaled.height() / 2),
                            scaled);
        painter.drawImage(target, picture_);
        // The file's name on a dark band at the foot.
        const QRectF band(frame.left(), frame.bottom() - 28, frame.width(), 28);
        painter.fillRect(band, QColor(0, 0, 0, 130));
        painter.setPen(Qt::white);
        painter.drawText(band.adjusted(10, 0, -10, 0), Qt::AlignVCenter | Qt::AlignLeft,
                         painter.fontMetrics().elidedText(name_, Qt::ElideMiddle,
                                                          static_cast<int>(band.width()) - 20));
        painter.setClipping(false);
        painter.setPen(
            QPen(dropTargeted_ ? accent : palette().color(QPalette::Mid), dropTargeted_ ? 3 : 1));
        painter.setBrush(Qt::NoBrush);
        painter.drawPath(rounded);
        return;
    }

    QColor fill = dropTargeted_ ? accent : palette().color(QPalette::Mid);
    fill.setAlpha(dropTargeted_ ? 40 : 22);
    painter.fillPath(rounded, fill);
    QPen dashed(dropTargeted_ ? accent : palette().color(QPalette::Mid), dropTargeted_ ? 2.5 : 1.5,
                Qt::DashLine);
    dashed.setDashPattern({5, 4});
    painter.setPen(dashed);
    painter.drawPath(rounded);

    const QPixmap icon = symbolIcon("photo.on.rectangle.angled").pixmap(40, 40);
    const QPointF middle = frame.center();
    painter.drawPixmap(QPointF(middle.x() - 20, middle.y() - 44), icon);
    QFont heading = font();
    heading.setBold(true);
    painter.setFont(heading);
    painter.setPen(palette().color(QPalette::WindowText));
    const QString title = name_.isEmpty() ? QStringLiteral("Drop a photo here")
                                          : QStringLiteral("Loading %1…").arg(name_);
    painter.drawText(QRectF(frame.left(), middle.y() + 4, frame.width(), 20), Qt::AlignHCenter,
                     title);
    painter.setFont(font());
    painter.setPen(palette().color(QPalette::PlaceholderText));
    painter.drawText(QRectF(frame.left(), middle.y() + 26, frame.width(), 20), Qt::AlignHCenter,
                     QStringLiteral("or click to choose one"));
}

void ImageWell::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton && rect().contains(event->position().toPoint()))
        emit chooseRequested();
}

void ImageWell::keyPressEvent(QKeyEvent* event) {
    switch (event->key()) {
    case Qt::Key_Space:
    case Qt::Key_Return:
    case Qt::Key_Enter:
        emit chooseRequested();
        return;
    case Qt::Key_Delete:
    case Qt::Key_Backspace:
        if (hasPicture()) {
            emit removeRequested();
            return;
        }
        break;
    default:
        break;
    }
    QWidget::keyPressEvent(event);
}

void ImageWell::dragEnterEvent(QDragEnterEvent* event) {
    if (droppedFile(event->mimeData()).isEmpty())
        return;
    event->acceptProposedAction();
    dropTargeted_ = true;
    update();
}

void ImageWell::dragLeaveEvent(QDragLeaveEvent*) {
    dropTargeted_ = false;
    update();
}

void ImageWell::dropEvent(QDropEvent* event) {
    dropTargeted_ = false;
    update();
    const QString file = droppedFile(event->mimeData());
    if (file.isEmpty())
        return;
    event->acceptProposedAction();
    emit fileDropped(toPath(file));
}

} // namespace lumivesper::ui
