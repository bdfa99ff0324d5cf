#pragma once

#include <QImage>
#include <QString>
#include <QWidget>
#include <filesystem>

class QToolButton;

namespace lumivesper::ui {

// The starting image of a generation: an inviting empty frame that takes a dropped image file or
// a click to choose one, and shows the picture once there is one, with a button to remove it.
class ImageWell final : public QWidget {
    Q_OBJECT

public:
    explicit ImageWell(QWidget* parent = nullptr);

    // A null picture with a name shows the name while the picture is being decoded.
    void setPicture(const QImage& picture, const QString& name);
    void clear();
    bool hasPicture() const { return !name_.isEmpty(); }

    QSize sizeHint() const override { return {300, 190}; }

signals:
    void fileDropped(const std::filesystem::path& file);
    void chooseRequested();
    void removeRequested();

protected:
    void paintEvent(QPaintEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dragLeaveEvent(QDragLeaveEvent* event) override;
    void dropEvent(QDropEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    QImage picture_;
    QString name_;
    bool dropTargeted_ = false;
    QToolButton* remove_ = nullptr;
};

} // namespace lumivesper::ui
