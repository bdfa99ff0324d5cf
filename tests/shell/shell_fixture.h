#pragma once

#include "../support/scripted_dialogs.h"
#include "../support/temporary_folder.h"
#include "document/app_state.h"
#include "document/project_io.h"
#include "settings/defaults.h"
#include "settings/update_channel.h"
#include "shell/app_command_center.h"
#include "shell/app_lifecycle_delegate.h"
#include "shell/app_ui_state.h"
#include "shell/save_flow_coordinator.h"

#include <gtest/gtest.h>

namespace lumivesper::shell {

// The application's objects, wired as at launch, with scripted dialogs and a hand-drained queue.
class ShellTest : public ::testing::Test {
protected:
    ShellTest() {
        state.setUndoManager(&undo);
        delegate.bindCommandCenter(center, post());
    }

    std::function<void(std::function<void()>)> post() {
        return [this](std::function<void()> work) { dialogs.mainThread.post(std::move(work)); };
    }

    document::WallpaperImage image(const std::string& name, bool isTween = false) {
        document::WallpaperImage made;
        made.fileName = name;
        made.altitude = 0.0;
        made.azimuth = 0.0;
        made.isTween = isTween;
        return made;
    }

    // An empty package on disk, saved through the real ProjectIO.
    std::filesystem::path savedPackage(const std::string& name) {
        document::AppState other;
        const auto url = folder.path() / name;
        io.save(url, other);
        return url;
    }

    void drain() { dialogs.mainThread.drain(); }

    testing::TemporaryFolder folder;
    settings::Defaults defaults{folder.path() / "defaults.json"};
    settings::UpdateChannelManager channels{defaults};
    testing::ScriptedDialogs dialogs;
    document::UndoManager undo;
    document::AppState state;
    AppUIState ui{defaults};
    document::ProjectIO io{dialogs};
    SaveFlowCoordinator saveFlow{io, ui, dialogs};
    AppCommandCenter center{state, ui, io, saveFlow, dialogs};
    std::vector<bool> platformReplies;
    AppLifecycleDelegate delegate{channels, [] { return std::string("https://updates.invalid"); },
                                  [this](bool reply) { platformReplies.push_back(reply); }};
};

} // namespace lumivesper::shell
