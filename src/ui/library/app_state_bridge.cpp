#include "ui/library/app_state_bridge.h"

#include "shell/app_ui_state.h"

namespace lumivesper::ui {

AppStateBridge::AppStateBridge(document::AppState& appState, shell::AppUIState& uiState,
                               QObject* parent)
    : QObject(parent), appState_(appState), uiState_(uiState) {
    rows_ = appState_.observeImageRows(
        [this](const document::ImageRowChange& change) { emit imageRowsChanged(change); });
    fields_ = appState_.observe([this](document::AppStateFields fields) {
        if (fields.contains(document::AppStateField::selection))
            emit selectionChanged();
        emit documentChanged();
    });
    window_ = uiState_.observe([this] { emit windowStateChanged(); });
}

} // namespace lumivesper::ui
