#pragma once

#include <QListView>
#include <QPoint>
#include <QUrl>

#include <optional>

namespace lumivesper::ui {

class ImageCellDelegate;
class ImageListModel;

// The grid and the list: one view over the image model in icon or list mode. Clicks select by
// the document's rules (Shift extends and wins over Ctrl, Ctrl toggles), key images drag by their
// id, and drops are told to the owner, which decides.
class ImageListView final : public QListView {
    Q_OBJECT

public:
    static constexpr int gridSpacing = 16;
    static constexpr int minimumCellWidth = 180;
    static constexpr int maximumCellWidth = 320;

    ImageListView(ImageListModel& model, QWidget* parent = nullptr);

    void setGridLayout(bool grid); // icon mode in adaptive cells, or one row per image
    bool isGridLayout() const { return viewMode() == QListView::IconMode; }

signals:
    void clicked(int row, Qt::KeyboardModifiers modifiers);
    void doubleClicked(int row);
    void contextMenuAt(int row, QPoint globalPosition);
    void filesDropped(const QList<QUrl>& urls);
    void reorderDropped(const QString& sourceId, int targetRow);
    void spacePressed();

protected:
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void contextMenuEvent(QContextMenuEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dragMoveEvent(QDragMoveEvent* event) override;
    void dragLeaveEvent(QDragLeaveEvent* event) override;
    void dropEvent(QDropEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    // The key image a reorder would land on, or none where a drop is refused.
    std::optional<int> reorderTarget(QPoint position) const;
    void updateCellSize();

    ImageListModel& model_;
    ImageCellDelegate* delegate_;
    std::optional<QPoint> pressPosition_;
    int pressedRow_ = -1;
};

} // namespace lumivesper::ui
