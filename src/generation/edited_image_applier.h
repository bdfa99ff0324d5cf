#pragma once

#include "document/app_state.h"
#include "generation/generated_image.h"
#include "platform/main_thread.h"

#include <atomic>
#include <list>
#include <memory>
#include <thread>

namespace lumivesper::generation {

// Applies an accepted AI edit without holding up the window: the file is written and its preview
// decoded on a thread of its own, then the record is repointed on the main thread. Made by the
// application, which closes the edit sheet at once and sees the library update when the file is
// in place. Destroying it waits for files still being written, so none is left half-done.
class EditedImageApplier {
public:
    // `appState` and `mainThread` must outlive the applier.
    EditedImageApplier(document::AppState& appState, platform::MainThread& mainThread);
    ~EditedImageApplier();
    EditedImageApplier(const EditedImageApplier&) = delete;
    EditedImageApplier& operator=(const EditedImageApplier&) = delete;

    void apply(const document::WallpaperImage& image, Bytes data);

private:
    document::AppState& appState_;
    platform::MainThread& mainThread_;
    std::shared_ptr<char> alive_ = std::make_shared<char>();
    struct Writer {
        std::shared_ptr<std::atomic<bool>> done = std::make_shared<std::atomic<bool>>(false);
        std::jthread thread;
    };
    std::list<Writer> writers_;
};

} // namespace lumivesper::generation
