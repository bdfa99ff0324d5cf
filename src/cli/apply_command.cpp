#include "cli/command.h"
#include "cli/interrupt_stop.h"
#include "cli/number_argument.h"
#include "desktop/desktop_background.h"
#include "platform/cancellation.h"

#include <filesystem>
#include <ostream>
#include <string>
#include <unistd.h>

namespace lumivesper::cli {

namespace {

constexpr const char* applyUsage =
    "Usage: lumivesper-cli apply (FILE.heic | PACKAGE.lvesper) [--lat L --lon L]\n"
    "                            [--desktop gnome|plasma] [--command 'PROGRAM ... {}']\n"
    "       lumivesper-cli apply --refresh\n"
    "       lumivesper-cli apply --remove\n\n"
    "Sets a dynamic wallpaper, ours or another program's, as this desktop's background.\n"
    "  GNOME   light and dark pictures for the light and dark style, or a slideshow that\n"
    "          changes where the sun reaches each picture today; listed in Settings\n"
    "  Plasma  a wallpaper package with light and dark pictures, or the picture that fits\n"
    "          the sun now\n"
    "The pictures lie under $XDG_DATA_HOME/lumivesper/backgrounds; applying again replaces\n"
    "them. A time wallpaper is kept current by a systemd user timer that this installs.\n\n"
    "  --lat L, --lon L   your place in degrees (north and east positive); needed once for a\n"
    "                     time wallpaper, then remembered\n"
    "  --desktop NAME     gnome or plasma instead of the session's desktop\n"
    "  --command CMD      any other desktop: CMD runs with {} replaced by the picture to show,\n"
    "                     e.g. --command 'swaybg -m fill -i {}'\n"
    "  --refresh          bring the applied background up to date (what the timer runs)\n"
    "  --remove           take the background, its pictures and its timer away again\n";

int usageError(const CommandContext& context, const std::string& message) {
    context.err << "lumivesper-cli apply: " << message << "\n\n" << applyUsage;
    return exitUsage;
}

// This program, as the timer must start it later.
std::string selfPath() {
    std::error_code error;
    const auto path = std::filesystem::read_symlink("/proc/self/exe", error);
    return error ? std::string("lumivesper-cli") : path.string();
}

void print(const CommandContext& context, const desktop::ApplyResult& result) {
    for (const auto& line : result.lines)
        context.out << line << "\n";
    for (const auto& warning : result.warnings)
        context.err << "lumivesper-cli apply: warning: " << warning << "\n";
}

} // namespace

int runApply(const CommandContext& context) {
    desktop::ApplyRequest request;
    std::optional<std::filesystem::path> source;
    std::optional<double> latitude, longitude;
    bool refresh = false, remove = false;
    const auto& arguments = context.arguments;
    for (std::size_t n = 0; n < arguments.size(); ++n) {
        const std::string& argument = arguments[n];
        auto value = [&]() -> std::optional<std::string> {
            if (n + 1 == arguments.size())
                return std::nullopt;
            return arguments[++n];
        };
        if (argument == "--help" || argument == "-h") {
            context.out << applyUsage;
            return exitSuccess;
        }
        if (argument == "--refresh" || argument == "--remove") {
            (argument == "--refresh" ? refresh : remove) = true;
        } else if (argument == "--lat" || argument == "--lon") {
            const auto text = value();
            const auto number = text ? parseNumber(*text) : std::nullopt;
            const double limit = argument == "--lat" ? 90 : 180;
            if (!number || *number < -limit || *number > limit)
                return usageError(context, argument + " needs a number of degrees from " +
                                               std::to_string(int(-limit)) + " to " +
                                               std::to_string(int(limit)));
            (argument == "--lat" ? latitude : longitude) = *number;
        } else if (argument == "--desktop") {
            const auto name = value();
            if (name == "gnome")
                request.desktop = desktop::DesktopKind::gnome;
            else if (name == "plasma" || name == "kde")
                request.desktop = desktop::DesktopKind::plasma;
            else
                return usageError(context, "--desktop takes gnome or plasma");
        } else if (argument == "--command") {
            const auto command = value();
            if (!command || command->find("{}") == std::string::npos)
                return usageError(context,
                                  "--command needs a command line with {} for the picture");
            request.command = *command;
        } else if ((argument.size() > 1 && argument.front() == '-') || source) {
            return usageError(context, "unexpected argument '" + argument + "'");
        } else {
            source = argument;
        }
    }
    if (latitude.has_value() != longitude.has_value())
        return usageError(context, "--lat and --lon go together");
    if (refresh + remove + source.has_value() != 1)
        return usageError(context,
                          "give one FILE.heic or PACKAGE.lvesper, or --refresh, or --remove");

    try {
        if (remove) {
            print(context, desktop::removeDesktopBackground());
            return exitSuccess;
        }
        if (refresh) {
            print(context, desktop::refreshDesktopBackground());
            return exitSuccess;
        }
        request.source = *source;
        if (latitude)
            request.location = desktop::Location{*latitude, *longitude};
        request.refreshCommand = {selfPath(), "apply", "--refresh"};
        InterruptStop interrupt;
        print(context, desktop::applyDesktopBackground(
                           request, interrupt.token(),
                           [&](int current, int total, const std::string& message) {
                               context.err << "[" << current << "/" << total << "] " << message
                                           << "\n";
                           }));
    } catch (const platform::CancellationError&) {
        context.err << "lumivesper-cli apply: stopped; the background is as it was\n";
        return exitFailure;
    } catch (const std::exception& error) {
        context.err << "lumivesper-cli apply: " << error.what() << "\n";
        return exitFailure;
    }
    return exitSuccess;
}

} // namespace lumivesper::cli
