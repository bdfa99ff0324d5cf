#pragma once

#include "shell/desktop_background_flow.h"

#include <QDialog>
#include <functional>

class QLineEdit;
class QPushButton;

namespace lumivesper::ui {

// Asks what "Set as Desktop Background" still needs: where the user is, for a wallpaper that
// follows the sun, and a command that sets a picture, for a desktop that is neither GNOME nor
// Plasma. Only the fields the question needs are shown; the button waits for valid values.
class BackgroundSetupDialog final : public QDialog {
    Q_OBJECT

public:
    BackgroundSetupDialog(const shell::BackgroundSetupQuestion& question, QWidget* parent);

    // The values as typed; meaningful once accepted.
    shell::BackgroundSetup setup() const;

    QLineEdit* latitude() const { return latitude_; }
    QLineEdit* longitude() const { return longitude_; }
    QLineEdit* command() const { return command_; }
    QPushButton& setButton() const { return *setButton_; }

private:
    void validate();

    QLineEdit* latitude_ = nullptr;
    QLineEdit* longitude_ = nullptr;
    QLineEdit* command_ = nullptr;
    QPushButton* setButton_ = nullptr;
};

// The window's BackgroundSetupPrompt: the dialog, modal over the window of the moment.
class DialogBackgroundSetupPrompt final : public shell::BackgroundSetupPrompt {
public:
    explicit DialogBackgroundSetupPrompt(std::function<QWidget*()> window)
        : window_(std::move(window)) {}
    std::optional<shell::BackgroundSetup>
    ask(const shell::BackgroundSetupQuestion& question) override;

private:
    std::function<QWidget*()> window_;
};

// Degrees typed in the C locale, the whole text a number within ±limit.
std::optional<double> parseDegrees(const QString& text, double limit);

} // namespace lumivesper::ui
