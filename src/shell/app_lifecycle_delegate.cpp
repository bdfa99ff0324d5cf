#include "shell/app_lifecycle_delegate.h"

#include "document/app_state.h"
#include "platform/console.h"
#include "settings/update_channel.h"
#include "shell/app_command_center.h"

namespace lumivesper::shell {

AppLifecycleDelegate::AppLifecycleDelegate(settings::UpdateChannelManager& channels,
                                           std::function<std::string()> feedBaseURL,
                                           std::function<void(bool)> replyToPlatform)
    : channels_(channels), feedBaseURL_(std::move(feedBaseURL)),
      replyToPlatform_(std::move(replyToPlatform)),
      updates_({LUMIVESPER_VERSION, settings::UpdateChecker::buildVersion()},
               [&channels] { return std::string(settings::label(channels.currentChannel())); }) {}

void AppLifecycleDelegate::applicationDidFinishLaunching(
    const std::function<std::unique_ptr<UpdateController>(settings::UpdaterDelegate&)>&
        makeUpdater) {
    platform::consoleLine("[AppLifecycle] Launch complete.");
    updater_ = makeUpdater ? makeUpdater(*this) : nullptr;
    updates_.setController(updater_.get());
    channelSubscription_ =
        channels_.observeChannelChanged([this](const settings::UpdateChannelChange&) {
            if (!updater_)
                return;
            updater_->resetUpdateCycle();
            updater_->checkForUpdatesInBackground();
        });
    const bool beta = channels_.currentChannel() == settings::UpdateChannel::beta;
    platform::consoleLine(std::string("✅ Update checker initialized - update channel: ") +
                          (beta ? "beta" : "stable"));
}

void AppLifecycleDelegate::bindCommandCenter(
    AppCommandCenter& commandCenter,
    const std::function<void(std::function<void()>)>& postToMainThread) {
    commandCenter_ = &commandCenter;
    commandCenter.setUpdateCheckHandler([this, alive = lifetime_.weak()] {
        if (!alive.expired())
            updates_.checkForUpdates();
    });
    if (!pendingFileURL_)
        return;
    auto url = std::move(*pendingFileURL_);
    pendingFileURL_.reset();
    postToMainThread([this, alive = lifetime_.weak(), url] {
        if (!alive.expired())
            openWithPrompt(url); // checked on arrival
    });
}

void AppLifecycleDelegate::openWithPrompt(const std::filesystem::path& url) {
    if (commandCenter_)
        commandCenter_->requestOpenProject(url);
}

bool AppLifecycleDelegate::openFile(const std::filesystem::path& path) {
    if (path.extension() != ".lumivesper")
        return false;
    if (commandCenter_)
        openWithPrompt(path);
    else
        pendingFileURL_ = path; // the last one to arrive wins
    return true;
}

void AppLifecycleDelegate::openURL(const std::filesystem::path& url) {
    if (url.extension() != ".lvesper")
        return;
    if (commandCenter_)
        openWithPrompt(url);
    else
        pendingFileURL_ = url; // given at launch, before the window: parked like openFile's
}

bool AppLifecycleDelegate::windowShouldClose(std::function<void()> performClose) {
    if (shouldBypassCloseCheck_) {
        shouldBypassCloseCheck_ = false;
        return true;
    }
    if (isTerminating_)
        return true;
    if (hasRunningWork()) {
        // Asked again once the work has stopped: its end may have changed the document.
        runningWork_.stop([this, alive = lifetime_.weak(), performClose = std::move(performClose)] {
            if (!alive.expired() && performClose)
                performClose();
        });
        return false;
    }
    if (commandCenter_ && commandCenter_->appState().isDirty()) {
        commandCenter_->saveFlow().confirmUnsaved(
            "Close", commandCenter_->appState(),
            [this, alive = lifetime_.weak(), performClose = std::move(performClose)] {
                if (alive.expired())
                    return;
                shouldBypassCloseCheck_ = true;
                if (performClose)
                    performClose();
            });
        return false;
    }
    return true;
}

TerminateReply AppLifecycleDelegate::applicationShouldTerminate() {
    if (hasRunningWork()) {
        platform::consoleLine("⚠️  Stopping the running generation before quitting");
        runningWork_.stop([this, alive = lifetime_.weak()] {
            if (alive.expired())
                return;
            const TerminateReply reply = applicationShouldTerminate();
            if (reply != TerminateReply::later)
                replyToApplicationShouldTerminate(reply == TerminateReply::now);
        });
        return TerminateReply::later;
    }
    if (!commandCenter_ || !commandCenter_->appState().isDirty())
        return TerminateReply::now;
    commandCenter_->saveFlow().handleTerminate(commandCenter_->appState(), *this);
    return TerminateReply::later;
}

void AppLifecycleDelegate::replyToApplicationShouldTerminate(bool shouldTerminate) {
    if (replyToPlatform_)
        replyToPlatform_(shouldTerminate);
}

std::string AppLifecycleDelegate::feedURLString() {
    const std::string url = channels_.feedURLString(feedBaseURL_ ? feedBaseURL_() : std::string());
    platform::consoleLine("📡 Update feed URL: " + url);
    return url;
}

void AppLifecycleDelegate::didFindValidUpdate(const settings::AppcastItem& item,
                                              settings::UpdateCheckKind kind) {
    platform::consoleLine("✅ Update found: " + item.displayVersion + " (" + item.version + ")");
    updates_.didFindValidUpdate(item, kind);
}

void AppLifecycleDelegate::didNotFindUpdate(settings::UpdateCheckKind kind) {
    platform::consoleLine("ℹ️  No updates available");
    updates_.didNotFindUpdate(kind);
}

void AppLifecycleDelegate::didAbortWithError(const settings::UpdateCheckError& error,
                                             settings::UpdateCheckKind kind) {
    platform::consoleLine("⚠️ Update check failed: " + error.description());
    updates_.didAbortWithError(error, kind);
}

} // namespace lumivesper::shell
