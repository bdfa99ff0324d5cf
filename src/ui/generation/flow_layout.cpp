#include "ui/generation/flow_layout.h"

#include <QWidget>
#include <algorithm>

namespace lumivesper::ui {

FlowLayout::FlowLayout(QWidget* parent, int spacing) : QLayout(parent), spacing_(spacing) {
    setContentsMargins(0, 0, 0, 0);
}

FlowLayout::~FlowLayout() {
    while (QLayoutItem* item = takeAt(0))
        delete item;
}

void FlowLayout::addItem(QLayoutItem* item) {
    items_.append(item);
}

QLayoutItem* FlowLayout::itemAt(int index) const {
    return index >= 0 && index < items_.size() ? items_.at(index) : nullptr;
}

QLayoutItem* FlowLayout::takeAt(int index) {
    return index >= 0 && index < items_.size() ? items_.takeAt(index) : nullptr;
}

int FlowLayout::heightForWidth(int width) const {
    return arrange(QRect(0, 0, width, 0), false);
}

QSize FlowLayout::minimumSize() const {
    QSize size;
    for (const QLayoutItem* item : items_)
        size = size.expandedTo(item->minimumSize());
    const QMargins margins = contentsMargins();
    return size + QSize(margins.left() + margins.right(), margins.top() + margins.bottom());
}

QSize FlowLayout::sizeHint() const {
    // As narrow as the widest item: the width is the surrounding layout's to give, and the
    // height follows it through heightForWidth.
    const QSize least = minimumSize();
    return {least.width(), heightForWidth(least.width())};
}

void FlowLayout::setGeometry(const QRect& rect) {
    QLayout::setGeometry(rect);
    arrange(rect, true);
}

int FlowLayout::arrange(const QRect& rect, bool place) const {
    const QRect area = rect.marginsRemoved(contentsMargins());
    int x = area.x();
    int y = area.y();
    int lineHeight = 0;
    for (QLayoutItem* item : items_) {
        if (item->widget() && !item->widget()->isVisibleTo(item->widget()->parentWidget()))
            continue;
        const QSize size = item->sizeHint();
        if (x > area.x() && x + size.width() > area.right() + 1) {
            x = area.x();
            y += lineHeight + spacing_;
            lineHeight = 0;
        }
        if (place)
            item->setGeometry(QRect(QPoint(x, y), size));
        x += size.width() + spacing_;
        lineHeight = std::max(lineHeight, size.height());
    }
    const QMargins margins = contentsMargins();
    return y + lineHeight - rect.y() + margins.bottom();
}

} // namespace lumivesper::ui
