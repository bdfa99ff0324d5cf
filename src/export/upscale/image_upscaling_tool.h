#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <set>
#include <stop_token>

namespace lumivesper::upscale {

// What the export preprocessor knows of an upscaler. One tool is shared by every frame in flight,
// so implementations bear concurrent calls.
// Tiles done and tiles in all of the image being upscaled, reported after each tile.
using TileProgress = std::function<void(std::size_t done, std::size_t total)>;

class ImageUpscalingTool {
public:
    virtual ~ImageUpscalingTool() = default;

    virtual std::set<int> supportedScaleFactors() const = 0;

    // Reads the image at `input` and writes it, `scale` times larger, to `output` as PNG. Blocks;
    // throws UpscaleError, or platform::CancellationError once `stop` fires. `progress`, when
    // given, hears of every tile.
    virtual void upscale(const std::filesystem::path& input, const std::filesystem::path& output,
                         int scale, std::stop_token stop = {},
                         const TileProgress& progress = {}) const = 0;
};

} // namespace lumivesper::upscale
