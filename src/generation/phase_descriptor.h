#pragma once

#include <array>
#include <string_view>

namespace lumivesper::generation {

// One relit phase of the day: its name, what it looks like, and the light to ask for.
struct PhaseDescriptor {
    std::string_view name;
    std::string_view description;
    std::string_view timeOfDay;
};

// In result order. Ten rows: with the base frame first a timeline holds eleven images.
inline constexpr std::array<PhaseDescriptor, 10> lightingPhases{{
    {"night", "Night with cool artificial or moonlight",
     "Night, cool blue tones, artificial lights or moonlight"},
    {"astronomical", "Pre-dawn darkness with faint horizon glow",
     "Before sunrise, complete darkness with subtle sky lightening"},
    {"nautical", "Early twilight with visible horizon",
     "Early morning twilight, dark blue sky, stars fading"},
    {"civil", "Dawn twilight with soft diffused light",
     "Dawn, soft blue-purple light, no direct sun yet"},
    {"golden_am", "Morning golden hour with warm orange glow",
     "Golden hour morning, rich warm tones, dramatic side lighting"},
    {"morning", "Early morning with warm golden light",
     "Early morning, warm gentle sunlight, long shadows"},
    {"midday", "Bright overhead sunlight",
     "Noon, harsh overhead light, short shadows, bright and clear"},
    {"afternoon", "Afternoon with strong clear light",
     "Mid-afternoon, bright clear light, moderate shadows"},
    {"golden_pm", "Evening golden hour with warm amber light",
     "Golden hour evening, warm amber and orange tones, long shadows"},
    {"sunset", "Sunset with sun at horizon",
     "Sunset, sun touching horizon, warm fading light, orange-red sky"},
}};

} // namespace lumivesper::generation
