#pragma once

#include <filesystem>
#include <set>
#include <stop_token>

namespace lumivesper::upscale {

// What the export preprocessor knows of an upscaler. One tool is shared by every frame in flight,
// so implementations bear concurrent calls.
class ImageUpscalingTool {
public:
    virtual ~ImageUpscalingTool() = default;

    virtual std::set<int> supportedScaleFactors() const = 0;

    // Reads the image at `input` and writes it, `scale` times larger, to `output` as PNG. Blocks;
    // throws UpscaleError, or platform::CancellationError once `stop` fires.
    virtual void upscale(const std::filesystem::path& input, const std::filesystem::path& output,
                         int scale, std::stop_token stop = {}) const = 0;
};

} // namespace lumivesper::upscale
