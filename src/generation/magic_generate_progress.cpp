#include "generation/magic_generate_progress.h"

#include <algorithm>

namespace lumivesper::generation {

PhaseIndicator phaseIndicator(const MagicGenerateState& state, std::string_view phaseId) {
    const auto found = state.phaseStatus.find(std::string(phaseId));
    const PhaseStatus status =
        found == state.phaseStatus.end() ? PhaseStatus::pending : found->second;
    switch (status) {
    case PhaseStatus::completed:
        return PhaseIndicator::done;
    case PhaseStatus::inProgress:
        if (state.outcome == GenerationOutcome::failed)
            return PhaseIndicator::failed;
        if (state.outcome == GenerationOutcome::cancelled)
            return PhaseIndicator::stopped;
        return PhaseIndicator::running;
    case PhaseStatus::pending:
        break;
    }
    return PhaseIndicator::waiting;
}

std::string_view statusText(PhaseIndicator indicator) {
    switch (indicator) {
    case PhaseIndicator::waiting:
        return "Waiting";
    case PhaseIndicator::running:
        return "Generating…";
    case PhaseIndicator::done:
        return "Done";
    case PhaseIndicator::failed:
        return "Failed";
    case PhaseIndicator::stopped:
        return "Stopped";
    }
    return "Waiting";
}

int completedPhaseCount(const MagicGenerateState& state) {
    return static_cast<int>(std::count_if(
        timeOfDayPhases.begin(), timeOfDayPhases.end(), [&](const TimeOfDayPhase& phase) {
            return phaseIndicator(state, phase.id) == PhaseIndicator::done;
        }));
}

std::optional<std::string> failureHeading(const MagicGenerateState& state) {
    if (state.outcome != GenerationOutcome::failed)
        return std::nullopt;
    return "Generation Failed";
}

int totalFrameCount(int tweenCount) {
    const int keys = static_cast<int>(timeOfDayPhases.size());
    return keys + keys * std::max(0, tweenCount);
}

std::string smoothnessSummary(int tweenCount) {
    const int count = std::max(0, tweenCount);
    const std::string perTransition = count == 0 ? "No in-between frames"
                                                 : std::to_string(count) + " in-between frame" +
                                                       (count == 1 ? "" : "s") + " per transition";
    return perTransition + " · " + std::to_string(totalFrameCount(count)) + " frames in all";
}

} // namespace lumivesper::generation
