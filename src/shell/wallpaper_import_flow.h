#pragma once

#include "export/heic_frame.h"
#include "shell/background_job.h"
#include "shell/lifetime_token.h"

#include <deque>
#include <filesystem>
#include <functional>
#include <stop_token>
#include <vector>

namespace lumivesper::document {
class ProjectIO;
}
namespace lumivesper::platform {
class Dialogs;
class MainThread;
} // namespace lumivesper::platform

namespace lumivesper::shell {

class AppCommandCenter;
class JobProgressView;

// Turns a dynamic wallpaper, ours or another program's, into a new project and opens it: the
// unsaved-changes question first, then where the package goes, the import on a worker with
// progress and Cancel, and the package opened in the window. Main thread only.
class WallpaperImportFlow {
public:
    using Importer = std::function<std::filesystem::path(
        const std::filesystem::path& wallpaper, const std::filesystem::path& package,
        std::stop_token stop, const exporting::ProgressCallback& progress)>;
    using Detector = std::function<bool(const std::filesystem::path&)>;

    static constexpr const char* actionName = "Import Dynamic Wallpaper";

    // The defaults import and detect with the wallpaper reader; tests give stand-ins.
    WallpaperImportFlow(AppCommandCenter& center, document::ProjectIO& projectIO,
                        platform::Dialogs& dialogs, platform::MainThread& mainThread,
                        JobProgressView& progressView, Importer importer = {},
                        Detector detector = {});

    // "Import Dynamic Wallpaper...": the unsaved-changes question, then an open panel for
    // .heic and .heif files.
    void chooseAndImport();

    // Files dropped on the library. The .heic and .heif among them are looked into off the main
    // thread; when one is a dynamic wallpaper, the user chooses between a new project made from
    // it and adding the files as images. Everything else, and every file when there is no
    // dynamic wallpaper among them, goes to `addImages` in the order dropped.
    void offerDroppedFiles(std::vector<std::filesystem::path> files,
                           std::function<void(std::vector<std::filesystem::path>)> addImages);

    bool isImporting() const { return job_.isRunning(); }

private:
    void importAfterConfirming(const std::filesystem::path& wallpaper);
    void chooseLocation(const std::filesystem::path& wallpaper);
    void runImport(const std::filesystem::path& wallpaper, const std::filesystem::path& package);
    void finishImport(const std::filesystem::path& wallpaper, const std::filesystem::path& package,
                      std::exception_ptr failure);

    AppCommandCenter& center_;
    document::ProjectIO& projectIO_;
    platform::Dialogs& dialogs_;
    platform::MainThread& mainThread_;
    JobProgressView& progressView_;
    Importer importer_;
    Detector detector_;
    LifetimeToken lifetime_;
    struct Drop {
        std::vector<std::filesystem::path> files;
        std::function<void(std::vector<std::filesystem::path>)> addImages;
    };
    void checkNextDrop();
    void offerImport(const Drop& drop, const std::vector<std::filesystem::path>& wallpapers);

    std::deque<Drop> drops_; // waiting for their look, the first one being looked into
    BackgroundJob job_;      // the import
    BackgroundJob check_;    // looking into dropped files
};

// Whether a file's name says HEIF (.heic, .heif, in any case): the files worth looking into.
bool hasHeifExtension(const std::filesystem::path& file);

} // namespace lumivesper::shell
