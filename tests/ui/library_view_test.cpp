#include "ui/library/empty_state.h"
#include "ui/library/image_list_model.h"
#include "ui/library/image_list_view.h"
#include "ui/library/single_image_view.h"
#include "ui/library/tween_sheet.h"
#include "ui/qt_text.h"
#include "ui_fixture.h"

#include <QDragEnterEvent>
#include <QLabel>
#include <QMenu>
#include <QMimeData>
#include <QPushButton>
#include <QSlider>
#include <QStackedWidget>
#include <QtTest>

using namespace lumivesper;
using namespace lumivesper::ui;
using document::WallpaperMode;

namespace {

// Sends the events of a drag that ends in a drop at `position` of `target`; returns whether the
// drop was accepted.
bool dropOn(QWidget* target, QPoint position, QMimeData& data) {
    QDragEnterEvent enter(position, Qt::MoveAction | Qt::CopyAction, &data, Qt::LeftButton,
                          Qt::NoModifier);
    QApplication::sendEvent(target, &enter);
    QDragMoveEvent move(position, Qt::MoveAction | Qt::CopyAction, &data, Qt::LeftButton,
                        Qt::NoModifier);
    QApplication::sendEvent(target, &move);
    if (!move.isAccepted()) {
        QDragLeaveEvent leave;
        QApplication::sendEvent(target, &leave);
        return false;
    }
    QDropEvent drop(position, Qt::MoveAction | Qt::CopyAction, &data, Qt::LeftButton,
                    Qt::NoModifier);
    QApplication::sendEvent(target, &drop);
    return drop.isAccepted();
}

} // namespace

class LibraryViewTest : public QObject {
    Q_OBJECT

    std::unique_ptr<lumivesper::ui::testing::LibraryFixture> f;

    ImageListView& list() { return f->library->listView(); }
    QPoint centreOf(int row) { return list().visualRect(f->library->model().index(row)).center(); }
    void click(int row, Qt::KeyboardModifiers modifiers = Qt::NoModifier) {
        QTest::mouseClick(list().viewport(), Qt::LeftButton, modifiers, centreOf(row));
    }
    std::set<int> selectedRows() {
        std::set<int> rows;
        for (int row = 0; row < f->library->model().rowCount(); ++row)
            if (f->library->model().index(row).data(ImageListModel::IsSelectedRole).toBool())
                rows.insert(row);
        return rows;
    }
    void showLibrary(int images, WallpaperMode mode) {
        f->addImages(images, mode);
        f->library->show();
        QVERIFY(QTest::qWaitForWindowExposed(f->library.get()));
    }
    QAction* contextAction(int row, const QString& title, QMenu& menu) {
        f->library->fillContextMenu(menu, row);
        for (auto* action : menu.actions())
            if (action->text() == title)
                return action;
        return nullptr;
    }

private slots:
    void init() { f = std::make_unique<lumivesper::ui::testing::LibraryFixture>(); }
    void cleanup() { f.reset(); }

    void droppedFilesArriveAsOneAddImageStepEach() {
        f->library->show();
        QVERIFY(f->library->emptyState().isVisible());
        QMimeData data;
        QList<QUrl> urls;
        for (int i = 0; i < 10; ++i)
            urls.push_back(QUrl::fromLocalFile(
                toQString(f->imageFile("photo" + std::to_string(i) + ".png", 10 * i))));
        urls.push_back(QUrl::fromLocalFile(toQString(f->folder.path() / "missing.png")));
        data.setUrls(urls);

        QDragEnterEvent enter({100, 100}, Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(f->library.get(), &enter);
        QVERIFY(enter.isAccepted());
        QVERIFY(f->library->emptyState().isDropTargeted()); // the frame lights up
        QDropEvent drop({100, 100}, Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(f->library.get(), &drop);
        QVERIFY(drop.isAccepted());

        QTRY_COMPARE(f->library->imports().pendingCount(), std::size_t(0));
        QCOMPARE(f->state.images().size(), std::size_t(10));
        QCOMPARE(f->library->model().rowCount(), 10);
        QVERIFY(list().isVisible()); // the grid replaces the empty state

        // The grid takes files as well, wherever they land.
        QMimeData more;
        more.setUrls({QUrl::fromLocalFile(toQString(f->imageFile("later.png", 200)))});
        QVERIFY(dropOn(list().viewport(), centreOf(3), more));
        QTRY_COMPARE(f->state.images().size(), std::size_t(11));
        QCOMPARE(f->state.images().back().fileName, std::string("later.png"));
        f->undo.undo();
        for (int step = 0; step < 10; ++step) {
            QCOMPARE(QString::fromStdString(f->undo.undoActionName().value_or("")),
                     QStringLiteral("Add Image"));
            f->undo.undo();
        }
        QVERIFY(!f->undo.canUndo());
        QCOMPARE(f->library->model().rowCount(), 0);
    }

    void theImportPanelsFilesAreDecodedOffTheMainThread() {
        f->library->show();
        f->dialogs.openAnswers.push_back({f->imageFile("a.png", 10), f->imageFile("b.png", 90)});
        f->center.importImages();
        // Queued, not decoded while the panel's call ran: the images arrive by the event loop.
        QCOMPARE(f->library->imports().pendingCount(), std::size_t(2));
        QVERIFY(f->state.images().empty());
        QTRY_COMPARE(f->state.images().size(), std::size_t(2));
        QCOMPARE(f->ui.lastImportDirectory(), std::optional(f->folder.path()));
    }

    void clicksSelectByTheDocumentsRulesAndShiftWins() {
        showLibrary(5, WallpaperMode::appearance);
        click(1);
        QCOMPARE(selectedRows(), (std::set<int>{1}));
        click(3, Qt::ControlModifier);
        QCOMPARE(selectedRows(), (std::set<int>{1, 3}));
        click(1, Qt::ControlModifier); // toggles off again
        QCOMPARE(selectedRows(), (std::set<int>{3}));
        click(4, Qt::ShiftModifier); // from the anchor, which replaces the selection
        QCOMPARE(selectedRows(), (std::set<int>{3, 4}));
        click(0, Qt::ShiftModifier | Qt::ControlModifier); // Shift wins: a range, not a toggle
        QCOMPARE(selectedRows(), (std::set<int>{0, 1, 2, 3, 4}));
        click(2);
        QCOMPARE(selectedRows(), (std::set<int>{2}));

        // Double click shows the image alone.
        QTest::mouseDClick(list().viewport(), Qt::LeftButton, Qt::NoModifier, centreOf(4));
        QCOMPARE(f->ui.viewMode(), shell::LibraryViewMode::single);
        QVERIFY(f->library->singleView().isVisible());
        QCOMPARE(f->state.selectedImage()->fileName, std::string("image4.png"));
    }

    void gridCellsAdaptToTheWidthAndStand16Apart() {
        showLibrary(6, WallpaperMode::appearance);
        for (int width : {500, 1400}) {
            f->library->resize(width, 600);
            QCoreApplication::processEvents();
            const QRect first = list().visualRect(f->library->model().index(0));
            const QRect second = list().visualRect(f->library->model().index(1));
            QVERIFY2(first.width() >= ImageListView::minimumCellWidth &&
                         first.width() <= ImageListView::maximumCellWidth,
                     qPrintable(QString::number(first.width())));
            QCOMPARE(second.left() - first.right() - 1, ImageListView::gridSpacing);
        }
        f->ui.setViewMode(shell::LibraryViewMode::list);
        QVERIFY(!list().isGridLayout());
        const QRect row0 = list().visualRect(f->library->model().index(0));
        const QRect row1 = list().visualRect(f->library->model().index(1));
        QVERIFY(row1.top() > row0.bottom()); // one image per row
    }

    void keyImagesReorderByDragAndTweensRefuse() {
        showLibrary(4, WallpaperMode::appearance);
        // A tween after image1, as a tween run leaves it.
        auto tween = f->state.images()[1];
        tween.id = platform::Uuid::generate();
        tween.fileName = "tween.png";
        tween.isTween = true;
        tween.parentId = f->state.images()[1].id;
        f->state.insertImages({tween}, 2, "Add Tweens"); // image0 image1 tween image2 image3
        auto& model = f->library->model();
        QTRY_VERIFY(list().indexAt(centreOf(4)).row() == 4); // laid out again
        QVERIFY(!(model.flags(model.index(2)) & Qt::ItemIsDragEnabled));
        QVERIFY(model.mimeData({model.index(2)}) == nullptr); // a tween cannot be dragged

        std::unique_ptr<QMimeData> dragged(model.mimeData({model.index(1)}));
        QVERIFY(dragged);
        QVERIFY(!dropOn(list().viewport(), centreOf(2), *dragged)); // onto a tween: refused
        QVERIFY(!model.dropTarget());

        // Hovering a key image highlights it; dropping moves image1 with its tween before it.
        QDragEnterEvent enter(centreOf(4), Qt::MoveAction, dragged.get(), Qt::LeftButton,
                              Qt::NoModifier);
        QApplication::sendEvent(list().viewport(), &enter);
        QDragMoveEvent move(centreOf(4), Qt::MoveAction, dragged.get(), Qt::LeftButton,
                            Qt::NoModifier);
        QApplication::sendEvent(list().viewport(), &move);
        QCOMPARE(model.dropTarget(), std::optional<int>(4));
        QDropEvent drop(centreOf(4), Qt::MoveAction, dragged.get(), Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(list().viewport(), &drop);
        QVERIFY(drop.isAccepted());
        QVERIFY(!model.dropTarget());
        QTRY_COMPARE(f->names(), (std::vector<std::string>{"image0.png", "image2.png", "image1.png",
                                                           "tween.png", "image3.png"}));
        QCOMPARE(model.index(2).data(Qt::DisplayRole).toString(), QStringLiteral("image1.png"));
        QCOMPARE(model.index(3).data(Qt::DisplayRole).toString(), QStringLiteral("tween.png"));
        QCOMPARE(QString::fromStdString(f->undo.undoActionName().value_or("")),
                 QStringLiteral("Reorder Images"));
    }

    void theContextMenuOffersTweensOnlyWhereARunCanGo() {
        showLibrary(2, WallpaperMode::time);
        QMenu menu;
        QVERIFY(contextAction(0, QStringLiteral("Generate Tweens..."), menu));
        QVERIFY(contextAction(0, QStringLiteral("Edit with AI..."), menu));
        QMenu deleteMenu;
        contextAction(1, QStringLiteral("Delete"), deleteMenu)->trigger();
        QCOMPARE(f->state.images().size(), std::size_t(1));
        QMenu lonely;
        QVERIFY(!contextAction(0, QStringLiteral("Generate Tweens..."), lonely)); // no other key
    }

    void theSingleTweenSheetRunsAndCancelLetsTheFramesArrive() {
        showLibrary(2, WallpaperMode::time);
        auto& sheet = f->library->tweenSheet();
        QMenu menu;
        contextAction(0, QStringLiteral("Generate Tweens..."), menu)->trigger();
        QVERIFY(sheet.isVisible());
        sheet.countSlider()->setValue(5);
        QCOMPARE(sheet.explanation()->text(),
                 QStringLiteral("Creates 5 interpolated frames between the selected image and "
                                "the next one."));
        QTest::mouseClick(sheet.generateButton(), Qt::LeftButton);
        QVERIFY(f->library->tweens().isGenerating());
        QTest::mouseClick(sheet.cancelButton(), Qt::LeftButton);
        QVERIFY(!sheet.isVisible());                            // closes at once ...
        QTRY_COMPARE(f->state.images().size(), std::size_t(7)); // ... and the run still delivers
        QCOMPARE(f->library->model().rowCount(), 7);
        QCOMPARE(QString::fromStdString(f->undo.undoActionName().value_or("")),
                 QStringLiteral("Add Tweens"));
    }

    void autoTweenTwiceGivesTheSameCount() {
        showLibrary(3, WallpaperMode::time);
        auto& sheet = f->library->tweenSheet();
        for (int run = 0; run < 2; ++run) {
            f->ui.setShouldTriggerAutoTween(true); // the toolbar's "Auto Tween..."
            QVERIFY(sheet.isVisible());
            QVERIFY(sheet.explanation()->text().contains(QStringLiteral("wraps end to start")));
            sheet.countSlider()->setValue(2);
            QTest::mouseClick(sheet.generateButton(), Qt::LeftButton);
            QTRY_VERIFY(!f->library->tweens().isGenerating());
            QVERIFY(!sheet.isVisible());
            QCOMPARE(f->state.images().size(), std::size_t(3 + 3 * 2)); // not doubled
            QCOMPARE(f->library->model().rowCount(), 9);
        }
    }
};

QTEST_MAIN(LibraryViewTest)
#include "library_view_test.moc"
