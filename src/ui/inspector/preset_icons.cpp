#include "ui/inspector/preset_icons.h"

#include "sun/presets.h"
#include "ui/symbol_icons.h"

#include <QFile>
#include <QIconEngine>
#include <QPainter>
#include <QPalette>
#include <QSvgRenderer>
#include <memory>
#include <string>

namespace lumivesper::ui {

namespace {

// Draws an SVG at whatever size and scale is asked, so that the drawing stays sharp on any
// screen; a disabled button gets it faded.
class TintedSvgIconEngine final : public QIconEngine {
public:
    explicit TintedSvgIconEngine(const QByteArray& svg)
        : svg_(svg), renderer_(std::make_shared<QSvgRenderer>(svg)) {}

    void paint(QPainter* painter, const QRect& rect, QIcon::Mode mode, QIcon::State) override {
        painter->save();
        if (mode == QIcon::Disabled)
            painter->setOpacity(0.4);
        renderer_->render(painter, QRectF(rect));
        painter->restore();
    }

    QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State state) override {
        QPixmap pixmap(size);
        pixmap.fill(Qt::transparent);
        QPainter painter(&pixmap);
        painter.setRenderHint(QPainter::Antialiasing);
        paint(&painter, QRect(QPoint(0, 0), size), mode, state);
        return pixmap;
    }

    QIconEngine* clone() const override { return new TintedSvgIconEngine(svg_); }
    QString key() const override { return QStringLiteral("lumivesper-tinted-svg"); }
    bool isNull() override { return !renderer_->isValid(); }

private:
    QByteArray svg_;
    std::shared_ptr<QSvgRenderer> renderer_;
};

} // namespace

QIcon sunPositionIcon(std::string_view name, const QColor& lineColour) {
    QFile file(QStringLiteral(":/presets/") +
               QString::fromUtf8(name.data(), static_cast<qsizetype>(name.size())) +
               QStringLiteral(".svg"));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    // The drawings name their neutral lines "currentColor"; here that is the text colour.
    QByteArray svg = file.readAll();
    svg.replace("currentColor", lineColour.name(QColor::HexRgb).toLatin1());
    return QIcon(new TintedSvgIconEngine(svg));
}

QIcon presetIcon(const sun::PresetButton& preset, const QPalette& palette) {
    if (!preset.iconName)
        return {};
    if (preset.usesSystemIcon)
        return symbolIcon(std::string(*preset.iconName));
    return sunPositionIcon(*preset.iconName, palette.color(QPalette::ButtonText));
}

} // namespace lumivesper::ui
