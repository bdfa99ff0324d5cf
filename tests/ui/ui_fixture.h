#pragma once

#include "../support/scripted_dialogs.h"
#include "../support/temporary_folder.h"
#include "document/app_state.h"
#include "document/project_io.h"
#include "platform/image_io.h"
#include "platform/main_thread.h"
#include "shell/app_command_center.h"
#include "shell/app_ui_state.h"
#include "shell/save_flow_coordinator.h"
#include "ui/library/library_view.h"

#include <QMetaObject>
#include <QObject>

#include <memory>

namespace lumivesper::ui::testing {

// Work posted from other threads runs on the Qt event loop, as in the application.
class QtMainThread final : public platform::MainThread {
public:
    void post(std::function<void()> work) override {
        QMetaObject::invokeMethod(&context_, std::move(work), Qt::QueuedConnection);
    }

private:
    QObject context_;
};

// The application's core objects with a library view over them, and a folder for image files.
struct LibraryFixture {
    LibraryFixture() {
        state.setUndoManager(&undo);
        library = std::make_unique<LibraryView>(center, mainThread);
        library->resize(960, 640);
    }

    // A small real image file; `shade` tells frames apart.
    std::filesystem::path imageFile(const std::string& name, std::uint8_t shade) {
        platform::PixelImage pixels(64, 36);
        for (std::size_t i = 0; i < pixels.rgba.size(); ++i)
            pixels.rgba[i] = (i % 4 == 3) ? 255 : shade;
        const auto path = folder.path() / name;
        platform::writePng(pixels, path);
        return path;
    }

    // Adds key images straight to the document, without undo steps.
    void addImages(int count, document::WallpaperMode mode) {
        state.setMode(mode);
        for (int i = 0; i < count; ++i) {
            document::WallpaperImage image;
            image.fileName = "image" + std::to_string(i) + ".png";
            image.sourcePath = imageFile(image.fileName, static_cast<std::uint8_t>(20 * i));
            image.timeOfDay = i; // keeps the order in time mode too
            if (mode == document::WallpaperMode::appearance)
                image.isLight = true;
            state.addImage(image);
        }
        undo.removeAllActions();
    }

    std::vector<std::string> names() const {
        std::vector<std::string> result;
        for (const auto& image : state.images())
            result.push_back(image.fileName);
        return result;
    }

    lumivesper::testing::TemporaryFolder folder;
    lumivesper::testing::ScriptedDialogs dialogs;
    QtMainThread mainThread;
    document::UndoManager undo;
    document::AppState state;
    shell::AppUIState ui;
    document::ProjectIO io{dialogs};
    shell::SaveFlowCoordinator saveFlow{io, ui, dialogs};
    shell::AppCommandCenter center{state, ui, io, saveFlow, dialogs};
    std::unique_ptr<LibraryView> library;
};

} // namespace lumivesper::ui::testing
