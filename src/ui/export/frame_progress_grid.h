#pragma once

#include "shell/export_sheet_model.h"

#include <QHash>
#include <QImage>
#include <QWidget>

#include <vector>

class QTimer;

namespace lumivesper::ui {

// The strip of frames of a running export: a tile per key frame with its thumbnail under a
// status overlay, and a narrow tile per run of tweens.
class FrameProgressGrid final : public QWidget {
    Q_OBJECT

public:
    explicit FrameProgressGrid(QWidget* parent = nullptr);

    void setFrames(const std::vector<shell::ExportFrameInfo>& frames);
    const std::vector<shell::FrameGroup>& groups() const { return groups_; }
    const shell::FrameStripMetrics& metrics() const { return metrics_; }

    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    static constexpr int tweenTileWidth = 20;
    void paintKeyFrame(QPainter& painter, const QRectF& tile, const shell::FrameGroup& group);
    void paintTweenGroup(QPainter& painter, const QRectF& tile, const shell::FrameGroup& group);
    const QImage& thumbnail(const shell::ExportFrameInfo& frame);

    std::vector<shell::FrameGroup> groups_;
    shell::FrameStripMetrics metrics_;
    QHash<QString, QImage> thumbnails_; // converted once per frame id
    QTimer* spinner_ = nullptr;
    int spinnerAngle_ = 0;
};

} // namespace lumivesper::ui
