#pragma once

#include "platform/observer_list.h"
#include "shell/app_ui_state.h"
#include "shell/image_import_queue.h"
#include "shell/timeline_playback.h"
#include "shell/tween_workflow.h"

#include <QWidget>
#include <filesystem>
#include <functional>
#include <memory>
#include <vector>

class QStackedWidget;

namespace lumivesper::platform {
class MainThread;
}
namespace lumivesper::shell {
class AppCommandCenter;
}

namespace lumivesper::ui {

class AppStateBridge;
class EmptyState;
class ImageListModel;
class ImageListView;
class PreviewCache;
class SingleImageView;
class TweenSheet;

// The window's central area: the empty state, the grid, the list or the single image, as
// AppUIState's view mode says; the place where files are dropped, key images dragged into order
// and tweens started. It owns the library's logic objects; the timeline strip shares its
// playback and previews.
class LibraryView final : public QWidget {
    Q_OBJECT

public:
    LibraryView(shell::AppCommandCenter& center, platform::MainThread& mainThread,
                QWidget* parent = nullptr);
    ~LibraryView() override;

    shell::TimelinePlayback& playback() { return playback_; }
    shell::TweenWorkflow& tweens() { return tweens_; }
    shell::ImageImportQueue& imports() { return imports_; }
    PreviewCache& previews() { return *previews_; }
    AppStateBridge& bridge() { return *bridge_; }
    ImageListModel& model() { return *model_; }
    ImageListView& listView() { return *listView_; }
    SingleImageView& singleView() { return *singleView_; }
    EmptyState& emptyState() { return *emptyState_; }
    TweenSheet& tweenSheet() { return *tweenSheet_; }

    using AddImages = std::function<void(std::vector<std::filesystem::path>)>;
    // Where dropped files go first: a dynamic wallpaper among them may become a project instead;
    // the offer hands back what is to be added as images. Without one, files are added.
    void setDropOffer(std::function<void(std::vector<std::filesystem::path>, AddImages)> offer) {
        dropOffer_ = std::move(offer);
    }

    // The context menu of an image, as a right click shows it.
    void fillContextMenu(class QMenu& menu, int row);

signals:
    // "Edit with AI..." on an image; the window opens the edit sheet.
    void editWithAIRequested(const QString& imageId);

protected:
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dragLeaveEvent(QDragLeaveEvent* event) override;
    void dropEvent(QDropEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

private:
    void showCurrentPage();
    void click(int row, Qt::KeyboardModifiers modifiers);
    void open(int row);
    void importUrls(const QList<QUrl>& urls);
    void reorder(const QString& sourceId, int targetRow);

    shell::AppCommandCenter& center_;
    document::AppState& appState_;
    shell::AppUIState& uiState_;
    shell::TimelinePlayback playback_;
    shell::TweenWorkflow tweens_;
    shell::ImageImportQueue imports_;
    AppStateBridge* bridge_;
    PreviewCache* previews_;
    ImageListModel* model_;
    QStackedWidget* pages_;
    EmptyState* emptyState_;
    ImageListView* listView_;
    SingleImageView* singleView_;
    TweenSheet* tweenSheet_;
    std::function<void(std::vector<std::filesystem::path>, AddImages)> dropOffer_;
};

} // namespace lumivesper::ui
