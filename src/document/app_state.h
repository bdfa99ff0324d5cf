#pragma once

#include "document/image_row_changes.h"
#include "document/recent_project.h"
#include "document/undo_manager.h"
#include "document/wallpaper_image.h"
#include "document/wallpaper_mode.h"
#include "platform/observer_list.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace lumivesper::settings {
class Defaults;
}

namespace lumivesper::document {

// What an AppState change notification is about; observers redraw what they show of these.
enum class AppStateField : std::uint32_t {
    images = 1u << 0,
    mode = 1u << 1,
    selection = 1u << 2, // selectedImageIds or lastSelectedImageId
    currentProjectPath = 1u << 3,
    isDirty = 1u << 4,
    recentProjects = 1u << 5,
    magicSettings = 1u << 6, // the four lastMagic… fields
    generation = 1u << 7,    // isGenerating, generationProgress, generationMessage, job state
};

class AppStateFields {
public:
    constexpr AppStateFields() = default;
    constexpr AppStateFields(AppStateField field) : bits_(static_cast<std::uint32_t>(field)) {}
    constexpr AppStateFields operator|(AppStateFields other) const {
        AppStateFields result;
        result.bits_ = bits_ | other.bits_;
        return result;
    }
    constexpr bool contains(AppStateField field) const {
        return (bits_ & static_cast<std::uint32_t>(field)) != 0;
    }
    constexpr bool empty() const { return bits_ == 0; }

private:
    std::uint32_t bits_ = 0;
};

constexpr AppStateFields operator|(AppStateField a, AppStateField b) {
    return AppStateFields(a) | AppStateFields(b);
}

// The one live document: images, mode, selection, save state, what the last generation left
// behind, and the undo history of all of it. Main thread only. Every content operation captures
// a whole-document snapshot first and registers one undo step that restores it.
class AppState {
public:
    struct Snapshot {
        std::vector<WallpaperImage> images;
        WallpaperMode mode = WallpaperMode::time;
        std::set<Uuid> selectedImageIds;
        std::optional<Uuid> lastSelectedImageId;
        std::optional<std::filesystem::path> currentProjectPath;
        bool isDirty = false;
        std::string lastMagicPrompt;
        std::string lastMagicSize;
        int lastMagicTweenCount = 3;
        std::string lastMagicStartingImageFileName;
    };

    // Keys in the persistent defaults.
    static constexpr const char* recentProjectsKey = "LumivesperAIRecentProjects";
    static constexpr const char* currentGenerationJobIdKey = "LumivesperAICurrentGenerationJobId";
    static constexpr const char* currentGenerationIdempotencyKeyKey =
        "LumivesperAICurrentGenerationIdempotencyKey";
    static constexpr const char* currentGenerationLastEventIdKey =
        "LumivesperAICurrentGenerationLastEventId";
    static constexpr const char* clientIdKey = "LumivesperAIClientId";
    static constexpr std::size_t maximumRecentProjects = 10;

    // A document that persists nothing (tests, the CLI).
    AppState();
    // The application's document: reads the recent list, then the client state, from `defaults`,
    // and writes them back there as they change. `defaults` must outlive this object.
    explicit AppState(settings::Defaults& defaults);

    AppState(const AppState&) = delete;
    AppState& operator=(const AppState&) = delete;
    ~AppState();

    // ---- Fields (read-only; change them through the operations) ----
    const std::vector<WallpaperImage>& images() const { return images_; }
    WallpaperMode mode() const { return mode_; }
    const std::set<Uuid>& selectedImageIds() const { return selectedImageIds_; }
    const std::optional<Uuid>& lastSelectedImageId() const { return lastSelectedImageId_; }
    const std::optional<std::filesystem::path>& currentProjectPath() const {
        return currentProjectPath_;
    }
    bool isDirty() const { return isDirty_; }
    const std::vector<RecentProject>& recentProjects() const { return recentProjects_; }
    const std::string& lastMagicPrompt() const { return lastMagicPrompt_; }
    const std::string& lastMagicSize() const { return lastMagicSize_; }
    int lastMagicTweenCount() const { return lastMagicTweenCount_; }
    const std::string& lastMagicStartingImageFileName() const {
        return lastMagicStartingImageFileName_;
    }
    bool isGenerating() const { return isGenerating_; }
    double generationProgress() const { return generationProgress_; }
    const std::string& generationMessage() const { return generationMessage_; }
    const std::optional<std::string>& currentGenerationJobId() const {
        return currentGenerationJobId_;
    }
    const std::optional<std::string>& currentGenerationIdempotencyKey() const {
        return currentGenerationIdempotencyKey_;
    }
    const std::optional<std::string>& currentGenerationLastEventId() const {
        return currentGenerationLastEventId_;
    }
    const std::string& clientId() const { return clientId_; }

    // The image the inspector shows: the anchor if it is selected and exists, else the first
    // selected image that exists.
    std::optional<WallpaperImage> selectedImage() const;
    const WallpaperImage* image(const Uuid& id) const;

    // ---- Undo ----
    // Not owned; none means that no steps are registered (the mutations run all the same). The
    // steps point at this document, so they leave the manager when it is replaced or when the
    // document goes; a manager that goes first uninstalls itself.
    void setUndoManager(UndoManager* undoManager);
    UndoManager* undoManager() const { return undoManager_; }
    Snapshot captureSnapshot() const;
    void restoreSnapshot(const Snapshot& snapshot, const std::string& actionName);
    void beginUndoBatch(const std::string& actionName);
    void beginUndoBatch(); // a batch without a name: "Update" when it ends
    void endUndoBatch();
    bool hasOpenUndoBatch() const { return batchSnapshot_.has_value(); }

    // ---- Content operations (each one undo step, except where noted) ----
    void setMode(WallpaperMode mode);
    void addImage(WallpaperImage image);
    // Decodes the file and appends it as a new image; unreadable files leave a console line only.
    // The same in two halves, so that a window can decode off its main thread:
    void importImage(const std::filesystem::path& file);
    // Checks and decodes the file into a new record (display preview included); none after the
    // console line. Safe on any thread.
    static std::optional<WallpaperImage> readImageFile(const std::filesystem::path& file);
    // Gives a record from readImageFile the values the present mode starts with, then addImage.
    void addImportedImage(WallpaperImage image);
    void removeImage(const Uuid& id);
    void deleteAllTweens();
    void updateImage(const WallpaperImage& image);
    void moveImage(const Uuid& sourceId, const Uuid& targetId);
    void insertImages(std::vector<WallpaperImage> newImages, std::ptrdiff_t index,
                      const std::string& actionName);
    void replaceImages(std::vector<WallpaperImage> newImages, const std::string& actionName,
                       bool markDirty);
    // No undo step: runs inside a batch opened by the generation flow.
    void applyGeneratedImages(std::vector<WallpaperImage> newImages,
                              std::optional<WallpaperMode> newMode, bool resetProjectPath);
    void openProject(std::vector<WallpaperImage> newImages, WallpaperMode newMode,
                     const std::filesystem::path& url, std::optional<std::string> magicPrompt,
                     std::optional<std::string> magicSize, std::optional<int> magicTweenCount,
                     std::optional<std::string> magicStartingImageFileName);
    void resetProject(const std::string& actionName);
    void sortImagesChronologically();

    // After a successful save: the package's path and rewritten source paths; no undo step.
    void markSaved(const std::filesystem::path& packagePath,
                   std::vector<WallpaperImage> savedImages);
    // A save copying one file into the package: the record now points at the copy. No undo step
    // and no dirty flag; unknown ids are ignored.
    void setSourcePath(const Uuid& id, std::optional<std::filesystem::path> path);
    // Gives an image that has none the display preview made from its file; no undo step, not a
    // change of the document. Ignored when the image is gone or already has a preview.
    void fillDisplayPreview(const Uuid& id, std::shared_ptr<const platform::PixelImage> preview);
    // An AI edit took the image's place: the record points at the new file and shows its preview.
    // Deliberately no undo step, no dirty flag and no re-sort, and fileName stays, so that a
    // later save copies the new file under the old name. False for an unknown id.
    bool replaceImageFile(const Uuid& id, std::filesystem::path path,
                          std::shared_ptr<const platform::PixelImage> thumbnail);

    // ---- Selection (no undo, no dirty flag) ----
    void selectImage(std::optional<Uuid> id);
    void toggleImageSelection(const Uuid& id);
    void extendImageSelection(const Uuid& id);

    // ---- Generation status (not undoable) ----
    void setGenerationStatus(bool isGenerating, double progress, const std::string& message);
    void setLastMagicSettings(const std::string& prompt, const std::string& size, int tweenCount,
                              const std::string& startingImageFileName);
    void setCurrentGenerationJobId(std::optional<std::string> value);
    void setCurrentGenerationIdempotencyKey(std::optional<std::string> value);
    void setCurrentGenerationLastEventId(std::optional<std::string> value);

    // ---- Recent projects and client state (persisted in the defaults, when there are any) ----
    void loadRecentProjects();
    void addRecentProject(const std::filesystem::path& url);
    void saveRecentProjects();
    void clearRecentProjects(); // "Clear Menu": empties the list, then saves it
    void loadGenerationState();
    void persistGenerationState();

    // ---- Change notification ----
    // After each operation: the fields whose values it changed; nothing when it changed none.
    [[nodiscard]] platform::Subscription observe(std::function<void(AppStateFields)> observer) {
        return changed_.subscribe(std::move(observer));
    }
    // After each operation that changed `images`, before the field notification: the row steps
    // that turn the former list into the present one (see ImageRowChange).
    [[nodiscard]] platform::Subscription
    observeImageRows(std::function<void(const ImageRowChange&)> observer) {
        return rowsChanged_.subscribe(std::move(observer));
    }

private:
    struct SelectionState {
        std::set<Uuid> ids;
        std::optional<Uuid> anchor;
    };

    void registerStep(const Snapshot& snapshot, const std::string& actionName);
    void publishChanges(const Snapshot& before);
    void publishSelection(const SelectionState& former);
    void sortImages();
    void assignSelection(std::set<Uuid> newSelection);
    void dropMissingFromSelection();
    void notify(AppStateFields fields) { changed_.notify(fields); }

    settings::Defaults* defaults_ = nullptr;
    UndoManager* undoManager_ = nullptr;
    platform::Subscription undoManagerGone_;

    std::vector<WallpaperImage> images_;
    WallpaperMode mode_ = WallpaperMode::time;
    std::set<Uuid> selectedImageIds_;
    std::optional<Uuid> lastSelectedImageId_;
    std::optional<std::filesystem::path> currentProjectPath_;
    bool isDirty_ = false;
    std::vector<RecentProject> recentProjects_;
    std::string lastMagicPrompt_;
    std::string lastMagicSize_ = "1024x576";
    int lastMagicTweenCount_ = 3;
    std::string lastMagicStartingImageFileName_;
    bool isGenerating_ = false;
    double generationProgress_ = 0;
    std::string generationMessage_;
    std::optional<std::string> currentGenerationJobId_;
    std::optional<std::string> currentGenerationIdempotencyKey_;
    std::optional<std::string> currentGenerationLastEventId_;
    std::string clientId_;

    std::optional<Snapshot> batchSnapshot_;
    std::optional<std::string> batchActionName_;

    platform::ObserverList<const ImageRowChange&> rowsChanged_;
    platform::ObserverList<AppStateFields> changed_;
};

} // namespace lumivesper::document
