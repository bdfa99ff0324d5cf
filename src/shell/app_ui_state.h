#pragma once

#include "export/export_options.h"
#include "platform/observer_list.h"

#include <filesystem>
#include <optional>
#include <string>

namespace lumivesper::settings {
class Defaults;
}

namespace lumivesper::shell {

enum class LibraryViewMode { grid, list, single };

// The sheet (or the settings window) on screen, if any.
enum class ActiveSheet { exportOptions, magicGenerate, settings };

// The window's state that is not part of the document and so never enters an undo step. Main
// thread only. The four remembered directories persist in the defaults, when there are any.
class AppUIState {
public:
    static constexpr const char* lastImportDirectoryKey = "lastImportDirectory";
    static constexpr const char* lastOpenDirectoryKey = "lastOpenDirectory";
    static constexpr const char* lastSaveDirectoryKey = "lastSaveDirectory";
    static constexpr const char* lastExportDirectoryKey = "lastExportDirectory";

    AppUIState() = default;
    // Reads the four directories (import, open, save, export) without writing them back.
    explicit AppUIState(settings::Defaults& defaults);

    AppUIState(const AppUIState&) = delete;
    AppUIState& operator=(const AppUIState&) = delete;

    LibraryViewMode viewMode() const { return viewMode_; }
    bool showsInspector() const { return showsInspector_; }
    const std::optional<ActiveSheet>& activeSheet() const { return activeSheet_; }
    bool isHoveringOpenButton() const { return isHoveringOpenButton_; }
    const exporting::HeicExportOptions& exportOptions() const { return exportOptions_; }
    bool shouldTriggerAutoTween() const { return shouldTriggerAutoTween_; }
    bool isTimelinePlaying() const { return isTimelinePlaying_; }

    // Each setter notifies the observers when, and only when, the value changes.
    void setViewMode(LibraryViewMode mode);
    void setShowsInspector(bool shows);
    void setActiveSheet(std::optional<ActiveSheet> sheet);
    void setHoveringOpenButton(bool hovering);
    void setExportOptions(exporting::HeicExportOptions options); // the export sheet's settings
    void setShouldTriggerAutoTween(bool trigger);
    void setTimelinePlaying(bool playing);

    const std::optional<std::filesystem::path>& lastImportDirectory() const { return lastImport_; }
    const std::optional<std::filesystem::path>& lastOpenDirectory() const { return lastOpen_; }
    const std::optional<std::filesystem::path>& lastSaveDirectory() const { return lastSave_; }
    const std::optional<std::filesystem::path>& lastExportDirectory() const { return lastExport_; }
    void setLastImportDirectory(std::optional<std::filesystem::path> directory);
    void setLastOpenDirectory(std::optional<std::filesystem::path> directory);
    void setLastSaveDirectory(std::optional<std::filesystem::path> directory);
    void setLastExportDirectory(std::optional<std::filesystem::path> directory);

    [[nodiscard]] platform::Subscription observe(std::function<void()> observer) {
        return changed_.subscribe(std::move(observer));
    }

private:
    void storeDirectory(const char* key, const std::optional<std::filesystem::path>& directory);
    template <typename Value> void assign(Value& field, Value value);

    settings::Defaults* defaults_ = nullptr;
    bool isLoadingDirectories_ = false;
    LibraryViewMode viewMode_ = LibraryViewMode::grid;
    bool showsInspector_ = true;
    std::optional<ActiveSheet> activeSheet_;
    bool isHoveringOpenButton_ = false;
    exporting::HeicExportOptions exportOptions_;
    bool shouldTriggerAutoTween_ = false;
    bool isTimelinePlaying_ = false;
    std::optional<std::filesystem::path> lastImport_;
    std::optional<std::filesystem::path> lastOpen_;
    std::optional<std::filesystem::path> lastSave_;
    std::optional<std::filesystem::path> lastExport_;
    platform::ObserverList<> changed_;
};

} // namespace lumivesper::shell
