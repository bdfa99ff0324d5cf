#pragma once

#include "document/wallpaper_image.h"
#include "export/upscale/upscale_plan.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace lumivesper::upscale {
class ImageUpscalingTool;
}

namespace lumivesper::exporting {

// Reports of long export work: steps done, steps in all, and a message that the export driver
// parses. May be empty; callers test it before each use.
using ProgressCallback = std::function<void(int current, int total, const std::string& message)>;

// A width and height in pixels, as doubles like the canvas sizes they are compared with.
struct FrameSize {
    double width = 0;
    double height = 0;
    bool operator==(const FrameSize&) const = default;
};

// One frame of an export as a file: the image whose metadata it carries and where its pixels are.
struct HeicFrameSource {
    document::WallpaperImage image;
    std::filesystem::path url;
    FrameSize size; // (0, 0) when the frame is the source file itself
};

// What preprocessing an export wants; see HeicPreprocessor.
struct HeicPreprocessConfig {
    std::optional<FrameSize> targetSize;
    upscale::HeicUpscaleStrategy upscaleStrategy = upscale::HeicUpscaleStrategy::auto_;
    bool enableDither = false;
    std::shared_ptr<upscale::ImageUpscalingTool> upscaler; // none disables upscaling
    std::filesystem::path outputDirectory;
    bool keepPreprocessedFrames = false;

    // Whether any stage would change the frames; the strategy alone wants nothing.
    bool wantsPreprocessing() const { return targetSize || enableDither || upscaler; }
};

// Ready frame files of one preprocessing run, in the order of the images given.
struct HeicPreprocessSession {
    std::vector<HeicFrameSource> frames;
    std::filesystem::path directory;
    bool keepFiles = false;
};

} // namespace lumivesper::exporting
