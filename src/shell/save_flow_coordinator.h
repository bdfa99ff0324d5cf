#pragma once

#include "shell/lifetime_token.h"

#include <filesystem>
#include <functional>
#include <string>

namespace lumivesper::document {
class AppState;
class ProjectIO;
} // namespace lumivesper::document

namespace lumivesper::platform {
class Dialogs;
}

namespace lumivesper::shell {

class AppUIState;

// Who answers the platform's pending request to quit.
class TerminationDelegate {
public:
    virtual ~TerminationDelegate() = default;
    virtual void setTerminating(bool terminating) = 0;
    virtual void replyToApplicationShouldTerminate(bool shouldTerminate) = 0;
};

// Asks what to do with unsaved changes before a command that would discard them, and before
// quitting. The two flows differ on purpose: texts, default file name, and what a cancelled save
// panel means.
class SaveFlowCoordinator {
public:
    static constexpr const char* untitledProjectName = "Untitled.lvesper";
    static constexpr const char* untitledProjectNameOnQuit = "Untitled.lumivesper";

    SaveFlowCoordinator(document::ProjectIO& projectIO, AppUIState& uiState,
                        platform::Dialogs& dialogs)
        : projectIO_(projectIO), uiState_(uiState), dialogs_(dialogs) {}

    // Runs `continuation` now, later (after a save) or never, as the user decides.
    void confirmUnsaved(const std::string& actionName, document::AppState& appState,
                        std::function<void()> continuation);

    // Ends in exactly one reply to `delegate`, now or after the save panel.
    void handleTerminate(document::AppState& appState, TerminationDelegate& delegate);

    // The save panel's completion: remembers the folder, then saves.
    void saveChosen(const std::filesystem::path& url, document::AppState& appState);

private:
    document::ProjectIO& projectIO_;
    AppUIState& uiState_;
    platform::Dialogs& dialogs_;
    LifetimeToken lifetime_;
};

} // namespace lumivesper::shell
