#include "shell/update_flow.h"

#include "shell/update_controller.h"

namespace lumivesper::shell {

using settings::UpdateCheckKind;

std::string versionText(const std::string& displayVersion, const std::string& version) {
    if (version.empty() || displayVersion == version)
        return displayVersion;
    return displayVersion + " (build " + version + ")";
}

UpdateFlow::UpdateFlow(InstalledVersion installed, std::function<std::string()> channelLabel)
    : installed_(std::move(installed)), channelLabel_(std::move(channelLabel)) {}

void UpdateFlow::checkForUpdates() {
    if (phase_ == UpdateDialogPhase::checking)
        return; // the dialog already says so
    found_.reset();
    checkedChannel_ = channelLabel_ ? channelLabel_() : std::string();
    if (!controller_) {
        failure_ = "Updates cannot be checked: the update checker is not running.";
        showVerdict(UpdateDialogPhase::failed);
        return;
    }
    showVerdict(UpdateDialogPhase::checking);
    controller_->checkForUpdates();
}

void UpdateFlow::closeDialog() {
    if (phase_ == UpdateDialogPhase::hidden)
        return;
    if (phase_ == UpdateDialogPhase::checking && controller_)
        controller_->cancelCheck();
    found_.reset();
    showVerdict(UpdateDialogPhase::hidden);
}

void UpdateFlow::viewNotice() {
    if (!notice_)
        return;
    found_ = std::move(notice_);
    notice_.reset();
    checkedChannel_ = channelLabel_ ? channelLabel_() : std::string();
    showVerdict(UpdateDialogPhase::updateFound);
}

void UpdateFlow::dismissNotice() {
    if (!notice_)
        return;
    dismissedVersion_ = notice_->version;
    notice_.reset();
    changed_.notify();
}

UpdateDialogContent UpdateFlow::dialogContent() const {
    const std::string channel =
        checkedChannel_.empty() ? "" : " on the " + checkedChannel_ + " channel";
    const std::string installed = versionText(installed_.displayVersion, installed_.version);
    switch (phase_) {
    case UpdateDialogPhase::hidden:
        return {};
    case UpdateDialogPhase::checking:
        return {"Checking for Updates…",
                "Looking for a newer version of Lumivesper AI" + channel + ".",
                {},
                {}};
    case UpdateDialogPhase::updateFound:
        return {"A new version of Lumivesper AI is available",
                "Lumivesper AI " + versionText(found_->displayVersion, found_->version) +
                    " is out" + channel + ". You have " + installed + ".",
                found_->releaseNotesURL, found_->downloadURL};
    case UpdateDialogPhase::upToDate:
        return {"You're up to date",
                "Lumivesper AI " + installed + " is the newest version" + channel + ".",
                {},
                {}};
    case UpdateDialogPhase::failed:
        return {"Update Check Failed", failure_, {}, {}};
    }
    return {};
}

std::string UpdateFlow::noticeText() const {
    return notice_ ? "Lumivesper AI " + notice_->displayVersion + " is available." : std::string();
}

void UpdateFlow::didFindValidUpdate(const settings::AppcastItem& item, UpdateCheckKind kind) {
    if (kind == UpdateCheckKind::userInitiated) {
        if (phase_ != UpdateDialogPhase::checking)
            return; // the user closed the dialog: nobody waits for this answer
        found_ = item;
        notice_.reset(); // the dialog says it now
        showVerdict(UpdateDialogPhase::updateFound);
        return;
    }
    const bool alreadyShown =
        phase_ == UpdateDialogPhase::updateFound && found_ && found_->version == item.version;
    if (alreadyShown || dismissedVersion_ == item.version)
        return;
    notice_ = item;
    changed_.notify();
}

void UpdateFlow::didNotFindUpdate(UpdateCheckKind kind) {
    // Nothing newer, for instance after going back to the stable channel: an earlier notice is
    // out of date.
    notice_.reset();
    if (kind == UpdateCheckKind::userInitiated && phase_ == UpdateDialogPhase::checking) {
        showVerdict(UpdateDialogPhase::upToDate);
        return;
    }
    changed_.notify();
}

void UpdateFlow::didAbortWithError(const settings::UpdateCheckError& error, UpdateCheckKind kind) {
    if (kind != UpdateCheckKind::userInitiated || phase_ != UpdateDialogPhase::checking)
        return; // a failed background check stays in the log
    failure_ = error.description();
    showVerdict(UpdateDialogPhase::failed);
}

void UpdateFlow::showVerdict(UpdateDialogPhase phase) {
    phase_ = phase;
    changed_.notify();
}

} // namespace lumivesper::shell
