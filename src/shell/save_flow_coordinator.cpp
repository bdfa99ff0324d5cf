#include "shell/save_flow_coordinator.h"

#include "document/app_state.h"
#include "document/package_path.h"
#include "document/project_io.h"
#include "platform/dialogs.h"
#include "shell/app_ui_state.h"

#include <cctype>

namespace lumivesper::shell {

namespace {

constexpr const char* unsavedChangesMessage = "You have unsaved changes.";

std::string lowercased(std::string text) {
    for (char& c : text)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

} // namespace

void SaveFlowCoordinator::saveChosen(const std::filesystem::path& url,
                                     document::AppState& appState) {
    // What the user typed in the panel may lack the extension.
    const std::filesystem::path package = document::packagePathForSaving(url);
    uiState_.setLastSaveDirectory(package.parent_path());
    projectIO_.save(package, appState);
}

void SaveFlowCoordinator::confirmUnsaved(const std::string& actionName,
                                         document::AppState& appState,
                                         std::function<void()> continuation) {
    if (!appState.isDirty()) {
        continuation();
        return;
    }
    // The action name is used as it comes: "Do you want to save before create new project?"
    const std::size_t answer =
        dialogs_.runAlert({unsavedChangesMessage,
                           "Do you want to save before " + lowercased(actionName) + "?",
                           platform::AlertStyle::warning,
                           {"Save", "Cancel", "Don't Save"}});
    if (answer == 2) {
        continuation();
        return;
    }
    if (answer != 0)
        return;
    if (const auto& path = appState.currentProjectPath()) {
        projectIO_.save(*path, appState);
        continuation(); // a failed save has shown its own alert; the command goes on regardless
        return;
    }
    projectIO_.showSavePanel(untitledProjectName, uiState_.lastSaveDirectory(),
                             [this, alive = lifetime_.weak(), &appState,
                              continuation = std::move(continuation)](std::filesystem::path url) {
                                 if (alive.expired())
                                     return;
                                 saveChosen(url, appState);
                                 continuation();
                             });
}

void SaveFlowCoordinator::handleTerminate(document::AppState& appState,
                                          TerminationDelegate& delegate) {
    auto quit = [&delegate](bool shouldTerminate) {
        delegate.setTerminating(shouldTerminate);
        delegate.replyToApplicationShouldTerminate(shouldTerminate);
    };
    if (!appState.isDirty()) {
        quit(true);
        return;
    }
    const std::size_t answer = dialogs_.runAlert({unsavedChangesMessage,
                                                  "Do you want to save before quitting?",
                                                  platform::AlertStyle::warning,
                                                  {"Save & Quit", "Cancel", "Don't Save"}});
    if (answer == 2) {
        quit(true);
        return;
    }
    if (answer != 0) {
        quit(false);
        return;
    }
    if (const auto& path = appState.currentProjectPath()) {
        projectIO_.save(*path, appState); // a failed save still ends the application
        quit(true);
        return;
    }
    // The one place where the long form of the untitled name stands.
    projectIO_.showSavePanel(
        untitledProjectNameOnQuit, uiState_.lastSaveDirectory(),
        [this, alive = lifetime_.weak(), &appState, quit](std::filesystem::path url) {
            if (!alive.expired())
                saveChosen(url, appState);
            quit(true);
        },
        [quit] { quit(false); });
}

} // namespace lumivesper::shell
