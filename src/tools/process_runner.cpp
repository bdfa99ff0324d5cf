#include "tools/process_runner.h"

#include "platform/cancellation.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

extern char** environ;

namespace lumivesper::tools {

namespace {

class FileDescriptor {
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int descriptor) : descriptor_(descriptor) {}
    ~FileDescriptor() { reset(); }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;

    int get() const { return descriptor_; }
    bool isOpen() const { return descriptor_ >= 0; }
    void reset(int descriptor = -1) {
        if (descriptor_ >= 0)
            ::close(descriptor_);
        descriptor_ = descriptor;
    }

private:
    int descriptor_ = -1;
};

struct Pipe {
    FileDescriptor readEnd;
    FileDescriptor writeEnd;

    Pipe() {
        int ends[2];
        // Close-on-exec, so that programs started at the same time by other threads do not
        // inherit our ends and keep them open.
        if (::pipe2(ends, O_CLOEXEC) != 0)
            throw std::system_error(errno, std::system_category(), "Cannot create a pipe");
        readEnd.reset(ends[0]);
        writeEnd.reset(ends[1]);
    }
};

struct SpawnFileActions {
    posix_spawn_file_actions_t actions;
    SpawnFileActions() { posix_spawn_file_actions_init(&actions); }
    ~SpawnFileActions() { posix_spawn_file_actions_destroy(&actions); }
    SpawnFileActions(const SpawnFileActions&) = delete;
    SpawnFileActions& operator=(const SpawnFileActions&) = delete;
};

struct SpawnAttributes {
    posix_spawnattr_t attributes;
    SpawnAttributes() { posix_spawnattr_init(&attributes); }
    ~SpawnAttributes() { posix_spawnattr_destroy(&attributes); }
    SpawnAttributes(const SpawnAttributes&) = delete;
    SpawnAttributes& operator=(const SpawnAttributes&) = delete;
};

// Kills and reaps a child that is still running when we leave early, so no zombie or orphan
// outlives an exception.
class Child {
public:
    explicit Child(pid_t pid) : pid_(pid) {}
    ~Child() {
        if (reaped_)
            return;
        killGroup();
        waitForExit();
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    pid_t pid() const { return pid_; }
    // The child leads its own process group, so this reaches whatever it started too.
    void killGroup() const { ::kill(-pid_, SIGKILL); }
    int waitForExit() {
        int status = 0;
        while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
        }
        reaped_ = true;
        return status;
    }

private:
    pid_t pid_;
    bool reaped_ = false;
};

void throwIfSpawnFailed(int result, const char* what) {
    if (result != 0)
        throw std::system_error(result, std::system_category(), what);
}

bool isRunnableFile(const std::filesystem::path& path) {
    std::error_code error;
    return std::filesystem::is_regular_file(path, error) && ::access(path.c_str(), X_OK) == 0;
}

// Reads what is there; false at the end of the stream.
bool drainInto(int descriptor, std::string& text) {
    std::array<char, 65536> buffer;
    const ssize_t count = ::read(descriptor, buffer.data(), buffer.size());
    if (count < 0)
        return errno == EINTR || errno == EAGAIN;
    text.append(buffer.data(), static_cast<std::size_t>(count));
    return count > 0;
}

void drainRemaining(FileDescriptor& descriptor, std::string& text) {
    if (!descriptor.isOpen())
        return;
    ::fcntl(descriptor.get(), F_SETFL, ::fcntl(descriptor.get(), F_GETFL) | O_NONBLOCK);
    std::array<char, 65536> buffer;
    while (true) {
        const ssize_t count = ::read(descriptor.get(), buffer.data(), buffer.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            break;
        text.append(buffer.data(), static_cast<std::size_t>(count));
    }
    descriptor.reset();
}

} // namespace

ProcessResult runProcess(const ProcessRunContext& context, std::stop_token stop) {
    platform::throwIfCancelled(stop);
    const std::filesystem::path& executable = context.executableURL;
    if (!isRunnableFile(executable))
        throw ProcessRunnerError::missingExecutable(executable.string());
    std::error_code error;
    if (context.workingDirectory &&
        !std::filesystem::is_directory(*context.workingDirectory, error))
        throw std::system_error(std::make_error_code(std::errc::no_such_file_or_directory),
                                "Working directory not found: " +
                                    context.workingDirectory->string());

    Pipe output;
    Pipe errors;
    Pipe wake; // written when a stop is requested, so the wait below needs no polling interval

    SpawnFileActions files;
    throwIfSpawnFailed(
        posix_spawn_file_actions_addopen(&files.actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0),
        "Cannot prepare standard input");
    throwIfSpawnFailed(
        posix_spawn_file_actions_adddup2(&files.actions, output.writeEnd.get(), STDOUT_FILENO),
        "Cannot prepare standard output");
    throwIfSpawnFailed(
        posix_spawn_file_actions_adddup2(&files.actions, errors.writeEnd.get(), STDERR_FILENO),
        "Cannot prepare standard error");
    if (context.workingDirectory)
        throwIfSpawnFailed(
            posix_spawn_file_actions_addchdir_np(&files.actions, context.workingDirectory->c_str()),
            "Cannot prepare the working directory");

    SpawnAttributes attributes;
    sigset_t noSignals;
    sigset_t allSignals;
    sigemptyset(&noSignals);
    sigfillset(&allSignals);
    posix_spawnattr_setflags(&attributes.attributes, POSIX_SPAWN_SETPGROUP |
                                                         POSIX_SPAWN_SETSIGMASK |
                                                         POSIX_SPAWN_SETSIGDEF);
    posix_spawnattr_setpgroup(&attributes.attributes, 0);
    posix_spawnattr_setsigmask(&attributes.attributes, &noSignals);
    // A program must not inherit signals we ignore (SIGPIPE, typically).
    posix_spawnattr_setsigdefault(&attributes.attributes, &allSignals);

    std::vector<std::string> argumentStore;
    argumentStore.reserve(context.arguments.size() + 1);
    argumentStore.push_back(executable.string());
    argumentStore.insert(argumentStore.end(), context.arguments.begin(), context.arguments.end());
    std::vector<char*> argv;
    for (auto& argument : argumentStore)
        argv.push_back(argument.data());
    argv.push_back(nullptr);

    pid_t pid = 0;
    const int spawned = ::posix_spawn(&pid, executable.c_str(), &files.actions,
                                      &attributes.attributes, argv.data(), environ);
    if (spawned == ENOENT || spawned == EACCES)
        throw ProcessRunnerError::missingExecutable(executable.string());
    if (spawned != 0)
        throw std::system_error(spawned, std::system_category(),
                                "Cannot start " + executable.string());
    Child child(pid);
    output.writeEnd.reset();
    errors.writeEnd.reset();

    std::stop_callback onStop(stop, [&wake] {
        const char signal = 1;
        [[maybe_unused]] const ssize_t ignored = ::write(wake.writeEnd.get(), &signal, 1);
    });
    // Lets the loop notice the program's end even when something it started still holds the
    // pipes; without pidfd support we simply read to the end of both streams.
    FileDescriptor exitNotice(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
    bool exited = !exitNotice.isOpen();

    ProcessResult result;
    while (output.readEnd.isOpen() || errors.readEnd.isOpen() || !exited) {
        std::array<pollfd, 4> watched{};
        watched[0] = {wake.readEnd.get(), POLLIN, 0};
        watched[1] = {output.readEnd.get(), POLLIN, 0};
        watched[2] = {errors.readEnd.get(), POLLIN, 0};
        watched[3] = {exited ? -1 : exitNotice.get(), POLLIN, 0};
        if (::poll(watched.data(), watched.size(), -1) < 0) {
            if (errno == EINTR)
                continue;
            throw std::system_error(errno, std::system_category(), "Cannot wait for the program");
        }
        if (watched[0].revents != 0) {
            child.killGroup();
            child.waitForExit();
            throw platform::CancellationError();
        }
        if (watched[1].revents != 0 && !drainInto(output.readEnd.get(), result.standardOutput))
            output.readEnd.reset();
        if (watched[2].revents != 0 && !drainInto(errors.readEnd.get(), result.standardError))
            errors.readEnd.reset();
        if (watched[3].revents != 0) {
            // Everything the program wrote is in the pipes by now; take it without waiting for
            // anything it started and left running with the streams open.
            exited = true;
            drainRemaining(output.readEnd, result.standardOutput);
            drainRemaining(errors.readEnd, result.standardError);
        }
    }

    const int status = child.waitForExit();
    if (WIFSIGNALED(status)) {
        result.terminationSignal = WTERMSIG(status);
        result.exitCode = 128 + WTERMSIG(status);
    } else {
        result.exitCode = WEXITSTATUS(status);
    }
    if (result.exitCode != 0)
        throw ProcessRunnerError::nonZeroExit(std::move(result), context);
    return result;
}

std::optional<std::filesystem::path> findExecutable(std::string_view name) {
    if (name.empty())
        return std::nullopt;
    if (name.find('/') != std::string_view::npos) {
        if (isRunnableFile(std::filesystem::path(name)))
            return std::filesystem::path(name);
        return std::nullopt;
    }
    const char* searchPath = std::getenv("PATH");
    std::string_view remaining = searchPath ? searchPath : "/usr/local/bin:/usr/bin:/bin";
    while (true) {
        const auto colon = remaining.find(':');
        std::string_view folder = remaining.substr(0, colon);
        std::filesystem::path candidate =
            std::filesystem::path(folder.empty() ? "." : folder) / std::filesystem::path(name);
        if (isRunnableFile(candidate))
            return candidate;
        if (colon == std::string_view::npos)
            return std::nullopt;
        remaining.remove_prefix(colon + 1);
    }
}

} // namespace lumivesper::tools
