#include "tools/process_runner_error.h"

#include <utility>

namespace lumivesper::tools {

namespace {

std::string trimmed(const std::string& text) {
    constexpr const char* whitespace = " \t\n\r\v\f";
    const auto first = text.find_first_not_of(whitespace);
    if (first == std::string::npos)
        return {};
    const auto last = text.find_last_not_of(whitespace);
    return text.substr(first, last - first + 1);
}

std::string nonZeroExitDescription(const ProcessResult& result, const ProcessRunContext& context) {
    std::string detail = trimmed(result.standardError);
    if (detail.empty())
        detail = trimmed(result.standardOutput);
    std::string text = "Process failed with exit code " + std::to_string(result.exitCode) + " (" +
                       context.executableURL.filename().string() + ")";
    if (!detail.empty())
        text += ": " + detail;
    return text;
}

} // namespace

ProcessRunnerError::ProcessRunnerError(Kind kind, const std::string& description)
    : std::runtime_error(description), kind_(kind) {}

ProcessRunnerError ProcessRunnerError::nonZeroExit(ProcessResult result,
                                                   ProcessRunContext context) {
    ProcessRunnerError error(Kind::nonZeroExit, nonZeroExitDescription(result, context));
    error.result_ = std::move(result);
    error.context_ = std::move(context);
    return error;
}

ProcessRunnerError ProcessRunnerError::missingExecutable(std::string path) {
    ProcessRunnerError error(Kind::missingExecutable, "Executable not found: " + path);
    error.path_ = std::move(path);
    return error;
}

} // namespace lumivesper::tools
