#include "settings/update_controller.h"

#include "platform/console.h"
#include "settings/server_config.h"

namespace lumivesper::settings {

std::string UpdateController::buildVersion() {
    // The feed's machine version is the build number; builds without one compare by release.
    const std::string buildNumber = LUMIVESPER_BUILD_NUMBER;
    return buildNumber.empty() ? std::string(LUMIVESPER_VERSION) : buildNumber;
}

UpdateController::UpdateController(UpdateChannelManager& channels, platform::MainThread& mainThread,
                                   std::string currentVersion, UpdateCheckerOptions options)
    : channels_(channels), checker_(*this, mainThread, std::move(currentVersion), options) {
    checker_.startUpdater();
    channelChanged_ = channels_.observeChannelChanged([this](const UpdateChannelChange&) {
        checker_.resetUpdateCycle();
        checker_.checkForUpdatesInBackground();
    });
    platform::consoleLine("✅ Update checker initialized - update channel: " +
                          std::string(rawValue(channels_.currentChannel())));
}

std::string UpdateController::feedURLString() {
    const std::string url = channels_.feedURLString(feedBaseURL());
    platform::consoleLine("📡 Update feed URL: " + url);
    return url;
}

void UpdateController::didFindValidUpdate(const AppcastItem& item, UpdateCheckKind kind) {
    platform::consoleLine("✅ Update found: " + item.displayVersion + " (" + item.version + ")");
    outcomes_.notify(UpdateCheckOutcome{kind, item, std::nullopt});
}

void UpdateController::didNotFindUpdate(UpdateCheckKind kind) {
    platform::consoleLine("ℹ️  No updates available");
    outcomes_.notify(UpdateCheckOutcome{kind, std::nullopt, std::nullopt});
}

void UpdateController::didAbortWithError(const UpdateCheckError& error, UpdateCheckKind kind) {
    platform::consoleLine("❌ Update check failed: " + error.description());
    outcomes_.notify(UpdateCheckOutcome{kind, std::nullopt, error.description()});
}

} // namespace lumivesper::settings
