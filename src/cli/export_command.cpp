#include "cli/command.h"
#include "cli/interrupt_stop.h"
#include "cli/number_argument.h"
#include "document/app_state.h"
#include "document/package_path.h"
#include "document/project_io.h"
#include "export/export_options.h"
#include "export/heic_generator.h"
#include "export/heic_generator_error.h"
#include "export/tween_generator.h"
#include "export/upscale/onnx_upscale_tool.h"
#include "export/upscale/upscale_error.h"
#include "export/upscale_workload.h"
#include "platform/cancellation.h"
#include "platform/console.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <filesystem>
#include <iostream>
#include <mutex>
#include <optional>
#include <ostream>
#include <set>
#include <string>
#include <system_error>
#include <unistd.h>

namespace lumivesper::cli {

namespace {

using document::WallpaperImage;
using document::WallpaperMode;

constexpr const char* exportUsage =
    "Usage: lumivesper-cli export (PACKAGE.lvesper | IMAGE...) -o OUT.heic [--mode "
    "time|appearance]\n"
    "           [--canvas source|8k|6k|WxH] [--upscale off|auto|fast|max|scale2|scale4]\n"
    "           [--dither] [--keep-frames] [--quality N]\n\n"
    "Makes a dynamic wallpaper from the images, in the order the document would give them.\n\n"
    "  PACKAGE.lvesper   a saved project: its images, values and mode (--mode overrides it)\n"
    "  IMAGE             an image file, optionally followed by its values after '@':\n"
    "                      time mode:       noon.png@60,180   (altitude,azimuth in degrees)\n"
    "                      appearance mode: day.png@light or night.png@dark\n"
    "                    without values an image is imported as the application imports it\n"
    "                    (altitude 0, azimuth 0; or light)\n"
    "  -o, --output OUT  the .heic file to write\n"
    "  --mode MODE       time (default) or appearance\n"
    "  --canvas CANVAS   fill and centre-crop every frame to: source (each keeps its size),\n"
    "                    8k (7680x4320), 6k (6016x3384) or WIDTHxHEIGHT. Default: no resizing\n"
    "  --upscale HOW     upscale with the 4x network before resizing: off (default), auto, fast,\n"
    "                    max, scale2, scale4. The model is realesrgan512.onnx, found through\n"
    "                    $LUMIVESPER_UPSCALE_MODEL or the data folders\n"
    "  --dither          add a faint noise against banding\n"
    "  --keep-frames     keep the prepared frames under the data folder (Lumivesper AI/\n"
    "                    Preprocessed/DATE-TIME) instead of a temporary folder\n"
    "  --quality N       0 (smallest file) to 100 (best picture); default 50\n\n"
    "Progress goes to standard error; Ctrl-C stops the export and removes its temporary files.\n";

struct ImageArgument {
    std::filesystem::path path;
    std::optional<std::pair<double, double>> sun; // altitude, azimuth
    std::optional<bool> isLight;
};

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

// How progress reaches standard error: one line per report, or a single line that updates in
// place on a terminal. Reports may come from several worker threads. With --verbose the
// diagnostics pass through here too, above the progress line, so that it stays whole.
class ProgressPrinter final : public platform::LogSink {
public:
    ProgressPrinter(std::ostream& err, bool terminal) : err_(err), terminal_(terminal) {}

    void report(int current, int total, const std::string& message) {
        std::lock_guard lock(mutex_);
        const std::string text =
            "[" + std::to_string(current) + "/" + std::to_string(total) + "] " + message;
        if (terminal_) {
            err_ << "\r\033[K" << text << std::flush;
            line_ = text;
            open_ = true;
        } else {
            err_ << text << "\n";
        }
    }

    // A line of its own, above the progress line.
    void write(std::string_view line) override {
        std::lock_guard lock(mutex_);
        if (open_) // the diagnostic takes the progress line's place, which is drawn again below
            err_ << "\r\033[K" << line << "\n" << line_ << std::flush;
        else
            err_ << std::string(line) + "\n" << std::flush;
    }

    // Ends an in-place line before anything else is written.
    void finish() {
        std::lock_guard lock(mutex_);
        if (open_)
            err_ << "\n";
        open_ = false;
    }

private:
    std::mutex mutex_;
    std::ostream& err_;
    bool terminal_;
    bool open_ = false;
    std::string line_; // the progress line on screen while open_
};

std::optional<exporting::HeicExportOptions> parseCanvas(const std::string& value,
                                                        exporting::HeicExportOptions options) {
    using exporting::HeicCanvasPreset;
    options.resizeEnabled = true;
    if (value == "source") {
        options.canvasPreset = HeicCanvasPreset::matchSource;
    } else if (value == "8k") {
        options.canvasPreset = HeicCanvasPreset::apple8k;
    } else if (value == "6k") {
        options.canvasPreset = HeicCanvasPreset::apple6k;
    } else {
        const auto x = value.find_first_of("xX");
        if (x == std::string::npos)
            return std::nullopt;
        options.canvasPreset = HeicCanvasPreset::custom;
        options.customWidth = value.substr(0, x);
        options.customHeight = value.substr(x + 1);
        if (options.validationError())
            return std::nullopt;
    }
    return options;
}

// The upscaling time to expect, on one line before the work: the tile count of the frames times
// the seconds a tile takes here. Without an earlier measurement one tile is timed now; it costs
// one tile of a run of usually hundreds, and is kept for every later estimate.
void printUpscaleEstimate(const upscale::OnnxUpscaleTool& tool,
                          const std::vector<WallpaperImage>& images,
                          const exporting::HeicExportOptions& options, ProgressPrinter& printer,
                          std::stop_token stop) {
    const auto workload = exporting::upscaleWorkload(images, options);
    if (workload.tiles == 0)
        return;
    std::optional<double> seconds = tool.measuredSecondsPerTile();
    if (!seconds)
        seconds = tool.measureTileSeconds(std::move(stop));
    printer.write(upscale::upscaleEstimateText(workload, seconds));
}

} // namespace

int runExport(const CommandContext& context) {
    // Ctrl-C from here on stops the export cleanly instead of ending the process.
    const bool terminal = &context.err == &std::cerr && ::isatty(STDERR_FILENO);
    const auto sharedPrinter = std::make_shared<ProgressPrinter>(context.err, terminal);
    ProgressPrinter& printer = *sharedPrinter;
    // Diagnostics, where the command line shows them at all, go through the printer.
    const platform::ScopedLogSink diagnostics(platform::currentLogSink() ? sharedPrinter : nullptr);
    InterruptStop interrupt([&printer] {
        printer.write("Stopping after the frame in hand; press Ctrl-C again to quit at once.");
    });

    std::vector<std::string> imageTexts;
    std::optional<std::filesystem::path> output;
    WallpaperMode mode = WallpaperMode::time;
    bool modeGiven = false;
    exporting::HeicExportOptions options;
    // Without flags the CLI encodes the images as they are.
    options.resizeEnabled = false;
    options.upscaleEnabled = false;

    const auto& args = context.arguments;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& argument = args[i];
        if (argument == "--help" || argument == "-h") {
            context.out << exportUsage;
            return exitSuccess;
        }
        if (argument == "--dither") {
            options.enableDither = true;
            continue;
        }
        if (argument == "--keep-frames") {
            options.keepPreprocessedFrames = true;
            continue;
        }
        if (argument == "-o" || argument == "--output" || argument == "--mode" ||
            argument == "--canvas" || argument == "--upscale" || argument == "--quality") {
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
                modeGiven = true;
            } else if (argument == "--canvas") {
                const auto parsed = parseCanvas(value, options);
                if (!parsed) {
                    context.err << "lumivesper-cli export: --canvas must be source, 8k, 6k or "
                                   "WIDTHxHEIGHT with positive numbers, not '"
                                << value << "'\n";
                    return exitUsage;
                }
                options = *parsed;
            } else if (argument == "--quality") {
                const auto quality = exporting::parseQuality(value);
                if (!quality) {
                    context.err << "lumivesper-cli export: --quality must be a whole number from 0 "
                                   "to 100, not '"
                                << value << "'\n";
                    return exitUsage;
                }
                options.quality = *quality;
            } else if (argument == "--upscale") {
                if (value == "off") {
                    options.upscaleEnabled = false;
                } else {
                    const auto strategy = upscale::heicUpscaleStrategyFromRawValue(value);
                    if (!strategy) {
                        context.err << "lumivesper-cli export: --upscale must be off, auto, fast, "
                                       "max, scale2 or scale4, not '"
                                    << value << "'\n";
                        return exitUsage;
                    }
                    options.upscaleEnabled = true;
                    options.upscaleStrategy = *strategy;
                }
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

    document::AppState state;
    std::error_code notADirectory;
    // "Trip.lvesper/", as shell completion gives it, names the package too.
    const auto packagePath = document::normalisedPackagePath(imageTexts[0]);
    const bool isPackage =
        imageTexts.size() == 1 &&
        packagePath.extension() == std::string(".") + document::packageExtension &&
        std::filesystem::is_directory(packagePath, notADirectory);
    if (isPackage) {
        // A saved project: its images, values and mode, as the application would open it.
        document::LoadedPackage package;
        try {
            package = document::readPackage(packagePath);
        } catch (const document::ProjectPackageError& failure) {
            context.err << "lumivesper-cli export: Could not load project: "
                        << failure.description() << "\n";
            return exitFailure;
        }
        if (!package.missingFileNames.empty()) {
            context.err << "lumivesper-cli export: the project's images are missing:";
            for (const auto& name : package.missingFileNames)
                context.err << " " << name;
            context.err << "\n";
            return exitFailure;
        }
        if (!modeGiven)
            mode = package.project.mode;
        state.openProject(std::move(package.project.images), package.project.mode, packagePath,
                          std::nullopt, std::nullopt, std::nullopt, std::nullopt);
        state.setMode(mode);
    } else {
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

        // The images go through the document's own operations, so the file gets the document's
        // order.
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
                context.err << "lumivesper-cli export: cannot read the image '"
                            << image.path.string() << "'\n";
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
    }

    const exporting::ProgressCallback progress = [&](int current, int total,
                                                     const std::string& message) {
        printer.report(current, total, message);
    };
    // Making the upscaler and the configuration can fail too (no model, an unusable temporary
    // folder): every failure ends in one message and exit code.
    std::optional<exporting::HeicPreprocessConfig> config;
    std::string failure;
    try {
        std::shared_ptr<upscale::ImageUpscalingTool> upscaler;
        if (options.upscaleEnabled) {
            auto tool = std::make_shared<upscale::OnnxUpscaleTool>();
            printUpscaleEstimate(*tool, state.images(), options, printer, interrupt.token());
            upscaler = std::move(tool);
        }
        config = exporting::makePreprocessConfig(options, upscaler);
        exporting::HeicGenerator(exporting::encoderSettingsForQuality(options.quality))
            .generate(state.images(), *output, mode, config, progress, interrupt.token());
    } catch (const exporting::HeicGeneratorError& error) {
        failure = error.description();
    } catch (const exporting::TweenGeneratorError& error) {
        failure = error.description();
    } catch (const upscale::UpscaleError& error) {
        failure = error.description();
    } catch (const platform::CancellationError&) {
        failure = "Export cancelled";
    } catch (const std::exception& error) {
        failure = error.what();
    }
    printer.finish();
    // The generator removes the frame folder itself only after a successful encode.
    exporting::removeTemporaryFrames(config);
    if (!failure.empty()) {
        context.err << "lumivesper-cli export: " << failure << "\n";
        return exitFailure;
    }
    context.out << "Wrote " << output->string() << " (" << document::rawValue(mode) << " mode)\n";
    if (config && config->keepPreprocessedFrames)
        context.out << "Prepared frames kept in " << config->outputDirectory.string() << "\n";
    return exitSuccess;
}

} // namespace lumivesper::cli
