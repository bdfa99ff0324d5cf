// Drives the real window as a user would and reports how long its event loop was ever blocked,
// step by step: launch with a project of twelve photographs, import fifty 24 MP photos, switch
// the view modes, scroll, select, play the timeline. Also the time from making the application's
// objects to the window's first paint, and resident memory once the fifty photos are in.
//
//   window_responsiveness_bench [WORK_FOLDER] [PHOTOS]   (defaults: a folder under /tmp, 50)
//
// The inputs are made at run time from the real photographs in /usr/share/backgrounds/mate/nature:
// the project from twelve of them as they are, the import from them enlarged to 6000×4000 JPEGs
// with libvips. A work folder that holds them already is reused. Run it under Xvfb (or any X
// server): the offscreen platform paints too, but not as a screen does.

// libvips first: glib names a field "signals", which Qt defines as a keyword.
// clang-format off
#include <vips/vips.h>
// clang-format on

#include "../tests/support/scripted_dialogs.h"
#include "document/app_state.h"
#include "document/project_io.h"
#include "event_loop_stall_monitor.h"
#include "shell/app/lumivesper_app.h"
#include "shell/app/qt_dialogs.h"
#include "shell/app/qt_main_thread.h"
#include "ui/library/image_list_model.h"
#include "ui/library/image_list_view.h"
#include "ui/library/library_view.h"
#include "ui/library/preview_cache.h"
#include "ui/symbol_icons.h"
#include "ui/timeline/timeline_strip.h"
#include "ui/toolbar.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QScrollBar>
#include <QTest>
#include <QToolButton>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;
using namespace lumivesper;

constexpr int photoWidth = 6000;
constexpr int photoHeight = 4000;
constexpr int projectImages = 12;

std::vector<fs::path> photographs() {
    std::vector<fs::path> found;
    for (const auto& entry : fs::directory_iterator("/usr/share/backgrounds/mate/nature"))
        if (entry.is_regular_file() && entry.path().extension() == ".jpg")
            found.push_back(entry.path());
    std::sort(found.begin(), found.end());
    if (found.size() < projectImages) {
        std::fprintf(stderr, "need %d photographs in /usr/share/backgrounds/mate/nature\n",
                     projectImages);
        std::exit(1);
    }
    return found;
}

// Makes the photos that are missing; true when it made any.
bool makePhotos(int count, const fs::path& folder, std::vector<fs::path>& photos) {
    const auto sources = photographs();
    fs::create_directories(folder);
    bool made = false;
    for (int i = 0; i < count; ++i) {
        const auto path = folder / ("photo_" + std::to_string(i) + ".jpg");
        photos.push_back(path);
        if (fs::exists(path))
            continue;
        const auto& source = sources[static_cast<std::size_t>(i) % sources.size()];
        VipsImage* enlarged = nullptr;
        if (vips_thumbnail(source.c_str(), &enlarged, photoWidth, "height", photoHeight, "size",
                           VIPS_SIZE_FORCE, nullptr) != 0 ||
            vips_jpegsave(enlarged, path.c_str(), "Q", 90, nullptr) != 0) {
            std::fprintf(stderr, "cannot make %s: %s\n", path.c_str(), vips_error_buffer());
            std::exit(1);
        }
        g_object_unref(enlarged);
        made = true;
    }
    return made;
}

// A day in twelve photographs, saved as a package by the program's own writer; true when made.
bool makeProject(const fs::path& package) {
    if (fs::exists(package / document::projectFileName))
        return false;
    testing::ScriptedDialogs dialogs;
    document::AppState state;
    state.setMode(document::WallpaperMode::time);
    const auto sources = photographs();
    for (int i = 0; i < projectImages; ++i) {
        document::WallpaperImage image;
        image.fileName = sources[static_cast<std::size_t>(i)].filename().string();
        image.sourcePath = sources[static_cast<std::size_t>(i)];
        const double hour = 2.0 * i;
        image.altitude = 60.0 * std::sin((hour - 6.0) / 24.0 * 2.0 * M_PI);
        image.azimuth = std::fmod(180.0 + (hour - 12.0) * 15.0 + 360.0, 360.0);
        state.addImage(std::move(image));
    }
    document::ProjectIO(dialogs).save(package, state);
    if (!dialogs.alerts.empty()) {
        std::fprintf(stderr, "cannot save %s: %s\n", package.c_str(),
                     dialogs.alerts.front().informativeText.c_str());
        std::exit(1);
    }
    return true;
}

double memoryMiB(const std::string& field) {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind(field + ":", 0) == 0)
            return std::stod(line.substr(field.size() + 1)) / 1024.0;
    return 0;
}

// Runs the event loop until `done` holds, or for `atLeastMs` at least; false on time-out.
bool runUntil(const std::function<bool()>& done, int atLeastMs = 0, int timeoutMs = 300000) {
    QElapsedTimer clock;
    clock.start();
    while (clock.elapsed() < atLeastMs || !done()) {
        if (clock.elapsed() > timeoutMs)
            return false;
        QApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents, 20);
    }
    return true;
}

// Notes the first paint of a window: the end of the event-loop turn in which its widgets were
// first painted, when the frame reaches the screen.
class FirstPaint final : public QObject {
public:
    explicit FirstPaint(QElapsedTimer& clock) : clock_(clock) {}
    qint64 ms() const { return ms_; }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() == QEvent::Paint && ms_ < 0 && !painting_) {
            painting_ = true;
            QMetaObject::invokeMethod(
                this, [this] { ms_ = clock_.elapsed(); }, Qt::QueuedConnection);
        }
        return QObject::eventFilter(watched, event);
    }

private:
    QElapsedTimer& clock_;
    qint64 ms_ = -1;
    bool painting_ = false;
};

struct Step {
    const char* name;
    double seconds;
    qint64 stallMs;
    double busyMs;
};

} // namespace

int main(int argc, char** argv) {
    const fs::path folder =
        argc > 1 ? fs::path(argv[1]) : fs::temp_directory_path() / "lumivesper-bench-photos";
    const int count = argc > 2 ? std::atoi(argv[2]) : 50;
    if (VIPS_INIT(argv[0]) != 0)
        return 1;
    const fs::path package = folder / "Day.lvesper";
    std::fprintf(stderr, "inputs in %s ...\n", folder.c_str());
    std::vector<fs::path> photos;
    const bool madePhotos = makePhotos(count, folder / "import", photos);
    if (makeProject(package) || madePhotos) {
        // Measure in a fresh process: this one holds what making the inputs cost.
        execv("/proc/self/exe", argv);
        std::perror("execv");
        return 1;
    }

    QApplication qt(argc, argv);
    QApplication::setApplicationName(QStringLiteral("lumivesper-bench"));
    const fs::path config = folder / "config";
    fs::remove_all(config);
    ::setenv("LUMIVESPER_CONFIG_DIR", config.c_str(), 1);

    bench::EventLoopStallMonitor monitor;
    std::vector<Step> steps;
    QElapsedTimer stepClock;
    auto begin = [&] {
        QApplication::processEvents();
        monitor.restart();
        stepClock.start();
    };
    auto end = [&](const char* name) {
        steps.push_back({name, stepClock.elapsed() / 1000.0, monitor.longestStallMs(),
                         monitor.longestBusyMs()});
        std::fprintf(stderr, "  %s done\n", name);
    };

    // Launch, made as main() makes it.
    QElapsedTimer launchClock;
    launchClock.start();
    FirstPaint firstPaint(launchClock);
    qt.installEventFilter(&firstPaint);
    ui::installFallbackIconTheme();
    shell::QtMainThread mainThread;
    shell::QtDialogs dialogs;
    shell::LumivesperApp::Options options;
    options.defaultsFile = config / "defaults.json";
    options.exit = [] {};
    shell::LumivesperApp app(dialogs, mainThread, std::move(options));
    monitor.start();
    stepClock.start();
    app.launch({QString::fromStdString(package.string())});
    dialogs.setWindow(&app.window());
    auto& window = app.window();
    window.resize(1400, 900);
    auto* library = window.findChild<ui::LibraryView*>();
    auto* strip = window.findChild<ui::TimelineStrip*>();
    if (!library || !strip) {
        std::fprintf(stderr, "the window has no library or timeline\n");
        return 1;
    }
    auto& state = app.appState();
    const bool opened = runUntil(
        [&] {
            return firstPaint.ms() >= 0 && state.images().size() == projectImages &&
                   library->previews().pendingCount() == 0;
        },
        500);
    end("launch with 12 photos");
    qt.removeEventFilter(&firstPaint);
    if (!opened) {
        std::fprintf(stderr, "the project did not open\n");
        return 1;
    }
    const double launchedMiB = memoryMiB("VmRSS");

    begin();
    library->imports().importFiles(photos);
    const bool imported = runUntil(
        [&] {
            return library->imports().pendingCount() == 0 &&
                   library->previews().pendingCount() == 0;
        },
        1000);
    end("import 50 photos of 24 MP");
    const double importedMiB = memoryMiB("VmRSS");
    const double peakMiB = memoryMiB("VmHWM");

    auto& toolbar = window.toolbar();
    auto previewsSettled = [&] { return library->previews().pendingCount() == 0; };
    begin();
    for (auto mode : {shell::LibraryViewMode::list, shell::LibraryViewMode::single,
                      shell::LibraryViewMode::grid, shell::LibraryViewMode::single,
                      shell::LibraryViewMode::list, shell::LibraryViewMode::grid}) {
        toolbar.viewModeButton(mode)->click();
        runUntil(previewsSettled, 300);
    }
    end("switch view modes");

    auto& list = library->listView();
    begin();
    QScrollBar* scroll = list.verticalScrollBar();
    for (int pass = 0; pass < 2; ++pass) {
        for (int value = 0; value <= scroll->maximum(); value += 40) {
            scroll->setValue(value);
            runUntil([] { return true; }, 16); // a wheel sends about sixty steps a second
        }
        for (int value = scroll->maximum(); value >= 0; value -= 40) {
            scroll->setValue(value);
            runUntil([] { return true; }, 16);
        }
    }
    end("scroll the grid");

    begin();
    scroll->setValue(0);
    auto& model = library->model();
    for (int row = 0; row < std::min(model.rowCount(), 12); ++row) {
        const QPoint centre = list.visualRect(model.index(row)).center();
        const auto modifiers = row % 3 == 1   ? Qt::ControlModifier
                               : row % 3 == 2 ? Qt::ShiftModifier
                                              : Qt::NoModifier;
        QTest::mouseClick(list.viewport(), Qt::LeftButton, modifiers, centre);
        runUntil([] { return true; }, 50);
    }
    QTest::mouseDClick(list.viewport(), Qt::LeftButton, Qt::NoModifier,
                       list.visualRect(model.index(3)).center());
    runUntil(previewsSettled, 300);
    toolbar.viewModeButton(shell::LibraryViewMode::grid)->click();
    end("select by clicks");

    begin();
    window.activateWindow();
    list.setFocus();
    QTest::keyClick(&list, Qt::Key_Space);
    const bool playing = app.commandCenter().uiState().isTimelinePlaying();
    runUntil([] { return true; }, 5000);
    QTest::keyClick(&list, Qt::Key_Space);
    end("play the timeline 5 s");
    monitor.stop();

    std::printf("first paint after launch:      %lld ms (from making the application's objects)\n",
                static_cast<long long>(firstPaint.ms()));
    std::printf("%-28s %8s %10s %12s\n", "step", "time", "stall", "longest CPU");
    for (const auto& step : steps)
        std::printf("%-28s %7.2fs %8lldms %10.0fms\n", step.name, step.seconds,
                    static_cast<long long>(step.stallMs), step.busyMs);
    std::printf("images in the document:        %zu of %d\n", state.images().size(),
                projectImages + count);
    std::printf("timeline played:               %s\n", playing ? "yes" : "no");
    std::printf("resident memory, project open: %.0f MiB\n", launchedMiB);
    std::printf("resident memory, imported:     %.0f MiB\n", importedMiB);
    std::printf("resident memory, peak:         %.0f MiB\n", peakMiB);
    std::printf("resident memory, end:          %.0f MiB\n", memoryMiB("VmRSS"));
    return imported && playing &&
                   state.images().size() == static_cast<std::size_t>(projectImages + count)
               ? 0
               : 1;
}
