#pragma once

#include "shell/job_progress_view.h"

#include <QDialog>
#include <QPointer>
#include <chrono>
#include <functional>

class QLabel;
class QProgressBar;
class QPushButton;

namespace lumivesper::ui {

// A small modal dialog for one long command: what runs, a bar, the latest step and Cancel.
// Cancel asks the work to stop; the dialog stays, saying so, until the work has ended.
class JobProgressDialog final : public QDialog {
    Q_OBJECT

public:
    JobProgressDialog(const QString& title, std::function<void()> cancel, QWidget* parent);

    void setProgress(int current, int total, const QString& message);

    QProgressBar& bar() const { return *bar_; }
    QLabel& message() const { return *message_; }
    QPushButton& cancelButton() const { return *cancelButton_; }

protected:
    void reject() override; // Escape and the window's close button cancel too

private:
    std::function<void()> cancel_;
    QProgressBar* bar_;
    QLabel* message_;
    QPushButton* cancelButton_;
};

// The window's JobProgressView: one JobProgressDialog at a time, over the window of the moment.
class WindowJobProgress final : public shell::JobProgressView {
public:
    static constexpr std::chrono::milliseconds shownAfter{300};

    explicit WindowJobProgress(std::function<QWidget*()> window) : window_(std::move(window)) {}
    ~WindowJobProgress() override;

    void show(const std::string& title, std::function<void()> cancel) override;
    void update(int current, int total, const std::string& message) override;
    void hide() override;

    JobProgressDialog* dialog() const { return dialog_; }

private:
    std::function<QWidget*()> window_;
    QPointer<JobProgressDialog> dialog_;
};

} // namespace lumivesper::ui
