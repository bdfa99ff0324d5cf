#include "document/undo_manager.h"

#include <cassert>

namespace lumivesper::document {

void UndoManager::registerUndo(Handler handler) {
    std::vector<Step>& target = state_ == State::undoing ? redoStack_ : undoStack_;
    if (state_ == State::idle)
        redoStack_.clear(); // a new change forks the history
    target.push_back({std::move(handler), {}});
    lastRegisteredOn_ = &target;
    changed_.notify();
}

void UndoManager::setActionName(const std::string& name) {
    if (!lastRegisteredOn_ || lastRegisteredOn_->empty())
        return;
    lastRegisteredOn_->back().actionName = name;
    changed_.notify();
}

void UndoManager::undo() {
    if (canUndo())
        runStep(undoStack_, State::undoing);
}

void UndoManager::redo() {
    if (canRedo())
        runStep(redoStack_, State::redoing);
}

void UndoManager::runStep(std::vector<Step>& from, State state) {
    assert(state_ == State::idle && "undo or redo while one is running");
    Step step = std::move(from.back());
    from.pop_back();
    state_ = state;
    lastRegisteredOn_ = nullptr;
    try {
        step.handler();
    } catch (...) {
        state_ = State::idle;
        throw;
    }
    state_ = State::idle;
    changed_.notify();
}

std::optional<std::string> UndoManager::undoActionName() const {
    if (undoStack_.empty())
        return std::nullopt;
    return undoStack_.back().actionName;
}

std::optional<std::string> UndoManager::redoActionName() const {
    if (redoStack_.empty())
        return std::nullopt;
    return redoStack_.back().actionName;
}

void UndoManager::removeAllActions() {
    undoStack_.clear();
    redoStack_.clear();
    lastRegisteredOn_ = nullptr;
    changed_.notify();
}

} // namespace lumivesper::document
