#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace lumivesper::cli {

// Exit codes of every command.
inline constexpr int exitSuccess = 0;
inline constexpr int exitFailure = 1; // the work failed; the error's description was printed
inline constexpr int exitUsage = 2;   // bad arguments; a clear message was printed

// What a command gets: its arguments (after the command name) and where to write.
struct CommandContext {
    std::vector<std::string> arguments;
    std::ostream& out;
    std::ostream& err;
};

// One file per command; each returns an exit code.
int runSun(const CommandContext& context);
int runExport(const CommandContext& context);
int runInspect(const CommandContext& context);
int runGenerate(const CommandContext& context);
int runImport(const CommandContext& context);
int runApply(const CommandContext& context);

} // namespace lumivesper::cli
