#pragma once

#include <QWidget>

class QLabel;
class QPushButton;

namespace lumivesper::shell {
class TweenWorkflow;
}

namespace lumivesper::ui {

class AppStateBridge;
class PreviewCache;

// The selected image alone, as large as the window allows, with its sun or appearance values;
// "No Selection" when nothing is selected.
class SingleImageView final : public QWidget {
    Q_OBJECT

public:
    SingleImageView(AppStateBridge& bridge, PreviewCache& previews,
                    shell::TweenWorkflow& tweens, QWidget* parent = nullptr);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    void refresh();

    AppStateBridge& bridge_;
    PreviewCache& previews_;
    shell::TweenWorkflow& tweens_;
    QLabel* caption_;
    QWidget* unavailable_;
    QPushButton* tweenButton_;
};

} // namespace lumivesper::ui
