#include "ui/inspector/metadata_editor.h"

#include "shell/inspector_model.h"
#include "ui/inspector/inspector_text.h"
#include "ui/inspector/toggle_switch.h"
#include "ui/inspector/trackless_slider.h"
#include "ui/qt_text.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QVBoxLayout>

namespace lumivesper::ui {

ImageMetadataEditor::ImageMetadataEditor(shell::InspectorModel& model, QWidget* parent)
    : QWidget(parent), model_(model) {
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(12);
    column->addWidget(inspector_text::heading(QStringLiteral("Metadata"), this));

    // One of the two pages shows; the hidden one takes no room.
    appearancePage_ = new QWidget(this);
    auto* appearanceLayout = new QHBoxLayout(appearancePage_);
    appearanceLayout->setContentsMargins(0, 0, 0, 0);
    lightSwitch_ = new ToggleSwitch(QStringLiteral("Light Appearance"), appearancePage_);
    appearanceLayout->addWidget(lightSwitch_);
    appearanceLayout->addStretch();
    column->addWidget(appearancePage_);

    sunPage_ = new QWidget(this);
    auto* sunLayout = new QVBoxLayout(sunPage_);
    sunLayout->setContentsMargins(0, 0, 0, 0);
    sunLayout->setSpacing(12);
    const auto& altitude = shell::altitudeSliderRange;
    const auto& azimuth = shell::azimuthSliderRange;
    altitudeSlider_ =
        new TracklessSlider(altitude.minimum, altitude.maximum, altitude.step, sunPage_);
    azimuthSlider_ = new TracklessSlider(azimuth.minimum, azimuth.maximum, azimuth.step, sunPage_);
    altitudeValue_ = inspector_text::secondary({}, sunPage_);
    azimuthValue_ = inspector_text::secondary({}, sunPage_);
    sunLayout->addWidget(sliderBlock(QStringLiteral("Altitude"),
                                     QStringLiteral("Sun elevation above horizon (-90° to 90°)"),
                                     altitudeSlider_, altitudeValue_));
    sunLayout->addWidget(sliderBlock(QStringLiteral("Azimuth"),
                                     QStringLiteral("Sun position from north (0° to 360°)"),
                                     azimuthSlider_, azimuthValue_));
    column->addWidget(sunPage_);

    connect(altitudeSlider_, &TracklessSlider::valueEdited, this,
            [this](double value) { model_.setAltitude(value); });
    connect(azimuthSlider_, &TracklessSlider::valueEdited, this,
            [this](double value) { model_.setAzimuth(value); });
    connect(lightSwitch_, &QCheckBox::toggled, this, [this](bool on) { model_.setLight(on); });
    refresh();
}

QWidget* ImageMetadataEditor::sliderBlock(const QString& name, const QString& captionText,
                                          TracklessSlider* slider, QLabel* value) {
    auto* block = new QWidget(sunPage_);
    auto* lines = new QVBoxLayout(block);
    lines->setContentsMargins(0, 0, 0, 0);
    lines->setSpacing(4);
    auto* header = new QHBoxLayout;
    header->addWidget(new QLabel(name, block));
    header->addStretch();
    value->setAccessibleName(name + QStringLiteral(" value"));
    header->addWidget(value);
    lines->addLayout(header);
    slider->setAccessibleName(name);
    slider->setAccessibleDescription(captionText);
    lines->addWidget(slider);
    lines->addWidget(inspector_text::caption(captionText, block));
    return block;
}

void ImageMetadataEditor::refresh() {
    const auto& values = model_.editorValues();
    const bool appearance = model_.mode() == document::WallpaperMode::appearance;
    appearancePage_->setVisible(appearance);
    sunPage_->setVisible(!appearance);

    altitudeSlider_->setDoubleValue(values.altitude);
    azimuthSlider_->setDoubleValue(values.azimuth);
    altitudeValue_->setText(toQString(shell::degreesLabel(values.altitude)));
    azimuthValue_->setText(toQString(shell::degreesLabel(values.azimuth)));
    const QSignalBlocker quiet(lightSwitch_);
    lightSwitch_->setChecked(values.isLight);
}

} // namespace lumivesper::ui
