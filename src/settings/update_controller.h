#pragma once

#include "platform/observer_list.h"
#include "settings/update_channel.h"
#include "settings/update_checker.h"

#include <optional>
#include <string>

namespace lumivesper::settings {

// How a check ended, for a window that shows the answer to "Check for Updates...".
struct UpdateCheckOutcome {
    UpdateCheckKind kind;
    std::optional<AppcastItem> update;  // set when an update was found
    std::optional<std::string> failure; // set when the check could not finish
};

// The application's updater: made once at launch, it starts the background checks, answers the
// feed URL of the current channel at every check, and on a channel change restarts the cycle
// and checks at once. Main thread only.
class UpdateController final : private UpdaterDelegate {
public:
    // The version of this build that the feed's versions are compared with.
    static std::string buildVersion();

    // Both references must outlive the controller.
    UpdateController(UpdateChannelManager& channels, platform::MainThread& mainThread,
                     std::string currentVersion = buildVersion(),
                     UpdateCheckerOptions options = {});

    // The menu command "Check for Updates...".
    void checkForUpdates() { checker_.checkForUpdates(); }
    UpdateChecker& updater() { return checker_; }

    [[nodiscard]] platform::Subscription
    observeOutcomes(std::function<void(const UpdateCheckOutcome&)> observer) {
        return outcomes_.subscribe(std::move(observer));
    }

private:
    std::string feedURLString() override;
    void didFindValidUpdate(const AppcastItem& item, UpdateCheckKind kind) override;
    void didNotFindUpdate(UpdateCheckKind kind) override;
    void didAbortWithError(const UpdateCheckError& error, UpdateCheckKind kind) override;

    UpdateChannelManager& channels_;
    platform::ObserverList<const UpdateCheckOutcome&> outcomes_;
    UpdateChecker checker_;
    platform::Subscription channelChanged_;
};

} // namespace lumivesper::settings
