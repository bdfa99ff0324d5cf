#pragma once

#include "platform/observer_list.h"
#include "shell/solar_position_service.h"

#include <QWidget>
#include <memory>

class QLabel;
class QLineEdit;
class QPushButton;

namespace lumivesper::document {
class AppState;
}
namespace lumivesper::shell {
class SolarPositionService;
class SunPreviewModel;
} // namespace lumivesper::shell

namespace lumivesper::ui {

class ToggleSwitch;

// "Sun Preview": where the sun stands now at the user's place, from the desktop's location or
// from coordinates typed by hand, and which image fits it best.
class SunPreview final : public QWidget {
    Q_OBJECT

public:
    // `locationManager` is the location source; none means the desktop's own.
    SunPreview(document::AppState& appState,
               std::unique_ptr<shell::LocationManager> locationManager = {},
               QWidget* parent = nullptr);
    ~SunPreview() override;

    shell::SunPreviewModel& model() { return *model_; }
    QPushButton* locationButton() const { return locationButton_; }
    ToggleSwitch* manualSwitch() const { return manualSwitch_; }
    QLineEdit* latitudeField() const { return latitudeField_; }
    QLineEdit* longitudeField() const { return longitudeField_; }
    QPushButton* refreshButton() const { return refreshButton_; }
    QLabel* locationLine() const { return locationLine_; }
    QLabel* sunLine() const { return sunLine_; }
    QLabel* frameLine() const { return frameLine_; }
    QLabel* errorLine() const { return errorLine_; }

protected:
    void showEvent(QShowEvent* event) override;

private:
    void refresh();

    std::unique_ptr<shell::SolarPositionService> service_;
    std::unique_ptr<shell::SunPreviewModel> model_;
    QPushButton* locationButton_;
    ToggleSwitch* manualSwitch_;
    QWidget* manualRow_;
    QLineEdit* latitudeField_;
    QLineEdit* longitudeField_;
    QLabel* locationLine_;
    QLabel* sunLine_;
    QLabel* frameLine_;
    QLabel* errorLine_;
    QPushButton* refreshButton_;
    platform::Subscription changes_;
};

} // namespace lumivesper::ui
