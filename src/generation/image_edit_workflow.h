#pragma once

#include "document/app_state.h"
#include "generation/generated_image.h"
#include "platform/main_thread.h"
#include "platform/observer_list.h"
#include "platform/pixel_image.h"

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>

namespace lumivesper::settings {
class Defaults;
}

namespace lumivesper::generation {

// What the edit sheet shows; changed on the main thread only.
struct ImageEditState {
    std::string editPrompt;
    bool isGenerating = false;
    double progress = 0; // 0, 0.5 or 1
    std::string progressMessage;
    std::optional<Bytes> generatedPreview;
    // `generatedPreview` decoded for display, off the main thread; none when it does not decode.
    std::shared_ptr<const platform::PixelImage> generatedPreviewImage;
    std::optional<std::string> errorMessage;
};

// The model edits go to, as our server's proxy takes it.
inline constexpr const char* imageEditModel = "google/gemini-3-pro-image-preview";

// The request text around the user's words, which go in exactly as typed.
std::string imageEditPrompt(const std::string& editPrompt);

// The reference frame of an edit: the first key image of the list (not a tween, no parent),
// whatever its sun position.
std::optional<document::WallpaperImage> originalImage(const document::AppState& appState);

// An edited image on disk with its display preview, ready to take its record's place.
struct SavedEdit {
    std::filesystem::path path;
    std::shared_ptr<const platform::PixelImage> preview;
};

// Saves an edited image beside the file it replaces, as "edited_<time>_<fileName>", never over
// it, and decodes its preview. Touches no document, so it may run on any thread. None when the
// file cannot be written or does not decode (the reason is printed; a written file stays).
std::optional<SavedEdit>
saveEditedImage(const document::WallpaperImage& image, const Bytes& data,
                std::chrono::system_clock::time_point now = std::chrono::system_clock::now());

// Points the record of `image` at the saved file, without an undo step, dirty flag or re-sort.
// False when the image has left the document meanwhile.
bool installEditedImage(document::AppState& appState, const document::WallpaperImage& image,
                        SavedEdit saved);

// Both in one go, on the main thread. Returns the new file, or none when nothing in the document
// changed.
std::optional<std::filesystem::path>
applyEditedImage(document::AppState& appState, const document::WallpaperImage& image,
                 const Bytes& data,
                 std::chrono::system_clock::time_point now = std::chrono::system_clock::now());

// The logic behind "Edit Image with AI": asks the image model to fix one image against the
// reference frame, previews the result, and applies it only when asked. Used on the main thread;
// the request runs on a thread of its own and is cancelled when the workflow goes.
class ImageEditWorkflow {
public:
    // `appState`, `mainThread` and `defaults` must outlive the workflow. `imageToEdit` is copied.
    // `onImageEdited` gets the bytes on "Apply Changes"; `dismiss` closes the sheet.
    ImageEditWorkflow(document::AppState& appState, document::WallpaperImage imageToEdit,
                      platform::MainThread& mainThread, settings::Defaults& defaults,
                      std::function<void(const Bytes&)> onImageEdited,
                      std::function<void()> dismiss);
    ~ImageEditWorkflow();
    ImageEditWorkflow(const ImageEditWorkflow&) = delete;
    ImageEditWorkflow& operator=(const ImageEditWorkflow&) = delete;

    const ImageEditState& state() const { return state_; }
    const document::WallpaperImage& imageToEdit() const { return imageToEdit_; }
    [[nodiscard]] platform::Subscription observe(std::function<void()> observer) {
        return changed_.subscribe(std::move(observer));
    }

    void setEditPrompt(std::string prompt);
    bool isPrimaryEnabled() const;
    std::string primaryButtonTitle() const; // "Generate Fix" or "Apply Changes"
    bool showsDiscard() const { return state_.generatedPreview.has_value(); }
    std::string currentImageTitle() const; // "Current" or "Edited"

    // Applies the preview and dismisses when there is one; otherwise asks for a fix.
    void pressPrimary();
    void regenerateImage();
    void discardChanges();

private:
    void post(std::function<void()> work);
    void notify() { changed_.notify(); }

    document::AppState& appState_;
    document::WallpaperImage imageToEdit_;
    platform::MainThread& mainThread_;
    settings::Defaults& defaults_;
    std::function<void(const Bytes&)> onImageEdited_;
    std::function<void()> dismiss_;
    ImageEditState state_;
    std::jthread request_;
    std::shared_ptr<char> alive_ = std::make_shared<char>();
    platform::ObserverList<> changed_;
};

} // namespace lumivesper::generation
