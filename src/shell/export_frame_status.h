#pragma once

#include "document/wallpaper_image.h"
#include "platform/pixel_image.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace lumivesper::shell {

enum class ExportFrameStatus { pending, upscaling, blending, complete };

// One frame of the export progress view.
struct ExportFrameInfo {
    std::string id; // the image's UUID text
    bool isKeyFrame = true;
    std::string fileName;
    std::shared_ptr<const platform::PixelImage> thumbnail;
    ExportFrameStatus status = ExportFrameStatus::pending;
};

std::vector<ExportFrameInfo> pendingFrames(const std::vector<document::WallpaperImage>& images);

// Marks frames from one progress message of the generator: "Upscaling frame c/N" and
// "Preprocessed frame c/N" (key frames before c complete, key frame c upscaling), "Regenerating
// tweens" (keys complete, tweens blending), "Encoded image" (all complete). Others change nothing.
void updateFrameStatuses(std::vector<ExportFrameInfo>& frames, const std::string& message);

// The name the export's save panel suggests: the project's name with ".heic", or
// "dynamic-wallpaper.heic".
std::string suggestedExportFileName(const std::optional<std::filesystem::path>& projectPath);

} // namespace lumivesper::shell
