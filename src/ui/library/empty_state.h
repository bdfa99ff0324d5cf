#pragma once

#include <QWidget>

class QPushButton;

namespace lumivesper::ui {

// What the library shows with no images: an invitation to drop, import or generate.
class EmptyState final : public QWidget {
    Q_OBJECT

public:
    explicit EmptyState(QWidget* parent = nullptr);

    // Files hover over the library: the frame lights up.
    void setDropTargeted(bool targeted);
    bool isDropTargeted() const { return dropTargeted_; }

signals:
    void importRequested();
    void generateRequested();

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    bool dropTargeted_ = false;
};

} // namespace lumivesper::ui
