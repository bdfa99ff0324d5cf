#include "cli/command.h"
#include "generation/client_side_image_generator.h"
#include "platform/atomic_file.h"
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
    "Usage: lumivesper-cli generate (--prompt TEXT | --image FILE | both) [--model ID] -o "
    "FOLDER\n\n"
    "Makes a time-of-day sequence through the Lumivesper server ($API_SERVER_URL when set): a "
    "base\n"
    "frame and ten relit copies, written as original.png and phase_1.png ... phase_10.png.\n\n"
    "  --prompt TEXT   what the scene shows (used when no --image is given)\n"
    "  --image FILE    a picture to relight instead of generating a base frame\n"
    "  --model ID      the image model. Default: openrouter/google/gemini-3-pro-image-preview\n"
    "  -o FOLDER       where the images go; created when missing\n";

struct GenerateOptions {
    std::optional<std::string> prompt;
    std::optional<std::filesystem::path> image;
    std::string model = defaultModel;
    std::optional<std::filesystem::path> output;
};

std::optional<generation::Bytes> readFile(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file)
        return std::nullopt;
    generation::Bytes bytes((std::istreambuf_iterator<char>(file)),
                            std::istreambuf_iterator<char>());
    if (file.bad())
        return std::nullopt;
    return bytes;
}

// Temporary file and rename, so a reader never sees half an image.
void writeAtomically(const std::filesystem::path& path, const generation::Bytes& bytes) {
    platform::writeFileAtomically(
        path, std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
}

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
            writeAtomically(folder_ / name, bytes);
    }

private:
    std::filesystem::path folder_;
    std::mutex mutex_;
    bool baseWritten_ = false;
};

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
                                argument == "--model" || argument == "-o";
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
        else
            options.output = value;
    }
    const bool hasPrompt =
        options.prompt && options.prompt->find_first_not_of(" \t\r\n") != std::string::npos;
    if (!options.output || (!hasPrompt && !options.image)) {
        context.err
            << "lumivesper-cli generate: --prompt or --image, and -o FOLDER, are required\n\n"
            << generateUsage;
        return exitUsage;
    }
    if (options.model.find_first_not_of(" \t\r\n") == std::string::npos) {
        context.err << "lumivesper-cli generate: --model must not be empty\n";
        return exitUsage;
    }

    std::optional<generation::Bytes> reference;
    if (options.image) {
        reference = readFile(*options.image);
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
        const auto images =
            generator.generateTimeline(options.prompt.value_or(""), options.model, reference);
        context.out << "Wrote " << images.size() << " images to " << options.output->string()
                    << "\n";
        return exitSuccess;
    } catch (const std::exception& failure) {
        context.err << "lumivesper-cli generate: " << failure.what() << "\n";
        return exitFailure;
    }
}

} // namespace lumivesper::cli
