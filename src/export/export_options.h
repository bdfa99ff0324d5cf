#pragma once

#include "export/heic_frame.h"
#include "export/hevc_frame_encoder.h"
#include "export/upscale/upscale_plan.h"

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace lumivesper::upscale {
class ImageUpscalingTool;
}

namespace lumivesper::exporting {

// The canvas an export is brought to; stored by its raw value, the case name.
enum class HeicCanvasPreset { matchSource, apple8k, apple6k, custom };

std::string_view rawValue(HeicCanvasPreset preset);
std::optional<HeicCanvasPreset> heicCanvasPresetFromRawValue(std::string_view raw);
std::string_view label(HeicCanvasPreset preset);

// What the export sheet edits.
struct HeicExportOptions {
    bool resizeEnabled = true;
    HeicCanvasPreset canvasPreset = HeicCanvasPreset::apple8k;
    std::string customWidth = "7680";
    std::string customHeight = "4320";
    bool upscaleEnabled = true;
    upscale::HeicUpscaleStrategy upscaleStrategy = upscale::HeicUpscaleStrategy::auto_;
    bool enableDither = false;
    bool keepPreprocessedFrames = false;
    // 0 (smallest files) to 100 (best pictures); the default keeps the usual look.
    int quality = defaultQuality;

    bool operator==(const HeicExportOptions&) const = default;

    // Both custom texts, trimmed, parsed whole as positive finite numbers; else none.
    std::optional<FrameSize> customSize() const;
    // The canvas: none when resizing is off, for "match source", or for an invalid custom size.
    std::optional<FrameSize> targetSize() const;
    // "Enter a valid custom canvas size." while a custom canvas is chosen and invalid.
    std::optional<std::string> validationError() const;
};

// A quality as the user writes it: a whole number from 0 to 100, blanks around it allowed
// ("80", " 80 ", "80.0"); none for anything else.
std::optional<int> parseQuality(std::string_view text);

// The text the export sheet shows for a quality that parseQuality() refuses.
inline constexpr std::string_view invalidQualityText = "Enter a quality from 0 to 100.";

// The preprocessing an export needs, or none when it needs none (also when upscaling was wanted
// but no upscaler could be had and nothing else is on). Kept frames go to a new folder named by
// local time under the data folder; others to a fresh temporary folder.
std::optional<HeicPreprocessConfig>
makePreprocessConfig(const HeicExportOptions& options,
                     std::shared_ptr<upscale::ImageUpscalingTool> upscaler,
                     std::chrono::system_clock::time_point now = std::chrono::system_clock::now());

// Removes the frame folder of `config` unless its frames are to be kept. The generator removes it
// after a successful encode; whoever made the configuration runs this whichever way the export
// ended, since a failed or cancelled run leaves its frames (gigabytes at 8K) behind.
void removeTemporaryFrames(const std::optional<HeicPreprocessConfig>& config);

} // namespace lumivesper::exporting
