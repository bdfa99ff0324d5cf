#include "export/upscale/upscale_plan.h"

#include <gtest/gtest.h>
#include <ostream>

namespace lumivesper::upscale {
namespace {

using Size = PlanSize;

struct PlanCase {
    const char* name;
    std::optional<Size> target;
    HeicUpscaleStrategy strategy;
    std::set<int> factors;
    Size source;
    std::vector<int> steps;
    Size estimate;
};

void PrintTo(const PlanCase& c, std::ostream* out) {
    *out << c.name;
}

std::string caseName(const ::testing::TestParamInfo<PlanCase>& param) {
    return param.param.name;
}

class MakePlanTest : public ::testing::TestWithParam<PlanCase> {};

TEST_P(MakePlanTest, ChoosesStepsAndEstimate) {
    const PlanCase& c = GetParam();
    const UpscalePlan plan = makePlan(c.target, c.strategy, c.factors, c.source);
    std::vector<int> scales;
    for (const auto& step : plan.steps)
        scales.push_back(step.scale);
    EXPECT_EQ(scales, c.steps);
    EXPECT_EQ(plan.estimatedOutputSize, c.estimate);
}

using S = HeicUpscaleStrategy;
const Size k8k{7680, 4320};

INSTANTIATE_TEST_SUITE_P(
    WithTarget, MakePlanTest,
    ::testing::Values(
        // 4096 passes near (10368); 16384 fails near but passes far (16896).
        PlanCase{"auto_two_passes_of_4", k8k, S::auto_, {4}, {1024, 576}, {4, 4}, {16384, 9216}},
        PlanCase{
            "max_prefers_small_steps", k8k, S::max, {2, 4}, {1024, 576}, {2, 2, 2}, {8192, 4608}},
        PlanCase{"auto_600_to_7680", k8k, S::auto_, {2, 4}, {600, 400}, {4, 4}, {9600, 6400}},
        // 2048 * 4 = 8192 fits near (1.35 * 7680); a second 4 would not.
        PlanCase{"auto_prefers_4_within_tolerance",
                 k8k,
                 S::auto_,
                 {2, 4},
                 {2048, 1152},
                 {4},
                 {8192, 4608}},
        // 3000 * 4 = 12000 overshoots near (10368), 3000 * 2 = 6000 fits; then 12000 again
        // overshoots near and 6000 * 2 = 12000 is beyond near but within far.
        PlanCase{
            "auto_falls_back_to_2", k8k, S::auto_, {2, 4}, {3000, 1000}, {2, 2}, {12000, 4000}},
        PlanCase{"fast_takes_4_up_to_1_6", k8k, S::fast, {2, 4}, {3000, 1000}, {4}, {12000, 4000}},
        PlanCase{"scale4_may_take_2", k8k, S::scale4, {2, 4}, {5000, 2000}, {2}, {10000, 4000}},
        PlanCase{"scale2_without_2_is_empty", k8k, S::scale2, {4}, {1024, 576}, {}, {1024, 576}},
        PlanCase{
            "nothing_within_far_stops", {{1000, 1000}}, S::auto_, {4}, {900, 900}, {}, {900, 900}},
        PlanCase{"empty_factor_set", k8k, S::auto_, {}, {1024, 576}, {}, {1024, 576}},
        PlanCase{"unknown_factors_only", k8k, S::auto_, {3}, {1024, 576}, {}, {1024, 576}},
        // Only the longer sides count: 1920 reaches 1920 although 1000 is short of 1200.
        PlanCase{
            "longer_sides_only", {{1600, 1200}}, S::auto_, {2, 4}, {1920, 1000}, {}, {1920, 1000}},
        PlanCase{"off_with_target", k8k, S::off, {2, 4}, {1024, 576}, {}, {1024, 576}}),
    caseName);

INSTANTIATE_TEST_SUITE_P(
    WithoutTarget, MakePlanTest,
    ::testing::Values(
        PlanCase{"auto_small_takes_4", {}, S::auto_, {2, 4}, {1500, 800}, {4}, {6000, 3200}},
        PlanCase{"auto_2000_takes_2", {}, S::auto_, {2, 4}, {2000, 1000}, {2}, {4000, 2000}},
        PlanCase{"fast_2000_takes_4", {}, S::fast, {2, 4}, {2000, 1000}, {4}, {8000, 4000}},
        PlanCase{"fast_2600_takes_2", {}, S::fast, {2, 4}, {1000, 2600}, {2}, {2000, 5200}},
        PlanCase{"max_takes_2", {}, S::max, {2, 4}, {500, 500}, {2}, {1000, 1000}},
        PlanCase{"scale4_takes_4", {}, S::scale4, {2, 4}, {3000, 3000}, {4}, {12000, 12000}},
        PlanCase{"auto_2000_only_4_uses_list", {}, S::auto_, {4}, {2000, 1000}, {4}, {8000, 4000}},
        // The wanted 2 is missing and the list (2) holds nothing: the greatest.
        PlanCase{"scale2_with_only_4", {}, S::scale2, {4}, {1024, 576}, {4}, {4096, 2304}},
        PlanCase{"scale2_greatest_of_others", {}, S::scale2, {3, 8}, {100, 100}, {8}, {800, 800}},
        PlanCase{"only_factor_1", {}, S::auto_, {1}, {100, 100}, {}, {100, 100}},
        PlanCase{"empty_factor_set", {}, S::auto_, {}, {100, 100}, {}, {100, 100}},
        PlanCase{"off", {}, S::off, {2, 4}, {100, 100}, {}, {100, 100}}),
    caseName);

class SourceAtTargetTest : public ::testing::TestWithParam<HeicUpscaleStrategy> {};

TEST_P(SourceAtTargetTest, NeverDownscales) {
    for (Size source : {Size{7680, 4320}, Size{8000, 100}, Size{3000, 7680}}) {
        const UpscalePlan plan = makePlan(k8k, GetParam(), {2, 4}, source);
        EXPECT_TRUE(plan.empty()) << source.width << "x" << source.height;
        EXPECT_EQ(plan.estimatedOutputSize, source);
    }
}

INSTANTIATE_TEST_SUITE_P(EveryStrategy, SourceAtTargetTest,
                         ::testing::Values(S::auto_, S::fast, S::max, S::scale2, S::scale4,
                                           S::off));

TEST(HeicUpscaleStrategyTest, RawValuesRoundTrip) {
    const std::vector<std::pair<S, std::string_view>> table{
        {S::auto_, "auto"},    {S::fast, "fast"},     {S::max, "max"},
        {S::scale2, "scale2"}, {S::scale4, "scale4"}, {S::off, "off"}};
    for (const auto& [strategy, raw] : table) {
        EXPECT_EQ(rawValue(strategy), raw);
        EXPECT_EQ(heicUpscaleStrategyFromRawValue(raw), strategy);
    }
    EXPECT_EQ(heicUpscaleStrategyFromRawValue("Auto"), std::nullopt);
    EXPECT_EQ(heicUpscaleStrategyFromRawValue(""), std::nullopt);
}

} // namespace
} // namespace lumivesper::upscale
