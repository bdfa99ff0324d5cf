#include "ui/main_window.h"

#include "document/app_state.h"
#include "document/undo_manager.h"
#include "platform/console.h"
#include "shell/app_command_center.h"
#include "shell/app_lifecycle_delegate.h"
#include "ui/menus.h"
#include "ui/qt_text.h"
#include "ui/toolbar.h"

#include <QApplication>
#include <QCloseEvent>
#include <QDialog>
#include <QDockWidget>
#include <QLabel>
#include <QMenuBar>
#include <QVBoxLayout>

namespace lumivesper::ui {

namespace {

QWidget* placeholder(const QString& text, QWidget* parent) {
    auto* label = new QLabel(text, parent);
    label->setAlignment(Qt::AlignCenter);
    label->setEnabled(false); // drawn in the palette's quiet colour
    return label;
}

QWidget* make(const std::function<QWidget*(QWidget*)>& factory, const QString& placeholderText,
              QWidget* parent) {
    if (factory) {
        if (QWidget* made = factory(parent))
            return made;
    }
    return placeholder(placeholderText, parent);
}

// Whether `window` was opened from `owner`, through any chain of parents; unlike
// QWidget::isAncestorOf, this crosses from one top-level window to its parent's.
bool belongsTo(const QWidget& window, const QWidget& owner) {
    for (const QWidget* widget = window.parentWidget(); widget; widget = widget->parentWidget()) {
        if (widget == &owner)
            return true;
    }
    return false;
}

} // namespace

MainWindow::MainWindow(shell::AppCommandCenter& center, shell::AppLifecycleDelegate& lifecycle,
                       document::UndoManager& undo, WindowContent content,
                       std::function<void()> quit, QWidget* parent)
    : QMainWindow(parent), center_(center), lifecycle_(lifecycle), content_(std::move(content)) {
    setObjectName(QStringLiteral("mainWindow"));
    resize(1200, 800);
    setMinimumSize(720, 480);

    toolbar_ = new MainToolbar(center_, this);
    addToolBar(Qt::TopToolBarArea, toolbar_);
    menus_ = new MainMenus(*menuBar(), center_, &undo, std::move(quit));
    menuBar()->setAccessibleName(QStringLiteral("Menu Bar"));

    auto* body = new QWidget(this);
    auto* column = new QVBoxLayout(body);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(0);
    contentColumn_ = column;
    column->addWidget(make(content_.makeLibrary, QStringLiteral("Library"), body), 1);
    if (content_.makeTimeline) {
        if (QWidget* timeline = content_.makeTimeline(body))
            column->addWidget(timeline);
    }
    setCentralWidget(body);

    inspector_ = new QDockWidget(QStringLiteral("Inspector"), this);
    inspector_->setObjectName(QStringLiteral("inspectorDock"));
    inspector_->setFeatures(QDockWidget::NoDockWidgetFeatures);
    inspector_->setTitleBarWidget(new QWidget(inspector_)); // the toolbar button shows and hides it
    inspector_->setWidget(make(content_.makeInspector, QStringLiteral("Inspector"), inspector_));
    inspector_->setMinimumWidth(260);
    addDockWidget(Qt::RightDockWidgetArea, inspector_);

    documentChanges_ = center_.appState().observe([this](document::AppStateFields fields) {
        // Selection and generation progress change often and show nowhere in the window's chrome;
        // rebuilding the menus for them would disturb a menu the user has open.
        using document::AppStateField;
        for (const auto shown :
             {AppStateField::images, AppStateField::mode, AppStateField::currentProjectPath,
              AppStateField::isDirty, AppStateField::recentProjects}) {
            if (fields.contains(shown)) {
                refresh();
                return;
            }
        }
    });
    windowStateChanges_ = center_.uiState().observe([this] {
        refresh();
        presentActiveSheet();
    });
    undoChanges_ = undo.observe([this] { menus_->refresh(); });
    refresh();
    // A window-modal sheet blocks the menu bar's shortcuts; every dialog of this window takes the
    // Quit action as well when it is shown, so that quitting works while one is up.
    qApp->installEventFilter(this);
}

MainWindow::~MainWindow() = default;

void MainWindow::addBanner(QWidget* banner) {
    banner->setParent(centralWidget());
    contentColumn_->insertWidget(0, banner);
}

void MainWindow::refresh() {
    toolbar_->refresh();
    menus_->refresh();
    inspector_->setVisible(center_.uiState().showsInspector());
    refreshTitle();
}

void MainWindow::refreshTitle() {
    const auto& path = center_.appState().currentProjectPath();
    const QString name = path ? toQString(path->stem()) : QStringLiteral("Untitled");
    setWindowTitle(name + QStringLiteral("[*]"));
    setWindowModified(center_.appState().isDirty());
}

void MainWindow::presentActiveSheet() {
    const auto sheet = center_.uiState().activeSheet();
    if (sheet == presentedSheet_)
        return;
    presentedSheet_ = sheet;
    if (!sheet)
        return;
    if (content_.presentSheet) {
        content_.presentSheet(*sheet);
        return;
    }
    // No sheet to show yet: dismiss at once, so that the next request is seen as a change.
    platform::consoleLine("⚠️ This window cannot show that sheet yet");
    presentedSheet_.reset();
    center_.uiState().setActiveSheet(std::nullopt);
}

bool MainWindow::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() == QEvent::Show) {
        auto* dialog = qobject_cast<QDialog*>(watched);
        if (dialog && belongsTo(*dialog, *this))
            dialog->addAction(menus_->quitAction()); // a second add changes nothing
    }
    return QMainWindow::eventFilter(watched, event);
}

void MainWindow::closeEvent(QCloseEvent* event) {
    // The delegate may ask first; its continuation closes again, which then passes unchecked.
    // Queued, because a close from inside this handler would be ignored.
    const bool mayClose = lifecycle_.windowShouldClose([window = QPointer<MainWindow>(this)] {
        if (window)
            QMetaObject::invokeMethod(window, &QWidget::close, Qt::QueuedConnection);
    });
    if (mayClose)
        event->accept();
    else
        event->ignore();
}

} // namespace lumivesper::ui
