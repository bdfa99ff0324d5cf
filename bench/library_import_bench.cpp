// Imports photos into the library as a drop does and reports what it costs the window: resident
// memory once every preview is made, the peak, the time until the last image is in, and the
// longest stall of the event loop meanwhile (the window's responsiveness).
//
//   library_import_bench [PHOTOS] [WORK_FOLDER]     (defaults: 50, a folder under /tmp)
//
// The photos are made at run time from the real photographs in /usr/share/backgrounds, enlarged
// to 6000×4000 (24 MP) JPEGs with libvips; a work folder that holds them already is reused.

// libvips first: glib names a field "signals", which Qt defines as a keyword.
#include <vips/vips.h>

#include "../tests/support/scripted_dialogs.h"
#include "document/app_state.h"
#include "document/project_io.h"
#include "shell/app_command_center.h"
#include "shell/app_ui_state.h"
#include "shell/save_flow_coordinator.h"
#include "ui/library/library_view.h"
#include "ui/library/preview_cache.h"
#include "ui/timeline/timeline_strip.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QTimer>
#include <QVBoxLayout>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <time.h>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;
using namespace lumivesper;

constexpr int photoWidth = 6000;
constexpr int photoHeight = 4000;

std::vector<fs::path> photographs() {
    std::vector<fs::path> found;
    for (const auto& entry : fs::recursive_directory_iterator("/usr/share/backgrounds"))
        if (entry.is_regular_file() && entry.path().extension() == ".jpg")
            found.push_back(entry.path());
    std::sort(found.begin(), found.end());
    return found;
}

// Makes the photos that are missing; true when it made any.
bool makePhotos(int count, const fs::path& folder, std::vector<fs::path>& photos) {
    const auto sources = photographs();
    if (sources.empty()) {
        std::fprintf(stderr, "no photographs under /usr/share/backgrounds\n");
        std::exit(1);
    }
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

// VmRSS or VmHWM from /proc/self/status, in MiB.
double memoryMiB(const std::string& field) {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind(field + ":", 0) == 0)
            return std::stod(line.substr(field.size() + 1)) / 1024.0;
    return 0;
}

double threadCpuMs() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

class QtMainThread final : public platform::MainThread {
public:
    void post(std::function<void()> work) override {
        QMetaObject::invokeMethod(
            &context_,
            [this, work = std::move(work)] {
                QElapsedTimer timer;
                timer.start();
                work();
                longestWork = std::max(longestWork, timer.elapsed());
            },
            Qt::QueuedConnection);
    }

    qint64 longestWork = 0; // ms: the longest an added image held the main thread

private:
    QObject context_;
};

} // namespace

int main(int argc, char** argv) {
    const int count = argc > 1 ? std::atoi(argv[1]) : 50;
    const fs::path folder = argc > 2 ? fs::path(argv[2]) : fs::temp_directory_path() / "lumivesper-bench-photos";
    if (VIPS_INIT(argv[0]) != 0)
        return 1;
    std::fprintf(stderr, "making %d photos of %dx%d in %s ...\n", count, photoWidth, photoHeight,
                 folder.c_str());
    std::vector<fs::path> photos;
    if (makePhotos(count, folder, photos)) {
        // Measure in a fresh process: this one holds what making the input cost.
        execv("/proc/self/exe", argv);
        std::perror("execv");
        return 1;
    }

    QApplication app(argc, argv);
    testing::ScriptedDialogs dialogs;
    QtMainThread mainThread;
    document::UndoManager undo;
    document::AppState state;
    state.setUndoManager(&undo);
    shell::AppUIState ui;
    document::ProjectIO io{dialogs};
    shell::SaveFlowCoordinator saveFlow{io, ui, dialogs};
    shell::AppCommandCenter center{state, ui, io, saveFlow, dialogs};

    QWidget window;
    auto* layout = new QVBoxLayout(&window);
    auto* library = new ui::LibraryView(center, mainThread, &window);
    layout->addWidget(library, 1);
    layout->addWidget(new ui::TimelineStrip(*library, &window));
    window.resize(1400, 900);
    window.show();
    QApplication::processEvents();
    const double baseline = memoryMiB("VmRSS");

    // The longest gap between ticks of a 10 ms timer is the longest the window could not react.
    // On a loaded machine the wall gap also holds time the thread waited for a core; the thread's
    // own CPU time between ticks is the work the window did in one go.
    QElapsedTimer sinceTick;
    qint64 longestStall = 0;
    double longestBusy = 0;
    double lastCpu = threadCpuMs();
    QTimer heartbeat;
    heartbeat.setInterval(10);
    QObject::connect(&heartbeat, &QTimer::timeout, [&] {
        longestStall = std::max(longestStall, sinceTick.restart());
        const double cpu = threadCpuMs();
        longestBusy = std::max(longestBusy, cpu - lastCpu);
        lastCpu = cpu;
    });
    sinceTick.start();
    heartbeat.start();

    QElapsedTimer clock;
    clock.start();
    library->imports().importFiles(photos);
    while (library->imports().pendingCount() > 0)
        QApplication::processEvents(QEventLoop::AllEvents, 50);
    const double importSeconds = clock.elapsed() / 1000.0;
    // Let the last previews arrive and be painted, as a user would see them.
    QElapsedTimer settle;
    settle.start();
    while (settle.elapsed() < 1500 || library->previews().pendingCount() > 0)
        QApplication::processEvents(QEventLoop::AllEvents, 50);
    heartbeat.stop();

    std::printf("images imported:            %zu of %d\n", state.images().size(), count);
    std::printf("import time:                %.2f s\n", importSeconds);
    std::printf("longest event-loop stall:   %lld ms\n", static_cast<long long>(longestStall));
    std::printf("longest main-thread CPU burst: %.0f ms\n", longestBusy);
    std::printf("longest single addition:    %lld ms\n",
                static_cast<long long>(mainThread.longestWork));
    std::printf("resident memory, empty:     %.0f MiB\n", baseline);
    std::printf("resident memory, imported:  %.0f MiB\n", memoryMiB("VmRSS"));
    std::printf("resident memory, peak:      %.0f MiB\n", memoryMiB("VmHWM"));
    return state.images().size() == static_cast<std::size_t>(count) ? 0 : 1;
}
