#pragma once

#include "platform/observer_list.h"

#include <QDialog>

class QDialogButtonBox;
class QLabel;
class QProgressBar;
class QPushButton;

namespace lumivesper::shell {
class UpdateFlow;
}

namespace lumivesper::ui {

// The answer to "Check for Updates...": a busy state with Cancel while the feed is read, then
// the update found (with its release notes and a download link), "up to date", or why the check
// failed. It stays out of the window's way: the window can be used while it is open. Closing it
// in any way tells the flow; the flow's return to hidden closes it.
class UpdateDialog final : public QDialog {
    Q_OBJECT

public:
    explicit UpdateDialog(shell::UpdateFlow& flow, QWidget* parent = nullptr);
    ~UpdateDialog() override;

protected:
    void done(int result) override;

private:
    void refresh();

    shell::UpdateFlow& flow_;
    QLabel* icon_ = nullptr;
    QLabel* title_ = nullptr;
    QLabel* message_ = nullptr;
    QLabel* releaseNotes_ = nullptr;
    QProgressBar* busy_ = nullptr;
    QDialogButtonBox* buttons_ = nullptr;
    QPushButton* download_ = nullptr;
    QPushButton* tryAgain_ = nullptr;
    QPushButton* close_ = nullptr;
    platform::Subscription flowChanges_;
};

} // namespace lumivesper::ui
