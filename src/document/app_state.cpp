#include "document/app_state.h"

#include "document/image_hours.h"
#include "document/image_row_changes.h"
#include "document/project.h"
#include "platform/console.h"
#include "platform/image_io.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <unistd.h>
#include <unordered_map>

namespace lumivesper::document {

namespace {

std::set<Uuid> idsOf(const std::vector<WallpaperImage>& images) {
    std::set<Uuid> ids;
    for (const auto& image : images)
        ids.insert(image.id);
    return ids;
}

} // namespace

AppState::AppState() : clientId_(Uuid::generate().toString()) {}

// ---- Queries ----

const WallpaperImage* AppState::image(const Uuid& id) const {
    auto found = std::find_if(images_.begin(), images_.end(),
                              [&](const WallpaperImage& image) { return image.id == id; });
    return found == images_.end() ? nullptr : &*found;
}

std::optional<WallpaperImage> AppState::selectedImage() const {
    if (lastSelectedImageId_ && selectedImageIds_.contains(*lastSelectedImageId_)) {
        if (const auto* anchor = image(*lastSelectedImageId_))
            return *anchor;
    }
    if (selectedImageIds_.empty())
        return std::nullopt;
    if (const auto* first = image(*selectedImageIds_.begin()))
        return *first;
    return std::nullopt;
}

// ---- Undo machinery ----

AppState::Snapshot AppState::captureSnapshot() const {
    return Snapshot{images_,
                    mode_,
                    selectedImageIds_,
                    lastSelectedImageId_,
                    currentProjectPath_,
                    isDirty_,
                    lastMagicPrompt_,
                    lastMagicSize_,
                    lastMagicTweenCount_,
                    lastMagicStartingImageFileName_};
}

AppState::~AppState() {
    setUndoManager(nullptr);
}

void AppState::setUndoManager(UndoManager* undoManager) {
    if (undoManager == undoManager_)
        return;
    if (undoManager_)
        undoManager_->removeAllActions();
    undoManager_ = undoManager;
    undoManagerGone_ = undoManager ? undoManager->observeDestruction([this] {
        undoManager_ = nullptr;
    })
                                   : platform::Subscription();
}

void AppState::registerStep(const Snapshot& snapshot, const std::string& actionName) {
    if (!undoManager_)
        return;
    undoManager_->registerUndo([this, snapshot, actionName] {
        restoreSnapshot(snapshot, actionName);
    });
    undoManager_->setActionName(actionName);
}

void AppState::restoreSnapshot(const Snapshot& snapshot, const std::string& actionName) {
    Snapshot current = captureSnapshot();
    images_ = snapshot.images;
    mode_ = snapshot.mode;
    assignSelection(snapshot.selectedImageIds);
    lastSelectedImageId_ = snapshot.lastSelectedImageId; // exactly the stored anchor
    currentProjectPath_ = snapshot.currentProjectPath;
    isDirty_ = snapshot.isDirty;
    lastMagicPrompt_ = snapshot.lastMagicPrompt;
    lastMagicSize_ = snapshot.lastMagicSize;
    lastMagicTweenCount_ = snapshot.lastMagicTweenCount;
    lastMagicStartingImageFileName_ = snapshot.lastMagicStartingImageFileName;
    // Registered while undoing this becomes the redo step, and while redoing the next undo step.
    registerStep(current, actionName);
    publishChanges(current);
}

void AppState::beginUndoBatch(const std::string& actionName) {
    if (batchSnapshot_)
        return; // the outermost batch wins
    batchSnapshot_ = captureSnapshot();
    batchActionName_ = actionName;
}

void AppState::beginUndoBatch() {
    if (batchSnapshot_)
        return;
    batchSnapshot_ = captureSnapshot();
    batchActionName_.reset();
}

void AppState::endUndoBatch() {
    if (!batchSnapshot_)
        return;
    Snapshot snapshot = std::move(*batchSnapshot_);
    const std::string name = batchActionName_.value_or("Update");
    batchSnapshot_.reset();
    batchActionName_.reset();
    registerStep(snapshot, name);
}

// ---- Content operations ----

void AppState::setMode(WallpaperMode mode) {
    if (mode == mode_)
        return;
    Snapshot before = captureSnapshot();
    mode_ = mode;
    sortImages();
    isDirty_ = true;
    registerStep(before, "Change Mode");
    publishChanges(before);
}

void AppState::addImage(WallpaperImage image) {
    Snapshot before = captureSnapshot();
    images_.push_back(std::move(image));
    sortImages();
    isDirty_ = true;
    registerStep(before, "Add Image");
    publishChanges(before);
}

std::optional<WallpaperImage> AppState::readImageFile(const std::filesystem::path& file) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(file, error) || ::access(file.c_str(), R_OK) != 0) {
        platform::consoleLine("Cannot read file at: " + file.string());
        return std::nullopt;
    }
    WallpaperImage image;
    try {
        image.thumbnail =
            std::make_shared<const platform::PixelImage>(platform::loadPreview(file));
    } catch (const platform::ImageIoError&) {
        platform::consoleLine("Failed to load image from: " + file.string());
        return std::nullopt;
    }
    image.fileName = file.filename().string();
    image.sourcePath = file;
    return image;
}

void AppState::addImportedImage(WallpaperImage image) {
    image.isTween = false;
    if (mode_ == WallpaperMode::time) {
        image.altitude = 0.0;
        image.azimuth = 0.0;
        image.isLight.reset();
    } else {
        image.isLight = true;
        image.altitude.reset();
        image.azimuth.reset();
    }
    addImage(std::move(image));
}

void AppState::importImage(const std::filesystem::path& file) {
    if (auto image = readImageFile(file))
        addImportedImage(std::move(*image));
}

void AppState::removeImage(const Uuid& id) {
    if (!image(id))
        return;
    Snapshot before = captureSnapshot();
    std::erase_if(images_, [&](const WallpaperImage& image) { return image.id == id; });
    std::set<Uuid> selection = selectedImageIds_;
    selection.erase(id);
    assignSelection(std::move(selection));
    isDirty_ = true;
    registerStep(before, "Delete Image");
    publishChanges(before);
}

void AppState::deleteAllTweens() {
    std::set<Uuid> tweenIds;
    for (const auto& image : images_)
        if (image.isTween)
            tweenIds.insert(image.id);
    if (tweenIds.empty())
        return;
    Snapshot before = captureSnapshot();
    std::erase_if(images_,
                  [&](const WallpaperImage& image) { return tweenIds.contains(image.id); });
    std::set<Uuid> selection;
    std::set_difference(selectedImageIds_.begin(), selectedImageIds_.end(), tweenIds.begin(),
                        tweenIds.end(), std::inserter(selection, selection.end()));
    assignSelection(std::move(selection));
    isDirty_ = true;
    registerStep(before, "Delete All Tweens");
    publishChanges(before);
}

void AppState::updateImage(const WallpaperImage& updated) {
    auto found = std::find_if(images_.begin(), images_.end(),
                              [&](const WallpaperImage& image) { return image.id == updated.id; });
    if (found == images_.end())
        return;
    Snapshot before = captureSnapshot();
    *found = updated;
    sortImages();
    isDirty_ = true;
    registerStep(before, "Edit Image");
    publishChanges(before);
}

void AppState::moveImage(const Uuid& sourceId, const Uuid& targetId) {
    if (sourceId == targetId)
        return;
    auto indexOf = [&](const Uuid& id) -> std::optional<std::size_t> {
        for (std::size_t i = 0; i < images_.size(); ++i)
            if (images_[i].id == id)
                return i;
        return std::nullopt;
    };
    const auto sourceIndex = indexOf(sourceId);
    const auto targetIndex = indexOf(targetId);
    if (!sourceIndex || !targetIndex)
        return;
    if (images_[*sourceIndex].isTween || images_[*targetIndex].isTween)
        return; // tweens move only with their key image, and nothing lands on one

    Snapshot before = captureSnapshot();
    std::size_t runEnd = *sourceIndex + 1;
    while (runEnd < images_.size() && images_[runEnd].isTween &&
           images_[runEnd].parentId == std::optional<Uuid>(sourceId))
        ++runEnd;
    const std::size_t runLength = runEnd - *sourceIndex;
    std::vector<WallpaperImage> run(std::make_move_iterator(images_.begin() + *sourceIndex),
                                    std::make_move_iterator(images_.begin() + runEnd));
    images_.erase(images_.begin() + *sourceIndex, images_.begin() + runEnd);

    std::ptrdiff_t insertion = static_cast<std::ptrdiff_t>(*targetIndex);
    if (*sourceIndex < *targetIndex)
        insertion -= static_cast<std::ptrdiff_t>(runLength);
    insertion = std::clamp<std::ptrdiff_t>(insertion, 0, std::ssize(images_));
    images_.insert(images_.begin() + insertion, std::make_move_iterator(run.begin()),
                   std::make_move_iterator(run.end()));

    isDirty_ = true;
    registerStep(before, "Reorder Images");
    publishChanges(before);
}

void AppState::insertImages(std::vector<WallpaperImage> newImages, std::ptrdiff_t index,
                            const std::string& actionName) {
    if (newImages.empty())
        return;
    Snapshot before = captureSnapshot();
    index = std::clamp<std::ptrdiff_t>(index, 0, std::ssize(images_));
    images_.insert(images_.begin() + index, std::make_move_iterator(newImages.begin()),
                   std::make_move_iterator(newImages.end()));
    sortImages();
    isDirty_ = true;
    registerStep(before, actionName);
    publishChanges(before);
}

void AppState::replaceImages(std::vector<WallpaperImage> newImages, const std::string& actionName,
                             bool markDirty) {
    Snapshot before = captureSnapshot();
    images_ = std::move(newImages);
    sortImages();
    dropMissingFromSelection();
    isDirty_ = markDirty;
    registerStep(before, actionName);
    publishChanges(before);
}

void AppState::applyGeneratedImages(std::vector<WallpaperImage> newImages,
                                    std::optional<WallpaperMode> newMode, bool resetProjectPath) {
    const Snapshot before = captureSnapshot();
    images_ = std::move(newImages);
    if (newMode)
        mode_ = *newMode;
    sortImages();
    if (resetProjectPath)
        currentProjectPath_.reset();
    dropMissingFromSelection();
    isDirty_ = true;
    publishChanges(before);
}

void AppState::openProject(std::vector<WallpaperImage> newImages, WallpaperMode newMode,
                           const std::filesystem::path& url, std::optional<std::string> magicPrompt,
                           std::optional<std::string> magicSize, std::optional<int> magicTweenCount,
                           std::optional<std::string> magicStartingImageFileName) {
    Snapshot before = captureSnapshot();
    images_ = std::move(newImages);
    mode_ = newMode;
    currentProjectPath_ = url;
    assignSelection({});
    lastSelectedImageId_.reset();
    isDirty_ = false;
    lastMagicPrompt_ = magicPrompt.value_or("");
    lastMagicSize_ = magicSize.value_or(defaultMagicSize);
    lastMagicTweenCount_ = magicTweenCount.value_or(defaultMagicTweenCount);
    lastMagicStartingImageFileName_ = magicStartingImageFileName.value_or("");
    registerStep(before, "Open Project");
    publishChanges(before);
}

void AppState::resetProject(const std::string& actionName) {
    Snapshot before = captureSnapshot();
    images_.clear();
    mode_ = WallpaperMode::time;
    currentProjectPath_.reset();
    assignSelection({});
    lastSelectedImageId_.reset();
    isDirty_ = false;
    lastMagicPrompt_.clear();
    lastMagicSize_ = defaultMagicSize;
    lastMagicTweenCount_ = defaultMagicTweenCount;
    lastMagicStartingImageFileName_.clear();
    registerStep(before, actionName);
    publishChanges(before);
}

void AppState::markSaved(const std::filesystem::path& packagePath,
                         std::vector<WallpaperImage> savedImages) {
    const Snapshot before = captureSnapshot();
    images_ = std::move(savedImages);
    currentProjectPath_ = packagePath;
    isDirty_ = false;
    publishChanges(before);
}

void AppState::sortImagesChronologically() {
    const Snapshot before = captureSnapshot();
    sortImages();
    publishChanges(before);
}

// Without a notification: the operations that sort notify once for the whole change.
void AppState::sortImages() {
    if (mode_ != WallpaperMode::time)
        return;
    std::unordered_map<Uuid, double> hours;
    hours.reserve(images_.size());
    for (const auto& image : images_) {
        if (!hours.emplace(image.id, effectiveHour(image)).second) {
            // Ids are unique by construction; a repeat means the document is corrupt.
            std::fprintf(stderr, "Duplicate values for key: '%s'\n", image.id.toString().c_str());
            std::abort();
        }
    }
    // stable_sort keeps equal hours in their former order.
    std::stable_sort(images_.begin(), images_.end(),
                     [&](const WallpaperImage& a, const WallpaperImage& b) {
                         return hours[a.id] < hours[b.id];
                     });
}

// ---- Selection ----

void AppState::assignSelection(std::set<Uuid> newSelection) {
    std::set<Uuid> added;
    std::set_difference(newSelection.begin(), newSelection.end(), selectedImageIds_.begin(),
                        selectedImageIds_.end(), std::inserter(added, added.end()));
    selectedImageIds_ = std::move(newSelection);
    if (!added.empty()) {
        lastSelectedImageId_ = *added.begin();
    } else if (lastSelectedImageId_ && selectedImageIds_.contains(*lastSelectedImageId_)) {
        // the anchor stays
    } else if (!selectedImageIds_.empty()) {
        lastSelectedImageId_ = *selectedImageIds_.begin();
    } else {
        lastSelectedImageId_.reset();
    }
}

void AppState::dropMissingFromSelection() {
    if (selectedImageIds_.empty())
        return;
    const std::set<Uuid> present = idsOf(images_);
    std::set<Uuid> kept;
    std::set_intersection(selectedImageIds_.begin(), selectedImageIds_.end(), present.begin(),
                          present.end(), std::inserter(kept, kept.end()));
    assignSelection(std::move(kept));
}

void AppState::selectImage(std::optional<Uuid> id) {
    const SelectionState former{selectedImageIds_, lastSelectedImageId_};
    if (id) {
        assignSelection({*id});
        lastSelectedImageId_ = *id;
    } else {
        assignSelection({});
        lastSelectedImageId_.reset();
    }
    publishSelection(former);
}

void AppState::toggleImageSelection(const Uuid& id) {
    const SelectionState former{selectedImageIds_, lastSelectedImageId_};
    std::set<Uuid> selection = selectedImageIds_;
    if (selection.erase(id) > 0) {
        assignSelection(std::move(selection));
    } else {
        selection.insert(id);
        assignSelection(std::move(selection));
        lastSelectedImageId_ = id;
    }
    publishSelection(former);
}

void AppState::extendImageSelection(const Uuid& id) {
    std::optional<Uuid> anchor = lastSelectedImageId_;
    if (!anchor && !selectedImageIds_.empty())
        anchor = *selectedImageIds_.begin();
    if (!anchor) {
        selectImage(id);
        return;
    }
    auto indexOf = [&](const Uuid& wanted) -> std::optional<std::size_t> {
        for (std::size_t i = 0; i < images_.size(); ++i)
            if (images_[i].id == wanted)
                return i;
        return std::nullopt;
    };
    const auto anchorIndex = indexOf(*anchor);
    const auto clickedIndex = indexOf(id);
    if (!anchorIndex || !clickedIndex) {
        selectImage(id);
        return;
    }
    const SelectionState former{selectedImageIds_, lastSelectedImageId_};
    const auto [low, high] = std::minmax(*anchorIndex, *clickedIndex);
    std::set<Uuid> range;
    for (std::size_t i = low; i <= high; ++i)
        range.insert(images_[i].id);
    assignSelection(std::move(range));
    lastSelectedImageId_ = id;
    publishSelection(former);
}

void AppState::publishSelection(const SelectionState& former) {
    if (former.ids != selectedImageIds_ || former.anchor != lastSelectedImageId_)
        notify(AppStateField::selection);
}

// ---- Change notification ----

void AppState::publishChanges(const Snapshot& before) {
    AppStateFields fields;
    const auto rowChanges = diffImageRows(before.images, images_);
    if (!rowChanges.empty())
        fields = fields | AppStateField::images;
    if (before.mode != mode_)
        fields = fields | AppStateField::mode;
    if (before.selectedImageIds != selectedImageIds_ ||
        before.lastSelectedImageId != lastSelectedImageId_)
        fields = fields | AppStateField::selection;
    if (before.currentProjectPath != currentProjectPath_)
        fields = fields | AppStateField::currentProjectPath;
    if (before.isDirty != isDirty_)
        fields = fields | AppStateField::isDirty;
    if (before.lastMagicPrompt != lastMagicPrompt_ || before.lastMagicSize != lastMagicSize_ ||
        before.lastMagicTweenCount != lastMagicTweenCount_ ||
        before.lastMagicStartingImageFileName != lastMagicStartingImageFileName_)
        fields = fields | AppStateField::magicSettings;
    // Rows first: a list model mirrors them before anyone redraws from the whole state.
    for (const auto& change : rowChanges)
        rowsChanged_.notify(change);
    if (!fields.empty())
        notify(fields);
}

// ---- Generation status ----

void AppState::setGenerationStatus(bool isGenerating, double progress, const std::string& message) {
    isGenerating_ = isGenerating;
    generationProgress_ = progress;
    generationMessage_ = message;
    notify(AppStateField::generation);
}

void AppState::setLastMagicSettings(const std::string& prompt, const std::string& size,
                                    int tweenCount, const std::string& startingImageFileName) {
    lastMagicPrompt_ = prompt;
    lastMagicSize_ = size;
    lastMagicTweenCount_ = tweenCount;
    lastMagicStartingImageFileName_ = startingImageFileName;
    notify(AppStateField::magicSettings);
}

void AppState::setCurrentGenerationJobId(std::optional<std::string> value) {
    currentGenerationJobId_ = std::move(value);
    persistGenerationState();
    notify(AppStateField::generation);
}

void AppState::setCurrentGenerationIdempotencyKey(std::optional<std::string> value) {
    currentGenerationIdempotencyKey_ = std::move(value);
    persistGenerationState();
    notify(AppStateField::generation);
}

void AppState::setCurrentGenerationLastEventId(std::optional<std::string> value) {
    currentGenerationLastEventId_ = std::move(value);
    persistGenerationState();
    notify(AppStateField::generation);
}

} // namespace lumivesper::document
