#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace lumivesper::tools {

// What was run.
struct ProcessRunContext {
    std::filesystem::path executableURL;
    std::vector<std::string> arguments;
    std::optional<std::filesystem::path> workingDirectory;
};

// What came back. A process killed by a signal reports 128 + the signal number as its exit code,
// as shells do, and the signal itself in `terminationSignal`.
struct ProcessResult {
    std::int32_t exitCode = 0;
    std::string standardOutput;
    std::string standardError;
    std::optional<int> terminationSignal;
};

// A run of an external tool that did not succeed. The export driver tells the two kinds apart to
// choose its message, so they stay distinct.
class ProcessRunnerError : public std::runtime_error {
public:
    enum class Kind { nonZeroExit, missingExecutable };

    static ProcessRunnerError nonZeroExit(ProcessResult result, ProcessRunContext context);
    static ProcessRunnerError missingExecutable(std::string path);

    Kind kind() const { return kind_; }
    std::string description() const { return what(); }

    // Set for nonZeroExit only.
    const std::optional<ProcessResult>& result() const { return result_; }
    const std::optional<ProcessRunContext>& context() const { return context_; }
    // Set for missingExecutable only.
    const std::string& path() const { return path_; }

private:
    ProcessRunnerError(Kind kind, const std::string& description);

    Kind kind_;
    std::optional<ProcessResult> result_;
    std::optional<ProcessRunContext> context_;
    std::string path_;
};

} // namespace lumivesper::tools
