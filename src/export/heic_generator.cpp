#include "export/heic_generator.h"

#include "export/heic_generator_error.h"
#include "export/heic_writer.h"
#include "export/wallpaper_metadata.h"
#include "platform/cancellation.h"
#include "platform/console.h"
#include "platform/image_io.h"
#include "platform/uuid.h"

#include <algorithm>
#include <cctype>
#include <fcntl.h>
#include <string>
#include <system_error>
#include <unistd.h>

namespace lumivesper::exporting {

namespace {

using document::WallpaperImage;
using platform::consoleLine;

void report(const ProgressCallback& progress, int current, int total, const std::string& message) {
    if (progress)
        progress(current, total, message);
}

// Runs the clean-up action of prepared frames on every way out; its own errors are swallowed.
class CleanupGuard {
public:
    explicit CleanupGuard(std::function<void()> cleanup) : cleanup_(std::move(cleanup)) {}
    CleanupGuard(const CleanupGuard&) = delete;
    CleanupGuard& operator=(const CleanupGuard&) = delete;
    ~CleanupGuard() {
        if (!cleanup_)
            return;
        try {
            cleanup_();
        } catch (...) {
        }
    }

private:
    std::function<void()> cleanup_;
};

bool fileExists(const std::filesystem::path& path) {
    std::error_code error;
    return std::filesystem::exists(path, error);
}

// Decodes one frame for the encoder; anything unreadable is a failure to load that file.
platform::PixelImage loadFrame(const std::filesystem::path& path) {
    if (!fileExists(path))
        throw HeicGeneratorError::imageLoadFailed(path.string());
    try {
        return platform::loadImage(path);
    } catch (const platform::ImageIoError&) {
        throw HeicGeneratorError::imageLoadFailed(path.string());
    }
}

// Refuses a destination that cannot be written before the minutes of preparing and encoding: its
// folder must exist and take a new file (tried, not guessed from permission bits, which say
// nothing of read-only mounts or of what root may do).
void requireWritableDestination(const std::filesystem::path& output) {
    std::error_code error;
    const auto folder =
        output.parent_path().empty() ? std::filesystem::path(".") : output.parent_path();
    if (!std::filesystem::is_directory(folder, error)) {
        consoleLine("ERROR: Output folder does not exist: " + folder.string());
        throw HeicGeneratorError::heicCreationFailed();
    }
    if (std::filesystem::is_directory(output, error)) {
        consoleLine("ERROR: Output is a folder: " + output.string());
        throw HeicGeneratorError::heicCreationFailed();
    }
    const auto probe = folder / (".lumivesper-write-test-" + platform::Uuid::generate().toString());
    const int descriptor = ::open(probe.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (descriptor < 0) {
        consoleLine("ERROR: Output folder is not writable: " + folder.string());
        throw HeicGeneratorError::heicCreationFailed();
    }
    ::close(descriptor);
    std::filesystem::remove(probe, error);
}

// What a frame will decode to, for the encoder's memory budget; 0 when its header is unreadable
// (loading it will then report the failure).
std::int64_t pixelCount(const HeicFrameSource& frame) {
    if (frame.size.width > 0 && frame.size.height > 0)
        return static_cast<std::int64_t>(frame.size.width * frame.size.height);
    try {
        const auto size = platform::readImageSize(frame.url);
        return std::int64_t(size.width) * size.height;
    } catch (const platform::ImageIoError&) {
        return 0;
    }
}

bool countsAsLight(const WallpaperImage& image) {
    return image.isLight.value_or(true);
}

} // namespace

void HeicGenerator::generate(const std::vector<WallpaperImage>& images,
                             const std::filesystem::path& outputURL, document::WallpaperMode mode,
                             const std::optional<HeicPreprocessConfig>& preprocessConfig,
                             const ProgressCallback& progress, std::stop_token stop) const {
    const int count = static_cast<int>(images.size());
    // A present configuration doubles the steps even when it enables nothing.
    const int total = preprocessConfig ? 2 * count : count;
    report(progress, 0, total, "Starting generation...");
    if (count == 0)
        throw HeicGeneratorError::invalidConfiguration("No images provided");

    for (std::size_t n = 0; n < images.size(); ++n) {
        const auto& image = images[n];
        if (!image.sourcePath) {
            consoleLine("ERROR: Image " + std::to_string(n) + " (" + image.fileName +
                        ") has no source path");
            throw HeicGeneratorError::invalidConfiguration("Image " + image.fileName +
                                                           " has no source path");
        }
        if (!fileExists(*image.sourcePath)) {
            consoleLine("ERROR: Image file not found: " + image.sourcePath->string());
            throw HeicGeneratorError::imageLoadFailed(image.sourcePath->string());
        }
    }

    requireWritableDestination(outputURL);

    consoleLine("Generating " + std::string(document::rawValue(mode)) + " wallpaper with " +
                std::to_string(count) + " images to " + outputURL.string());
    if (mode == document::WallpaperMode::appearance)
        generateAppearanceBased(images, outputURL, preprocessConfig, total, progress, stop);
    else
        generateTimeBased(images, outputURL, preprocessConfig, total, progress, stop);
}

void HeicGenerator::generateTimeBased(const std::vector<WallpaperImage>& images,
                                      const std::filesystem::path& outputURL,
                                      const std::optional<HeicPreprocessConfig>& preprocessConfig,
                                      int total, const ProgressCallback& progress,
                                      std::stop_token stop) const {
    report(progress, 0, total, "Creating time-based wallpaper...");
    if (images.empty())
        throw HeicGeneratorError::invalidConfiguration("Solar mode requires at least 1 image");

    // The caller's order is the file's order; nothing here sorts.
    auto prepared = prepareFrames(images, preprocessConfig, total, progress, stop);
    CleanupGuard cleanup(std::move(prepared.cleanup));
    const auto& frames = prepared.frames;

    std::vector<WallpaperImage> frameImages;
    frameImages.reserve(frames.size());
    for (const auto& frame : frames)
        frameImages.push_back(frame.image);
    std::string xmp;
    try {
        xmp = xmpPacket(solarPropertyName, encodeMetadataValue(solarDocument(frameImages)));
    } catch (const std::invalid_argument&) {
        throw HeicGeneratorError::metadataCreationFailed();
    }
    HeicWriter writer(outputURL, settings_, stop);

    const int base = preprocessConfig ? static_cast<int>(images.size()) : 0;
    const int frameCount = static_cast<int>(frames.size());
    for (int n = 0; n < frameCount; ++n) {
        // Frames are decoded by the writer's workers, a few at a time, never the whole stack.
        writer.addImage([url = frames[n].url] { return loadFrame(url); }, pixelCount(frames[n]),
                        n == 0 ? xmp : std::string());
    }
    writer.finalize([&](int n) {
        report(progress, base + n + 1, total,
               "Encoded image " + std::to_string(n + 1) + "/" + std::to_string(frameCount));
    });
    report(progress, total, total,
           "Solar wallpaper created with " + std::to_string(frameCount) + " images");
}

void HeicGenerator::generateAppearanceBased(
    const std::vector<WallpaperImage>& images, const std::filesystem::path& outputURL,
    const std::optional<HeicPreprocessConfig>& preprocessConfig, int total,
    const ProgressCallback& progress, std::stop_token stop) const {
    report(progress, 0, total, "Creating appearance-based wallpaper...");
    consoleLine("DEBUG: Appearance mode - " + std::to_string(images.size()) + " images");
    if (images.size() < 2)
        throw HeicGeneratorError::invalidConfiguration(
            "Appearance mode requires at least 2 images");

    auto sorted = images;
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const WallpaperImage& a, const WallpaperImage& b) {
                         return countsAsLight(a) && !countsAsLight(b);
                     });
    // Light ones first; and the first dark one goes to second place, so that a document with
    // several light images still gets its dark image as the dark appearance.
    const auto firstDark = std::find_if(sorted.begin() + 1, sorted.end(),
                                        [](const WallpaperImage& i) { return !countsAsLight(i); });
    if (firstDark != sorted.end())
        std::rotate(sorted.begin() + 1, firstDark, firstDark + 1);
    consoleLine("DEBUG: Sorted images - light: " + sorted[0].fileName +
                ", dark: " + sorted[1].fileName);

    auto prepared = prepareFrames(sorted, preprocessConfig, total, progress, stop);
    CleanupGuard cleanup(std::move(prepared.cleanup));
    const auto& frames = prepared.frames;
    if (frames.empty())
        throw HeicGeneratorError::invalidConfiguration("No images to encode");
    // Only the first two frames make the file; a lone frame stands for both appearances.
    const auto& lightFrame = frames[0];
    const auto& darkFrame = frames.size() > 1 ? frames[1] : frames[0];

    auto load = [](const HeicFrameSource& frame, const std::string& role) {
        consoleLine("DEBUG: Loading " + role + " image from: " + frame.url.string());
        auto pixels = loadFrame(frame.url);
        std::string name = role;
        name[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(name[0])));
        consoleLine("DEBUG: " + name + " image size: " + std::to_string(pixels.width) + "x" +
                    std::to_string(pixels.height));
        return pixels;
    };
    auto light = load(lightFrame, "light");
    auto dark = load(darkFrame, "dark");

    consoleLine("DEBUG: Creating metadata plist");
    std::string base64;
    try {
        base64 = encodeMetadataValue(appearanceDocument());
    } catch (const std::invalid_argument&) {
        throw HeicGeneratorError::metadataCreationFailed();
    }
    consoleLine("DEBUG: Metadata base64 length: " + std::to_string(base64.size()));
    consoleLine("DEBUG: Creating XMP metadata");
    consoleLine("DEBUG: Registering namespace");
    consoleLine("DEBUG: Creating metadata tag");
    consoleLine("DEBUG: Setting metadata tag");
    const std::string xmp = xmpPacket(appearancePropertyName, base64);

    consoleLine("DEBUG: Creating image destination at: " + outputURL.string());
    std::optional<HeicWriter> writer;
    try {
        writer.emplace(outputURL, settings_, stop);
    } catch (const HeicGeneratorError&) {
        consoleLine("ERROR: Failed to create image destination");
        throw;
    }
    try {
        // Our writer encodes while adding, where the platform's did so when finalizing; either
        // way a failure here means the file could not be finished.
        consoleLine("DEBUG: Adding light image with metadata");
        writer->addImage(std::move(light), xmp);
        consoleLine("DEBUG: Adding dark image");
        writer->addImage(std::move(dark));
        consoleLine("DEBUG: Finalizing HEIC file");
        writer->finalize();
    } catch (const HeicGeneratorError&) {
        consoleLine("ERROR: Failed to finalize HEIC");
        throw;
    }
    consoleLine("DEBUG: Appearance wallpaper created successfully");
    report(progress, total, total, "Appearance wallpaper created");
}

} // namespace lumivesper::exporting
