#pragma once

#include "document/app_state.h"
#include "document/project.h"
#include "platform/dialogs.h"

#include <filesystem>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace lumivesper::document {

// A package that cannot be read or written; description() is the text after "Could not save
// project: " or "Could not load project: ".
class ProjectPackageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
    std::string description() const { return what(); }
};

// A package read from disk, not yet in any document: images have `sourcePath` and `thumbnail`
// where their file was found and decoded.
struct LoadedPackage {
    Project project;
    std::vector<std::string> missingFileNames; // in document order
};

inline constexpr const char* packageExtension = "lvesper";
inline constexpr const char* projectFileName = "project.json";
inline constexpr const char* imagesFolderName = "images";

// True for a name that stays inside the folder it is joined to: not empty, not "." or "..", and
// without a path separator of either platform.
bool isPlainFileName(const std::string& name);

// Reads project.json and looks up each image in images/, with the console lines of a load, and
// decodes each image's display preview unless `withPreviews` is false (the window makes previews
// on its worker pool instead). Throws ProjectPackageError when the package cannot be read; a
// missing image is no failure.
LoadedPackage readPackage(const std::filesystem::path& url, bool withPreviews = true);

// Reads and writes project packages (a folder "*.lvesper" holding project.json and images/) and
// shows the panels of the document commands. Failures are reported to the user here, in an alert,
// and never returned. Main thread only. `dialogs` must outlive this object.
class ProjectIO {
public:
    explicit ProjectIO(platform::Dialogs& dialogs) : dialogs_(dialogs) {}

    // Image files to import; runs at once. `completion` is not called on cancel.
    void showImportPanel(std::optional<std::filesystem::path> directory,
                         std::function<void(std::vector<std::filesystem::path>)> completion);
    // A package to open, shown a moment later. `completion` is not called on cancel.
    void showOpenPanel(std::optional<std::filesystem::path> directory,
                       std::function<void(std::filesystem::path)> completion);
    // Where to save a package, shown a moment later; `cancelled` (may be empty) runs on cancel.
    void showSavePanel(std::string defaultName, std::optional<std::filesystem::path> directory,
                       std::function<void(std::filesystem::path)> completion,
                       std::function<void()> cancelled = {});

    // Both take the package's path in any spelling (relative, with a trailing separator) and use
    // its normalised form, which is what the document and the recent list remember.
    //
    // Copies the images that are not in the package yet, writes project.json, marks the document
    // saved and remembers the package among the recent projects. A failure shows "Save Failed"
    // and leaves the path and dirty flag as they were.
    void save(const std::filesystem::path& url, AppState& appState);
    // Opens the package as the document (the undo step "Open Project"); missing images keep their
    // records and are listed in a "Missing Images" alert. A failure shows "Load Failed" and leaves
    // the document untouched.
    void load(const std::filesystem::path& url, AppState& appState);

    // Whether load() decodes display previews itself (the default). A window that makes them off
    // the main thread turns this off, so opening a large project never freezes it.
    void setLoadsPreviews(bool loadsPreviews) { loadsPreviews_ = loadsPreviews; }

private:
    platform::Dialogs& dialogs_;
    bool loadsPreviews_ = true;
};

} // namespace lumivesper::document
