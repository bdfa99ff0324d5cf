#include "shell/wallpaper_import_flow.h"

#include "document/package_path.h"
#include "document/project_io.h"
#include "export/wallpaper_import.h"
#include "platform/cancellation.h"
#include "platform/dialogs.h"
#include "shell/app_command_center.h"
#include "shell/app_ui_state.h"
#include "shell/job_progress_view.h"
#include "shell/save_flow_coordinator.h"

#include <algorithm>
#include <cctype>
#include <memory>

namespace lumivesper::shell {

namespace fs = std::filesystem;

namespace {

std::string quoted(const fs::path& file) {
    return "\u201c" + file.filename().string() + "\u201d";
}

} // namespace

bool hasHeifExtension(const fs::path& file) {
    std::string extension = file.extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension == ".heic" || extension == ".heif";
}

WallpaperImportFlow::WallpaperImportFlow(AppCommandCenter& center, document::ProjectIO& projectIO,
                                         platform::Dialogs& dialogs,
                                         platform::MainThread& mainThread,
                                         JobProgressView& progressView, Importer importer,
                                         Detector detector)
    : center_(center), projectIO_(projectIO), dialogs_(dialogs), mainThread_(mainThread),
      progressView_(progressView),
      importer_(importer ? std::move(importer) : Importer(exporting::importDynamicWallpaper)),
      detector_(detector ? std::move(detector) : Detector(exporting::isDynamicWallpaper)),
      job_(mainThread), check_(mainThread) {}

void WallpaperImportFlow::chooseAndImport() {
    if (job_.isRunning())
        return;
    center_.saveFlow().confirmUnsaved(
        actionName, center_.appState(), [this, alive = lifetime_.weak()] {
            if (alive.expired())
                return;
            platform::OpenPanelSettings settings;
            settings.filter = platform::FileFilter{"Dynamic Wallpaper", {"heic", "heif"}};
            settings.directory = center_.uiState().lastImportDirectory();
            dialogs_.showOpenPanel(
                std::move(settings), [this, alive](std::vector<fs::path> chosen) {
                    if (alive.expired() || chosen.empty())
                        return;
                    center_.uiState().setLastImportDirectory(chosen.front().parent_path());
                    chooseLocation(chosen.front());
                });
        });
}

void WallpaperImportFlow::importAfterConfirming(const fs::path& wallpaper) {
    center_.saveFlow().confirmUnsaved(actionName, center_.appState(),
                                      [this, alive = lifetime_.weak(), wallpaper] {
                                          if (!alive.expired())
                                              chooseLocation(wallpaper);
                                      });
}

void WallpaperImportFlow::chooseLocation(const fs::path& wallpaper) {
    // A new project named for the wallpaper, where projects were saved last (a downloaded
    // wallpaper's folder is seldom where the user keeps projects), else beside the wallpaper.
    const std::string name = wallpaper.stem().string() + "." + document::packageExtension;
    projectIO_.showSavePanel(
        name, center_.uiState().lastSaveDirectory().value_or(wallpaper.parent_path()),
        [this, alive = lifetime_.weak(), wallpaper](fs::path chosen) {
            if (alive.expired())
                return;
            const fs::path package = document::packagePathForSaving(chosen);
            std::error_code error;
            if (fs::exists(package, error)) {
                // Never replaced: it may be a project of the user's.
                dialogs_.runAlert(
                    {"\u201c" + package.filename().string() + "\u201d already exists.",
                     "Choose another name or folder for the imported project; the "
                     "existing one is left as it is.",
                     platform::AlertStyle::warning,
                     {}});
                return;
            }
            center_.uiState().setLastSaveDirectory(package.parent_path());
            runImport(wallpaper, package);
        });
}

void WallpaperImportFlow::runImport(const fs::path& wallpaper, const fs::path& package) {
    const bool started = job_.start(
        [importer = importer_, wallpaper, package](std::stop_token stop,
                                                   const exporting::ProgressCallback& progress) {
            importer(wallpaper, package, stop, progress);
        },
        [this](int current, int total, const std::string& message) {
            progressView_.update(current, total, message);
        },
        [this, wallpaper, package](std::exception_ptr failure) {
            finishImport(wallpaper, package, failure);
        });
    if (!started)
        return;
    progressView_.show("Importing " + quoted(wallpaper) + "\u2026", [this] { job_.cancel(); });
}

void WallpaperImportFlow::finishImport(const fs::path& wallpaper, const fs::path& package,
                                       std::exception_ptr failure) {
    progressView_.hide();
    if (!failure) {
        center_.openProject(package);
        return;
    }
    try {
        std::rethrow_exception(failure);
    } catch (const platform::CancellationError&) {
        // Stopped by the user: the import has left nothing behind, and that is all there is.
    } catch (const std::exception& error) {
        dialogs_.runAlert({"Could not import " + quoted(wallpaper) + ".",
                           error.what(),
                           platform::AlertStyle::critical,
                           {}});
    }
}

void WallpaperImportFlow::offerDroppedFiles(std::vector<fs::path> files,
                                            std::function<void(std::vector<fs::path>)> addImages) {
    if (std::none_of(files.begin(), files.end(), hasHeifExtension)) {
        if (addImages)
            addImages(std::move(files));
        return;
    }
    drops_.push_back({std::move(files), std::move(addImages)});
    if (drops_.size() == 1)
        checkNextDrop();
}

void WallpaperImportFlow::checkNextDrop() {
    if (drops_.empty())
        return;
    auto wallpapers = std::make_shared<std::vector<fs::path>>();
    check_.start(
        [detector = detector_, files = drops_.front().files,
         wallpapers](std::stop_token stop, const exporting::ProgressCallback&) {
            for (const auto& file : files) {
                if (stop.stop_requested())
                    return;
                if (hasHeifExtension(file) && detector(file))
                    wallpapers->push_back(file);
            }
        },
        {},
        [this, wallpapers](std::exception_ptr) {
            const Drop drop = std::move(drops_.front());
            drops_.pop_front();
            offerImport(drop, *wallpapers);
            checkNextDrop();
        });
}

void WallpaperImportFlow::offerImport(const Drop& drop, const std::vector<fs::path>& wallpapers) {
    auto addAll = [&] {
        if (drop.addImages)
            drop.addImages(drop.files);
    };
    if (wallpapers.empty() || job_.isRunning()) {
        addAll();
        return;
    }
    const fs::path& wallpaper = wallpapers.front();
    std::string informative = "Import it as a new project, with its frames and where each one "
                              "belongs, or add it to this project as a plain image.";
    if (drop.files.size() > 1)
        informative = "Import it as a new project, with its frames and where each one belongs "
                      "(the other dropped files are left out), or add the " +
                      std::to_string(drop.files.size()) + " dropped files as plain images.";
    const auto answer =
        dialogs_.runAlert({quoted(wallpaper) + " is a dynamic wallpaper.",
                           informative,
                           platform::AlertStyle::warning,
                           {"Import as New Project",
                            drop.files.size() > 1 ? "Add as Images" : "Add as Image", "Cancel"}});
    if (answer == 0)
        importAfterConfirming(wallpaper);
    else if (answer == 1)
        addAll();
}

} // namespace lumivesper::shell
