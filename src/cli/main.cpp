#include "cli/command.h"

#include <iostream>
#include <string_view>

namespace {

using lumivesper::cli::CommandContext;

struct CommandEntry {
    std::string_view name;
    std::string_view summary;
    int (*run)(const CommandContext&);
};

// One row per command.
constexpr CommandEntry commands[] = {
    {"sun", "altitude and azimuth of the sun at a place and time", lumivesper::cli::runSun},
    {"export", "make a dynamic wallpaper (.heic) from images", lumivesper::cli::runExport},
    {"inspect", "read a dynamic wallpaper back: kind, frames, values", lumivesper::cli::runInspect},
    {"generate", "AI images of one scene across the day", lumivesper::cli::runGenerate},
    {"import", "turn a dynamic wallpaper into a project package", lumivesper::cli::runImport},
    {"apply", "set a dynamic wallpaper as this desktop's background", lumivesper::cli::runApply},
};

void printUsage(std::ostream& out) {
    out << "Usage: lumivesper-cli COMMAND [ARGUMENTS...]\n\n"
           "Makes and reads dynamic wallpapers without the desktop application.\n\n"
           "Commands:\n";
    for (const auto& command : commands)
        out << "  " << command.name << std::string(12 - command.name.size(), ' ') << command.summary
            << '\n';
    out << "\nRun 'lumivesper-cli COMMAND --help' for a command's arguments.\n"
           "Options: --help, --version\n";
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        printUsage(std::cerr);
        return lumivesper::cli::exitUsage;
    }
    const std::string_view first = argv[1];
    if (first == "--help" || first == "-h" || first == "help") {
        printUsage(std::cout);
        return lumivesper::cli::exitSuccess;
    }
    if (first == "--version") {
        std::cout << "lumivesper-cli " << LUMIVESPER_VERSION << " (" << LUMIVESPER_BUILD_NUMBER
                  << ")\n";
        return lumivesper::cli::exitSuccess;
    }
    for (const auto& command : commands) {
        if (command.name == first) {
            CommandContext context{{argv + 2, argv + argc}, std::cout, std::cerr};
            return command.run(context);
        }
    }
    std::cerr << "lumivesper-cli: unknown command '" << first << "'\n\n";
    printUsage(std::cerr);
    return lumivesper::cli::exitUsage;
}
