#include "cli/command.h"
#include "cli/interrupt_stop.h"
#include "cli/number_argument.h"
#include "document/app_state.h"
#include "document/project_io.h"
#include "generation/client_side_image_generator.h"
#include "generation/magic_generate_tables.h"
#include "generation/timeline_document.h"
#include "platform/dialogs.h"
#include "platform/paths.h"
#include "platform/uuid.h"
#include "settings/defaults.h"
#include "settings/server_config.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <optional>
#include <ostream>
#include <string>
#include <system_error>

namespace lumivesper::cli {

namespace {

// The model the application ships with, as it goes to our server.
constexpr const char* defaultModel = "openrouter/google/gemini-3-pro-image-preview";

constexpr const char* generateUsage =
    "Usage: lumivesper-cli generate (--prompt TEXT | --image FILE | both) [--model ID]\n"
    "                              (-o FOLDER | --project OUT.lvesper | both) [--tweens N]\n\n"
    "Makes a time-of-day sequence through the Lumivesper server ($API_SERVER_URL when set): a "
    "base\n"
    "frame and ten relit copies, written as original.png and phase_1.png ... phase_10.png.\n\n"
    "  --prompt TEXT   what the scene shows (used when no --image is given)\n"
    "  --image FILE    a picture to relight instead of generating a base frame\n"
    "  --model ID      the image model. Default: openrouter/google/gemini-3-pro-image-preview\n"
    "  -o FOLDER       where the images go; created when missing (default with --project: a\n"
    "                  temporary folder)\n"
    "  --project OUT.lvesper\n"
    "                  also place the images at their sun positions, blend the in-between\n"
    "                  frames and save the day as a project package the application opens\n"
    "  --tweens N      in-between frames per transition for --project, 0 to 12. Default: 3\n";

constexpr int maximumTweens = 12;

struct GenerateOptions {
    std::optional<std::string> prompt;
    std::optional<std::filesystem::path> image;
    std::string model = defaultModel;
    std::optional<std::filesystem::path> output;
    std::optional<std::filesystem::path> project;
    std::optional<int> tweens;
};

// Files are named by place in the sequence: the base frame is "original.png", relit phase i of
// the table "phase_<i>.png". The base frame arrives first and is reported as "night" too.
class SequenceWriter {
public:
    explicit SequenceWriter(std::filesystem::path folder) : folder_(std::move(folder)) {}

    void write(const generation::Bytes& bytes, const std::string& phase) {
        std::string name;
        {
            std::lock_guard lock(mutex_);
            if (!baseWritten_) {
                baseWritten_ = true;
                name = "original.png";
            } else {
                for (std::size_t i = 0; i < generation::lightingPhases.size(); ++i)
                    if (generation::lightingPhases[i].name == phase)
                        name = "phase_" + std::to_string(i + 1) + ".png";
            }
        }
        if (!name.empty())
            generation::writeFileAtomically(folder_ / name, bytes);
    }

private:
    std::filesystem::path folder_;
    std::mutex mutex_;
    bool baseWritten_ = false;
};

// The document steps of the generate sheet, without a window: the images at their sun positions,
// the in-between frames, then a package written the way the application saves one.
int saveProject(const GenerateOptions& options,
                const std::vector<generation::GeneratedImage>& generated, std::stop_token stop,
                const CommandContext& context) {
    const int tweens = options.tweens.value_or(3);
    std::vector<document::WallpaperImage> keys;
    for (std::size_t i = 0; i < generated.size(); ++i)
        keys.push_back(generation::saveKeyImage(generated[i].data, i, *options.output));
    generation::TweenStepReport report;
    report.status = [&](const std::string& message, double progress) {
        context.err << "[" << static_cast<int>(progress * 100 + 0.5) << "%] " << message
                    << std::endl;
    };
    const auto images =
        generation::addTweens(keys, tweens, *options.output / "tweens", stop, report);

    document::AppState appState;
    appState.setLastMagicSettings(
        options.prompt.value_or(""), generation::defaultGenerationSize, tweens,
        options.image ? options.image->filename().string() : std::string());
    appState.applyGeneratedImages(images, document::WallpaperMode::time, true);
    platform::TextDialogs dialogs(context.err);
    document::ProjectIO(dialogs).save(*options.project, appState);
    if (appState.currentProjectPath() != options.project)
        return exitFailure; // the alert said why
    context.out << "Saved " << images.size() << " images (" << keys.size() << " key images) to "
                << options.project->string() << "\n";
    return exitSuccess;
}

} // namespace

int runGenerate(const CommandContext& context) {
    GenerateOptions options;
    const auto& arguments = context.arguments;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        if (argument == "--help" || argument == "-h") {
            context.out << generateUsage;
            return exitSuccess;
        }
        const bool takesValue = argument == "--prompt" || argument == "--image" ||
                                argument == "--model" || argument == "-o" ||
                                argument == "--project" || argument == "--tweens";
        if (!takesValue) {
            context.err << "lumivesper-cli generate: unknown option '" << argument << "'\n\n"
                        << generateUsage;
            return exitUsage;
        }
        if (i + 1 >= arguments.size()) {
            context.err << "lumivesper-cli generate: " << argument << " needs a value\n";
            return exitUsage;
        }
        const std::string& value = arguments[++i];
        if (argument == "--prompt")
            options.prompt = value;
        else if (argument == "--image")
            options.image = value;
        else if (argument == "--model")
            options.model = value;
        else if (argument == "--project")
            options.project = value;
        else if (argument == "--tweens") {
            const auto count = parseNumber(value);
            if (!count || *count != static_cast<int>(*count) || *count < 0 ||
                *count > maximumTweens) {
                context.err << "lumivesper-cli generate: --tweens must be a whole number from 0 to "
                            << maximumTweens << "\n";
                return exitUsage;
            }
            options.tweens = static_cast<int>(*count);
        } else
            options.output = value;
    }
    const bool hasPrompt =
        options.prompt && options.prompt->find_first_not_of(" \t\r\n") != std::string::npos;
    if ((!options.output && !options.project) || (!hasPrompt && !options.image)) {
        context.err << "lumivesper-cli generate: --prompt or --image, and -o FOLDER or --project "
                       "OUT.lvesper, are required\n\n"
                    << generateUsage;
        return exitUsage;
    }
    if (options.tweens && !options.project) {
        context.err << "lumivesper-cli generate: --tweens needs --project\n";
        return exitUsage;
    }
    if (options.project &&
        options.project->extension() != std::string(".") + document::packageExtension)
        *options.project += std::string(".") + document::packageExtension;
    if (!options.output)
        options.output = platform::temporaryDirectory() / "LumivesperGenerated" /
                         platform::Uuid::generate().toString();
    if (options.model.find_first_not_of(" \t\r\n") == std::string::npos) {
        context.err << "lumivesper-cli generate: --model must not be empty\n";
        return exitUsage;
    }

    std::optional<generation::Bytes> reference;
    if (options.image) {
        reference = generation::readFileBytes(*options.image);
        if (!reference) {
            context.err << "lumivesper-cli generate: cannot read the image '"
                        << options.image->string() << "'\n";
            return exitFailure;
        }
    }
    std::error_code error;
    std::filesystem::create_directories(*options.output, error);
    if (error || !std::filesystem::is_directory(*options.output)) {
        context.err << "lumivesper-cli generate: cannot create the folder '"
                    << options.output->string() << "'\n";
        return exitFailure;
    }

    try {
        settings::Defaults defaults(settings::Defaults::standardLocation());
        generation::ClientSideImageGenerator generator(settings::defaultServerURL(), defaults);
        SequenceWriter writer(*options.output);
        std::mutex errMutex;
        generator.onProgress = [&](int completed, int total, const std::string& message) {
            std::lock_guard lock(errMutex);
            context.err << "[" << completed << "/" << total << "] " << message << std::endl;
        };
        generator.onImageGenerated = [&](const generation::Bytes& bytes, const std::string& phase) {
            writer.write(bytes, phase);
        };
        InterruptStop interrupt;
        const auto images = generator.generateTimeline(options.prompt.value_or(""), options.model,
                                                       reference, interrupt.token());
        context.out << "Wrote " << images.size() << " images to " << options.output->string()
                    << "\n";
        if (!options.project)
            return exitSuccess;
        return saveProject(options, images, interrupt.token(), context);
    } catch (const std::exception& failure) {
        context.err << "lumivesper-cli generate: " << failure.what() << "\n";
        return exitFailure;
    }
}

} // namespace lumivesper::cli
