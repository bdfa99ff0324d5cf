#pragma once

#include <string>

namespace lumivesper::shell {

// What the application delegate needs of the software-update component: checks in the background
// and on request, and a way to restart its schedule after the channel changed.
class UpdateController {
public:
    virtual ~UpdateController() = default;
    virtual void checkForUpdates() = 0; // on the user's request
    virtual void checkForUpdatesInBackground() = 0;
    virtual void resetUpdateCycle() = 0;
};

// What the update component asks of the application, and reports to it.
class UpdaterDelegate {
public:
    virtual ~UpdaterDelegate() = default;
    virtual std::string feedURLString() = 0;
    virtual void didFindValidUpdate(const std::string& displayVersion,
                                    const std::string& version) = 0;
    virtual void didNotFindUpdate() = 0;
};

} // namespace lumivesper::shell
