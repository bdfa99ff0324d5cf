#pragma once

#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace lumivesper::upscale {

// How eagerly the export upscales; stored by its raw value, the case name.
enum class HeicUpscaleStrategy {
    auto_, // raw value "auto" (the bare word is a C++ keyword)
    fast,
    max,
    scale2,
    scale4,
    off,
};

std::string_view rawValue(HeicUpscaleStrategy strategy);
// The strategy with that raw value, or none for any other text.
std::optional<HeicUpscaleStrategy> heicUpscaleStrategyFromRawValue(std::string_view raw);

// A size in pixels, kept as doubles like the canvas sizes it is compared with.
struct PlanSize {
    double width = 0;
    double height = 0;
    bool operator==(const PlanSize&) const = default;
};

struct UpscalePlan {
    struct Step {
        int scale = 1;
        bool operator==(const Step&) const = default;
    };

    std::vector<Step> steps; // in the order they are applied
    PlanSize estimatedOutputSize;

    bool empty() const { return steps.empty(); }
};

// Which of the upscaler's factors to apply, and how often, to bring `sourceSize` towards
// `targetSize` (or by one step of the strategy's liking when there is no target). An empty plan
// means no upscaling, with the source size as the estimate. Pure.
UpscalePlan makePlan(const std::optional<PlanSize>& targetSize, HeicUpscaleStrategy strategy,
                     const std::set<int>& supportedFactors, PlanSize sourceSize);

} // namespace lumivesper::upscale
