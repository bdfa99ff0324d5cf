#pragma once

#include "../../support/scripted_dialogs.h"
#include "../../support/temporary_folder.h"
#include "document/project_io.h"
#include "shell/app/lumivesper_app.h"

#include <QCoreApplication>
#include <chrono>
#include <functional>
#include <memory>

namespace lumivesper::shell {

// The application as main() makes it, with scripted dialogs, a hand-drained queue for delayed
// work, and no update checks.
class AppFixture {
public:
    explicit AppFixture(const QStringList& files = {},
                        const std::function<void(LumivesperApp::Options&)>& configure = {}) {
        LumivesperApp::Options options;
        options.defaultsFile = folder.path() / "defaults.json";
        options.exit = [this] { ++exits; };
        if (configure)
            configure(options);
        app = std::make_unique<LumivesperApp>(dialogs, dialogs.mainThread, std::move(options));
        refused = app->launch(files);
        dialogs.mainThread.drain();
    }

    static document::WallpaperImage image(const std::string& name, bool isTween = false) {
        document::WallpaperImage made;
        made.fileName = name;
        made.altitude = 0.0;
        made.azimuth = 0.0;
        made.isTween = isTween;
        return made;
    }

    // An empty package on disk, written by the real ProjectIO.
    std::filesystem::path savedPackage(const std::string& name) {
        document::AppState other;
        document::ProjectIO io(dialogs);
        io.save(folder.path() / name, other);
        return folder.path() / name;
    }

    // Runs posted work and Qt's events until `done` holds; false at the deadline.
    bool waitFor(const std::function<bool()>& done) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (std::chrono::steady_clock::now() < deadline) {
            dialogs.mainThread.runUntil(done, std::chrono::milliseconds(20));
            QCoreApplication::processEvents();
            if (done())
                return true;
        }
        return false;
    }

    document::AppState& state() { return app->appState(); }
    ui::MainWindow& window() { return app->window(); }

    lumivesper::testing::TemporaryFolder folder; // first made, last gone
    lumivesper::testing::ScriptedDialogs dialogs;
    int exits = 0;
    QStringList refused;
    std::unique_ptr<LumivesperApp> app;
};

} // namespace lumivesper::shell
