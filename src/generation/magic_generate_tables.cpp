#include "generation/magic_generate_tables.h"

#include <algorithm>

namespace lumivesper::generation {

namespace {

struct SizeRow {
    const char* label;
    const char* value;
    const char* aspectRatio;
};

constexpr std::array<SizeRow, 5> sizeRows{{
    {"Apple 16:9 (1024×576)", "1024x576", "16:9"},
    {"Apple 16:10 (1024×640)", "1024x640", "16:10"},
    {"Square (1024×1024)", "1024x1024", "1:1"},
    {"Portrait (1024×1536)", "1024x1536", "2:3"},
    {"Landscape (1536×1024)", "1536x1024", "3:2"},
}};

} // namespace

std::string_view rawValue(GenerationMode mode) {
    return mode == GenerationMode::relight ? "Relight My Image" : "Generate a New Scene";
}

std::string_view label(SmoothnessPreset preset) {
    switch (preset) {
    case SmoothnessPreset::subtle:
        return "Subtle";
    case SmoothnessPreset::natural:
        return "Natural";
    case SmoothnessPreset::cinematic:
        return "Cinematic";
    }
    return "Natural";
}

int tweenCount(SmoothnessPreset preset) {
    switch (preset) {
    case SmoothnessPreset::subtle:
        return 2;
    case SmoothnessPreset::natural:
        return 3;
    case SmoothnessPreset::cinematic:
        return 6;
    }
    return 3;
}

const TimeOfDayPhase* findPhase(std::string_view id) {
    const auto found = std::find_if(timeOfDayPhases.begin(), timeOfDayPhases.end(),
                                    [&](const TimeOfDayPhase& phase) { return phase.id == id; });
    return found == timeOfDayPhases.end() ? nullptr : &*found;
}

const TimeOfDayPhase& keyImagePhase(std::size_t index) {
    return timeOfDayPhases[std::min(index, timeOfDayPhases.size() - 1)];
}

std::vector<GenerationSizeOption> generationSizes() {
    std::vector<GenerationSizeOption> sizes;
    for (const auto& row : sizeRows)
        sizes.push_back({platform::Uuid::generate(), row.label, row.value, row.aspectRatio});
    return sizes;
}

std::string aspectRatioForSize(const std::string& value) {
    for (const auto& row : sizeRows)
        if (value == row.value)
            return row.aspectRatio;
    return "16:9";
}

} // namespace lumivesper::generation
