#pragma once

#include "document/wallpaper_mode.h"

#include <QWidget>

class QButtonGroup;
class QPushButton;

namespace lumivesper::ui {

// "Time" and "Appearance" side by side, one of them pressed: the document's mode.
class ModePicker final : public QWidget {
    Q_OBJECT

public:
    explicit ModePicker(QWidget* parent = nullptr);

    void setMode(document::WallpaperMode mode);
    QPushButton* button(document::WallpaperMode mode) const;

signals:
    void modeChosen(lumivesper::document::WallpaperMode mode);

protected:
    void changeEvent(QEvent* event) override;

private:
    void markChosen();

    QButtonGroup* group_;
    QPushButton* time_;
    QPushButton* appearance_;
};

} // namespace lumivesper::ui
