#include "generation/image_edit_workflow.h"

#include "generation/openrouter_proxy_client.h"
#include "generation/timeline_document.h"
#include "platform/cancellation.h"
#include "platform/console.h"
#include "platform/image_io.h"
#include "settings/server_config.h"

#include <algorithm>
#include <ctime>
#include <fstream>
#include <iterator>
#include <system_error>

namespace lumivesper::generation {

namespace fs = std::filesystem;
using document::WallpaperImage;

namespace {

constexpr const char* promptHead =
    "You are seeing two images of the same scene:\n\n"
    "IMAGE 1 (REFERENCE - Do not modify): This is the original base frame. Use it to verify "
    "correct:\n"
    "• Camera angle, focal length, and perspective\n"
    "• Object positions and composition\n"
    "• Scene geometry and structure\n\n"
    "IMAGE 2 (CURRENT - This is what you will edit): This is a relit version with different "
    "lighting. It may have inconsistencies that need fixing. Unless redirected by user's "
    "guidance, maintain its current lighting characteristics.\n\n"
    "YOUR TASK:\n"
    "Edit IMAGE 2 to fix this issue: ";

constexpr const char* promptTail =
    "\n\nRULES:\n"
    "1. OUTPUT: Return an edited version of IMAGE 2 (not IMAGE 1)\n"
    "2. PRESERVE from IMAGE 2: Keep its lighting, shadows, time-of-day atmosphere, and color "
    "temperature (unless user explicitly requests changes to these)\n"
    "3. FIX using IMAGE 1 as reference: Correct only the specific issue mentioned (camera angle, "
    "composition, objects, etc.)\n"
    "4. KEEP EVERYTHING ELSE: Do not change elements that weren't mentioned in the fix request\n\n"
    "Generate the corrected version of IMAGE 2 now.";

// "2026-11-23T11:58:01Z" with every ":" made "-", so that it can stand in a file name.
std::string fileNameTimestamp(std::chrono::system_clock::time_point now) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H-%M-%SZ", &utc);
    return text;
}

bool isBlank(const std::string& text) {
    return text.find_first_not_of(" \t\r\n\v\f") == std::string::npos;
}

} // namespace

std::string imageEditPrompt(const std::string& editPrompt) {
    return promptHead + editPrompt + promptTail;
}

std::optional<WallpaperImage> originalImage(const document::AppState& appState) {
    const auto& images = appState.images();
    const auto found = std::find_if(images.begin(), images.end(), [](const WallpaperImage& image) {
        return !image.isTween && !image.parentId;
    });
    if (found == images.end())
        return std::nullopt;
    return *found;
}

std::optional<SavedEdit> saveEditedImage(const WallpaperImage& image, const Bytes& data,
                                         std::chrono::system_clock::time_point now) {
    if (!image.sourcePath) {
        platform::consoleLine("❌ No source path for image");
        return std::nullopt;
    }
    SavedEdit saved;
    saved.path = image.sourcePath->parent_path() /
                 ("edited_" + fileNameTimestamp(now) + "_" + image.fileName);
    try {
        fs::create_directories(saved.path.parent_path());
        writeFileAtomically(saved.path, data);
    } catch (const std::exception& failure) {
        platform::consoleLine(std::string("❌ Failed to save edited image: ") + failure.what());
        return std::nullopt;
    }
    platform::consoleLine("✅ Saved edited image to: " + saved.path.string());
    try {
        saved.preview =
            std::make_shared<const platform::PixelImage>(platform::loadPreview(saved.path));
    } catch (const platform::ImageIoError&) {
        platform::consoleLine("❌ Failed to create image from edited data");
        return std::nullopt;
    }
    return saved;
}

bool installEditedImage(document::AppState& appState, const WallpaperImage& image,
                        SavedEdit saved) {
    if (!appState.replaceImageFile(image.id, std::move(saved.path), std::move(saved.preview)))
        return false;
    platform::consoleLine("✅ Updated image in timeline: " + image.fileName);
    return true;
}

std::optional<fs::path> applyEditedImage(document::AppState& appState, const WallpaperImage& image,
                                         const Bytes& data,
                                         std::chrono::system_clock::time_point now) {
    auto saved = saveEditedImage(image, data, now);
    if (!saved)
        return std::nullopt;
    fs::path path = saved->path;
    if (!installEditedImage(appState, image, std::move(*saved)))
        return std::nullopt;
    return path;
}

ImageEditWorkflow::ImageEditWorkflow(document::AppState& appState, WallpaperImage imageToEdit,
                                     platform::MainThread& mainThread, settings::Defaults& defaults,
                                     std::function<void(const Bytes&)> onImageEdited,
                                     std::function<void()> dismiss)
    : appState_(appState), imageToEdit_(std::move(imageToEdit)), mainThread_(mainThread),
      defaults_(defaults), onImageEdited_(std::move(onImageEdited)), dismiss_(std::move(dismiss)) {}

ImageEditWorkflow::~ImageEditWorkflow() {
    // A closed sheet leaves no request behind; its result would have nowhere to go.
    if (request_.joinable()) {
        request_.request_stop();
        request_.join();
    }
}

void ImageEditWorkflow::setEditPrompt(std::string prompt) {
    state_.editPrompt = std::move(prompt);
    notify();
}

bool ImageEditWorkflow::isPrimaryEnabled() const {
    return !isBlank(state_.editPrompt) && !state_.isGenerating;
}

std::string ImageEditWorkflow::primaryButtonTitle() const {
    return state_.generatedPreview ? "Apply Changes" : "Generate Fix";
}

std::string ImageEditWorkflow::currentImageTitle() const {
    return state_.generatedPreview ? "Edited" : "Current";
}

void ImageEditWorkflow::pressPrimary() {
    if (state_.generatedPreview) {
        const Bytes edited = *state_.generatedPreview;
        if (onImageEdited_)
            onImageEdited_(edited);
        if (dismiss_)
            dismiss_();
        return;
    }
    if (isPrimaryEnabled())
        regenerateImage();
}

void ImageEditWorkflow::regenerateImage() {
    const auto original = originalImage(appState_);
    const auto reference =
        original && original->sourcePath ? readFileBytes(*original->sourcePath) : std::nullopt;
    if (!reference) {
        state_.errorMessage = "Could not load original image";
        notify();
        return;
    }
    auto current = imageToEdit_.sourcePath ? readFileBytes(*imageToEdit_.sourcePath) : std::nullopt;
    if (!current) {
        state_.errorMessage = "Could not load current image";
        notify();
        return;
    }
    state_.isGenerating = true;
    state_.errorMessage.reset();
    state_.progressMessage = "Preparing to regenerate...";
    const std::string prompt = imageEditPrompt(state_.editPrompt);
    state_.progressMessage = "Regenerating image...";
    state_.progress = 0.5;
    notify();

    if (request_.joinable())
        request_.join(); // the last one has ended: the button is off while one runs
    request_ = std::jthread([this, prompt, reference = *reference,
                             current = std::move(*current)](std::stop_token stop) {
        try {
            const OpenRouterProxyClient client(settings::defaultServerURL(), defaults_);
            Bytes edited = client.editImage(prompt, reference, current, imageEditModel, stop);
            std::shared_ptr<const platform::PixelImage> shown;
            try {
                shown = std::make_shared<const platform::PixelImage>(platform::loadPreview(
                    std::string_view(reinterpret_cast<const char*>(edited.data()), edited.size())));
            } catch (const platform::ImageIoError&) {
                // Shown as unavailable; applying it fails the same way and changes nothing.
            }
            post([this, edited = std::move(edited), shown = std::move(shown)] {
                state_.progress = 1.0;
                state_.progressMessage = "Complete!";
                state_.generatedPreview = edited;
                state_.generatedPreviewImage = shown;
                state_.isGenerating = false;
            });
        } catch (const platform::CancellationError&) {
            // Only the workflow's end stops a request, and nobody is left to tell.
        } catch (const std::exception& failure) {
            post([this, description = std::string(failure.what())] {
                state_.errorMessage = "Failed to regenerate: " + description;
                state_.isGenerating = false;
                state_.progress = 0;
            });
        }
    });
}

void ImageEditWorkflow::discardChanges() {
    state_.generatedPreview.reset();
    state_.generatedPreviewImage.reset();
    state_.errorMessage.reset();
    notify();
}

void ImageEditWorkflow::post(std::function<void()> work) {
    mainThread_.post([this, alive = std::weak_ptr<char>(alive_), work = std::move(work)] {
        if (alive.expired())
            return;
        work();
        notify();
    });
}

} // namespace lumivesper::generation
