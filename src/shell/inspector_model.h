#pragma once

#include "document/wallpaper_image.h"
#include "document/wallpaper_mode.h"
#include "platform/observer_list.h"
#include "shell/lifetime_token.h"
#include "sun/presets.h"

#include <optional>
#include <span>
#include <string>

namespace lumivesper::document {
class AppState;
}
namespace lumivesper::platform {
class MainThread;
}

namespace lumivesper::shell {

// What the metadata editor holds: the two sliders and the light switch.
struct MetadataEditorValues {
    double altitude = 0;
    double azimuth = 0;
    bool isLight = true;
};

// The editor's ranges; the sliders move in tenths of a degree.
struct MetadataSliderRange {
    double minimum = 0;
    double maximum = 0;
    double step = 0;
};
inline constexpr MetadataSliderRange altitudeSliderRange{-90, 90, 0.1};
inline constexpr MetadataSliderRange azimuthSliderRange{0, 360, 0.1};

// A slider value snapped to the step, halves away from zero; a step of 0 or less snaps nothing.
double steppedSliderValue(double value, double step);
// The value beside a slider: one decimal and a degree sign ("12.3°").
std::string degreesLabel(double value);

// The values an image gives the editor: its angles, 0 where it has none; its light flag, on
// where it has none.
MetadataEditorValues editorValues(const document::WallpaperImage& image);

// The side panel's logic: whether there is an image to inspect, the document's mode, the preset
// rows of that mode, and the metadata editor of the selected image. Main thread only.
//
// The editor loads the selected image's values whenever another image becomes the selected one.
// A load that alters a value the present mode shows writes the image back with its own values,
// as an edit does (one "Edit Image" step, the document dirty): the editor has no commit step and
// does not tell a load from an edit. That write runs from the main-thread queue, after the
// selection change has reached every observer.
class InspectorModel {
public:
    InspectorModel(document::AppState& appState, platform::MainThread& mainThread);
    ~InspectorModel();

    InspectorModel(const InspectorModel&) = delete;
    InspectorModel& operator=(const InspectorModel&) = delete;

    // Without a selected image the whole panel is a placeholder.
    bool hasSelection() const { return editedImageId_.has_value(); }
    document::WallpaperMode mode() const;
    void chooseMode(document::WallpaperMode mode);
    // The sun preview is part of the panel in time mode only.
    bool showsSunPreview() const;

    // The eleven sun positions in time mode, "Light" and "Dark" in appearance mode.
    std::span<const sun::PresetButton> presets() const;
    // Gives the selected image the row's values; nothing without a selected image.
    void applyPreset(const sun::PresetButton& preset);

    const MetadataEditorValues& editorValues() const { return values_; }
    // The user moved a slider or the switch: the selected image takes the values of the present
    // mode. A value equal to the present one changes nothing.
    void setAltitude(double altitude);
    void setAzimuth(double azimuth);
    void setLight(bool isLight);

    // After anything the panel shows has changed.
    [[nodiscard]] platform::Subscription observe(std::function<void()> observer) {
        return changed_.subscribe(std::move(observer));
    }

private:
    void followDocument();
    void writeBack();
    void writeBackLater();

    document::AppState& appState_;
    platform::MainThread& mainThread_;
    std::optional<document::Uuid> editedImageId_;
    MetadataEditorValues values_;
    platform::ObserverList<> changed_;
    platform::Subscription documentChanges_;
    LifetimeToken lifetime_;
};

} // namespace lumivesper::shell
