#pragma once

#include "document/wallpaper_image.h"
#include "document/wallpaper_mode.h"
#include "export/heic_frame.h"
#include "export/hevc_frame_encoder.h"

#include <filesystem>
#include <functional>
#include <optional>
#include <stop_token>
#include <vector>

namespace lumivesper::exporting {

// Frames ready for encoding, and what to run once the encoder is done with their files.
struct PreparedFrames {
    std::vector<HeicFrameSource> frames;
    std::function<void()> cleanup; // may be empty
};

class TweenGenerator;

// The blend factor of a tween between two key frames: the fraction of the sun's climb from the
// previous key's altitude to the next one's, clamped to 0...1; 0.5 when an altitude is missing or
// the two keys' altitudes are equal.
double tweenBlendFactor(const document::WallpaperImage& tween,
                        const document::WallpaperImage& previous,
                        const document::WallpaperImage& next);

// The tween stage of the optimized path: each tween is blended anew from the nearest key frames
// before and after it in `allImages` (wrapping around the ends), taken from `keyFrames`, into the
// configuration's folder. Results are in the order of `tweens`; progress runs from 98% to 100% of
// `total`.
std::vector<HeicFrameSource>
regenerateTweens(const std::vector<document::WallpaperImage>& tweens,
                 const std::vector<document::WallpaperImage>& allImages,
                 const HeicPreprocessSession& keyFrames, const TweenGenerator& tweenGenerator,
                 const HeicPreprocessConfig& config, int total, const ProgressCallback& progress,
                 std::stop_token stop);

// Turns the images of a document into one dynamic-wallpaper HEIC file. Holds no state: make one
// per export and call generate() on a worker thread; it blocks until the file is complete.
// Failures are HeicGeneratorError (or the preprocessor's, upscaler's and tween generator's own
// errors, passed through); a stop of `stop` surfaces as CancellationError where preprocessing and
// tween blending check for it, between encoded frames and before the file is written: a cancelled
// export leaves the destination as it was. A destination that cannot be written is refused
// (heicCreationFailed) before any work.
class HeicGenerator {
public:
    explicit HeicGenerator(HevcEncoderSettings settings = encoderSettingsForQuality(defaultQuality))
        : settings_(std::move(settings)) {}

    void generate(const std::vector<document::WallpaperImage>& images,
                  const std::filesystem::path& outputURL, document::WallpaperMode mode,
                  const std::optional<HeicPreprocessConfig>& preprocessConfig,
                  const ProgressCallback& progress, std::stop_token stop = {}) const;

    // The frame list for `images` in their order: the source files themselves, or preprocessed
    // ones. Exposed for the export's tests; generate() is the entry point.
    PreparedFrames prepareFrames(const std::vector<document::WallpaperImage>& images,
                                 const std::optional<HeicPreprocessConfig>& preprocessConfig,
                                 int total, const ProgressCallback& progress,
                                 std::stop_token stop) const;

private:
    void generateTimeBased(const std::vector<document::WallpaperImage>& images,
                           const std::filesystem::path& outputURL,
                           const std::optional<HeicPreprocessConfig>& preprocessConfig, int total,
                           const ProgressCallback& progress, std::stop_token stop) const;
    void generateAppearanceBased(const std::vector<document::WallpaperImage>& images,
                                 const std::filesystem::path& outputURL,
                                 const std::optional<HeicPreprocessConfig>& preprocessConfig,
                                 int total, const ProgressCallback& progress,
                                 std::stop_token stop) const;

    HevcEncoderSettings settings_;
};

} // namespace lumivesper::exporting
