#pragma once

#include "document/wallpaper_image.h"
#include "export/heic_frame.h"

#include <stop_token>
#include <vector>

namespace lumivesper::exporting {

// Brings the frames of an export to one pixel format and canvas, on disk: for frame n (F being
// "frame_%04d" of n + 1) it normalises the source into F_norm.png, runs the upscaling passes of its
// plan into F_up1.png, F_up2.png, ..., and renders F.png at the target size (or the tracked size),
// dithered when asked. Intermediate files are removed as soon as they have been read; on failure
// everything written so far stays in the output folder for its owner to remove.
class HeicPreprocessor {
public:
    static constexpr int maxConcurrentPreprocess = 3;

    explicit HeicPreprocessor(HeicPreprocessConfig config) : config_(std::move(config)) {}

    const HeicPreprocessConfig& config() const { return config_; }

    // Blocks until every frame is ready; at most three are in flight. Progress reports
    // (finished count, image count, "Preprocessed frame c/N") and the pass messages may come from
    // several threads, never at the same time. A stop of `stop` ends the run with
    // CancellationError.
    HeicPreprocessSession preprocess(const std::vector<document::WallpaperImage>& images,
                                     const ProgressCallback& progress,
                                     std::stop_token stop = {}) const;

private:
    HeicPreprocessConfig config_;
};

} // namespace lumivesper::exporting
