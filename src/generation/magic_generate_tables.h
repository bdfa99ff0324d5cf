#pragma once

#include "platform/uuid.h"

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace lumivesper::generation {

// What the user starts from in "Create Dynamic Wallpaper".
enum class GenerationMode { relight, generate };
std::string_view rawValue(GenerationMode mode); // "Relight My Image", "Generate a New Scene"

// How many in-between frames each transition of the day gets.
enum class SmoothnessPreset { subtle, natural, cinematic };
std::string_view label(SmoothnessPreset preset);
int tweenCount(SmoothnessPreset preset);

enum class PhaseStatus { pending, inProgress, completed };

// One key image of a generated day: where the sun stands in it.
struct TimeOfDayPhase {
    std::string_view id;
    std::string_view label;
    double altitude;
    double azimuth;
};

// Eleven rows: the base frame takes the first, relit frame i the row i (see keyImagePhase).
inline constexpr std::array<TimeOfDayPhase, 11> timeOfDayPhases{{
    {"night", "Night", -30, 0},
    {"astronomical", "Astronomical", -15, 90},
    {"nautical", "Nautical", -9, 90},
    {"civil", "Civil", -3, 90},
    {"golden_am", "Golden AM", 5, 90},
    {"morning", "Morning", 20, 120},
    {"midday", "Midday", 60, 180},
    {"afternoon", "Afternoon", 20, 240},
    {"golden_pm", "Golden PM", 5, 270},
    {"sunset", "Sunset", -0.8, 270},
    {"civil_dusk", "Dusk", -3, 270},
}};

// The row whose id is `id`, if any.
const TimeOfDayPhase* findPhase(std::string_view id);

// Image i of a timeline, counted from 0, sits at row min(i, 10). The pairing is by position on
// purpose: the generator's list starts with the base frame, so its relit "night" lands on
// "astronomical" and its relit "sunset" on "civil_dusk".
const TimeOfDayPhase& keyImagePhase(std::size_t index);

struct GenerationSizeOption {
    platform::Uuid id;
    std::string label;
    std::string value;
    std::string aspectRatio;
};

// The sizes offered, each with a fresh id.
std::vector<GenerationSizeOption> generationSizes();
// The aspect ratio of the size whose value is `value`; "16:9" for one that matches none.
std::string aspectRatioForSize(const std::string& value);

// Moods a click adds to the prompt (see MagicGenerateWorkflow::appendMood).
inline constexpr std::array<std::string_view, 10> moodSuggestions{{
    "misty mountain lake",
    "quiet coastal town",
    "snowy pine forest",
    "desert dunes",
    "city skyline",
    "tropical beach",
    "autumn countryside",
    "cozy cabin interior",
    "rolling lavender fields",
    "futuristic neon city",
}};

inline constexpr const char* defaultGenerationSize = "1024x576";
inline constexpr int maxConcurrentGenerations = 3;
inline constexpr const char* magicGenerateModel =
    "local/openrouter/google/gemini-3-pro-image-preview";

inline constexpr const char* consistencySystemPrompt =
    "You are doing image-to-image relighting. The reference image is the locked scene.\n"
    "Keep camera, framing, perspective, geometry, and every object identical.\n"
    "Do not add or remove objects, do not change materials, and do not change art style.\n"
    "Allowed changes: lighting direction/intensity, shadows, color temperature, and subtle sky "
    "evolution (cloud shapes/positions, star visibility) that remains tweenable.\n"
    "If the sun or moon is visible in the reference, it may move slightly along a smooth arc "
    "consistent with the given altitude/azimuth and the ecliptic plane. If it is not visible, do "
    "not introduce new celestial bodies.\n"
    "No new people, vehicles, buildings, props, or landscape changes. Do not switch scenes (no "
    "indoor/outdoor swaps).";

inline constexpr const char* baseFramePromptHint =
    "This is the base frame for a time-of-day sequence. Create a stable scene that can be relit "
    "across phases.\n"
    "Avoid elements that would imply motion between frames; if present, keep them frozen and "
    "identical.\n"
    "If the scene includes sky, keep it natural and tweenable.";

} // namespace lumivesper::generation
