#pragma once

#include "platform/observer_list.h"

#include <QDialog>

class QLabel;
class QProgressBar;
class QPushButton;
class QSlider;
class QSpinBox;
class QStackedWidget;

namespace lumivesper::shell {
class TweenWorkflow;
}

namespace lumivesper::ui {

class PreviewCache;

// "Generate Tween Frames": shows the tween workflow and hands it the user's choices. It opens
// and closes as the workflow says; closing it by hand is the workflow's cancel.
class TweenSheet final : public QDialog {
    Q_OBJECT

public:
    TweenSheet(shell::TweenWorkflow& workflow, PreviewCache& previews, QWidget* parent = nullptr);

    QSlider* countSlider() const { return slider_; }
    QSpinBox* countField() const { return field_; }
    QPushButton* generateButton() const { return generate_; }
    QPushButton* cancelButton() const { return cancel_; }
    QProgressBar* progressBar() const { return progressBar_; }
    QLabel* explanation() const { return explanation_; }

    void reject() override; // Escape and Cancel

private:
    void refresh();

    shell::TweenWorkflow& workflow_;
    PreviewCache& previews_;
    QStackedWidget* pages_;
    QSlider* slider_;
    QSpinBox* field_;
    QLabel* explanation_;
    QLabel* sourcePreview_;
    QLabel* targetPreview_;
    QWidget* pair_;
    QProgressBar* progressBar_;
    QLabel* percent_;
    QLabel* failure_;
    QPushButton* cancel_;
    QPushButton* generate_;
    platform::Subscription subscription_;
};

} // namespace lumivesper::ui
