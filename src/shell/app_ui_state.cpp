#include "shell/app_ui_state.h"

#include "settings/defaults.h"

namespace lumivesper::shell {

AppUIState::AppUIState(settings::Defaults& defaults) : defaults_(&defaults) {
    isLoadingDirectories_ = true;
    auto read = [&](const char* key) -> std::optional<std::filesystem::path> {
        if (auto stored = defaults.string(key))
            return std::filesystem::path(*stored);
        return std::nullopt;
    };
    setLastImportDirectory(read(lastImportDirectoryKey));
    setLastOpenDirectory(read(lastOpenDirectoryKey));
    setLastSaveDirectory(read(lastSaveDirectoryKey));
    setLastExportDirectory(read(lastExportDirectoryKey));
    isLoadingDirectories_ = false;
}

template <typename Value> void AppUIState::assign(Value& field, Value value) {
    if (field == value)
        return;
    field = std::move(value);
    changed_.notify();
}

void AppUIState::setViewMode(LibraryViewMode mode) { assign(viewMode_, mode); }
void AppUIState::setShowsInspector(bool shows) { assign(showsInspector_, shows); }
void AppUIState::setActiveSheet(std::optional<ActiveSheet> sheet) { assign(activeSheet_, sheet); }
void AppUIState::setHoveringOpenButton(bool hovering) { assign(isHoveringOpenButton_, hovering); }
void AppUIState::setShouldTriggerAutoTween(bool trigger) {
    assign(shouldTriggerAutoTween_, trigger);
}
void AppUIState::setTimelinePlaying(bool playing) { assign(isTimelinePlaying_, playing); }

void AppUIState::setExportOptions(exporting::HeicExportOptions options) {
    assign(exportOptions_, std::move(options));
}

void AppUIState::storeDirectory(const char* key,
                                const std::optional<std::filesystem::path>& directory) {
    if (isLoadingDirectories_ || !defaults_)
        return;
    if (directory)
        defaults_->setString(key, directory->string());
    else
        defaults_->remove(key);
}

void AppUIState::setLastImportDirectory(std::optional<std::filesystem::path> directory) {
    if (lastImport_ == directory)
        return;
    lastImport_ = std::move(directory);
    storeDirectory(lastImportDirectoryKey, lastImport_);
    changed_.notify();
}

void AppUIState::setLastOpenDirectory(std::optional<std::filesystem::path> directory) {
    if (lastOpen_ == directory)
        return;
    lastOpen_ = std::move(directory);
    storeDirectory(lastOpenDirectoryKey, lastOpen_);
    changed_.notify();
}

void AppUIState::setLastSaveDirectory(std::optional<std::filesystem::path> directory) {
    if (lastSave_ == directory)
        return;
    lastSave_ = std::move(directory);
    storeDirectory(lastSaveDirectoryKey, lastSave_);
    changed_.notify();
}

void AppUIState::setLastExportDirectory(std::optional<std::filesystem::path> directory) {
    if (lastExport_ == directory)
        return;
    lastExport_ = std::move(directory);
    storeDirectory(lastExportDirectoryKey, lastExport_);
    changed_.notify();
}

} // namespace lumivesper::shell
