#pragma once

#include "platform/pixel_image.h"

#include <filesystem>
#include <memory>
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
        int bitDepth = 8;
        bool hasAlpha = false;
        std::string colourProfile; // "" (none), "nclx ..." or "ICC: <description>"
    };
    struct SolarFrame {
        long long index = 0;
        double altitude = 0;
        double azimuth = 0;
        std::optional<long long> light; // the "o" value; other writers may leave it out
    };
    struct HourFrame {
        long long index = 0;
        double dayFraction = 0; // "t": 0 is midnight, 0.5 noon
    };

    std::vector<Image> images; // top-level images in file order
    int primaryIndex = 0;      // position of the primary image in `images` (0 in our files)
    // The document that places the frames: "solar" before "h24" before "apr" when a file has
    // several.
    std::string kind;
    std::vector<std::string> properties; // every desktop property of the XMP, as found
    std::string xmpForm;                 // "attribute" or "element", of the property `kind`
    std::vector<SolarFrame> solarFrames; // from "solar"
    std::vector<HourFrame> hourFrames;   // from "h24"
    // From "apr", or the "ap" dictionary that may stand beside "si" or "ti".
    std::optional<long long> lightIndex;
    std::optional<long long> darkIndex;
};

// An open dynamic wallpaper: its description, and its images decoded on request. Fails with
// WallpaperReadError for a file that is not HEIF, is truncated, has no desktop property on the
// primary image, or whose property holds a malformed document (a wrong type, an index out of
// range). Keys that it does not know are ignored.
class WallpaperFile {
public:
    explicit WallpaperFile(const std::filesystem::path& path);
    ~WallpaperFile();
    WallpaperFile(WallpaperFile&&) noexcept;
    WallpaperFile& operator=(WallpaperFile&&) noexcept;

    const WallpaperFileInfo& info() const { return info_; }

    // The top-level image at `index` in file order, grids assembled, converted to sRGB through
    // its colour profile, as 8-bit RGBA. Throws WallpaperReadError.
    platform::PixelImage decodeImage(std::size_t index) const;

private:
    struct Context;
    std::unique_ptr<Context> context_;
    WallpaperFileInfo info_;
};

// The description alone.
WallpaperFileInfo readWallpaper(const std::filesystem::path& path);

// Whether a file is a dynamic wallpaper we can read, without decoding any image: for offering an
// import when a .heic file is dropped.
bool isDynamicWallpaper(const std::filesystem::path& path) noexcept;

} // namespace lumivesper::exporting
