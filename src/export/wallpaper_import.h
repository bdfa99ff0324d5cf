#pragma once

#include "document/wallpaper_image.h"
#include "document/wallpaper_mode.h"
#include "export/heic_frame.h"
#include "export/wallpaper_reader.h"

#include <filesystem>
#include <stdexcept>
#include <stop_token>
#include <vector>

namespace lumivesper::exporting {

// An import that cannot be done (the target exists, a frame cannot be written); the message is
// for the user. Unreadable wallpapers fail with WallpaperReadError instead.
class WallpaperImportError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// A frame of an imported wallpaper: its document record and the image of the file it shows.
struct ImportedFrame {
    document::WallpaperImage image; // no sourcePath yet
    std::size_t imageIndex = 0;     // top-level image in the wallpaper file
};

struct ImportedDocument {
    document::WallpaperMode mode = document::WallpaperMode::time;
    std::vector<ImportedFrame> frames; // in the order of the day (time) or light then dark
};

// What a wallpaper's metadata makes of it as a document: solar records keep their angles and
// their "o" as isLight; hour records get the sun position of their hour on the reference day, so
// that the order of the day survives a save and reopen; appearance gives a light and a dark image.
// Frames that show the same image share one file name, made from `stem`.
ImportedDocument importedDocument(const WallpaperFileInfo& info, const std::string& stem);

// Imports a dynamic wallpaper as a project package: every image the metadata uses is decoded
// once, to sRGB, into the package's images folder as PNG, and project.json is written. The
// package appears whole or not at all: it is built beside the target and renamed at the end,
// so a failure or a stop leaves nothing behind. `packageOut` must not exist. Progress reports
// (n, total, "Decoded image n/total"). Returns the package's path.
std::filesystem::path importDynamicWallpaper(const std::filesystem::path& wallpaper,
                                             const std::filesystem::path& packageOut,
                                             std::stop_token stop = {},
                                             const ProgressCallback& progress = {});

} // namespace lumivesper::exporting
