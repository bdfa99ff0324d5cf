#pragma once

#include "export/heic_frame.h"

#include <filesystem>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

namespace lumivesper::desktop {

// One picture of a time wallpaper and when it belongs on screen: at a sun position, or at an
// hour of the local clock (wallpapers placed by hour).
struct BackgroundFrame {
    std::filesystem::path file;
    std::optional<double> altitude;
    std::optional<double> azimuth;
    std::optional<double> hour;
};

// A wallpaper made ready for a desktop: its pictures as plain PNG files in one folder.
struct BackgroundFrames {
    enum class Kind { time, appearance };
    Kind kind = Kind::time;
    std::string name;                    // for the desktop's lists: the source's file stem
    std::vector<BackgroundFrame> frames; // time: in the order of the source
    std::filesystem::path light;         // appearance
    std::filesystem::path dark;          // appearance
};

// Decodes a dynamic wallpaper (.heic) or the images of a project package (.lvesper) into
// `folder` as PNG, each picture once. Throws WallpaperReadError, ProjectPackageError or
// ImageIoError with a message for the user, CancellationError when stopped.
BackgroundFrames extractBackgroundFrames(const std::filesystem::path& source,
                                         const std::filesystem::path& folder, std::stop_token stop,
                                         const exporting::ProgressCallback& progress = {});

} // namespace lumivesper::desktop
