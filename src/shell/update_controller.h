#pragma once

#include "settings/update_checker.h"

#include <memory>

namespace lumivesper::shell {

// What the application delegate needs of the software-update component: checks in the background
// and on request, and a way to restart its schedule after the channel changed.
class UpdateController {
public:
    virtual ~UpdateController() = default;
    virtual void checkForUpdates() = 0; // on the user's request
    virtual void checkForUpdatesInBackground() = 0;
    virtual void resetUpdateCycle() = 0;
    // Drops the check the user asked for; its answer never comes.
    virtual void cancelCheck() = 0;
};

// The update checker of the settings library behind that interface, started at once.
class UpdateCheckerController final : public UpdateController {
public:
    UpdateCheckerController(settings::UpdaterDelegate& delegate, platform::MainThread& mainThread)
        : checker_(delegate, mainThread, settings::UpdateChecker::buildVersion()) {
        checker_.startUpdater();
    }
    void checkForUpdates() override { checker_.checkForUpdates(); }
    void checkForUpdatesInBackground() override { checker_.checkForUpdatesInBackground(); }
    void resetUpdateCycle() override { checker_.resetUpdateCycle(); }
    void cancelCheck() override { checker_.cancelUserCheck(); }

private:
    settings::UpdateChecker checker_;
};

} // namespace lumivesper::shell
