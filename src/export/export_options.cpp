#include "export/export_options.h"

#include "platform/paths.h"
#include "platform/uuid.h"

#include <charconv>
#include <cmath>
#include <ctime>
#include <system_error>

namespace lumivesper::exporting {

namespace {

constexpr std::pair<HeicCanvasPreset, std::string_view> rawValues[] = {
    {HeicCanvasPreset::matchSource, "matchSource"},
    {HeicCanvasPreset::apple8k, "apple8k"},
    {HeicCanvasPreset::apple6k, "apple6k"},
    {HeicCanvasPreset::custom, "custom"},
};

// The whole text, trimmed of white space, as a finite number.
std::optional<double> parseWholeNumber(std::string_view text) {
    const auto isSpace = [](char c) {
        return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
    };
    while (!text.empty() && isSpace(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isSpace(text.back()))
        text.remove_suffix(1);
    double value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || error != std::errc() || end != text.data() + text.size() ||
        !std::isfinite(value))
        return std::nullopt;
    return value;
}

std::optional<double> parsePositive(std::string_view text) {
    const auto value = parseWholeNumber(text);
    if (!value || *value <= 0)
        return std::nullopt;
    return value;
}

std::string localTimeFolderName(std::chrono::system_clock::time_point now) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    std::tm local{};
    localtime_r(&seconds, &local);
    char text[32];
    std::strftime(text, sizeof text, "%Y%m%d-%H%M%S", &local);
    return text;
}

} // namespace

std::string_view rawValue(HeicCanvasPreset preset) {
    for (const auto& [value, raw] : rawValues)
        if (value == preset)
            return raw;
    return "apple8k";
}

std::optional<HeicCanvasPreset> heicCanvasPresetFromRawValue(std::string_view raw) {
    for (const auto& [value, text] : rawValues)
        if (text == raw)
            return value;
    return std::nullopt;
}

std::string_view label(HeicCanvasPreset preset) {
    switch (preset) {
    case HeicCanvasPreset::matchSource:
        return "Match source";
    case HeicCanvasPreset::apple8k:
        return "8K (7680×4320)";
    case HeicCanvasPreset::apple6k:
        return "6K (6016×3384)";
    case HeicCanvasPreset::custom:
        return "Custom";
    }
    return "Custom";
}

std::optional<FrameSize> HeicExportOptions::customSize() const {
    const auto width = parsePositive(customWidth);
    const auto height = parsePositive(customHeight);
    if (!width || !height)
        return std::nullopt;
    return FrameSize{*width, *height};
}

std::optional<FrameSize> HeicExportOptions::targetSize() const {
    if (!resizeEnabled)
        return std::nullopt;
    switch (canvasPreset) {
    case HeicCanvasPreset::matchSource:
        return std::nullopt;
    case HeicCanvasPreset::apple8k:
        return FrameSize{7680, 4320};
    case HeicCanvasPreset::apple6k:
        return FrameSize{6016, 3384};
    case HeicCanvasPreset::custom:
        return customSize();
    }
    return std::nullopt;
}

std::optional<std::string> HeicExportOptions::validationError() const {
    if (resizeEnabled && canvasPreset == HeicCanvasPreset::custom && !customSize())
        return "Enter a valid custom canvas size.";
    return std::nullopt;
}

std::optional<int> parseQuality(std::string_view text) {
    const auto value = parseWholeNumber(text);
    if (!value || *value < 0 || *value > 100 || *value != std::floor(*value))
        return std::nullopt;
    return static_cast<int>(*value);
}

std::optional<HeicPreprocessConfig>
makePreprocessConfig(const HeicExportOptions& options,
                     std::shared_ptr<upscale::ImageUpscalingTool> upscaler,
                     std::chrono::system_clock::time_point now) {
    const auto target = options.targetSize();
    if (!target && !options.upscaleEnabled && !options.enableDither)
        return std::nullopt;

    HeicPreprocessConfig config;
    config.targetSize = target;
    config.upscaleStrategy =
        options.upscaleEnabled ? options.upscaleStrategy : upscale::HeicUpscaleStrategy::off;
    config.upscaler = options.upscaleEnabled ? std::move(upscaler) : nullptr;
    config.enableDither = options.enableDither;
    config.keepPreprocessedFrames = options.keepPreprocessedFrames;
    if (options.keepPreprocessedFrames) {
        std::filesystem::path base = platform::dataHome();
        if (base.empty())
            base = platform::temporaryDirectory();
        config.outputDirectory = base / "Lumivesper AI" / "Preprocessed" / localTimeFolderName(now);
    } else {
        config.outputDirectory =
            platform::temporaryDirectory() /
            ("LumivesperAIPreprocess-" + platform::Uuid::generate().toString());
    }
    if (!config.targetSize && !config.enableDither && !config.upscaler)
        return std::nullopt;
    return config;
}

void removeTemporaryFrames(const std::optional<HeicPreprocessConfig>& config) {
    if (!config || config->keepPreprocessedFrames || config->outputDirectory.empty())
        return;
    std::error_code ignored;
    std::filesystem::remove_all(config->outputDirectory, ignored);
}

} // namespace lumivesper::exporting
