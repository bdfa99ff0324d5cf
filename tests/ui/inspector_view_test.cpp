#include "document/app_state.h"
#include "document/undo_manager.h"
#include "shell/inspector_model.h"
#include "shell/solar_position_service.h"
#include "shell/sun_preview_model.h"
#include "sun/presets.h"
#include "ui/inspector/inspector_view.h"
#include "ui/inspector/metadata_editor.h"
#include "ui/inspector/mode_picker.h"
#include "ui/inspector/preset_icons.h"
#include "ui/inspector/presets_view.h"
#include "ui/inspector/sun_preview.h"
#include "ui/inspector/toggle_switch.h"
#include "ui/inspector/trackless_slider.h"
#include "ui/symbol_icons.h"
#include "ui_fixture.h"

#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QToolButton>
#include <QtTest>

using namespace lumivesper;
using namespace lumivesper::ui;
using document::WallpaperImage;
using document::WallpaperMode;

namespace {

// The location source of the tests: it answers only when told.
class ScriptedLocationManager final : public shell::LocationManager {
public:
    void setDelegate(Delegate* delegate) override { delegate_ = delegate; }
    void requestWhenInUseAuthorization() override {}
    void requestLocation() override { ++requests; }
    shell::LocationAuthorization authorizationStatus() const override {
        return shell::LocationAuthorization::notDetermined;
    }
    Delegate& delegate() { return *delegate_; }
    int requests = 0;

private:
    Delegate* delegate_ = nullptr;
};

} // namespace

class InspectorViewTest : public QObject {
    Q_OBJECT

    ui::testing::QtMainThread mainThread;
    std::unique_ptr<document::UndoManager> undo;
    std::unique_ptr<document::AppState> state;
    std::unique_ptr<InspectorView> view;
    ScriptedLocationManager* location = nullptr;

    WallpaperImage add(const std::string& name, std::optional<double> altitude,
                       std::optional<double> azimuth, std::optional<bool> isLight = {}) {
        WallpaperImage image;
        image.fileName = name;
        image.altitude = altitude;
        image.azimuth = azimuth;
        image.isLight = isLight;
        state->addImage(image);
        return image;
    }
    // Lets the editor's write-back run, then forgets the history so far.
    void settle() {
        QCoreApplication::processEvents();
        undo->removeAllActions();
    }
    const WallpaperImage& stored(const WallpaperImage& image) { return *state->image(image.id); }
    TracklessSlider* altitude() const { return view->editor()->altitudeSlider(); }

private slots:
    void initTestCase() { installFallbackIconTheme(); }

    void init() {
        undo = std::make_unique<document::UndoManager>();
        state = std::make_unique<document::AppState>();
        state->setUndoManager(undo.get());
        auto manager = std::make_unique<ScriptedLocationManager>();
        location = manager.get();
        view = std::make_unique<InspectorView>(*state, mainThread, std::move(manager));
        view->resize(320, 900);
        view->show();
        QVERIFY(QTest::qWaitForWindowExposed(view.get()));
    }

    void cleanup() {
        view.reset();
        state.reset();
        undo.reset();
    }

    void withoutSelectionOnlyThePlaceholderShows() {
        add("a.jpg", 0.0, 0.0);
        QVERIFY(view->placeholder()->isVisible());
        QVERIFY(!view->modePicker()->isVisible());
        QVERIFY(!view->sunPreview()->isVisible());
        const auto texts = view->placeholder()->findChildren<QLabel*>();
        QStringList shown;
        for (QLabel* label : texts)
            shown << label->text();
        QVERIFY(shown.contains(QStringLiteral("No Selection")));
        QVERIFY(shown.contains(QStringLiteral("Select an image to edit its metadata")));
    }

    void timeModeShowsTheElevenPresetsWithTitlesHelpAndIcons() {
        const auto image = add("a.jpg", 0.0, 0.0);
        state->selectImage(image.id);
        QVERIFY(view->content()->isVisible());
        QVERIFY(view->sunPreview()->isVisible());
        const auto buttons = view->presets()->buttons();
        const auto presets = sun::timePresets();
        QCOMPARE(buttons.size(), qsizetype(presets.size()));
        for (qsizetype i = 0; i < buttons.size(); ++i) {
            const auto& preset = presets[static_cast<std::size_t>(i)];
            QCOMPARE(buttons[i]->text().toStdString(), std::string(preset.title));
            QCOMPARE(buttons[i]->toolTip().toStdString(), std::string(*preset.helpText));
            QVERIFY2(!buttons[i]->icon().isNull(), qPrintable(buttons[i]->text()));
        }
        // Two columns of at least 100 side by side in a panel this wide.
        QCOMPARE(buttons[1]->y(), buttons[0]->y());
        QVERIFY(buttons[1]->x() >= buttons[0]->x() + 100);
        QVERIFY(buttons[2]->y() > buttons[0]->y());
    }

    void everyControlHasAnAccessibleName() {
        const auto image = add("a.jpg", 0.0, 0.0);
        state->selectImage(image.id);
        view->sunPreview()->manualSwitch()->click();
        for (QWidget* control : view->findChildren<QWidget*>()) {
            const bool interactive = qobject_cast<QAbstractButton*>(control) ||
                                     qobject_cast<QAbstractSlider*>(control) ||
                                     qobject_cast<QLineEdit*>(control);
            if (interactive && control->isVisible())
                QVERIFY2(!control->accessibleName().isEmpty(), control->metaObject()->className());
        }
    }

    void selectingAnImageWritesItsValuesBackAsTheEditorLoadsThem() {
        const auto image = add("a.jpg", 20.0, 120.0);
        settle();
        state->selectImage(image.id);
        QCOMPARE(view->editor()->altitudeValue()->text(), QStringLiteral("20.0°"));
        QCOMPARE(view->editor()->azimuthValue()->text(), QStringLiteral("120.0°"));
        QVERIFY(!undo->canUndo());
        QCoreApplication::processEvents(); // the write-back waits for the event loop
        QCOMPARE(undo->undoActionName(), std::optional<std::string>("Edit Image"));
        QVERIFY(state->isDirty());
    }

    void aSliderMovementIsSnappedToTenthsAndWritten() {
        const auto image = add("a.jpg", 0.0, 0.0);
        state->selectImage(image.id);
        settle();
        altitude()->setSliderPosition(12340); // where a drag leaves the knob: 12.34°
        QCOMPARE(*stored(image).altitude, 0.1 * 123);
        QCOMPARE(view->editor()->altitudeValue()->text(), QStringLiteral("12.3°"));
        QCOMPARE(altitude()->doubleValue(), 12.3);
        QCOMPARE(*stored(image).azimuth, 0.0);

        QTest::keyClick(altitude(), Qt::Key_Right); // one step of 0.1
        QCOMPARE(view->editor()->altitudeValue()->text(), QStringLiteral("12.4°"));

        // A press beside the knob takes it there: the right end is the top of the range.
        QTest::mouseClick(altitude(), Qt::LeftButton, {}, QPoint(altitude()->width() - 1, 5));
        QCOMPARE(*stored(image).altitude, 90.0);
    }

    void aStoredValueOutsideTheRangeShowsAsItIsWithTheKnobAtTheEnd() {
        const auto image = add("a.jpg", 135.5, 10.0);
        state->selectImage(image.id);
        QCOMPARE(view->editor()->altitudeValue()->text(), QStringLiteral("135.5°"));
        QCOMPARE(altitude()->value(), altitude()->maximum());
        QCoreApplication::processEvents();
        QCOMPARE(*stored(image).altitude, 135.5); // pinning the knob writes nothing
    }

    void aPresetGivesTheSelectedImageItsValuesAndTheSlidersFollow() {
        const auto image = add("a.jpg", 0.0, 0.0);
        state->selectImage(image.id);
        settle();
        QToolButton* midday = view->presets()->buttons().at(6);
        QCOMPARE(midday->text(), QStringLiteral("Midday"));
        midday->click();
        QCOMPARE(*stored(image).altitude, 60.0);
        QCOMPARE(*stored(image).azimuth, 180.0);
        QCOMPARE(view->editor()->azimuthValue()->text(), QStringLiteral("180.0°"));
        QCOMPARE(undo->undoActionName(), std::optional<std::string>("Edit Image"));
    }

    void aPresetWithoutSelectionChangesNothing() {
        const auto image = add("a.jpg", 0.0, 0.0);
        settle();
        view->model().applyPreset(sun::timePresets()[0]);
        QVERIFY(!undo->canUndo());
        QCOMPARE(*stored(image).altitude, 0.0);
    }

    void appearanceModeShowsTheSwitchOnForAnImageWithoutFlag() {
        state->setMode(WallpaperMode::appearance);
        const auto plain = add("plain.jpg", std::nullopt, std::nullopt);
        state->selectImage(plain.id);
        settle();
        ToggleSwitch* light = view->editor()->lightSwitch();
        QVERIFY(light->isVisible());
        QVERIFY(light->isChecked());
        QVERIFY(!altitude()->isVisible());
        QVERIFY(!view->sunPreview()->isVisible());
        QCOMPARE(view->presets()->buttons().size(), 2);

        QTest::mouseClick(light, Qt::LeftButton);
        QCOMPARE(stored(plain).isLight, std::optional<bool>(false));
        view->presets()->buttons().at(0)->click(); // "Light"
        QCOMPARE(stored(plain).isLight, std::optional<bool>(true));
        QVERIFY(light->isChecked());
    }

    void thePickerChangesTheModeAndTheSunPreviewGoesAtOnce() {
        const auto image = add("a.jpg", 0.0, 0.0);
        state->selectImage(image.id);
        QVERIFY(view->sunPreview()->isVisible());
        QTest::mouseClick(view->modePicker()->button(WallpaperMode::appearance), Qt::LeftButton);
        QCOMPARE(state->mode(), WallpaperMode::appearance);
        QVERIFY(!view->sunPreview()->isVisible());
        QVERIFY(view->editor()->lightSwitch()->isVisible());
        QVERIFY(view->modePicker()->button(WallpaperMode::appearance)->isChecked());
        undo->undo();
        QVERIFY(view->modePicker()->button(WallpaperMode::time)->isChecked());
        QVERIFY(view->sunPreview()->isVisible());
    }

    void manualCoordinatesAreTrimmedAndMustBeWholeNumbers() {
        const auto image = add("noon.jpg", 60.0, 180.0);
        state->selectImage(image.id);
        SunPreview* preview = view->sunPreview();
        QVERIFY(!preview->latitudeField()->isVisible());
        QCOMPARE(preview->locationLine()->text(),
                 QStringLiteral(
                     "No location available. Use manual coordinates or allow location access."));
        QTest::mouseClick(preview->manualSwitch(), Qt::LeftButton);
        QVERIFY(preview->latitudeField()->isVisible());
        QCOMPARE(preview->latitudeField()->width(), 120);

        QTest::keyClicks(preview->latitudeField(), QStringLiteral("  40.5 "));
        QTest::keyClicks(preview->longitudeField(), QStringLiteral("-3.7"));
        QCOMPARE(preview->locationLine()->text(), QStringLiteral("Location: 40.50°, -3.70°"));
        QVERIFY(preview->sunLine()->isVisible());
        QVERIFY(preview->sunLine()->text().startsWith(QStringLiteral("Now: ")));
        QVERIFY(preview->frameLine()->text().startsWith(QStringLiteral("Closest frame: noon.jpg")));

        preview->latitudeField()->clear();
        QTest::keyClicks(preview->latitudeField(), QStringLiteral("40,5"));
        QVERIFY(preview->locationLine()->text().startsWith(QStringLiteral("No location")));
        QVERIFY(!preview->sunLine()->isVisible());
        QVERIFY(!preview->frameLine()->isVisible());
    }

    void anInfiniteCoordinateShowsNoSunAndKeepsThePanelItsWidth() {
        const auto image = add("a.jpg", 0.0, 0.0);
        state->selectImage(image.id);
        SunPreview* preview = view->sunPreview();
        const int width = view->minimumSizeHint().width();
        QTest::mouseClick(preview->manualSwitch(), Qt::LeftButton);
        QTest::keyClicks(preview->latitudeField(), QStringLiteral("inf"));
        QTest::keyClicks(preview->longitudeField(), QStringLiteral("1e300"));
        QVERIFY(preview->locationLine()->isVisible());
        QVERIFY(!preview->sunLine()->isVisible());
        QCOMPARE(view->minimumSizeHint().width(), width);
    }

    void aFailingLocationSourceShowsItsTextAndManualStillWorks() {
        const auto image = add("a.jpg", 0.0, 0.0);
        state->selectImage(image.id);
        SunPreview* preview = view->sunPreview();
        QVERIFY(!preview->errorLine()->isVisible());
        QTest::mouseClick(preview->locationButton(), Qt::LeftButton);
        QCOMPARE(location->requests, 1);
        QVERIFY(!preview->locationButton()->isEnabled());
        location->delegate().locationManagerDidFail("No location service is available.");
        QVERIFY(preview->locationButton()->isEnabled());
        QVERIFY(preview->errorLine()->isVisible());
        QCOMPARE(preview->errorLine()->text(),
                 QStringLiteral("Location error: No location service is available."));

        QTest::mouseClick(preview->manualSwitch(), Qt::LeftButton);
        QTest::keyClicks(preview->latitudeField(), QStringLiteral("40"));
        QTest::keyClicks(preview->longitudeField(), QStringLiteral("0"));
        QVERIFY(preview->sunLine()->isVisible());
    }

    void theDrawingsTakeTheirLinesFromThePalette() {
        // The horizon runs across every drawing at two thirds of its height.
        const auto horizon = [](const QIcon& icon) {
            return icon.pixmap(QSize(64, 64)).toImage().pixelColor(32, 42);
        };
        for (const auto& preset : sun::timePresets()) {
            const QIcon dark = sunPositionIcon(*preset.iconName, Qt::black);
            const QIcon light = sunPositionIcon(*preset.iconName, Qt::white);
            QVERIFY2(!dark.isNull(), preset.iconName->data());
            QVERIFY2(horizon(dark).lightness() < 60, preset.iconName->data());
            QVERIFY2(horizon(light).lightness() > 200, preset.iconName->data());
        }
        QVERIFY(sunPositionIcon("no_such_drawing", Qt::black).isNull());

        // A new palette redraws the buttons' icons in its text colour.
        const auto image = add("a.jpg", 0.0, 0.0);
        state->selectImage(image.id);
        QPalette darkPalette = view->palette();
        darkPalette.setColor(QPalette::ButtonText, Qt::white);
        view->setPalette(darkPalette);
        const QIcon shown = view->presets()->buttons().at(0)->icon();
        QVERIFY(horizon(shown).lightness() > 200);
    }
};

QTEST_MAIN(InspectorViewTest)
#include "inspector_view_test.moc"
