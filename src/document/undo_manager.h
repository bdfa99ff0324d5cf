#pragma once

#include "platform/observer_list.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace lumivesper::document {

// Whole-document undo history. A handler registered while undoing lands on the redo stack, one
// registered while redoing on the undo stack, and one registered otherwise on the undo stack
// (clearing the redo stack). Each registration is one step.
class UndoManager {
public:
    using Handler = std::function<void()>;

    UndoManager() = default;
    UndoManager(const UndoManager&) = delete;
    UndoManager& operator=(const UndoManager&) = delete;
    // Tells whoever installed it, so that no document keeps a dangling manager.
    ~UndoManager() { destroyed_.notify(); }

    void registerUndo(Handler handler);
    // Names the step registered last (on whichever stack it went to).
    void setActionName(const std::string& name);

    bool canUndo() const { return !undoStack_.empty(); }
    bool canRedo() const { return !redoStack_.empty(); }
    void undo();
    void redo();

    // The names of the steps that undo() and redo() would run, for menu titles.
    std::optional<std::string> undoActionName() const;
    std::optional<std::string> redoActionName() const;

    bool isUndoing() const { return state_ == State::undoing; }
    bool isRedoing() const { return state_ == State::redoing; }

    void removeAllActions();

    // Fires after every change of either stack.
    platform::Subscription observe(std::function<void()> observer) {
        return changed_.subscribe(std::move(observer));
    }

    // Fires once, as the manager is destroyed.
    platform::Subscription observeDestruction(std::function<void()> observer) {
        return destroyed_.subscribe(std::move(observer));
    }

private:
    struct Step {
        Handler handler;
        std::string actionName;
    };
    enum class State { idle, undoing, redoing };

    void runStep(std::vector<Step>& from, State state);

    std::vector<Step> undoStack_;
    std::vector<Step> redoStack_;
    std::vector<Step>* lastRegisteredOn_ = nullptr;
    State state_ = State::idle;
    platform::ObserverList<> changed_;
    platform::ObserverList<> destroyed_;
};

} // namespace lumivesper::document
