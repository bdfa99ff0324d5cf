#pragma once

#include "document/wallpaper_image.h"
#include "export/export_options.h"
#include "export/upscale/upscale_estimate.h"

#include <vector>

namespace lumivesper::exporting {

// The sizes of the frames an export runs through the upscaler: every key frame, upright, read
// from the files' headers (tweens are blended from the upscaled keys). Files that cannot be read
// are left out; the export itself will say what is wrong with them.
std::vector<upscale::PlanSize>
upscaledFrameSizes(const std::vector<document::WallpaperImage>& images);

// The upscaling work of exporting `images` with `options`: none with upscaling off.
upscale::UpscaleWorkload upscaleWorkload(const std::vector<document::WallpaperImage>& images,
                                         const HeicExportOptions& options);

} // namespace lumivesper::exporting
