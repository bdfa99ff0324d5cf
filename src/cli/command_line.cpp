#include "cli/command_line.h"

#include "cli/command.h"
#include "platform/console.h"

#include <exception>
#include <memory>
#include <ostream>
#include <string_view>

namespace lumivesper::cli {

namespace {

struct CommandEntry {
    std::string_view name;
    std::string_view summary;
    int (*run)(const CommandContext&);
};

// One row per command.
constexpr CommandEntry commands[] = {
    {"sun", "altitude and azimuth of the sun at a place and time", runSun},
    {"export", "make a dynamic wallpaper (.heic) from images", runExport},
    {"inspect", "read a dynamic wallpaper back: kind, frames, values", runInspect},
    {"generate", "AI images of one scene across the day", runGenerate},
    {"import", "turn a dynamic wallpaper into a project package", runImport},
    {"apply", "set a dynamic wallpaper as this desktop's background", runApply},
};

void printUsage(std::ostream& out) {
    out << "Usage: lumivesper-cli [--verbose] COMMAND [ARGUMENTS...]\n\n"
           "Makes and reads dynamic wallpapers without the desktop application.\n\n"
           "Commands:\n";
    for (const auto& command : commands)
        out << "  " << command.name << std::string(12 - command.name.size(), ' ') << command.summary
            << '\n';
    out << "\nRun 'lumivesper-cli COMMAND --help' for a command's arguments.\n"
           "Options: --help, --version, --verbose (diagnostics on standard error)\n";
}

int dispatch(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& err) {
    std::size_t first = 0;
    bool verbose = false;
    for (; first < arguments.size() && arguments[first] == "--verbose"; ++first)
        verbose = true;
    // Quiet unless asked: standard output is for results, standard error for progress and errors.
    const platform::ScopedLogSink log(verbose ? std::make_shared<platform::StreamLogSink>(err)
                                              : nullptr);
    if (first == arguments.size()) {
        printUsage(err);
        return exitUsage;
    }
    const std::string_view name = arguments[first];
    if (name == "--help" || name == "-h" || name == "help") {
        printUsage(out);
        return exitSuccess;
    }
    if (name == "--version") {
        out << "lumivesper-cli " << LUMIVESPER_VERSION << " (" << LUMIVESPER_BUILD_NUMBER << ")\n";
        return exitSuccess;
    }
    for (const auto& command : commands) {
        if (command.name == name) {
            const auto rest = arguments.begin() + static_cast<std::ptrdiff_t>(first) + 1;
            const CommandContext context{{rest, arguments.end()}, out, err};
            return command.run(context);
        }
    }
    err << "lumivesper-cli: unknown command '" << name << "'\n\n";
    printUsage(err);
    return exitUsage;
}

} // namespace

int runCommandLine(const std::vector<std::string>& arguments, std::ostream& out,
                   std::ostream& err) {
    try {
        return dispatch(arguments, out, err);
    } catch (const std::exception& error) {
        err << "lumivesper-cli: unexpected error: " << error.what() << "\n";
    } catch (...) {
        err << "lumivesper-cli: unexpected error\n";
    }
    return exitFailure;
}

} // namespace lumivesper::cli
