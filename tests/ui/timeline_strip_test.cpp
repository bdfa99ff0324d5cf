#include "ui/library/image_list_view.h"
#include "ui/timeline/timeline_strip.h"
#include "ui/timeline/transport.h"
#include "ui_fixture.h"

#include <QLabel>
#include <QToolButton>
#include <QVBoxLayout>
#include <QtTest>

using namespace lumivesper;
using namespace lumivesper::ui;
using document::WallpaperMode;

// The library and the strip under it, as the window lays them out.
class TimelineStripTest : public QObject {
    Q_OBJECT

    std::unique_ptr<lumivesper::ui::testing::LibraryFixture> f;
    std::unique_ptr<QWidget> window;
    TimelineStrip* strip = nullptr;

    void showWindow(int images, WallpaperMode mode) {
        f->addImages(images, mode);
        window = std::make_unique<QWidget>();
        auto* layout = new QVBoxLayout(window.get());
        f->library->setParent(window.get());
        layout->addWidget(f->library.get(), 1);
        strip = new TimelineStrip(*f->library, window.get());
        layout->addWidget(strip);
        window->resize(1000, 700);
        window->show();
        QVERIFY(QTest::qWaitForWindowExposed(window.get()));
    }
    std::string selectedName() const {
        const auto image = f->state.selectedImage();
        return image ? image->fileName : "none";
    }

private slots:
    void init() { f = std::make_unique<lumivesper::ui::testing::LibraryFixture>(); }
    void cleanup() {
        f->library.release(); // owned by the window from here
        window.reset();
        f.reset();
    }

    void scrubbingSelectsTheImageUnderThePlayheadByPosition() {
        showWindow(5, WallpaperMode::time);
        QVERIFY(strip->isVisible());
        QWidget* frames = strip->frameRow();
        const int width = frames->width();
        struct Press {
            int x;
            const char* selected;
            const char* hour;
        };
        for (const auto& press : {Press{0, "image0.png", "00:00"},
                                  Press{width / 2, "image2.png", "12:00"},
                                  Press{width - 1, "image4.png", nullptr}}) {
            QTest::mousePress(frames, Qt::LeftButton, Qt::NoModifier, {press.x, 10});
            QTest::mouseRelease(frames, Qt::LeftButton, Qt::NoModifier, {press.x, 10});
            QCOMPARE(selectedName(), std::string(press.selected));
            if (press.hour)
                QCOMPARE(strip->transport()->hourLabel()->text(), QString(press.hour));
        }
        // A drag carries the selection with it.
        QTest::mousePress(frames, Qt::LeftButton, Qt::NoModifier, {0, 10});
        QMouseEvent drag(QEvent::MouseMove, QPointF(width * 0.74, 10), frames->mapToGlobal(QPointF(width * 0.74, 10)),
                         Qt::NoButton, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(frames, &drag);
        QCOMPARE(selectedName(), std::string("image3.png"));
        QTest::mouseRelease(frames, Qt::LeftButton, Qt::NoModifier, {int(width * 0.74), 10});

        QTest::mouseClick(strip->transport()->endButton(), Qt::LeftButton);
        QCOMPARE(strip->transport()->hourLabel()->text(), QStringLiteral("24:00"));
    }

    void spaceTogglesPlaybackOnlyInTimeMode() {
        showWindow(3, WallpaperMode::time);
        auto& list = f->library->listView();
        list.setFocus();
        QTest::keyClick(&list, Qt::Key_Space);
        QVERIFY(f->ui.isTimelinePlaying());
        QVERIFY(strip->playbackTimer().isActive());
        QCOMPARE(strip->playbackTimer().interval(), 100);
        QCOMPARE(strip->transport()->playButton()->accessibleName(), QStringLiteral("Pause"));
        const double start = f->library->playback().previewHour();
        QTRY_VERIFY(f->library->playback().previewHour() > start); // the timer moves it on
        QTest::keyClick(&list, Qt::Key_Space);
        QVERIFY(!f->ui.isTimelinePlaying());
        QVERIFY(!strip->playbackTimer().isActive());

        f->state.setMode(WallpaperMode::appearance);
        QVERIFY(!strip->isVisible()); // no day to play
        QTest::keyClick(&list, Qt::Key_Space);
        QVERIFY(!f->ui.isTimelinePlaying());
        QVERIFY(!strip->playbackTimer().isActive());
    }

    void theResizeBarDragsTheHeightWithinItsLimits() {
        showWindow(2, WallpaperMode::time);
        QWidget* bar = strip->resizeBar();
        QCOMPARE(bar->cursor().shape(), Qt::SizeVerCursor);
        QCOMPARE(strip->height(), 192);
        const QPoint origin(50, 2);
        QTest::mousePress(bar, Qt::LeftButton, Qt::NoModifier, origin);
        auto moveBy = [&](int dy) {
            const QPointF local(origin.x(), origin.y() + dy);
            QMouseEvent move(QEvent::MouseMove, local, bar->mapToGlobal(QPointF(origin)) + QPointF(0, dy),
                             Qt::NoButton, Qt::LeftButton, Qt::NoModifier);
            QApplication::sendEvent(bar, &move);
        };
        moveBy(-5); // under the minimum distance: nothing yet
        QCOMPARE(strip->height(), 192);
        moveBy(-40);
        QCOMPARE(strip->height(), 232);
        moveBy(-400);
        QCOMPARE(strip->height(), 400);
        moveBy(900);
        QCOMPARE(strip->height(), 80);
        QTest::mouseRelease(bar, Qt::LeftButton);
        QVERIFY(!f->library->playback().isDraggingHeight());
    }
};

QTEST_MAIN(TimelineStripTest)
#include "timeline_strip_test.moc"
