// Shows the library and the timeline over real photos, as the window will host them, for a look
// under Xvfb:  library_harness FOLDER [grid|list|single] [tween|generate|auto|play] [COUNT]
// FOLDER holds the photos (JPEG or PNG); the first COUNT (default 12) are imported.

#include "../support/scripted_dialogs.h"
#include "document/app_state.h"
#include "document/project_io.h"
#include "shell/app_command_center.h"
#include "shell/app_ui_state.h"
#include "shell/save_flow_coordinator.h"
#include "ui/library/library_view.h"
#include "ui/symbol_icons.h"
#include "ui/timeline/timeline_strip.h"
#include "ui_fixture.h"

#include <QApplication>
#include <QTimer>
#include <QVBoxLayout>

#include <algorithm>
#include <filesystem>

using namespace lumivesper;

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    ui::installFallbackIconTheme();
    if (argc < 2)
        return 2;
    const std::string view = argc > 2 ? argv[2] : "grid";
    const std::string action = argc > 3 ? argv[3] : "";
    const std::size_t count = argc > 4 ? std::stoul(argv[4]) : 12;

    std::vector<std::filesystem::path> photos;
    for (const auto& entry : std::filesystem::directory_iterator(argv[1]))
        photos.push_back(entry.path());
    std::sort(photos.begin(), photos.end());
    photos.resize(std::min(photos.size(), count));

    lumivesper::testing::ScriptedDialogs dialogs;
    ui::testing::QtMainThread mainThread;
    document::UndoManager undo;
    document::AppState state;
    state.setUndoManager(&undo);
    shell::AppUIState uiState;
    document::ProjectIO io{dialogs};
    shell::SaveFlowCoordinator saveFlow{io, uiState, dialogs};
    shell::AppCommandCenter center{state, uiState, io, saveFlow, dialogs};

    QWidget window;
    window.setWindowTitle(QStringLiteral("Lumivesper AI"));
    auto* layout = new QVBoxLayout(&window);
    layout->setContentsMargins(0, 0, 0, 0);
    auto* library = new ui::LibraryView(center, mainThread, &window);
    layout->addWidget(library, 1);
    layout->addWidget(new ui::TimelineStrip(*library, &window));
    window.resize(1500, 940);
    window.move(40, 30);
    window.show();

    library->imports().importFiles(photos);
    // Once the photos are in: spread them over the day, then the view and the action asked for.
    QTimer settle;
    settle.setInterval(100);
    QObject::connect(&settle, &QTimer::timeout, [&] {
        if (library->imports().pendingCount() > 0)
            return;
        settle.stop();
        const auto images = state.images();
        if (images.size() < 4)
            return; // the empty state, as it is
        for (std::size_t i = 0; i < images.size(); ++i) {
            auto image = images[i];
            image.timeOfDay = 24.0 * static_cast<double>(i) / static_cast<double>(images.size());
            image.altitude = -20.0 + 70.0 * std::sin(3.14159 * static_cast<double>(i) /
                                                       static_cast<double>(images.size()));
            image.azimuth = 30.0 + 300.0 * static_cast<double>(i) / static_cast<double>(images.size());
            state.updateImage(image);
        }
        state.selectImage(state.images()[2].id);
        state.toggleImageSelection(state.images()[3].id);
        uiState.setViewMode(view == "list"     ? shell::LibraryViewMode::list
                            : view == "single" ? shell::LibraryViewMode::single
                                               : shell::LibraryViewMode::grid);
        if (action == "tween" || action == "generate")
            library->tweens().openFor(state.images()[2].id);
        if (action == "generate")
            library->tweens().generate();
        else if (action == "auto")
            uiState.setShouldTriggerAutoTween(true);
        else if (action == "play")
            library->playback().togglePlaying();
    });
    settle.start();
    return app.exec();
}
