#include "shell/export_sheet_model.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace lumivesper::shell {

using exporting::HeicCanvasPreset;
using exporting::HeicExportOptions;
using upscale::HeicUpscaleStrategy;

namespace {

struct QualityName {
    ExportQuality value;
    std::string_view raw;
    std::string_view label;
};
constexpr QualityName qualityNames[] = {
    {ExportQuality::standard, "standard", "Standard"},
    {ExportQuality::high, "high", "High"},
    {ExportQuality::ultra, "ultra", "Ultra"},
};

struct DisplayName {
    TargetDisplay value;
    std::string_view raw;
    std::string_view label;
};
// The raw value keeps the stored name of the built-in display choice.
constexpr DisplayName displayNames[] = {
    {TargetDisplay::thisDisplay, "thisMac", "This Display"},
    {TargetDisplay::external, "external", "External Display…"},
    {TargetDisplay::custom, "custom", "Custom…"},
};

template <typename Table, typename Value> const auto& entry(const Table& table, Value value) {
    return *std::find_if(std::begin(table), std::end(table),
                         [value](const auto& named) { return named.value == value; });
}

} // namespace

std::string_view rawValue(ExportQuality quality) {
    return entry(qualityNames, quality).raw;
}
std::string_view label(ExportQuality quality) {
    return entry(qualityNames, quality).label;
}
std::string_view rawValue(TargetDisplay display) {
    return entry(displayNames, display).raw;
}
std::string_view label(TargetDisplay display) {
    return entry(displayNames, display).label;
}

ExportQuality exportQuality(const HeicExportOptions& options) {
    if (!options.upscaleEnabled)
        return ExportQuality::standard;
    return options.enableDither ? ExportQuality::ultra : ExportQuality::high;
}

TargetDisplay targetDisplay(const HeicExportOptions& options) {
    switch (options.canvasPreset) {
    case HeicCanvasPreset::apple6k:
        return TargetDisplay::external;
    case HeicCanvasPreset::custom:
        return TargetDisplay::custom;
    default:
        return TargetDisplay::thisDisplay;
    }
}

void applyExportQuality(HeicExportOptions& options, ExportQuality quality) {
    switch (quality) {
    case ExportQuality::standard:
        options.upscaleEnabled = false;
        options.enableDither = false;
        break;
    case ExportQuality::high:
        options.upscaleEnabled = true;
        options.upscaleStrategy = HeicUpscaleStrategy::auto_;
        options.enableDither = false;
        break;
    case ExportQuality::ultra:
        options.upscaleEnabled = true;
        options.upscaleStrategy = HeicUpscaleStrategy::max;
        options.enableDither = true;
        options.resizeEnabled = true;
        options.canvasPreset = HeicCanvasPreset::apple8k;
        break;
    }
}

void applyTargetDisplay(HeicExportOptions& options, TargetDisplay display) {
    options.resizeEnabled = true;
    switch (display) {
    case TargetDisplay::thisDisplay:
        if (options.canvasPreset == HeicCanvasPreset::custom)
            options.canvasPreset = HeicCanvasPreset::apple8k;
        break;
    case TargetDisplay::external:
        options.canvasPreset = HeicCanvasPreset::apple6k;
        break;
    case TargetDisplay::custom:
        options.canvasPreset = HeicCanvasPreset::custom;
        break;
    }
}

std::string_view strategyLabel(HeicUpscaleStrategy strategy) {
    switch (strategy) {
    case HeicUpscaleStrategy::fast:
        return "Fast";
    case HeicUpscaleStrategy::max:
        return "Max detail";
    default:
        return "Auto";
    }
}

UpscalerReadiness upscalerReadiness(const std::optional<std::filesystem::path>& model,
                                    const std::vector<std::filesystem::path>& candidates) {
    if (model)
        return {true, "ONNX upscaler ready"};
    const std::string where = candidates.empty() ? std::string(upscale::upscaleModelFileName)
                                                 : candidates.front().string();
    return {false, "No upscaling model found: place " + std::string(upscale::upscaleModelFileName) +
                       " at " + where + ", or turn AI upscaling off."};
}

ExportFrameStatus FrameGroup::status() const {
    ExportFrameStatus least = ExportFrameStatus::complete;
    for (const auto& frame : frames)
        least = std::min(least, frame.status);
    return frames.empty() ? ExportFrameStatus::pending : least;
}

std::vector<FrameGroup> frameGroups(const std::vector<ExportFrameInfo>& frames) {
    std::vector<FrameGroup> groups;
    for (const auto& frame : frames) {
        if (frame.isKeyFrame)
            groups.push_back({true, {frame}});
        else if (!groups.empty() && !groups.back().isKeyFrame)
            groups.back().frames.push_back(frame);
        else
            groups.push_back({false, {frame}});
    }
    return groups;
}

FrameStripMetrics frameStripMetrics(const std::vector<FrameGroup>& groups) {
    const auto keys = static_cast<double>(
        std::count_if(groups.begin(), groups.end(), [](const auto& g) { return g.isKeyFrame; }));
    const double gaps = std::max(keys - 1, 0.0);
    const double size =
        (736 - FrameStripMetrics::spacing * (keys + gaps - 1) - 20 * gaps) / std::max(keys, 1.0);
    return {std::clamp(size, 40.0, 80.0)};
}

std::string progressMessage(const std::string& message) {
    return message.empty() ? "Working..." : message;
}

std::string progressPercent(double progress) {
    const double percent = std::isfinite(progress) ? std::floor(progress * 100) : 0;
    return std::to_string(static_cast<long long>(std::clamp(percent, 0.0, 100.0))) + "%";
}

std::string_view dismissButtonTitle(const std::string& statusMessage) {
    return statusMessage.empty() ? "Cancel" : "Close";
}

} // namespace lumivesper::shell
