#pragma once

#include "platform/dialogs.h"

#include <QObject>
#include <QPointer>
#include <QWidget>

namespace lumivesper::shell {

// Alerts as message boxes and panels as file dialogs, modal to the main window. Project packages
// are folders; the panels pick them as one item, as the user thinks of them.
class QtDialogs final : public platform::Dialogs {
public:
    void setWindow(QWidget* window) { window_ = window; }

    std::size_t runAlert(const platform::Alert& alert) override;
    std::vector<std::filesystem::path>
    runOpenPanel(const platform::OpenPanelSettings& settings) override;
    std::optional<std::filesystem::path>
    runSavePanel(const platform::SavePanelSettings& settings) override;
    void runLater(std::chrono::milliseconds delay, std::function<void()> work) override;

private:
    QPointer<QWidget> window_;
    QObject context_; // delayed work dies with the dialogs
};

} // namespace lumivesper::shell
