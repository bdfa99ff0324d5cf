#pragma once

#include "platform/pixel_image.h"
#include "platform/uuid.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace lumivesper::document {

using platform::Uuid;

// One image of a wallpaper document. Identity is `id`; there is deliberately no operator==.
struct WallpaperImage {
    Uuid id = Uuid::generate();
    std::string fileName;
    std::optional<double> altitude; // degrees, time mode
    std::optional<double> azimuth;  // degrees clockwise from north, time mode
    std::optional<bool> isLight;    // appearance mode
    bool isTween = false;
    std::optional<Uuid> parentId;  // for a tween: the key image its run follows
    std::optional<int> tweenCount; // carried through from stored projects, never assigned here

    // Not stored in project.json:
    std::optional<std::filesystem::path> sourcePath; // the file on disk right now
    // A shared, immutable display preview (long side at most 1024 px). Whatever needs the real
    // pixels reads the file at sourcePath.
    std::shared_ptr<const platform::PixelImage> thumbnail;
    std::optional<double> timeOfDay; // hour of the day, for images that know it
};

} // namespace lumivesper::document
