#include "desktop/command_hook.h"

#include "desktop/desktop_background_error.h"

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace lumivesper::desktop {

namespace {

// How long a hook may take to count as one that ends by itself.
constexpr auto settleTime = std::chrono::seconds(2);

std::string shellQuoted(const std::string& text) {
    std::string result = "'";
    for (const char c : text)
        result += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return result + "'";
}

// Field 22 of /proc/PID/stat; 0 when the process is gone.
unsigned long long startTimeOf(int pid) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const auto close = text.rfind(')'); // the name may hold blanks and parentheses
    if (close == std::string::npos)
        return 0;
    std::istringstream fields(text.substr(close + 2));
    std::string field;
    for (int n = 3; n < 22 && fields >> field; ++n) {
    }
    unsigned long long start = 0;
    fields >> start;
    return start;
}

} // namespace

std::string hookCommandLine(const std::string& commandTemplate, const std::filesystem::path& file) {
    std::string line;
    const std::string quoted = shellQuoted(file.string());
    for (std::size_t at = 0; at < commandTemplate.size();) {
        if (commandTemplate.compare(at, 2, "{}") == 0) {
            line += quoted;
            at += 2;
        } else {
            line += commandTemplate[at++];
        }
    }
    return line;
}

std::optional<HookProcess> startCommandHook(const std::string& commandTemplate,
                                            const std::filesystem::path& file) {
    const std::string line = hookCommandLine(commandTemplate, file);
    const pid_t pid = ::fork();
    if (pid < 0)
        throw DesktopBackgroundError("Cannot start the command: fork failed");
    if (pid == 0) {
        ::setsid();
        const int null = ::open("/dev/null", O_RDONLY);
        if (null >= 0)
            ::dup2(null, STDIN_FILENO);
        ::execl("/bin/sh", "sh", "-c", line.c_str(), static_cast<char*>(nullptr));
        ::_exit(127);
    }
    const auto deadline = std::chrono::steady_clock::now() + settleTime;
    while (std::chrono::steady_clock::now() < deadline) {
        int status = 0;
        if (::waitpid(pid, &status, WNOHANG) == pid) {
            if (WIFEXITED(status) && WEXITSTATUS(status) == 0)
                return std::nullopt;
            throw DesktopBackgroundError("The command failed (" +
                                         (WIFEXITED(status)
                                              ? "exit status " + std::to_string(WEXITSTATUS(status))
                                              : "signal " + std::to_string(WTERMSIG(status))) +
                                         "): " + line);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return HookProcess{pid, startTimeOf(pid)};
}

void stopCommandHook(const HookProcess& hook) {
    if (hook.pid <= 0 || startTimeOf(hook.pid) != hook.startTime)
        return;                 // gone, or the id now belongs to another process
    ::kill(-hook.pid, SIGTERM); // its session and process group carry its id
    int status = 0;
    ::waitpid(hook.pid, &status, WNOHANG);
}

} // namespace lumivesper::desktop
