#pragma once

#include <QWidget>

class QLabel;

namespace lumivesper::shell {
class InspectorModel;
}

namespace lumivesper::ui {

class ToggleSwitch;
class TracklessSlider;

// "Metadata": the light switch in appearance mode, the altitude and azimuth sliders with their
// values in time mode. Every change goes to the inspector's model, which writes the image.
class ImageMetadataEditor final : public QWidget {
    Q_OBJECT

public:
    explicit ImageMetadataEditor(shell::InspectorModel& model, QWidget* parent = nullptr);

    // Shows the model's mode and values.
    void refresh();

    TracklessSlider* altitudeSlider() const { return altitudeSlider_; }
    TracklessSlider* azimuthSlider() const { return azimuthSlider_; }
    QLabel* altitudeValue() const { return altitudeValue_; }
    QLabel* azimuthValue() const { return azimuthValue_; }
    ToggleSwitch* lightSwitch() const { return lightSwitch_; }

private:
    QWidget* sliderBlock(const QString& name, const QString& captionText, TracklessSlider* slider,
                         QLabel* value);

    shell::InspectorModel& model_;
    QWidget* sunPage_;
    QWidget* appearancePage_;
    TracklessSlider* altitudeSlider_;
    TracklessSlider* azimuthSlider_;
    QLabel* altitudeValue_;
    QLabel* azimuthValue_;
    ToggleSwitch* lightSwitch_;
};

} // namespace lumivesper::ui
