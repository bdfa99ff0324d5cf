#pragma once

#include "platform/observer_list.h"

#include <QFrame>

class QLabel;

namespace lumivesper::shell {
class UpdateFlow;
}

namespace lumivesper::ui {

// A quiet strip at the top of the window announcing an update that a background check found,
// with "View" (the update dialog) and "Dismiss". Hidden while there is nothing to announce.
class UpdateNotice final : public QFrame {
    Q_OBJECT

public:
    explicit UpdateNotice(shell::UpdateFlow& flow, QWidget* parent = nullptr);
    ~UpdateNotice() override;

private:
    void refresh();

    shell::UpdateFlow& flow_;
    QLabel* text_ = nullptr;
    platform::Subscription flowChanges_;
};

} // namespace lumivesper::ui
