#pragma once

#include "document/wallpaper_image.h"
#include "document/wallpaper_mode.h"

#include <optional>
#include <string>
#include <vector>

namespace lumivesper::document {

inline constexpr const char* defaultMagicSize = "1024x576";
inline constexpr int defaultMagicTweenCount = 3;

// The record stored as project.json.
struct Project {
    std::string version = "1.0";
    WallpaperMode mode = WallpaperMode::time;
    std::vector<WallpaperImage> images;
    std::optional<std::string> magicPrompt;
    std::optional<std::string> magicSize;
    std::optional<int> magicTweenCount;
    std::optional<std::string> magicStartingImageFileName;
};

// A Project for the given document state; generation settings equal to their defaults (empty
// prompt and starting image, "1024x576", 3) are left out, so defaults are never stored.
Project makeProject(WallpaperMode mode, std::vector<WallpaperImage> images,
                    const std::string& magicPrompt, const std::string& magicSize,
                    int magicTweenCount, const std::string& magicStartingImageFileName);

} // namespace lumivesper::document
