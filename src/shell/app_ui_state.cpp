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
    lastImport_ = std::move(directory);
    storeDirectory(lastImportDirectoryKey, lastImport_);
    changed_.notify();
}

void AppUIState::setLastOpenDirectory(std::optional<std::filesystem::path> directory) {
    lastOpen_ = std::move(directory);
    storeDirectory(lastOpenDirectoryKey, lastOpen_);
    changed_.notify();
}

void AppUIState::setLastSaveDirectory(std::optional<std::filesystem::path> directory) {
    lastSave_ = std::move(directory);
    storeDirectory(lastSaveDirectoryKey, lastSave_);
    changed_.notify();
}

void AppUIState::setLastExportDirectory(std::optional<std::filesystem::path> directory) {
    lastExport_ = std::move(directory);
    storeDirectory(lastExportDirectoryKey, lastExport_);
    changed_.notify();
}

} // namespace lumivesper::shell
