#include "generation/edited_image_applier.h"

#include "generation/image_edit_workflow.h"

namespace lumivesper::generation {

EditedImageApplier::EditedImageApplier(document::AppState& appState,
                                       platform::MainThread& mainThread)
    : appState_(appState), mainThread_(mainThread) {}

EditedImageApplier::~EditedImageApplier() {
    alive_.reset(); // replies still queued find nobody to apply them
    writers_.clear();
}

void EditedImageApplier::apply(const document::WallpaperImage& image, Bytes data) {
    std::erase_if(writers_, [](const Writer& writer) { return writer.done->load(); });
    Writer& writer = writers_.emplace_back();
    writer.thread = std::jthread([this, image, data = std::move(data), done = writer.done,
                                  alive = std::weak_ptr<char>(alive_)] {
        if (auto saved = saveEditedImage(image, data)) {
            mainThread_.post([this, image, alive, saved = std::move(*saved)]() mutable {
                if (!alive.expired())
                    installEditedImage(appState_, image, std::move(saved));
            });
        }
        *done = true;
    });
}

} // namespace lumivesper::generation
