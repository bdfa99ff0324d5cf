#pragma once

#include "desktop/desktop_background.h"
#include "shell/background_job.h"
#include "shell/lifetime_token.h"

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace lumivesper::document {
class ProjectIO;
}
namespace lumivesper::platform {
class Dialogs;
class MainThread;
} // namespace lumivesper::platform
namespace lumivesper::settings {
class Defaults;
}

namespace lumivesper::shell {

class AppCommandCenter;
class JobProgressView;

// What must be known before a wallpaper goes on the desktop and is not yet: the place where the
// sun is watched (for a time wallpaper), and a command that sets a picture (for a desktop that is
// neither GNOME nor Plasma). The proposals fill the fields.
struct BackgroundSetupQuestion {
    bool needsLocation = false;
    bool needsCommand = false;
    std::optional<desktop::Location> proposedLocation;
    std::string proposedCommand;
};

struct BackgroundSetup {
    std::optional<desktop::Location> location;
    std::string command; // holds "{}" where the picture goes
};

// Asks the user for a BackgroundSetup; none when cancelled. The window shows a small dialog.
class BackgroundSetupPrompt {
public:
    virtual ~BackgroundSetupPrompt() = default;
    virtual std::optional<BackgroundSetup> ask(const BackgroundSetupQuestion& question) = 0;
};

// "Set as Desktop Background": puts the open project on this desktop as the command line's apply
// does, from the saved package. The desktop is the session's; the place comes from the sun
// preview, else from the last one given; what is still missing is asked once and remembered.
// The work runs on a worker with progress and Cancel; the outcome ends in an alert. Main thread
// only.
class DesktopBackgroundFlow {
public:
    using Applier = std::function<desktop::ApplyResult(
        const desktop::ApplyRequest&, std::stop_token, const exporting::ProgressCallback&)>;
    using DesktopDetector = std::function<std::optional<desktop::DesktopKind>()>;
    using LocationSource = std::function<std::optional<desktop::Location>()>;

    static constexpr const char* locationKey = "desktopBackgroundLocation";
    static constexpr const char* commandKey = "desktopBackgroundCommand";

    // `refreshCommand` is what the desktop's timer runs later (the command line's apply
    // --refresh). The defaults apply and detect for real; tests give stand-ins.
    DesktopBackgroundFlow(AppCommandCenter& center, document::ProjectIO& projectIO,
                          settings::Defaults& defaults, platform::Dialogs& dialogs,
                          platform::MainThread& mainThread, JobProgressView& progressView,
                          BackgroundSetupPrompt& prompt, std::vector<std::string> refreshCommand,
                          Applier applier = {}, DesktopDetector detector = {});

    // The place the sun preview shows, when it has one; it wins over the remembered place.
    void setLocationSource(LocationSource source) { locationSource_ = std::move(source); }

    void setAsDesktopBackground();
    bool isApplying() const { return job_.isRunning(); }

    // The place and command remembered from the last time they were given.
    std::optional<desktop::Location> rememberedLocation() const;
    std::string rememberedCommand() const;

private:
    void saveThen(std::function<void()> continuation);
    void apply();
    void finish(const desktop::ApplyRequest& request,
                const std::optional<desktop::ApplyResult>& result, bool isTime,
                std::exception_ptr failure);

    AppCommandCenter& center_;
    document::ProjectIO& projectIO_;
    settings::Defaults& defaults_;
    platform::Dialogs& dialogs_;
    JobProgressView& progressView_;
    BackgroundSetupPrompt& prompt_;
    std::vector<std::string> refreshCommand_;
    Applier applier_;
    DesktopDetector detector_;
    LocationSource locationSource_;
    LifetimeToken lifetime_;
    BackgroundJob job_;
};

// Text for a place: "52.52° N, 13.40° E".
std::string locationText(const desktop::Location& location);

// The command-line program beside the application (installed side by side, or the build tree's
// src/cli), else its bare name for the search path.
std::filesystem::path companionCliProgram(const std::filesystem::path& applicationFolder);

} // namespace lumivesper::shell
