#include "desktop/background_timer.h"

#include "desktop/desktop_background_error.h"
#include "platform/paths.h"
#include "tools/process_runner.h"

#include <fstream>

namespace lumivesper::desktop {

namespace fs = std::filesystem;

namespace {

// systemd's own quoting: double quotes with backslash escapes, and "%" doubled against
// specifier expansion.
std::string quoted(const std::string& word) {
    std::string result = "\"";
    for (const char c : word) {
        if (c == '"' || c == '\\')
            result += '\\';
        if (c == '%')
            result += '%';
        result += c;
    }
    return result + "\"";
}

void writeFile(const fs::path& path, const std::string& text) {
    std::ofstream out(path, std::ios::trunc);
    out << text;
    out.close();
    if (!out)
        throw DesktopBackgroundError("Cannot write " + path.string());
}

fs::path wantsLink() {
    return userUnitFolder() / "timers.target.wants" / timerUnitName;
}

// Runs systemctl --user; a failure becomes a warning.
void systemctl(std::vector<std::string> arguments, std::vector<std::string>& warnings) {
    const auto program = tools::findExecutable("systemctl");
    if (!program) {
        warnings.push_back("systemctl was not found: the timer runs from the next login on a "
                           "system with systemd");
        return;
    }
    arguments.insert(arguments.begin(), "--user");
    try {
        tools::runProcess({*program, arguments, std::nullopt});
    } catch (const std::exception& error) {
        auto* failure = dynamic_cast<const tools::ProcessRunnerError*>(&error);
        std::string detail = failure && failure->result() ? failure->result()->standardError
                                                          : std::string(error.what());
        while (!detail.empty() && detail.back() == '\n')
            detail.pop_back();
        warnings.push_back("systemctl --user " + arguments[1] + " failed: " + detail);
    }
}

} // namespace

fs::path userUnitFolder() {
    return platform::configHome() / "systemd" / "user";
}

std::string serviceUnitText(const std::vector<std::string>& command) {
    std::string line;
    for (const auto& word : command)
        line += (line.empty() ? "" : " ") + quoted(word);
    return "[Unit]\n"
           "Description=Lumivesper AI: keep the dynamic desktop background current\n\n"
           "[Service]\n"
           "Type=oneshot\n"
           "ExecStart=" +
           line +
           "\n"
           // A wallpaper setter started by a --command hook must outlive this run.
           "KillMode=process\n";
}

std::string timerUnitText(TimerSchedule schedule) {
    return std::string("[Unit]\n"
                       "Description=Lumivesper AI: refresh the dynamic desktop background\n\n"
                       "[Timer]\n") +
           (schedule == TimerSchedule::daily ? "OnCalendar=*-*-* 00:00:30\n"
                                             : "OnCalendar=*:0/5\n") +
           "OnStartupSec=30\n"
           "Persistent=true\n"
           "AccuracySec=30s\n\n"
           "[Install]\n"
           "WantedBy=timers.target\n";
}

std::vector<std::string> installBackgroundTimer(const std::vector<std::string>& command,
                                                TimerSchedule schedule) {
    const fs::path folder = userUnitFolder();
    fs::create_directories(folder / "timers.target.wants");
    writeFile(folder / serviceUnitName, serviceUnitText(command));
    writeFile(folder / timerUnitName, timerUnitText(schedule));
    std::error_code error;
    fs::remove(wantsLink(), error);
    fs::create_symlink(fs::path("..") / timerUnitName, wantsLink(), error);
    if (error)
        throw DesktopBackgroundError("Cannot enable the timer: " + error.message());
    std::vector<std::string> warnings;
    systemctl({"daemon-reload"}, warnings);
    if (warnings.empty())
        systemctl({"restart", timerUnitName}, warnings);
    return warnings;
}

std::vector<std::string> removeBackgroundTimer() {
    std::vector<std::string> warnings;
    const fs::path folder = userUnitFolder();
    std::error_code error;
    if (!fs::exists(folder / timerUnitName, error))
        return warnings;
    systemctl({"stop", timerUnitName}, warnings);
    for (const fs::path& path : {wantsLink(), folder / timerUnitName, folder / serviceUnitName})
        fs::remove(path, error);
    warnings.clear(); // a timer that was not running needs no stopping
    systemctl({"daemon-reload"}, warnings);
    return warnings;
}

} // namespace lumivesper::desktop
