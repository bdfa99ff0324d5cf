#include "export/upscale/upscale_plan.h"

#include <gtest/gtest.h>

namespace lumivesper::upscale {
namespace {

using S = HeicUpscaleStrategy;
using Size = PlanSize;
const std::optional<Size> k8k = Size{7680, 4320};

TEST(MakePlanTest, ChoosesStepsAndEstimate) {
    struct Case {
        std::optional<Size> target;
        S strategy;
        std::set<int> factors;
        Size source;
        std::vector<int> steps;
        Size estimate;
    } const cases[] = {
        // With a target: 4096 passes near (10368); 16384 fails near but passes far (16896).
        {k8k, S::auto_, {4}, {1024, 576}, {4, 4}, {16384, 9216}},
        {k8k, S::max, {2, 4}, {1024, 576}, {2, 2, 2}, {8192, 4608}},
        {k8k, S::auto_, {2, 4}, {2048, 1152}, {4}, {8192, 4608}},     // 4 within the tolerance
        {k8k, S::auto_, {2, 4}, {3000, 1000}, {2, 2}, {12000, 4000}}, // 4 overshoots near
        {k8k, S::fast, {2, 4}, {3000, 1000}, {4}, {12000, 4000}},
        {k8k, S::scale4, {2, 4}, {5000, 2000}, {2}, {10000, 4000}},
        {k8k, S::scale2, {4}, {1024, 576}, {}, {1024, 576}},
        {Size{1000, 1000}, S::auto_, {4}, {900, 900}, {}, {900, 900}}, // nothing within far
        {k8k, S::auto_, {}, {1024, 576}, {}, {1024, 576}},
        {Size{1600, 1200}, S::auto_, {2, 4}, {1920, 1000}, {}, {1920, 1000}}, // longer sides
        {k8k, S::max, {2, 4}, {7680, 4320}, {}, {7680, 4320}},                // never downscales
        // Without a target.
        {{}, S::auto_, {2, 4}, {1500, 800}, {4}, {6000, 3200}},
        {{}, S::auto_, {2, 4}, {2000, 1000}, {2}, {4000, 2000}},
        {{}, S::fast, {2, 4}, {2000, 1000}, {4}, {8000, 4000}},
        {{}, S::fast, {2, 4}, {1000, 2600}, {2}, {2000, 5200}},
        {{}, S::scale2, {4}, {1024, 576}, {4}, {4096, 2304}},
        {{}, S::scale2, {3, 8}, {100, 100}, {8}, {800, 800}},
        {{}, S::off, {2, 4}, {100, 100}, {}, {100, 100}},
    };
    for (std::size_t n = 0; n < std::size(cases); ++n) {
        const auto& c = cases[n];
        const UpscalePlan plan = makePlan(c.target, c.strategy, c.factors, c.source);
        std::vector<int> scales;
        for (const auto& step : plan.steps)
            scales.push_back(step.scale);
        EXPECT_EQ(scales, c.steps) << "case " << n;
        EXPECT_EQ(plan.estimatedOutputSize, c.estimate) << "case " << n;
    }
}

} // namespace
} // namespace lumivesper::upscale
