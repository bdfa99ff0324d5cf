#include "export/upscale/upscale_plan.h"

#include <algorithm>
#include <array>

namespace lumivesper::upscale {

namespace {

struct StrategyRule {
    HeicUpscaleStrategy strategy;
    std::string_view raw;
    double tolerance;
    std::vector<int> preference; // factors in the order they are tried
};

const std::array<StrategyRule, 5>& rules() {
    static const std::array<StrategyRule, 5> table{{
        {HeicUpscaleStrategy::auto_, "auto", 1.35, {4, 2}},
        {HeicUpscaleStrategy::fast, "fast", 1.6, {4, 2}},
        // The small step first: it gets nearest to the target.
        {HeicUpscaleStrategy::max, "max", 1.2, {2, 4}},
        {HeicUpscaleStrategy::scale2, "scale2", 1.35, {2}},
        // 2 as well, for when a 4 would overshoot.
        {HeicUpscaleStrategy::scale4, "scale4", 1.6, {4, 2}},
    }};
    return table;
}

const StrategyRule& ruleFor(HeicUpscaleStrategy strategy) {
    const auto& table = rules();
    return *std::find_if(table.begin(), table.end(),
                         [&](const StrategyRule& rule) { return rule.strategy == strategy; });
}

double longerSide(PlanSize size) {
    return std::max(size.width, size.height);
}

UpscalePlan emptyPlan(PlanSize source) {
    return UpscalePlan{{}, source};
}

UpscalePlan planTowardsTarget(PlanSize target, const StrategyRule& rule,
                              const std::set<int>& supported, PlanSize source) {
    double current = longerSide(source);
    const double wanted = longerSide(target);
    // The upscaler never runs to downscale.
    if (wanted <= current)
        return emptyPlan(source);

    std::vector<int> factors;
    std::copy_if(rule.preference.begin(), rule.preference.end(), std::back_inserter(factors),
                 [&](int factor) { return supported.contains(factor); });
    const double near = wanted * rule.tolerance;
    const double far = wanted * 2.2;

    UpscalePlan plan = emptyPlan(source);
    while (current < wanted) {
        auto within = [&](double limit) {
            return std::find_if(factors.begin(), factors.end(),
                                [&](int factor) { return current * factor <= limit; });
        };
        auto chosen = within(near);
        if (chosen == factors.end())
            chosen = within(far);
        if (chosen == factors.end())
            break;
        const int factor = *chosen;
        plan.steps.push_back({factor});
        plan.estimatedOutputSize.width *= factor;
        plan.estimatedOutputSize.height *= factor;
        current = longerSide(plan.estimatedOutputSize);
    }
    return plan;
}

int wantedFactor(HeicUpscaleStrategy strategy, double longest) {
    switch (strategy) {
    case HeicUpscaleStrategy::auto_:
        return longest < 1600 ? 4 : 2;
    case HeicUpscaleStrategy::fast:
        return longest < 2600 ? 4 : 2;
    case HeicUpscaleStrategy::scale4:
        return 4;
    case HeicUpscaleStrategy::max:
    case HeicUpscaleStrategy::scale2:
    case HeicUpscaleStrategy::off:
        break;
    }
    return 2;
}

UpscalePlan singleStep(const StrategyRule& rule, const std::set<int>& supported, PlanSize source) {
    int factor = wantedFactor(rule.strategy, longerSide(source));
    if (!supported.contains(factor)) {
        auto preferred = std::find_if(rule.preference.begin(), rule.preference.end(),
                                      [&](int candidate) { return supported.contains(candidate); });
        if (preferred != rule.preference.end())
            factor = *preferred;
        else
            factor = supported.empty() ? 1 : *supported.rbegin();
    }
    if (factor < 2)
        return emptyPlan(source);
    return UpscalePlan{{{factor}}, {source.width * factor, source.height * factor}};
}

} // namespace

std::string_view rawValue(HeicUpscaleStrategy strategy) {
    if (strategy == HeicUpscaleStrategy::off)
        return "off";
    return ruleFor(strategy).raw;
}

std::optional<HeicUpscaleStrategy> heicUpscaleStrategyFromRawValue(std::string_view raw) {
    if (raw == "off")
        return HeicUpscaleStrategy::off;
    for (const auto& rule : rules()) {
        if (rule.raw == raw)
            return rule.strategy;
    }
    return std::nullopt;
}

UpscalePlan makePlan(const std::optional<PlanSize>& targetSize, HeicUpscaleStrategy strategy,
                     const std::set<int>& supportedFactors, PlanSize sourceSize) {
    if (strategy == HeicUpscaleStrategy::off)
        return emptyPlan(sourceSize);
    const StrategyRule& rule = ruleFor(strategy);
    if (targetSize)
        return planTowardsTarget(*targetSize, rule, supportedFactors, sourceSize);
    return singleStep(rule, supportedFactors, sourceSize);
}

} // namespace lumivesper::upscale
