#include "ui/wallpaper/background_setup_dialog.h"

#include "ui/qt_text.h"

#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QLocale>
#include <QPushButton>
#include <QVBoxLayout>
#include <cmath>

namespace lumivesper::ui {

namespace {

QLabel* note(const QString& text, QWidget* parent) {
    auto* label = new QLabel(text, parent);
    label->setWordWrap(true);
    return label;
}

QLineEdit* field(const QString& name, const QString& placeholder, QWidget* parent) {
    auto* edit = new QLineEdit(parent);
    edit->setAccessibleName(name);
    edit->setPlaceholderText(placeholder);
    return edit;
}

} // namespace

std::optional<double> parseDegrees(const QString& text, double limit) {
    bool ok = false;
    const double value = QLocale::c().toDouble(text.trimmed(), &ok);
    if (!ok || !std::isfinite(value) || std::fabs(value) > limit)
        return std::nullopt;
    return value;
}

BackgroundSetupDialog::BackgroundSetupDialog(const shell::BackgroundSetupQuestion& question,
                                             QWidget* parent)
    : QDialog(parent) {
    setWindowTitle(QStringLiteral("Set as Desktop Background"));
    setMinimumWidth(460);
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(20, 20, 20, 16);
    column->setSpacing(12);

    if (question.needsLocation) {
        column->addWidget(note(
            QStringLiteral("This wallpaper follows the sun. Where are you? The pictures change "
                           "when the sun reaches each one's position at your place."),
            this));
        auto* form = new QFormLayout;
        latitude_ =
            field(QStringLiteral("Latitude"), QStringLiteral("e.g. 52.52 (north positive)"), this);
        longitude_ =
            field(QStringLiteral("Longitude"), QStringLiteral("e.g. 13.40 (east positive)"), this);
        if (const auto& place = question.proposedLocation) {
            latitude_->setText(QString::number(place->latitude, 'f', 4));
            longitude_->setText(QString::number(place->longitude, 'f', 4));
        }
        form->addRow(QStringLiteral("Latitude:"), latitude_);
        form->addRow(QStringLiteral("Longitude:"), longitude_);
        column->addLayout(form);
        connect(latitude_, &QLineEdit::textChanged, this, &BackgroundSetupDialog::validate);
        connect(longitude_, &QLineEdit::textChanged, this, &BackgroundSetupDialog::validate);
    }
    if (question.needsCommand) {
        column->addWidget(note(
            QStringLiteral("This desktop is neither GNOME nor Plasma. Give the command that sets "
                           "a picture as its background; {} stands for the picture."),
            this));
        auto* form = new QFormLayout;
        command_ = field(QStringLiteral("Command"), QStringLiteral("swaybg -m fill -i {}"), this);
        command_->setText(toQString(question.proposedCommand));
        form->addRow(QStringLiteral("Command:"), command_);
        column->addLayout(form);
        connect(command_, &QLineEdit::textChanged, this, &BackgroundSetupDialog::validate);
    }
    column->addWidget(note(QStringLiteral("Remembered for the next time."), this));

    auto* buttons = new QDialogButtonBox(this);
    setButton_ = buttons->addButton(QStringLiteral("Set Background"), QDialogButtonBox::AcceptRole);
    setButton_->setAccessibleName(QStringLiteral("Set Background"));
    setButton_->setDefault(true);
    QPushButton* cancel = buttons->addButton(QDialogButtonBox::Cancel);
    cancel->setAccessibleName(QStringLiteral("Cancel"));
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    column->addWidget(buttons);
    validate();
}

shell::BackgroundSetup BackgroundSetupDialog::setup() const {
    shell::BackgroundSetup result;
    if (latitude_ && longitude_) {
        const auto latitude = parseDegrees(latitude_->text(), 90);
        const auto longitude = parseDegrees(longitude_->text(), 180);
        if (latitude && longitude)
            result.location = desktop::Location{*latitude, *longitude};
    }
    if (command_)
        result.command = toStdString(command_->text().trimmed());
    return result;
}

void BackgroundSetupDialog::validate() {
    const auto values = setup();
    const bool placeOk = !latitude_ || values.location.has_value();
    const bool commandOk = !command_ || values.command.find("{}") != std::string::npos;
    setButton_->setEnabled(placeOk && commandOk);
}

std::optional<shell::BackgroundSetup>
DialogBackgroundSetupPrompt::ask(const shell::BackgroundSetupQuestion& question) {
    BackgroundSetupDialog dialog(question, window_ ? window_() : nullptr);
    if (dialog.exec() != QDialog::Accepted)
        return std::nullopt;
    return dialog.setup();
}

} // namespace lumivesper::ui
