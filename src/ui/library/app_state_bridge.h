#pragma once

#include "document/app_state.h"
#include "document/image_row_changes.h"
#include "platform/observer_list.h"

#include <QObject>

namespace lumivesper::shell {
class AppUIState;
}

namespace lumivesper::ui {

// Turns the core's change notifications into Qt signals, so that models and widgets connect to
// them like to any other Qt object. Holds no state of its own.
class AppStateBridge final : public QObject {
    Q_OBJECT

public:
    AppStateBridge(document::AppState& appState, shell::AppUIState& uiState,
                   QObject* parent = nullptr);

    document::AppState& appState() const { return appState_; }
    shell::AppUIState& uiState() const { return uiState_; }

signals:
    // One row step of `images`, in the order the core gives them.
    void imageRowsChanged(const lumivesper::document::ImageRowChange& change);
    void selectionChanged();
    // Anything else of the document: mode, dirty flag, path, ...
    void documentChanged();
    void windowStateChanged();

private:
    document::AppState& appState_;
    shell::AppUIState& uiState_;
    platform::Subscription rows_;
    platform::Subscription fields_;
    platform::Subscription window_;
};

} // namespace lumivesper::ui
