#pragma once

#include "document/wallpaper_mode.h"

#include <QWidget>
#include <optional>

class QToolButton;

namespace lumivesper::shell {
class InspectorModel;
}

namespace lumivesper::ui {

// "Presets": in time mode the eleven sun positions in a grid as wide as the panel allows, in
// appearance mode "Light" and "Dark" in a row. A press gives the selected image the row's values.
class PresetsView final : public QWidget {
    Q_OBJECT

public:
    explicit PresetsView(shell::InspectorModel& model, QWidget* parent = nullptr);

    // Shows the buttons of the model's mode.
    void refresh();
    QList<QToolButton*> buttons() const;

protected:
    void changeEvent(QEvent* event) override;

private:
    void rebuild();

    shell::InspectorModel& model_;
    QWidget* buttonArea_;
    std::optional<document::WallpaperMode> shownMode_;
};

} // namespace lumivesper::ui
