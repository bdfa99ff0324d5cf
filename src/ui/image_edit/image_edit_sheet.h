#pragma once

#include "document/wallpaper_image.h"
#include "generation/generated_image.h"
#include "platform/observer_list.h"

#include <QDialog>
#include <functional>
#include <memory>
#include <optional>

class QLabel;
class QPlainTextEdit;
class QProgressBar;
class QPushButton;

namespace lumivesper::document {
class AppState;
}
namespace lumivesper::generation {
class ImageEditWorkflow;
}
namespace lumivesper::platform {
class MainThread;
}
namespace lumivesper::settings {
class Defaults;
}

namespace lumivesper::ui {

class PreviewCache;

// "Edit Image with AI": the reference frame and the image to repair side by side, what to fix,
// and the model's answer in place of the image until it is applied or discarded. The logic is
// the edit workflow's; the sheet owns it, so closing the sheet drops a request still running.
class ImageEditSheet final : public QDialog {
    Q_OBJECT

public:
    // The shown frames are fitted into this box.
    static constexpr int frameWidth = 300;
    static constexpr int frameHeight = 200;

    ImageEditSheet(document::AppState& appState, document::WallpaperImage imageToEdit,
                   platform::MainThread& mainThread, settings::Defaults& defaults,
                   PreviewCache& previews,
                   std::function<void(const generation::Bytes&)> onImageEdited,
                   QWidget* parent = nullptr);
    ~ImageEditSheet() override;

    generation::ImageEditWorkflow& workflow() const { return *workflow_; }
    QPlainTextEdit* promptField() const { return prompt_; }
    QPushButton* primaryButton() const { return primary_; }
    QPushButton* discardButton() const { return discard_; }
    QPushButton* cancelButton() const { return cancel_; }
    QProgressBar* progressBar() const { return progressBar_; }
    QLabel* statusLine() const { return progressMessage_; }
    QLabel* errorLine() const { return errorText_; }
    QLabel* originalFrame() const { return originalFrame_; }
    QLabel* currentFrame() const { return currentFrame_; }
    QLabel* currentTitle() const { return currentTitle_; }

private:
    void refresh();
    void refreshImages();
    void fitPromptHeight();

    // The live record of an image shown, for its preview; the copy taken at opening when the
    // record has gone.
    const document::WallpaperImage& shown(const document::WallpaperImage& copy) const;

    std::unique_ptr<generation::ImageEditWorkflow> workflow_;
    document::AppState& appState_;
    PreviewCache& previews_;
    std::optional<document::WallpaperImage> original_;
    QLabel* originalFrame_;
    QLabel* currentTitle_;
    QLabel* currentFrame_;
    QPlainTextEdit* prompt_;
    QWidget* progressRow_;
    QProgressBar* progressBar_;
    QLabel* progressMessage_;
    QWidget* errorRow_;
    QLabel* errorText_;
    QPushButton* cancel_;
    QPushButton* discard_;
    QPushButton* primary_;
    bool showsAnswer_ = false;
    const void* shownAnswerImage_ = nullptr;
    platform::Subscription subscription_;
};

} // namespace lumivesper::ui
