#pragma once

#include "platform/http_client.h"
#include "platform/main_thread.h"
#include "settings/appcast.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <thread>

namespace lumivesper::settings {

// A check that could not reach a verdict.
class UpdateCheckError : public std::runtime_error {
public:
    enum class Kind { feedUnreachable, badStatus, malformedFeed };
    UpdateCheckError(Kind kind, const std::string& description)
        : std::runtime_error(description), kind_(kind) {}
    Kind kind() const { return kind_; }
    std::string description() const { return what(); }

private:
    Kind kind_;
};

enum class UpdateCheckKind { background, userInitiated };

// What the checker asks and tells. Results arrive on the main thread; the feed URL is asked for on
// the checker's own thread at the start of every check, so a changed channel applies at once.
class UpdaterDelegate {
public:
    virtual ~UpdaterDelegate() = default;
    virtual std::string feedURLString() = 0;
    virtual void didFindValidUpdate(const AppcastItem& item, UpdateCheckKind kind) = 0;
    virtual void didNotFindUpdate(UpdateCheckKind kind) = 0;
    virtual void didAbortWithError(const UpdateCheckError& error, UpdateCheckKind kind) = 0;
};

struct UpdateCheckerOptions {
    std::chrono::seconds interval = std::chrono::hours(24); // between background checks
    std::chrono::milliseconds timeout = std::chrono::seconds(30);
};

// Fetches the appcast at the delegate's feed URL and compares its newest release with this
// build's version. Checks run one at a time on a thread of the checker's own; a check asked for
// while another runs follows it. Destroying the checker cancels a running check and drops its
// result. Public operations may be called from any thread.
class UpdateChecker {
public:
    // `delegate` and `mainThread` must outlive the checker.
    UpdateChecker(UpdaterDelegate& delegate, platform::MainThread& mainThread,
                  std::string currentVersion, UpdateCheckerOptions options = {});
    ~UpdateChecker();
    UpdateChecker(const UpdateChecker&) = delete;
    UpdateChecker& operator=(const UpdateChecker&) = delete;

    // Starts the cycle of background checks: one now, then one every interval.
    void startUpdater();
    // A check the user asked for.
    void checkForUpdates();
    void checkForUpdatesInBackground();
    // Cancels a running check (its result is dropped) and starts the interval again from now.
    void resetUpdateCycle();
    // Drops the check the user asked for, waiting or running: it reports nothing. Background
    // checks go on.
    void cancelUserCheck();

    const std::string& currentVersion() const { return currentVersion_; }
    // This build's version as the feed numbers releases: the build number, else the release.
    static std::string buildVersion();

    // One check, on the calling thread: the newest newer item, or none. Throws UpdateCheckError,
    // or CancellationError when `stop` is triggered.
    static std::optional<AppcastItem> fetchUpdate(const std::string& feedURL,
                                                  const std::string& currentVersion,
                                                  std::chrono::milliseconds timeout,
                                                  std::stop_token stop = {});

private:
    void request(UpdateCheckKind kind);
    void run(std::stop_token stop);
    void perform(UpdateCheckKind kind, std::stop_token stop);

    UpdaterDelegate& delegate_;
    platform::MainThread& mainThread_;
    const std::string currentVersion_;
    const UpdateCheckerOptions options_;
    // Posted results check this before they reach the delegate: a dead checker reports nothing.
    std::shared_ptr<std::atomic<bool>> alive_ = std::make_shared<std::atomic<bool>>(true);

    std::mutex mutex_;
    std::condition_variable_any wake_;
    bool started_ = false;
    std::optional<UpdateCheckKind> pending_;
    std::chrono::steady_clock::time_point nextBackgroundCheck_;
    std::optional<std::stop_source> runningCheck_;
    UpdateCheckKind runningKind_ = UpdateCheckKind::background;
    std::jthread worker_; // last: starts after everything above exists, stops first
};

} // namespace lumivesper::settings
