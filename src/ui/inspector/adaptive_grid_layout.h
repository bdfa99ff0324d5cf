#pragma once

#include <QLayout>
#include <QList>

namespace lumivesper::ui {

// A grid with as many columns as fit the width, none narrower than a minimum; the columns share
// the width equally and each row is as tall as its tallest item.
class AdaptiveGridLayout final : public QLayout {
public:
    AdaptiveGridLayout(int minimumColumnWidth, int spacing, QWidget* parent = nullptr);
    ~AdaptiveGridLayout() override;

    void addItem(QLayoutItem* item) override;
    int count() const override { return static_cast<int>(items_.size()); }
    QLayoutItem* itemAt(int index) const override;
    QLayoutItem* takeAt(int index) override;

    QSize sizeHint() const override;
    QSize minimumSize() const override;
    Qt::Orientations expandingDirections() const override { return Qt::Horizontal; }
    bool hasHeightForWidth() const override { return true; }
    int heightForWidth(int width) const override;
    void setGeometry(const QRect& rect) override;

    int columnCount(int width) const;

private:
    int arrange(const QRect& rect, bool apply) const;

    int minimumColumnWidth_;
    QList<QLayoutItem*> items_;
};

} // namespace lumivesper::ui
