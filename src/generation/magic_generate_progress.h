#pragma once

#include "generation/magic_generate_workflow.h"

#include <optional>
#include <string>
#include <string_view>

namespace lumivesper::generation {

// How one phase of the day looks in the sheet. The run itself knows only pending, in progress
// and completed; a phase that was being made when the run failed or was cancelled shows that.
enum class PhaseIndicator { waiting, running, done, failed, stopped };

PhaseIndicator phaseIndicator(const MagicGenerateState& state, std::string_view phaseId);
// "Waiting", "Generating…", "Done", "Failed", "Stopped".
std::string_view statusText(PhaseIndicator indicator);

// How many rows of the phase table have their picture.
int completedPhaseCount(const MagicGenerateState& state);

// The line under the title of the progress view: the failure's heading, or none.
std::optional<std::string> failureHeading(const MagicGenerateState& state);

// The frames a run makes: eleven key images and `tweenCount` after each, the last pair wrapping.
int totalFrameCount(int tweenCount);

// "3 in-between frames per transition · 44 frames in all".
std::string smoothnessSummary(int tweenCount);

} // namespace lumivesper::generation
