#pragma once

#include "platform/observer_list.h"
#include "shell/solar_position_service.h"

#include <QScrollArea>
#include <memory>

namespace lumivesper::document {
class AppState;
}
namespace lumivesper::platform {
class MainThread;
}
namespace lumivesper::shell {
class InspectorModel;
} // namespace lumivesper::shell

namespace lumivesper::ui {

class ImageMetadataEditor;
class ModePicker;
class PresetsView;
class SunPreview;

// The side panel of the window: for the selected image the mode, the presets, the metadata
// editor and, in time mode, the sun preview; without a selection a placeholder. It scrolls
// vertically.
class InspectorView final : public QScrollArea {
    Q_OBJECT

public:
    // `locationManager` is the sun preview's location source; none means the desktop's own.
    InspectorView(document::AppState& appState, platform::MainThread& mainThread,
                  std::unique_ptr<shell::LocationManager> locationManager = {},
                  QWidget* parent = nullptr);
    ~InspectorView() override;

    shell::InspectorModel& model() { return *model_; }
    QWidget* placeholder() const { return placeholder_; }
    QWidget* content() const { return content_; }
    ModePicker* modePicker() const { return modePicker_; }
    PresetsView* presets() const { return presets_; }
    ImageMetadataEditor* editor() const { return editor_; }
    SunPreview* sunPreview() const { return sunPreview_; }

    // As wide as the widest row of the page shown, with room for the scroll bar: the panel
    // scrolls up and down, never sideways.
    QSize minimumSizeHint() const override;

private:
    QWidget* makePlaceholder(QWidget* parent);
    void refresh();

    std::unique_ptr<shell::InspectorModel> model_;
    QWidget* placeholder_;
    QWidget* content_;
    ModePicker* modePicker_;
    PresetsView* presets_;
    ImageMetadataEditor* editor_;
    QWidget* sunDivider_;
    SunPreview* sunPreview_;
    platform::Subscription changes_;
};

} // namespace lumivesper::ui
