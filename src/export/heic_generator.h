#pragma once

#include "document/wallpaper_image.h"
#include "document/wallpaper_mode.h"
#include "export/heic_frame.h"

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

// Turns the images of a document into one dynamic-wallpaper HEIC file. Holds no state: make one
// per export and call generate() on a worker thread; it blocks until the file is complete.
// Failures are HeicGeneratorError (or the preprocessor's, upscaler's and tween generator's own
// errors, passed through); a stop of `stop` surfaces as CancellationError where preprocessing and
// tween blending check for it. The encoding loop itself runs to its end.
class HeicGenerator {
public:
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
};

} // namespace lumivesper::exporting
