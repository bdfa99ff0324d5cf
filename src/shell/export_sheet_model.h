#pragma once

#include "export/export_options.h"
#include "export/upscale/model_location.h"
#include "shell/export_frame_status.h"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace lumivesper::shell {

// The two simple choices of the export sheet. Each writes several options at once; the single
// options stay editable under "Advanced".
enum class ExportQuality { standard, high, ultra };
enum class TargetDisplay { thisDisplay, external, custom };

inline constexpr ExportQuality allExportQualities[] = {ExportQuality::standard, ExportQuality::high,
                                                       ExportQuality::ultra};
inline constexpr TargetDisplay allTargetDisplays[] = {
    TargetDisplay::thisDisplay, TargetDisplay::external, TargetDisplay::custom};

std::string_view rawValue(ExportQuality quality);
std::string_view label(ExportQuality quality);
std::string_view rawValue(TargetDisplay display);
std::string_view label(TargetDisplay display);

// The choices shown when the sheet appears, read back from the options.
ExportQuality exportQuality(const exporting::HeicExportOptions& options);
TargetDisplay targetDisplay(const exporting::HeicExportOptions& options);

// What a choice writes. Neither touches keepPreprocessedFrames.
void applyExportQuality(exporting::HeicExportOptions& options, ExportQuality quality);
void applyTargetDisplay(exporting::HeicExportOptions& options, TargetDisplay display);

// The label of each upscale strategy the sheet offers ("Auto", "Fast", "Max detail").
inline constexpr upscale::HeicUpscaleStrategy sheetUpscaleStrategies[] = {
    upscale::HeicUpscaleStrategy::auto_, upscale::HeicUpscaleStrategy::fast,
    upscale::HeicUpscaleStrategy::max};
std::string_view strategyLabel(upscale::HeicUpscaleStrategy strategy);

// Whether upscaling can run, in words: ready with the model found, or what to do without one.
struct UpscalerReadiness {
    bool ready = false;
    std::string text;
};
UpscalerReadiness upscalerReadiness(const std::optional<std::filesystem::path>& model,
                                    const std::vector<std::filesystem::path>& candidates);

// The frame strip: a key frame stands alone, each run of consecutive tweens forms one group
// whose status is that of its least advanced tween.
struct FrameGroup {
    bool isKeyFrame = true;
    std::vector<ExportFrameInfo> frames; // one for a key frame
    ExportFrameStatus status() const;
};
std::vector<FrameGroup> frameGroups(const std::vector<ExportFrameInfo>& frames);

// The strip's geometry, in points: tiles shrink with the number of key frames so that the strip
// fits the sheet, within 40 to 80.
struct FrameStripMetrics {
    static constexpr double spacing = 6;
    static constexpr double padding = 8;
    double thumbnailSize = 80;
    double height() const { return thumbnailSize + 24; }
};
FrameStripMetrics frameStripMetrics(const std::vector<FrameGroup>& groups);

// The progress view's texts: the message ("Working..." while there is none) and the whole
// percentage, rounded down.
std::string progressMessage(const std::string& message);
std::string progressPercent(double progress);

// The sheet's dismiss button: "Cancel" until an export has said something, then "Close".
std::string_view dismissButtonTitle(const std::string& statusMessage);

} // namespace lumivesper::shell
