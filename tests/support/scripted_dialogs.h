#pragma once

#include "platform/dialogs.h"
#include "platform/main_thread.h"

#include <deque>

namespace lumivesper::testing {

// Dialogs with answers given in advance. Every alert and panel is recorded; an alert without a
// scripted answer presses the default button, a panel without one is cancelled. Delayed work is
// posted to a hand-drained queue, and its delay recorded.
class ScriptedDialogs final : public platform::Dialogs {
public:
    std::size_t runAlert(const platform::Alert& alert) override {
        alerts.push_back(alert);
        return popFront(alertAnswers).value_or(0);
    }

    std::vector<std::filesystem::path>
    runOpenPanel(const platform::OpenPanelSettings& settings) override {
        openPanels.push_back(settings);
        return popFront(openAnswers).value_or(std::vector<std::filesystem::path>{});
    }

    std::optional<std::filesystem::path>
    runSavePanel(const platform::SavePanelSettings& settings) override {
        savePanels.push_back(settings);
        return popFront(saveAnswers).value_or(std::nullopt);
    }

    void runLater(std::chrono::milliseconds delay, std::function<void()> work) override {
        delays.push_back(delay);
        mainThread.post(std::move(work));
    }

    std::deque<std::size_t> alertAnswers;
    std::deque<std::vector<std::filesystem::path>> openAnswers;
    std::deque<std::optional<std::filesystem::path>> saveAnswers;

    std::vector<platform::Alert> alerts;
    std::vector<platform::OpenPanelSettings> openPanels;
    std::vector<platform::SavePanelSettings> savePanels;
    std::vector<std::chrono::milliseconds> delays;
    platform::QueuedMainThread mainThread;

private:
    template <typename T> static std::optional<T> popFront(std::deque<T>& queue) {
        if (queue.empty())
            return std::nullopt;
        T value = std::move(queue.front());
        queue.pop_front();
        return value;
    }
};

} // namespace lumivesper::testing
