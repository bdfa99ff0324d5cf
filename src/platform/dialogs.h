#pragma once

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace lumivesper::platform {

// Warning for questions and notices, critical for failures that lost the user's intent,
// informational for a report that something long has worked.
enum class AlertStyle { warning, critical, informational };

struct Alert {
    std::string message;
    std::string informativeText;
    AlertStyle style = AlertStyle::warning;
    // In the order shown; the first is the default. Empty means one default "OK" button.
    std::vector<std::string> buttons;
};

// Files a panel offers, by name extension (without the dot, compared without regard to case).
struct FileFilter {
    std::string name; // "Lumivesper AI Project"
    std::vector<std::string> extensions;
};

struct OpenPanelSettings {
    bool allowsMultipleSelection = false;
    bool canChooseFiles = true;
    bool canChooseDirectories = false;
    // Folders whose name ends in one of these extensions are picked as one item, like a file:
    // the project package is a folder that the user thinks of as a document.
    std::vector<std::string> packageExtensions;
    bool treatsFilePackagesAsDirectories = false;
    // None: any file.
    std::optional<FileFilter> filter;
    // Where the panel starts; a folder that no longer exists leaves the choice to the panel.
    std::optional<std::filesystem::path> directory;
};

struct SavePanelSettings {
    std::string title; // none: the toolkit's own
    std::string nameFieldStringValue;
    bool canCreateDirectories = true;
    std::optional<FileFilter> filter;
    std::optional<std::filesystem::path> directory;
};

// The modal questions and file panels that logic outside the views asks of the user. The
// application implements it with its toolkit; tests script the answers.
class Dialogs {
public:
    // Panels wait this long so that the alert or menu that asked for them has left the screen.
    static constexpr std::chrono::milliseconds panelDelay{100};

    virtual ~Dialogs() = default;

    // Runs modally; returns the index of the pressed button (0 for the default).
    virtual std::size_t runAlert(const Alert& alert) = 0;
    // Run modally; an empty list or none means the user cancelled.
    virtual std::vector<std::filesystem::path> runOpenPanel(const OpenPanelSettings& settings) = 0;
    virtual std::optional<std::filesystem::path>
    runSavePanel(const SavePanelSettings& settings) = 0;
    // Runs `work` on the main thread once `delay` has passed (through the main thread's queue).
    virtual void runLater(std::chrono::milliseconds delay, std::function<void()> work) = 0;

    // The open panel, shown `panelDelay` later; `completion` is not called on cancel.
    void showOpenPanel(OpenPanelSettings settings,
                       std::function<void(std::vector<std::filesystem::path>)> completion) {
        runLater(panelDelay,
                 [this, settings = std::move(settings), completion = std::move(completion)] {
                     auto chosen = runOpenPanel(settings);
                     if (!chosen.empty() && completion)
                         completion(std::move(chosen));
                 });
    }

    // The save panel, shown `panelDelay` later; `cancelled` (may be empty) runs on cancel.
    void showSavePanel(SavePanelSettings settings,
                       std::function<void(std::filesystem::path)> completion,
                       std::function<void()> cancelled = {}) {
        runLater(panelDelay,
                 [this, settings = std::move(settings), completion = std::move(completion),
                  cancelled = std::move(cancelled)] {
                     if (auto chosen = runSavePanel(settings)) {
                         if (completion)
                             completion(std::move(*chosen));
                     } else if (cancelled) {
                         cancelled();
                     }
                 });
    }
};

// Dialogs for a front end without windows (the command line): an alert is written as text and
// answered with its default button, panels are cancelled, and delayed work runs at once.
class TextDialogs final : public Dialogs {
public:
    // `out` must outlive the dialogs.
    explicit TextDialogs(std::ostream& out) : out_(out) {}

    std::size_t runAlert(const Alert& alert) override {
        out_ << (alert.style == AlertStyle::critical ? "Error: " : "Warning: ") << alert.message;
        if (!alert.informativeText.empty())
            out_ << "\n" << alert.informativeText;
        out_ << "\n";
        return 0;
    }
    std::vector<std::filesystem::path> runOpenPanel(const OpenPanelSettings&) override {
        return {};
    }
    std::optional<std::filesystem::path> runSavePanel(const SavePanelSettings&) override {
        return std::nullopt;
    }
    void runLater(std::chrono::milliseconds, std::function<void()> work) override { work(); }

private:
    std::ostream& out_;
};

} // namespace lumivesper::platform
