#pragma once

#include "export/upscale/tile_upscaler.h"
#include "export/upscale/upscale_plan.h"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace lumivesper::upscale {

// Tiles one pass of the tiler runs over an image of `width` x `height`, the repeated edge tiles
// included: they cost as much as any other.
std::size_t tilesPerPass(int width, int height, const TileGeometry& geometry = {});

// Tiles of every pass of `plan` over a source of `source` size, each pass on the previous one's
// output.
std::size_t tilesForPlan(PlanSize source, const UpscalePlan& plan,
                         const TileGeometry& geometry = {});

// The upscaling work of an export: how many frames go through the network and how many tiles
// that takes in all.
struct UpscaleWorkload {
    std::size_t frames = 0;
    std::size_t tiles = 0;
    bool operator==(const UpscaleWorkload&) const = default;
};

// The work for frames of the given sizes brought towards `target` under `strategy`, as the export
// plans each of them.
UpscaleWorkload upscaleWorkload(const std::vector<PlanSize>& frameSizes,
                                const std::optional<PlanSize>& target, HeicUpscaleStrategy strategy,
                                const std::set<int>& factors);

// A duration as people say it: "45 s", "12 min", "2 h 5 min".
std::string formatDuration(double seconds);

// The line shown before an export: the workload with the time it will take at the measured
// seconds per tile, or, with no measurement yet, what is known.
std::string upscaleEstimateText(const UpscaleWorkload& workload,
                                std::optional<double> secondsPerTile);

} // namespace lumivesper::upscale
