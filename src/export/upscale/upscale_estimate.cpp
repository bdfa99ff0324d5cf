#include "export/upscale/upscale_estimate.h"

#include <cmath>
#include <cstdio>

namespace lumivesper::upscale {

namespace {

std::size_t stepsOver(int extent, int stride) {
    return extent <= 0 ? 0 : static_cast<std::size_t>((extent + stride - 1) / stride);
}

std::string plural(std::size_t count, const char* one, const char* many) {
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

} // namespace

std::size_t tilesPerPass(int width, int height, const TileGeometry& geometry) {
    // The tiler steps by the stride while the position is inside the image.
    return stepsOver(width, geometry.stride()) * stepsOver(height, geometry.stride());
}

std::size_t tilesForPlan(PlanSize source, const UpscalePlan& plan, const TileGeometry& geometry) {
    std::size_t tiles = 0;
    double width = source.width;
    double height = source.height;
    for (const UpscalePlan::Step& step : plan.steps) {
        tiles += tilesPerPass(static_cast<int>(width), static_cast<int>(height), geometry);
        width *= step.scale;
        height *= step.scale;
    }
    return tiles;
}

UpscaleWorkload upscaleWorkload(const std::vector<PlanSize>& frameSizes,
                                const std::optional<PlanSize>& target, HeicUpscaleStrategy strategy,
                                const std::set<int>& factors) {
    UpscaleWorkload workload;
    for (const PlanSize& size : frameSizes) {
        const UpscalePlan plan = makePlan(target, strategy, factors, size);
        if (plan.empty())
            continue;
        ++workload.frames;
        workload.tiles += tilesForPlan(size, plan);
    }
    return workload;
}

std::string formatDuration(double seconds) {
    if (!std::isfinite(seconds) || seconds < 0)
        seconds = 0;
    if (seconds < 59.5)
        return std::to_string(static_cast<long long>(std::lround(seconds))) + " s";
    const auto minutes = static_cast<long long>(std::lround(seconds / 60));
    if (minutes < 60)
        return std::to_string(minutes) + " min";
    const long long hours = minutes / 60;
    const long long rest = minutes % 60;
    return std::to_string(hours) + " h" + (rest ? " " + std::to_string(rest) + " min" : "");
}

std::string upscaleEstimateText(const UpscaleWorkload& workload,
                                std::optional<double> secondsPerTile) {
    if (workload.tiles == 0)
        return "No upscaling needed: the images already fill the canvas.";
    const std::string work = plural(workload.tiles, "tile", "tiles") + " in " +
                             plural(workload.frames, "frame", "frames");
    if (!secondsPerTile || !(*secondsPerTile > 0))
        return "Upscaling: " + work +
               ". The time a tile takes on this computer is measured by the first export.";
    char each[32];
    std::snprintf(each, sizeof each, "%.1f", *secondsPerTile);
    return "Upscaling takes about " +
           formatDuration(*secondsPerTile * static_cast<double>(workload.tiles)) + ": " + work +
           ", " + each + " s a tile as measured on this computer.";
}

} // namespace lumivesper::upscale
