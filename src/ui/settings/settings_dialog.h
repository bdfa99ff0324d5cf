#pragma once

#include "platform/observer_list.h"

#include <QDialog>

class QButtonGroup;
class QCheckBox;
class QLabel;
class QLineEdit;
class QTabWidget;
class QWidget;

namespace lumivesper::settings {
class AppSettings;
}

namespace lumivesper::ui {

// The settings window: about the program, the update channel, the server. Every change is
// stored at once; there is nothing to apply.
class SettingsDialog final : public QDialog {
    Q_OBJECT

public:
    enum class Tab { general, updates, advanced };

    explicit SettingsDialog(settings::AppSettings& settings, QWidget* parent = nullptr);
    ~SettingsDialog() override;

    void showTab(Tab tab);

private:
    QWidget* makeGeneral();
    QWidget* makeUpdates();
    QWidget* makeAdvanced();
    void refresh();

    settings::AppSettings& settings_;
    QTabWidget* tabs_ = nullptr;
    QButtonGroup* channels_ = nullptr;
    QCheckBox* useCustomServer_ = nullptr;
    QWidget* customServerRow_ = nullptr;
    QLineEdit* customServerURL_ = nullptr;
    QLabel* currentServer_ = nullptr;
    platform::Subscription settingsChanges_;
};

} // namespace lumivesper::ui
