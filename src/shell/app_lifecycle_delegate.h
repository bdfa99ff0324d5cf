#pragma once

#include "platform/observer_list.h"
#include "shell/save_flow_coordinator.h"
#include "shell/update_controller.h"
#include "shell/update_flow.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>

namespace lumivesper::settings {
class UpdateChannelManager;
}

namespace lumivesper::shell {

class AppCommandCenter;

// The platform's answer to a request to quit.
enum class TerminateReply { now, cancel, later };

// Long work that has to stop before the window closes or the application ends: a generation,
// whose requests must not be left in flight nor its files half-written. `stop` cancels it and
// calls its argument once nothing of it runs any more.
struct RunningWork {
    std::function<bool()> isRunning;
    std::function<void(std::function<void()> stopped)> stop;
};

// The application's delegate as plain logic: launch order, files opened from outside (parked until
// the window exists), the unsaved-changes guard on closing the window and on quitting, and the
// update component's delegate. The toolkit layer calls these entry points.
class AppLifecycleDelegate final : public TerminationDelegate, public settings::UpdaterDelegate {
public:
    // `replyToPlatform` answers a quit request that was answered `later`.
    AppLifecycleDelegate(settings::UpdateChannelManager& channels,
                         std::function<std::string()> feedBaseURL,
                         std::function<void(bool)> replyToPlatform);

    // Launch: the console line, then the update component (created by `makeUpdater`, which
    // receives this delegate), re-checking whenever the update channel changes.
    void applicationDidFinishLaunching(
        const std::function<std::unique_ptr<UpdateController>(settings::UpdaterDelegate&)>&
            makeUpdater);

    // The root view appeared: bind the command center and open a parked file.
    void bindCommandCenter(AppCommandCenter& commandCenter,
                           const std::function<void(std::function<void()>)>& postToMainThread);
    void unbindCommandCenter() { commandCenter_ = nullptr; }

    // A file the system asks us to open ("*.lumivesper"); false refuses it.
    bool openFile(const std::filesystem::path& path);
    // A URL delivered to the window ("*.lvesper"); parked, too, while there is none.
    void openURL(const std::filesystem::path& url);

    // `performClose` closes the window again (it will pass unchecked).
    bool windowShouldClose(std::function<void()> performClose);
    // Running work is stopped first; the unsaved-changes question comes after it has stopped.
    TerminateReply applicationShouldTerminate();

    // The work to stop before closing or quitting; one at a time, the latest wins.
    void setRunningWork(RunningWork work) { runningWork_ = std::move(work); }
    void clearRunningWork() { runningWork_ = {}; }

    // TerminationDelegate
    void setTerminating(bool terminating) override { isTerminating_ = terminating; }
    void replyToApplicationShouldTerminate(bool shouldTerminate) override;

    // settings::UpdaterDelegate. The feed URL is asked for on the checker's thread.
    std::string feedURLString() override;
    void didFindValidUpdate(const settings::AppcastItem& item,
                            settings::UpdateCheckKind kind) override;
    void didNotFindUpdate(settings::UpdateCheckKind kind) override;
    void didAbortWithError(const settings::UpdateCheckError& error,
                           settings::UpdateCheckKind kind) override;

    UpdateController* updaterController() const { return updater_.get(); }
    // What the user sees of the checks: the dialog of "Check for Updates..." and the notice.
    UpdateFlow& updates() { return updates_; }
    const std::optional<std::filesystem::path>& pendingFileURL() const { return pendingFileURL_; }
    bool shouldBypassCloseCheck() const { return shouldBypassCloseCheck_; }
    bool isTerminating() const { return isTerminating_; }

private:
    void openWithPrompt(const std::filesystem::path& url);
    bool hasRunningWork() const { return runningWork_.isRunning && runningWork_.isRunning(); }

    settings::UpdateChannelManager& channels_;
    std::function<std::string()> feedBaseURL_;
    std::function<void(bool)> replyToPlatform_;
    AppCommandCenter* commandCenter_ = nullptr;
    std::optional<std::filesystem::path> pendingFileURL_;
    bool shouldBypassCloseCheck_ = false;
    bool isTerminating_ = false;
    UpdateFlow updates_;
    RunningWork runningWork_;
    std::unique_ptr<UpdateController> updater_; // after updates_: gone first
    platform::Subscription channelSubscription_;
    LifetimeToken lifetime_;
};

} // namespace lumivesper::shell
