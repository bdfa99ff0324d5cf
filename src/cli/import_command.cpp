#include "cli/command.h"
#include "cli/interrupt_stop.h"
#include "export/wallpaper_import.h"
#include "platform/cancellation.h"

#include <filesystem>
#include <ostream>
#include <string>

namespace lumivesper::cli {

namespace {

constexpr const char* importUsage =
    "Usage: lumivesper-cli import FILE.heic -o NAME.lvesper\n\n"
    "Turns a dynamic wallpaper, ours or another program's, into a project package: its images\n"
    "are decoded once into NAME.lvesper/images as PNG, with their sun positions (solar), their\n"
    "hours as sun positions (h24) or their light and dark roles (appearance).\n\n"
    "  -o, --output NAME.lvesper   the package to make; it must not exist yet\n\n"
    "Progress goes to standard error; Ctrl-C stops the import and leaves nothing behind.\n";

int usageError(const CommandContext& context, const std::string& message) {
    context.err << "lumivesper-cli import: " << message << "\n\n" << importUsage;
    return exitUsage;
}

} // namespace

int runImport(const CommandContext& context) {
    std::optional<std::filesystem::path> file, output;
    const auto& arguments = context.arguments;
    for (std::size_t n = 0; n < arguments.size(); ++n) {
        const std::string& argument = arguments[n];
        if (argument == "--help" || argument == "-h") {
            context.out << importUsage;
            return exitSuccess;
        }
        if (argument == "-o" || argument == "--output") {
            if (++n == arguments.size())
                return usageError(context, argument + " needs a package path");
            output = arguments[n];
            continue;
        }
        if ((argument.size() > 1 && argument.front() == '-') || file)
            return usageError(context, "unexpected argument '" + argument + "'");
        file = argument;
    }
    if (!file)
        return usageError(context, "a FILE.heic is required");
    if (!output)
        return usageError(context, "-o NAME.lvesper is required");
    if (output->extension() != ".lvesper")
        *output += ".lvesper";

    InterruptStop interrupt;
    try {
        exporting::importDynamicWallpaper(*file, *output, interrupt.token(),
                                          [&](int current, int total, const std::string& message) {
                                              context.err << "[" << current << "/" << total << "] "
                                                          << message << "\n";
                                          });
    } catch (const platform::CancellationError&) {
        context.err << "lumivesper-cli import: stopped; nothing was written\n";
        return exitFailure;
    } catch (const std::exception& error) {
        context.err << "lumivesper-cli import: " << file->string() << ": " << error.what() << "\n";
        return exitFailure;
    }
    context.out << output->string() << "\n";
    return exitSuccess;
}

} // namespace lumivesper::cli
