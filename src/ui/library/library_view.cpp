#include "ui/library/library_view.h"

#include "document/app_state.h"
#include "document/image_hours.h"
#include "platform/uuid.h"
#include "shell/app_command_center.h"
#include "ui/library/app_state_bridge.h"
#include "ui/library/empty_state.h"
#include "ui/library/image_list_model.h"
#include "ui/library/image_list_view.h"
#include "ui/library/preview_cache.h"
#include "ui/library/single_image_view.h"
#include "ui/library/tween_sheet.h"
#include "ui/qt_text.h"

#include <QDragEnterEvent>
#include <QMenu>
#include <QMimeData>
#include <QPointer>
#include <QStackedWidget>
#include <QVBoxLayout>

namespace lumivesper::ui {

LibraryView::LibraryView(shell::AppCommandCenter& center, platform::MainThread& mainThread,
                         QWidget* parent)
    : QWidget(parent), center_(center), appState_(center.appState()), uiState_(center.uiState()),
      playback_(appState_, uiState_), tweens_(appState_, uiState_, mainThread),
      imports_(appState_, mainThread), bridge_(new AppStateBridge(appState_, uiState_, this)),
      previews_(new PreviewCache(this)), model_(new ImageListModel(*bridge_, *previews_, this)) {
    setAcceptDrops(true);
    setAccessibleName(QStringLiteral("Library"));
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    pages_ = new QStackedWidget(this);
    layout->addWidget(pages_);

    emptyState_ = new EmptyState(pages_);
    listView_ = new ImageListView(*model_, pages_);
    singleView_ = new SingleImageView(*bridge_, *previews_, tweens_, pages_);
    pages_->addWidget(emptyState_);
    pages_->addWidget(listView_);
    pages_->addWidget(singleView_);
    tweenSheet_ = new TweenSheet(tweens_, *previews_, this);

    // Previews made from files (a project opened without them) are kept in the document, for the
    // timeline, the export sheet and every other view of the image.
    previews_->setFilePreviewHandler(
        [this](const std::string& id, std::shared_ptr<const platform::PixelImage> preview) {
            if (const auto uuid = platform::Uuid::parse(id))
                appState_.fillDisplayPreview(*uuid, std::move(preview));
        });
    center_.setFileImporter(
        [this](const std::vector<std::filesystem::path>& files) { imports_.importFiles(files); });
    connect(emptyState_, &EmptyState::importRequested, this, [this] { center_.importImages(); });
    connect(emptyState_, &EmptyState::generateRequested, this,
            [this] { uiState_.setActiveSheet(shell::ActiveSheet::magicGenerate); });
    connect(listView_, &ImageListView::clicked, this, &LibraryView::click);
    connect(listView_, &ImageListView::doubleClicked, this, &LibraryView::open);
    connect(listView_, &ImageListView::contextMenuAt, this, [this](int row, QPoint at) {
        QMenu menu(this);
        fillContextMenu(menu, row);
        menu.exec(at);
    });
    connect(listView_, &ImageListView::filesDropped, this, &LibraryView::importUrls);
    connect(listView_, &ImageListView::reorderDropped, this, &LibraryView::reorder);
    connect(listView_, &ImageListView::spacePressed, this, [this] { center_.togglePlayback(); });
    connect(bridge_, &AppStateBridge::documentChanged, this, [this] {
        previews_->retainOnly(appState_.images());
        showCurrentPage();
    });
    connect(bridge_, &AppStateBridge::windowStateChanged, this, &LibraryView::showCurrentPage);
    showCurrentPage();
}

LibraryView::~LibraryView() {
    center_.setFileImporter({});
    // These refer to the workflow, which goes before Qt deletes the children.
    delete tweenSheet_;
    delete singleView_;
}

void LibraryView::showCurrentPage() {
    if (appState_.images().empty()) {
        pages_->setCurrentWidget(emptyState_);
        return;
    }
    emptyState_->setDropTargeted(false);
    switch (uiState_.viewMode()) {
    case shell::LibraryViewMode::grid:
    case shell::LibraryViewMode::list: {
        const bool grid = uiState_.viewMode() == shell::LibraryViewMode::grid;
        if (listView_->isGridLayout() != grid)
            listView_->setGridLayout(grid);
        pages_->setCurrentWidget(listView_);
        return;
    }
    case shell::LibraryViewMode::single:
        // The single view always has something to show.
        if (appState_.selectedImageIds().empty())
            appState_.selectImage(appState_.images().front().id);
        pages_->setCurrentWidget(singleView_);
        return;
    }
}

void LibraryView::click(int row, Qt::KeyboardModifiers modifiers) {
    const auto* image = model_->imageAt(row);
    if (!image)
        return;
    const auto id = image->id; // the operations below may change the model's rows
    if (modifiers & Qt::ShiftModifier)
        appState_.extendImageSelection(id); // Shift wins when both are held
    else if (modifiers & Qt::ControlModifier)
        appState_.toggleImageSelection(id);
    else
        appState_.selectImage(id);
}

void LibraryView::open(int row) {
    const auto* image = model_->imageAt(row);
    if (!image)
        return;
    const auto chosen = *image;
    appState_.selectImage(chosen.id);
    if (appState_.mode() == document::WallpaperMode::time)
        playback_.setPreviewHour(document::effectiveHour(chosen));
    uiState_.setViewMode(shell::LibraryViewMode::single);
}

void LibraryView::fillContextMenu(QMenu& menu, int row) {
    const auto* image = model_->imageAt(row);
    if (!image)
        return;
    const auto id = image->id;
    const QString idText = toQString(id.toString());
    menu.addAction(QStringLiteral("Edit with AI..."), this,
                   [this, idText] { emit editWithAIRequested(idText); });
    if (shell::canGenerateTweens(appState_.images(), id))
        menu.addAction(QStringLiteral("Generate Tweens..."), this,
                       [this, id] { tweens_.openFor(id); });
    menu.addSeparator();
    menu.addAction(QStringLiteral("Delete"), this, [this, id] { appState_.removeImage(id); });
}

void LibraryView::importUrls(const QList<QUrl>& urls) {
    std::vector<std::filesystem::path> files;
    for (const auto& url : urls)
        if (url.isLocalFile())
            files.push_back(toPath(url.toLocalFile()));
    if (!dropOffer_) {
        imports_.importFiles(files);
        return;
    }
    dropOffer_(std::move(files), [this, alive = QPointer<LibraryView>(this)](
                                     std::vector<std::filesystem::path> images) {
        if (alive)
            imports_.importFiles(images);
    });
}

void LibraryView::reorder(const QString& sourceId, int targetRow) {
    const auto source = platform::Uuid::parse(toStdString(sourceId));
    const auto* target = model_->imageAt(targetRow);
    if (!source || !target)
        return;
    // After the drop has returned, as a drop handler should not change the list under it.
    QMetaObject::invokeMethod(
        this,
        [this, sourceId = *source, targetId = target->id] {
            appState_.moveImage(sourceId, targetId);
        },
        Qt::QueuedConnection);
}

// Files dropped on the empty state or the single view; the list view handles its own drops.
void LibraryView::dragEnterEvent(QDragEnterEvent* event) {
    if (!event->mimeData()->hasUrls())
        return event->ignore();
    emptyState_->setDropTargeted(true);
    event->acceptProposedAction();
}

void LibraryView::dragLeaveEvent(QDragLeaveEvent* event) {
    emptyState_->setDropTargeted(false);
    event->accept();
}

void LibraryView::dropEvent(QDropEvent* event) {
    emptyState_->setDropTargeted(false);
    if (!event->mimeData()->hasUrls())
        return event->ignore();
    event->acceptProposedAction();
    importUrls(event->mimeData()->urls());
}

void LibraryView::keyPressEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Space && event->modifiers() == Qt::NoModifier) {
        center_.togglePlayback();
        return;
    }
    QWidget::keyPressEvent(event);
}

} // namespace lumivesper::ui
