#pragma once

#include "tools/process_runner_error.h"

#include <filesystem>
#include <optional>
#include <stop_token>
#include <string_view>

namespace lumivesper::tools {

// Runs a program to its end with standard input from /dev/null, capturing standard output and
// standard error, and returns what it printed when it exits with 0.
// Throws ProcessRunnerError::missingExecutable when the program is not there or may not be run,
// ProcessRunnerError::nonZeroExit for any other ending (a signal included), CancellationError
// when `stop` is requested (the program and everything it started are killed first), and
// std::system_error when the working directory is missing or the system refuses to start it.
ProcessResult runProcess(const ProcessRunContext& context, std::stop_token stop = {});

// The program `name` as a shell would find it on PATH; a name with a slash is taken as it is.
std::optional<std::filesystem::path> findExecutable(std::string_view name);

} // namespace lumivesper::tools
