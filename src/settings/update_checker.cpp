#include "settings/update_checker.h"

#include "platform/cancellation.h"

namespace lumivesper::settings {

std::string UpdateChecker::buildVersion() {
    const std::string buildNumber = LUMIVESPER_BUILD_NUMBER;
    return buildNumber.empty() ? std::string(LUMIVESPER_VERSION) : buildNumber;
}

UpdateChecker::UpdateChecker(UpdaterDelegate& delegate, platform::MainThread& mainThread,
                             std::string currentVersion, UpdateCheckerOptions options)
    : delegate_(delegate), mainThread_(mainThread), currentVersion_(std::move(currentVersion)),
      options_(options), worker_([this](std::stop_token stop) { run(stop); }) {}

UpdateChecker::~UpdateChecker() {
    *alive_ = false;
    {
        std::lock_guard lock(mutex_);
        if (runningCheck_)
            runningCheck_->request_stop();
    }
    worker_.request_stop();
    wake_.notify_all();
}

void UpdateChecker::startUpdater() {
    std::lock_guard lock(mutex_);
    started_ = true;
    nextBackgroundCheck_ = std::chrono::steady_clock::now();
    wake_.notify_all();
}

void UpdateChecker::checkForUpdates() {
    request(UpdateCheckKind::userInitiated);
}

void UpdateChecker::checkForUpdatesInBackground() {
    request(UpdateCheckKind::background);
}

void UpdateChecker::resetUpdateCycle() {
    std::lock_guard lock(mutex_);
    if (runningCheck_)
        runningCheck_->request_stop();
    nextBackgroundCheck_ = std::chrono::steady_clock::now() + options_.interval;
    wake_.notify_all();
}

void UpdateChecker::cancelUserCheck() {
    std::lock_guard lock(mutex_);
    if (pending_ == UpdateCheckKind::userInitiated)
        pending_.reset();
    if (runningCheck_ && runningKind_ == UpdateCheckKind::userInitiated)
        runningCheck_->request_stop();
}

void UpdateChecker::request(UpdateCheckKind kind) {
    std::lock_guard lock(mutex_);
    // A user's request outranks a background one waiting beside it.
    if (!pending_ || kind == UpdateCheckKind::userInitiated)
        pending_ = kind;
    wake_.notify_all();
}

void UpdateChecker::run(std::stop_token stop) {
    std::unique_lock lock(mutex_);
    while (!stop.stop_requested()) {
        const auto due = [this] {
            return pending_.has_value() ||
                   (started_ && std::chrono::steady_clock::now() >= nextBackgroundCheck_);
        };
        if (started_)
            wake_.wait_until(lock, stop, nextBackgroundCheck_, due);
        else
            wake_.wait(lock, stop, due);
        if (stop.stop_requested())
            return;
        if (!due())
            continue; // the cycle was reset while waiting
        const UpdateCheckKind kind = pending_.value_or(UpdateCheckKind::background);
        pending_.reset();
        nextBackgroundCheck_ = std::chrono::steady_clock::now() + options_.interval;

        std::stop_source check;
        runningCheck_ = check;
        runningKind_ = kind;
        lock.unlock();
        {
            std::stop_callback forward(stop, [check]() mutable { check.request_stop(); });
            perform(kind, check.get_token());
        }
        lock.lock();
        runningCheck_.reset();
    }
}

void UpdateChecker::perform(UpdateCheckKind kind, std::stop_token stop) {
    std::function<void()> report;
    try {
        const std::string feedURL = delegate_.feedURLString();
        auto found = fetchUpdate(feedURL, currentVersion_, options_.timeout, stop);
        report = found ? std::function<void()>([this, kind, item = std::move(*found)] {
            delegate_.didFindValidUpdate(item, kind);
        })
                       : std::function<void()>([this, kind] { delegate_.didNotFindUpdate(kind); });
    } catch (const platform::CancellationError&) {
        return; // superseded or shutting down: nobody wants this answer
    } catch (const UpdateCheckError& error) {
        report = [this, kind, error] { delegate_.didAbortWithError(error, kind); };
    } catch (const std::exception& error) {
        const UpdateCheckError failure(UpdateCheckError::Kind::feedUnreachable, error.what());
        report = [this, kind, failure] { delegate_.didAbortWithError(failure, kind); };
    }
    if (stop.stop_requested())
        return;
    mainThread_.post([alive = alive_, report = std::move(report)] {
        if (*alive)
            report();
    });
}

std::optional<AppcastItem> UpdateChecker::fetchUpdate(const std::string& feedURL,
                                                      const std::string& currentVersion,
                                                      std::chrono::milliseconds timeout,
                                                      std::stop_token stop) {
    platform::HttpRequest request;
    request.url = feedURL;
    request.headers = {{"Accept", "application/rss+xml, application/xml, text/xml"},
                       {"User-Agent", "Lumivesper AI/" + currentVersion}};
    request.timeout = timeout;
    platform::HttpResponse response;
    try {
        response = platform::HttpClient().send(request, stop);
    } catch (const platform::HttpError& error) {
        throw UpdateCheckError(
            UpdateCheckError::Kind::feedUnreachable,
            "The update feed could not be reached: " + std::string(error.what()) + ".");
    }
    if (response.status < 200 || response.status > 299)
        throw UpdateCheckError(UpdateCheckError::Kind::badStatus,
                               "The update feed answered with status " +
                                   std::to_string(response.status) + ".");
    try {
        return newestUpdate(parseAppcast(response.body), currentVersion);
    } catch (const AppcastError& error) {
        throw UpdateCheckError(UpdateCheckError::Kind::malformedFeed, error.description());
    }
}

} // namespace lumivesper::settings
