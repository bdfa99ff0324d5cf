#include "shell/desktop_background_flow.h"

#include "document/app_state.h"
#include "document/project_io.h"
#include "platform/cancellation.h"
#include "platform/dialogs.h"
#include "settings/defaults.h"
#include "shell/app_command_center.h"
#include "shell/app_ui_state.h"
#include "shell/job_progress_view.h"
#include "shell/save_flow_coordinator.h"

#include <charconv>
#include <cmath>
#include <cstdio>

namespace lumivesper::shell {

namespace fs = std::filesystem;

namespace {

std::string quotedName(const fs::path& package) {
    return "\u201c" + package.stem().string() + "\u201d";
}

std::string number(double value) {
    char buffer[32];
    const auto end = std::to_chars(buffer, buffer + sizeof buffer, value).ptr;
    return std::string(buffer, end);
}

std::optional<double> parseNumber(std::string_view text) {
    double value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(value))
        return std::nullopt;
    return value;
}

// What the desktop does with the wallpaper now, in the user's words.
std::string whatHappened(const desktop::ApplyRequest& request, desktop::DesktopKind kind,
                         bool isTime) {
    const std::string place =
        request.location ? " at " + locationText(*request.location) : std::string();
    switch (kind) {
    case desktop::DesktopKind::gnome:
        return isTime ? "Its pictures change where the sun reaches each one today" + place +
                            ", and it is listed among the backgrounds in GNOME's Settings."
                      : "It shows the light picture in the light style and the dark picture in "
                        "the dark style, and it is listed among the backgrounds in GNOME's "
                        "Settings.";
    case desktop::DesktopKind::plasma:
        return isTime ? "Plasma shows the picture that fits the sun now" + place +
                            "; a timer keeps it current."
                      : "Plasma has it as a wallpaper with its light and dark pictures.";
    case desktop::DesktopKind::command:
        break;
    }
    return "\u201c" + request.command + "\u201d was given the picture that fits now" +
           (request.location ? place + "; a timer keeps it current." : ".");
}

} // namespace

std::string locationText(const desktop::Location& location) {
    char text[64];
    std::snprintf(text, sizeof text, "%.2f\u00b0 %s, %.2f\u00b0 %s", std::fabs(location.latitude),
                  location.latitude < 0 ? "S" : "N", std::fabs(location.longitude),
                  location.longitude < 0 ? "W" : "E");
    return text;
}

fs::path companionCliProgram(const fs::path& applicationFolder) {
    for (const fs::path& candidate : {applicationFolder / "lumivesper-cli",
                                      applicationFolder / ".." / ".." / "cli" / "lumivesper-cli"}) {
        std::error_code error;
        if (fs::is_regular_file(candidate, error))
            return fs::weakly_canonical(candidate, error);
    }
    return "lumivesper-cli";
}

DesktopBackgroundFlow::DesktopBackgroundFlow(
    AppCommandCenter& center, document::ProjectIO& projectIO, settings::Defaults& defaults,
    platform::Dialogs& dialogs, platform::MainThread& mainThread, JobProgressView& progressView,
    BackgroundSetupPrompt& prompt, std::vector<std::string> refreshCommand, Applier applier,
    DesktopDetector detector)
    : center_(center), projectIO_(projectIO), defaults_(defaults), dialogs_(dialogs),
      progressView_(progressView), prompt_(prompt), refreshCommand_(std::move(refreshCommand)),
      applier_(applier ? std::move(applier) : Applier(desktop::applyDesktopBackground)),
      detector_(detector ? std::move(detector) : DesktopDetector(desktop::detectDesktop)),
      job_(mainThread) {}

std::optional<desktop::Location> DesktopBackgroundFlow::rememberedLocation() const {
    const auto text = defaults_.string(locationKey);
    if (!text)
        return std::nullopt;
    const auto comma = text->find(',');
    if (comma == std::string::npos)
        return std::nullopt;
    const auto latitude = parseNumber(std::string_view(*text).substr(0, comma));
    const auto longitude = parseNumber(std::string_view(*text).substr(comma + 1));
    if (!latitude || !longitude)
        return std::nullopt;
    return desktop::Location{*latitude, *longitude};
}

std::string DesktopBackgroundFlow::rememberedCommand() const {
    return defaults_.string(commandKey).value_or("");
}

void DesktopBackgroundFlow::setAsDesktopBackground() {
    if (job_.isRunning() || center_.appState().images().empty())
        return;
    const auto& state = center_.appState();
    if (state.currentProjectPath() && !state.isDirty()) {
        apply();
        return;
    }
    saveThen([this, alive = lifetime_.weak()] {
        if (!alive.expired())
            apply();
    });
}

void DesktopBackgroundFlow::saveThen(std::function<void()> continuation) {
    const auto answer = dialogs_.runAlert(
        {"Save the project first?",
         "The desktop background is made from the project as it is saved on disk.",
         platform::AlertStyle::warning,
         {"Save", "Cancel"}});
    if (answer != 0)
        return;
    document::AppState& state = center_.appState();
    auto saved = [&state] { return state.currentProjectPath() && !state.isDirty(); };
    if (const auto& path = state.currentProjectPath()) {
        projectIO_.save(*path, state);
        if (saved()) // a failed save has shown its own alert
            continuation();
        return;
    }
    projectIO_.showSavePanel(SaveFlowCoordinator::untitledProjectName,
                             center_.uiState().lastSaveDirectory(),
                             [this, alive = lifetime_.weak(), saved,
                              continuation = std::move(continuation)](fs::path url) {
                                 if (alive.expired())
                                     return;
                                 center_.saveFlow().saveChosen(url, center_.appState());
                                 if (saved())
                                     continuation();
                             });
}

void DesktopBackgroundFlow::apply() {
    const auto& state = center_.appState();
    const bool isTime = state.mode() == document::WallpaperMode::time;
    desktop::ApplyRequest request;
    request.source = *state.currentProjectPath();
    request.desktop = detector_();
    request.location = locationSource_ ? locationSource_() : std::nullopt;
    if (!request.location)
        request.location = rememberedLocation();
    if (!request.desktop)
        request.command = rememberedCommand();

    BackgroundSetupQuestion question;
    question.needsLocation = isTime && !request.location;
    question.needsCommand = !request.desktop && request.command.find("{}") == std::string::npos;
    if (question.needsLocation || question.needsCommand) {
        question.proposedLocation = request.location;
        question.proposedCommand =
            request.command.empty() ? "swaybg -m fill -i {}" : request.command;
        const auto answer = prompt_.ask(question);
        if (!answer)
            return;
        if (question.needsLocation) {
            if (!answer->location)
                return;
            request.location = answer->location;
            defaults_.setString(locationKey, number(request.location->latitude) + "," +
                                                 number(request.location->longitude));
        }
        if (question.needsCommand) {
            if (answer->command.find("{}") == std::string::npos)
                return;
            request.command = answer->command;
            defaults_.setString(commandKey, request.command);
        }
    }
    request.refreshCommand = refreshCommand_;

    auto result = std::make_shared<std::optional<desktop::ApplyResult>>();
    const bool started = job_.start(
        [applier = applier_, request, result](std::stop_token stop,
                                              const exporting::ProgressCallback& progress) {
            *result = applier(request, stop, progress);
        },
        [this](int current, int total, const std::string& message) {
            progressView_.update(current, total, message);
        },
        [this, request, result, isTime](std::exception_ptr failure) {
            progressView_.hide();
            finish(request, *result, isTime, failure);
        });
    if (started)
        progressView_.show("Setting " + quotedName(request.source) +
                               " as the desktop background\u2026",
                           [this] { job_.cancel(); });
}

void DesktopBackgroundFlow::finish(const desktop::ApplyRequest& request,
                                   const std::optional<desktop::ApplyResult>& result, bool isTime,
                                   std::exception_ptr failure) {
    if (failure) {
        try {
            std::rethrow_exception(failure);
        } catch (const platform::CancellationError&) {
            // Stopped: the background the desktop had stays.
        } catch (const std::exception& error) {
            dialogs_.runAlert(
                {"Could not set " + quotedName(request.source) + " as the desktop background.",
                 error.what(),
                 platform::AlertStyle::critical,
                 {}});
        }
        return;
    }
    const auto kind = request.command.empty()
                          ? request.desktop.value_or(desktop::DesktopKind::gnome)
                          : desktop::DesktopKind::command;
    std::string informative = whatHappened(request, kind, isTime);
    if (result && !result->warnings.empty()) {
        informative += "\n\nNot everything worked:";
        for (const auto& warning : result->warnings)
            informative += "\n\u2022 " + warning;
    }
    dialogs_.runAlert({quotedName(request.source) + " is now your desktop background.",
                       informative,
                       platform::AlertStyle::informational,
                       {}});
}

} // namespace lumivesper::shell
