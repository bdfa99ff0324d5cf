#pragma once

#include "document/wallpaper_image.h"
#include "export/heic_frame.h"
#include "platform/pixel_image.h"

#include <filesystem>
#include <functional>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <vector>

namespace lumivesper::exporting {

class TweenGeneratorError : public std::runtime_error {
public:
    enum class Case { imageLoadFailed, invalidImageCount, processingFailed };
    explicit TweenGeneratorError(Case errorCase);
    Case errorCase() const { return case_; }
    std::string description() const { return what(); }

private:
    Case case_;
};

// Called after each tween with (completed, total).
using TweenProgress = std::function<void(int completed, int total)>;

// Cross-dissolves two images into in-between frames: out = (1 - t) * from + t * to per channel.
// Holds no state; each operation decodes what it needs from the files.
class TweenGenerator {
public:
    // The fraction of the i-th of `count` tweens: a smoothstep of i / (count + 1), so the run eases
    // out of the first image and into the second and neither end image is repeated.
    static double easedFraction(int i, int count);

    // `count` eased blends from the first file towards the second, at the first one's size (the
    // second is stretched to it, each axis on its own). Checks `stop` before each frame.
    std::vector<platform::PixelImage> generateTweens(const std::filesystem::path& fromPath,
                                                     const std::filesystem::path& toPath, int count,
                                                     const TweenProgress& progress = {},
                                                     std::stop_token stop = {}) const;

    // The same blends written as baseName "_tween_" n ".png" (n from 1) in `outputDirectory`;
    // returns their paths in order. Files already written stay when the run fails or is stopped.
    std::vector<std::filesystem::path>
    generateAndSaveTweens(const std::filesystem::path& fromPath,
                          const std::filesystem::path& toPath, int count,
                          const std::filesystem::path& outputDirectory, const std::string& baseName,
                          const TweenProgress& progress = {}, std::stop_token stop = {}) const;

    // One export frame: `previous` and `next` blended with `t` as given (no easing), written as
    // "tween_%04d.png" of `index` in `outputDirectory`. The two files must have the same size:
    // export frames have been brought to one canvas already. Fails with HeicGeneratorError.
    HeicFrameSource blendFrame(const HeicFrameSource& previous, const HeicFrameSource& next,
                               const document::WallpaperImage& image, int index,
                               const std::filesystem::path& outputDirectory, double t) const;
};

// (1 - t) * from + t * to for every channel, rounded; the two images must have the same size.
platform::PixelImage dissolve(const platform::PixelImage& from, const platform::PixelImage& to,
                              double t);

} // namespace lumivesper::exporting
