#pragma once

#include "document/wallpaper_image.h"

#include <cstddef>
#include <vector>

namespace lumivesper::document {

// One step of a change to the image list, told row by row so that a list view can follow it
// without reloading. Steps come in order, each numbered in the list as the steps before it left
// it: removals (highest rows first), then single-row moves, then insertions and changes, both
// numbered as in the final list.
struct ImageRowChange {
    enum class Kind { inserted, removed, moved, changed };
    Kind kind;
    std::size_t first = 0; // inserted, removed, changed: the first row; moved: the row taken out
    std::size_t count = 1; // inserted, removed, changed: how many rows
    std::size_t destination = 0; // moved: the row it stands at once moved
};

// The steps that turn `before` into `after`, matching images by id. Few moves: the longest run
// of images that kept their relative order stays where it is.
std::vector<ImageRowChange> diffImageRows(const std::vector<WallpaperImage>& before,
                                          const std::vector<WallpaperImage>& after);

// Whether two records with the same id differ in anything a view shows or a save writes.
bool sameContent(const WallpaperImage& a, const WallpaperImage& b);

} // namespace lumivesper::document
