#include "shell/inspector_model.h"

#include "document/app_state.h"
#include "document/timeline.h"
#include "platform/main_thread.h"

#include <charconv>
#include <cmath>

namespace lumivesper::shell {

namespace {

bool showsDifferentValues(const MetadataEditorValues& a, const MetadataEditorValues& b,
                          document::WallpaperMode mode) {
    if (mode == document::WallpaperMode::appearance)
        return a.isLight != b.isLight;
    return a.altitude != b.altitude || a.azimuth != b.azimuth;
}

} // namespace

double steppedSliderValue(double value, double step) {
    if (!(step > 0))
        return value;
    return step * std::round(value / step); // std::round takes halves away from zero
}

std::string degreesLabel(double value) {
    // Fixed notation does not depend on the process's locale, as printf's would.
    char text[400];
    const auto [end, error] =
        std::to_chars(text, text + sizeof text, value, std::chars_format::fixed, 1);
    if (error != std::errc())
        return "?°";
    return std::string(text, end) + "°";
}

MetadataEditorValues editorValues(const document::WallpaperImage& image) {
    return {image.altitude.value_or(0), image.azimuth.value_or(0), image.isLight.value_or(true)};
}

InspectorModel::InspectorModel(document::AppState& appState, platform::MainThread& mainThread)
    : appState_(appState), mainThread_(mainThread) {
    documentChanges_ = appState_.observe([this](document::AppStateFields fields) {
        using document::AppStateField;
        if (fields.contains(AppStateField::images) || fields.contains(AppStateField::mode) ||
            fields.contains(AppStateField::selection))
            followDocument();
    });
    followDocument();
}

InspectorModel::~InspectorModel() = default;

document::WallpaperMode InspectorModel::mode() const {
    return appState_.mode();
}

void InspectorModel::chooseMode(document::WallpaperMode mode) {
    appState_.setMode(mode);
}

bool InspectorModel::showsSunPreview() const {
    return hasSelection() && mode() == document::WallpaperMode::time;
}

std::span<const sun::PresetButton> InspectorModel::presets() const {
    return mode() == document::WallpaperMode::time ? sun::timePresets() : sun::appearancePresets();
}

void InspectorModel::applyPreset(const sun::PresetButton& preset) {
    if (preset.isLight)
        document::applyAppearance(appState_, *preset.isLight);
    else
        document::applyPreset(appState_, preset.altitude, preset.azimuth);
}

void InspectorModel::setAltitude(double altitude) {
    if (!hasSelection() || altitude == values_.altitude)
        return;
    values_.altitude = altitude;
    writeBack();
}

void InspectorModel::setAzimuth(double azimuth) {
    if (!hasSelection() || azimuth == values_.azimuth)
        return;
    values_.azimuth = azimuth;
    writeBack();
}

void InspectorModel::setLight(bool isLight) {
    if (!hasSelection() || isLight == values_.isLight)
        return;
    values_.isLight = isLight;
    writeBack();
}

void InspectorModel::followDocument() {
    const auto selected = appState_.selectedImage();
    if (!selected) {
        // The editor goes with the selection; the next one starts afresh.
        editedImageId_.reset();
        values_ = {};
        changed_.notify();
        return;
    }
    const MetadataEditorValues loaded = shell::editorValues(*selected);
    const bool anotherImage = editedImageId_ != selected->id;
    const bool echoes = anotherImage && showsDifferentValues(values_, loaded, mode());
    editedImageId_ = selected->id;
    // The same image changed elsewhere (a preset, undo): the editor shows what it now holds, and
    // since those are the document's own values there is nothing to write.
    values_ = loaded;
    changed_.notify();
    if (echoes)
        writeBackLater();
}

void InspectorModel::writeBack() {
    if (!editedImageId_)
        return;
    const document::WallpaperImage* current = appState_.image(*editedImageId_);
    if (!current)
        return;
    document::WallpaperImage edited = *current;
    if (mode() == document::WallpaperMode::appearance) {
        edited.isLight = values_.isLight;
    } else {
        edited.altitude = values_.altitude;
        edited.azimuth = values_.azimuth;
    }
    appState_.updateImage(edited);
}

void InspectorModel::writeBackLater() {
    mainThread_.post([alive = lifetime_.weak(), this, id = *editedImageId_] {
        // A later selection has loaded (and written) values of its own.
        if (!alive.lock() || editedImageId_ != id)
            return;
        writeBack();
    });
}

} // namespace lumivesper::shell
