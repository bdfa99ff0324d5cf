#include "ui/inspector/sun_preview.h"

#include "shell/solar_position_service.h"
#include "shell/sun_preview_model.h"
#include "ui/inspector/inspector_text.h"
#include "ui/inspector/qt_location_manager.h"
#include "ui/inspector/toggle_switch.h"
#include "ui/qt_text.h"
#include "ui/symbol_icons.h"

#include <QDateTime>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QLocale>
#include <QPushButton>
#include <QVBoxLayout>

namespace lumivesper::ui {

namespace {

constexpr int coordinateFieldWidth = 120;

QLineEdit* coordinateField(const QString& name, QWidget* parent) {
    auto* field = new QLineEdit(parent);
    field->setPlaceholderText(name);
    field->setAccessibleName(name);
    field->setFixedWidth(coordinateFieldWidth);
    field->setClearButtonEnabled(false);
    return field;
}

QLabel* previewLine(QWidget* parent) {
    QLabel* line = inspector_text::caption({}, parent);
    line->setTextInteractionFlags(Qt::TextSelectableByMouse);
    // A long number must not widen the panel: the line wraps, or is cut, within it.
    line->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    line->setMinimumWidth(1);
    return line;
}

std::string shortTime(std::chrono::system_clock::time_point instant) {
    const auto milliseconds =
        std::chrono::duration_cast<std::chrono::milliseconds>(instant.time_since_epoch()).count();
    const QDateTime local = QDateTime::fromMSecsSinceEpoch(milliseconds);
    return toStdString(QLocale().toString(local.time(), QLocale::ShortFormat));
}

void showLine(QLabel* label, const std::optional<std::string>& text) {
    label->setVisible(text.has_value());
    label->setText(text ? toQString(*text) : QString());
}

} // namespace

SunPreview::SunPreview(document::AppState& appState,
                       std::unique_ptr<shell::LocationManager> locationManager, QWidget* parent)
    : QWidget(parent) {
    if (!locationManager)
        locationManager = std::make_unique<QtLocationManager>();
    service_ = std::make_unique<shell::SolarPositionService>(std::move(locationManager));
    model_ = std::make_unique<shell::SunPreviewModel>(appState, *service_);

    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(12);
    column->addWidget(inspector_text::heading(QStringLiteral("Sun Preview"), this));

    auto* sourceRow = new QHBoxLayout;
    sourceRow->setSpacing(8);
    locationButton_ =
        new QPushButton(symbolIcon("location"), QStringLiteral("Use Current Location"), this);
    locationButton_->setAccessibleName(locationButton_->text());
    manualSwitch_ = new ToggleSwitch(QStringLiteral("Manual"), this);
    sourceRow->addWidget(locationButton_);
    sourceRow->addWidget(manualSwitch_);
    sourceRow->addStretch();
    column->addLayout(sourceRow);

    manualRow_ = new QWidget(this);
    auto* manualLayout = new QHBoxLayout(manualRow_);
    manualLayout->setContentsMargins(0, 0, 0, 0);
    manualLayout->setSpacing(12);
    latitudeField_ = coordinateField(QStringLiteral("Latitude"), manualRow_);
    longitudeField_ = coordinateField(QStringLiteral("Longitude"), manualRow_);
    manualLayout->addWidget(latitudeField_);
    manualLayout->addWidget(longitudeField_);
    manualLayout->addStretch();
    column->addWidget(manualRow_);

    auto* lines = new QVBoxLayout;
    lines->setSpacing(4);
    locationLine_ = previewLine(this);
    sunLine_ = previewLine(this);
    frameLine_ = previewLine(this);
    errorLine_ = previewLine(this);
    for (QLabel* line : {locationLine_, sunLine_, frameLine_, errorLine_})
        lines->addWidget(line);
    column->addLayout(lines);

    auto* refreshRow = new QHBoxLayout;
    refreshButton_ = new QPushButton(QStringLiteral("Refresh"), this);
    refreshButton_->setAccessibleName(refreshButton_->text());
    refreshRow->addWidget(refreshButton_);
    refreshRow->addStretch();
    column->addLayout(refreshRow);

    connect(locationButton_, &QPushButton::clicked, this, [this] { model_->useCurrentLocation(); });
    connect(manualSwitch_, &QCheckBox::toggled, this,
            [this](bool on) { model_->setUseManualLocation(on); });
    connect(latitudeField_, &QLineEdit::textChanged, this,
            [this](const QString& text) { model_->setManualLatitude(toStdString(text)); });
    connect(longitudeField_, &QLineEdit::textChanged, this,
            [this](const QString& text) { model_->setManualLongitude(toStdString(text)); });
    connect(refreshButton_, &QPushButton::clicked, this, [this] { model_->refresh(); });
    changes_ = model_->observe([this] { refresh(); });
    refresh();
}

SunPreview::~SunPreview() = default;

void SunPreview::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    // The preview's instant is the moment it appears, then each "Refresh".
    model_->refresh();
}

void SunPreview::refresh() {
    locationButton_->setEnabled(model_->canRequestLocation());
    {
        const QSignalBlocker quiet(manualSwitch_);
        manualSwitch_->setChecked(model_->useManualLocation());
    }
    manualRow_->setVisible(model_->useManualLocation());
    const shell::SunPreviewModel::Lines lines = model_->lines(shortTime);
    showLine(locationLine_, lines.location);
    showLine(sunLine_, lines.sun);
    showLine(frameLine_, lines.frame);
    showLine(errorLine_, lines.error);
}

} // namespace lumivesper::ui
