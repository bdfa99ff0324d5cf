#pragma once

#include "platform/observer_list.h"
#include "settings/appcast.h"
#include "settings/update_checker.h"

#include <functional>
#include <optional>
#include <string>

namespace lumivesper::shell {

class UpdateController;

// What the update dialog shows.
enum class UpdateDialogPhase { hidden, checking, updateFound, upToDate, failed };

struct UpdateDialogContent {
    std::string title;
    std::string message;
    std::optional<std::string> releaseNotesURL; // only with an update found
    std::optional<std::string> downloadURL;     // only with an update found
};

// This build as the user reads it and as the feed numbers it.
struct InstalledVersion {
    std::string displayVersion; // "0.4.0"
    std::string version;        // the build number the feed's versions are compared with
};

// What the user sees of update checks. A check the user asked for goes through a dialog: first
// "checking", then the verdict, whatever it is. A background check speaks only when it finds an
// update, and then through a quiet notice in the window; silence and failures stay in the log.
// Main thread only.
class UpdateFlow {
public:
    // `channelLabel` names the channel the checks read ("Stable", "Beta").
    UpdateFlow(InstalledVersion installed, std::function<std::string()> channelLabel);

    // The component that runs the checks; none means checks cannot be made.
    void setController(UpdateController* controller) { controller_ = controller; }

    // "Check for Updates...": shows the dialog in its checking state and starts the check.
    void checkForUpdates();
    // The dialog was closed. While checking, the check is dropped and its answer never shown.
    void closeDialog();
    // The notice's "View": the update it announces, in the dialog.
    void viewNotice();
    // The notice's "Dismiss": it goes, and this version is not announced again in this session.
    void dismissNotice();

    UpdateDialogPhase dialogPhase() const { return phase_; }
    UpdateDialogContent dialogContent() const;
    // The update a background check found and the user has not dismissed yet.
    const std::optional<settings::AppcastItem>& notice() const { return notice_; }
    std::string noticeText() const;

    // The checker's verdicts, on the main thread.
    void didFindValidUpdate(const settings::AppcastItem& item, settings::UpdateCheckKind kind);
    void didNotFindUpdate(settings::UpdateCheckKind kind);
    void didAbortWithError(const settings::UpdateCheckError& error, settings::UpdateCheckKind kind);

    // Called after the dialog's phase or the notice changed.
    [[nodiscard]] platform::Subscription observe(std::function<void()> observer) {
        return changed_.subscribe(std::move(observer));
    }

private:
    void showVerdict(UpdateDialogPhase phase);

    InstalledVersion installed_;
    std::function<std::string()> channelLabel_;
    UpdateController* controller_ = nullptr;
    UpdateDialogPhase phase_ = UpdateDialogPhase::hidden;
    std::optional<settings::AppcastItem> found_; // what the dialog shows as found
    std::string failure_;
    std::string checkedChannel_;
    std::optional<settings::AppcastItem> notice_;
    std::optional<std::string> dismissedVersion_;
    platform::ObserverList<> changed_;
};

// "1.3 (build 130)", or "1.3" where both strings are the same.
std::string versionText(const std::string& displayVersion, const std::string& version);

} // namespace lumivesper::shell
