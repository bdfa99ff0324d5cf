#pragma once

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace lumivesper::exporting {

// A file that is not a readable dynamic wallpaper; the message says why, for the user.
class WallpaperReadError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// What a dynamic-wallpaper file holds, read back the way desktop readers read it.
struct WallpaperFileInfo {
    struct Image {
        int width = 0;
        int height = 0;
        bool hasXmp = false;
    };
    struct SolarFrame {
        long long index = 0;
        double altitude = 0;
        double azimuth = 0;
        long long light = 0; // the "o" value
    };

    std::vector<Image> images; // top-level images in file order
    int primaryIndex = 0;      // position of the primary image in `images` (0 in our files)
    std::string kind;          // "solar" or "apr"
    std::vector<SolarFrame> solarFrames; // kind "solar"
    std::optional<long long> lightIndex; // kind "apr"
    std::optional<long long> darkIndex;  // kind "apr"
};

// Reads the file with libheif and parses the XMP of its primary image. Fails with
// WallpaperReadError for a file that is not HEIF, is truncated, has no desktop property on the
// primary image, or whose property does not hold a well-formed document of its kind.
WallpaperFileInfo readWallpaper(const std::filesystem::path& path);

} // namespace lumivesper::exporting
