#include "cli/command.h"
#include "document/app_state.h"
#include "export/heic_generator.h"
#include "export/heic_generator_error.h"
#include "export/tween_generator.h"
#include "platform/cancellation.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <filesystem>
#include <optional>
#include <ostream>
#include <set>
#include <string>
#include <system_error>

namespace lumivesper::cli {

namespace {

using document::WallpaperImage;
using document::WallpaperMode;

constexpr const char* exportUsage =
    "Usage: lumivesper-cli export IMAGE... -o OUT.heic [--mode time|appearance]\n\n"
    "Makes a dynamic wallpaper from the images, in the order the document would give them.\n\n"
    "  IMAGE             an image file, optionally followed by its values after '@':\n"
    "                      time mode:       noon.png@60,180   (altitude,azimuth in degrees)\n"
    "                      appearance mode: day.png@light or night.png@dark\n"
    "                    without values an image is imported as the application imports it\n"
    "                    (altitude 0, azimuth 0; or light)\n"
    "  -o, --output OUT  the .heic file to write\n"
    "  --mode MODE       time (default) or appearance\n";

struct ImageArgument {
    std::filesystem::path path;
    std::optional<std::pair<double, double>> sun; // altitude, azimuth
    std::optional<bool> isLight;
};

std::optional<double> parseNumber(std::string_view text) {
    double value = 0;
    const char* end = text.data() + text.size();
    auto [ptr, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || ptr != end || !std::isfinite(value))
        return std::nullopt;
    return value;
}

// A path that names a file is taken whole, so names with '@' in them still work; otherwise the
// text after the last '@' must be values of the mode.
std::optional<ImageArgument> parseImageArgument(const std::string& text, WallpaperMode mode,
                                                std::string& problem) {
    std::error_code error;
    const auto at = text.rfind('@');
    if (at == std::string::npos || std::filesystem::exists(text, error))
        return ImageArgument{text, std::nullopt, std::nullopt};
    ImageArgument argument{text.substr(0, at), std::nullopt, std::nullopt};
    const std::string values = text.substr(at + 1);
    if (mode == WallpaperMode::appearance) {
        if (values == "light" || values == "dark") {
            argument.isLight = values == "light";
            return argument;
        }
        problem = "'" + text + "': in appearance mode the value after '@' is light or dark";
        return std::nullopt;
    }
    const auto comma = values.find(',');
    const auto altitude =
        comma == std::string::npos ? std::nullopt : parseNumber(values.substr(0, comma));
    const auto azimuth =
        comma == std::string::npos ? std::nullopt : parseNumber(values.substr(comma + 1));
    if (!altitude || !azimuth) {
        problem =
            "'" + text + "': in time mode the values after '@' are ALTITUDE,AZIMUTH in degrees";
        return std::nullopt;
    }
    argument.sun = std::make_pair(*altitude, *azimuth);
    return argument;
}

} // namespace

int runExport(const CommandContext& context) {
    std::vector<std::string> imageTexts;
    std::optional<std::filesystem::path> output;
    WallpaperMode mode = WallpaperMode::time;

    const auto& args = context.arguments;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& argument = args[i];
        if (argument == "--help" || argument == "-h") {
            context.out << exportUsage;
            return exitSuccess;
        }
        if (argument == "-o" || argument == "--output" || argument == "--mode") {
            if (i + 1 >= args.size()) {
                context.err << "lumivesper-cli export: " << argument << " needs a value\n";
                return exitUsage;
            }
            const std::string& value = args[++i];
            if (argument == "--mode") {
                const auto parsed = document::wallpaperModeFromRawValue(value);
                if (!parsed) {
                    context.err << "lumivesper-cli export: --mode must be time or appearance, not '"
                                << value << "'\n";
                    return exitUsage;
                }
                mode = *parsed;
            } else {
                output = value;
            }
            continue;
        }
        if (argument.size() > 1 && argument.front() == '-') {
            context.err << "lumivesper-cli export: unknown option '" << argument << "'\n\n"
                        << exportUsage;
            return exitUsage;
        }
        imageTexts.push_back(argument);
    }
    if (imageTexts.empty() || !output) {
        context.err << "lumivesper-cli export: at least one IMAGE and -o OUT.heic are required\n\n"
                    << exportUsage;
        return exitUsage;
    }

    std::vector<ImageArgument> images;
    for (const auto& text : imageTexts) {
        std::string problem;
        auto parsed = parseImageArgument(text, mode, problem);
        if (!parsed) {
            context.err << "lumivesper-cli export: " << problem << "\n";
            return exitUsage;
        }
        images.push_back(std::move(*parsed));
    }

    // The images go through the document's own operations, so the file gets the document's order.
    document::AppState state;
    state.setMode(mode);
    for (const auto& image : images) {
        std::set<document::Uuid> before;
        for (const auto& existing : state.images())
            before.insert(existing.id);
        state.importImage(image.path);
        const auto added = std::find_if(
            state.images().begin(), state.images().end(),
            [&](const WallpaperImage& candidate) { return !before.contains(candidate.id); });
        if (added == state.images().end()) {
            context.err << "lumivesper-cli export: cannot read the image '" << image.path.string()
                        << "'\n";
            return exitFailure;
        }
        if (!image.sun && !image.isLight)
            continue;
        WallpaperImage updated = *added;
        if (image.sun) {
            updated.altitude = image.sun->first;
            updated.azimuth = image.sun->second;
        }
        if (image.isLight)
            updated.isLight = image.isLight;
        state.updateImage(updated);
    }

    const exporting::ProgressCallback progress = [&](int current, int total,
                                                     const std::string& message) {
        context.err << "[" << current << "/" << total << "] " << message << "\n";
    };
    try {
        exporting::HeicGenerator().generate(state.images(), *output, mode, std::nullopt, progress);
    } catch (const exporting::HeicGeneratorError& error) {
        context.err << "lumivesper-cli export: " << error.description() << "\n";
        return exitFailure;
    } catch (const exporting::TweenGeneratorError& error) {
        context.err << "lumivesper-cli export: " << error.description() << "\n";
        return exitFailure;
    } catch (const platform::CancellationError&) {
        context.err << "lumivesper-cli export: Export cancelled\n";
        return exitFailure;
    } catch (const std::exception& error) {
        context.err << "lumivesper-cli export: " << error.what() << "\n";
        return exitFailure;
    }
    context.out << "Wrote " << output->string() << " (" << document::rawValue(mode) << " mode)\n";
    return exitSuccess;
}

} // namespace lumivesper::cli
