#pragma once

#include <QLayout>
#include <QList>

namespace lumivesper::ui {

// Lays its items out left to right and wraps them onto the next line when the width runs out,
// like words in a paragraph. Its height follows its width.
class FlowLayout final : public QLayout {
public:
    explicit FlowLayout(QWidget* parent = nullptr, int spacing = 6);
    ~FlowLayout() override;

    void addItem(QLayoutItem* item) override;
    int count() const override { return static_cast<int>(items_.size()); }
    QLayoutItem* itemAt(int index) const override;
    QLayoutItem* takeAt(int index) override;

    Qt::Orientations expandingDirections() const override { return {}; }
    bool hasHeightForWidth() const override { return true; }
    int heightForWidth(int width) const override;
    QSize minimumSize() const override;
    QSize sizeHint() const override;
    void setGeometry(const QRect& rect) override;

private:
    // Places the items in `rect` (only measures when `place` is false); returns the height used.
    int arrange(const QRect& rect, bool place) const;

    QList<QLayoutItem*> items_;
    int spacing_;
};

} // namespace lumivesper::ui
