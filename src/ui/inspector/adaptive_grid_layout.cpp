#include "ui/inspector/adaptive_grid_layout.h"

#include <QWidget>
#include <algorithm>

namespace lumivesper::ui {

AdaptiveGridLayout::AdaptiveGridLayout(int minimumColumnWidth, int spacing, QWidget* parent)
    : QLayout(parent), minimumColumnWidth_(minimumColumnWidth) {
    setSpacing(spacing);
    setContentsMargins(0, 0, 0, 0);
}

AdaptiveGridLayout::~AdaptiveGridLayout() {
    while (QLayoutItem* item = takeAt(0))
        delete item;
}

void AdaptiveGridLayout::addItem(QLayoutItem* item) {
    items_.append(item);
}

QLayoutItem* AdaptiveGridLayout::itemAt(int index) const {
    return index >= 0 && index < items_.size() ? items_.at(index) : nullptr;
}

QLayoutItem* AdaptiveGridLayout::takeAt(int index) {
    return index >= 0 && index < items_.size() ? items_.takeAt(index) : nullptr;
}

int AdaptiveGridLayout::columnCount(int width) const {
    const int fitting = (width + spacing()) / (minimumColumnWidth_ + spacing());
    return std::clamp(fitting, 1, std::max(1, count()));
}

QSize AdaptiveGridLayout::sizeHint() const {
    // Two columns: what a narrow side panel shows.
    const int width = 2 * minimumColumnWidth_ + spacing();
    return {width, heightForWidth(width)};
}

QSize AdaptiveGridLayout::minimumSize() const {
    int widest = minimumColumnWidth_;
    for (QLayoutItem* item : items_)
        widest = std::max(widest, item->minimumSize().width());
    const QMargins margins = contentsMargins();
    return {widest + margins.left() + margins.right(), heightForWidth(widest)};
}

int AdaptiveGridLayout::heightForWidth(int width) const {
    return arrange(QRect(0, 0, width, 0), false);
}

void AdaptiveGridLayout::setGeometry(const QRect& rect) {
    QLayout::setGeometry(rect);
    arrange(rect, true);
}

int AdaptiveGridLayout::arrange(const QRect& rect, bool apply) const {
    const QRect area = rect.marginsRemoved(contentsMargins());
    const int columns = columnCount(area.width());
    const int columnWidth = std::max(1, (area.width() - (columns - 1) * spacing()) / columns);
    int y = area.top();
    for (int first = 0; first < count(); first += columns) {
        const int last = std::min<int>(first + columns, count());
        int rowHeight = 0;
        for (int i = first; i < last; ++i)
            rowHeight = std::max(rowHeight, items_.at(i)->sizeHint().height());
        int x = area.left();
        for (int i = first; i < last; ++i) {
            if (apply)
                items_.at(i)->setGeometry(QRect(x, y, columnWidth, rowHeight));
            x += columnWidth + spacing();
        }
        y += rowHeight + spacing();
    }
    const QMargins margins = contentsMargins();
    return y - area.top() - (count() > 0 ? spacing() : 0) + margins.top() + margins.bottom();
}

} // namespace lumivesper::ui
