#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <utility>
#include <vector>

namespace lumivesper::platform {

using HttpHeaders = std::vector<std::pair<std::string, std::string>>;

struct HttpRequest {
    std::string method = "GET";
    std::string url;
    HttpHeaders headers;
    std::string body;
    // The idle time-out: connecting, and any stretch in which no byte moves either way, must end
    // within it (whole seconds, rounded up, once connected). A slow line that keeps moving may
    // take longer, up to `overallTimeout`.
    std::chrono::milliseconds timeout = std::chrono::seconds(60);
    // The cap on the whole exchange, far above the idle time-out: a server that trickles bytes
    // forever still ends.
    std::chrono::milliseconds overallTimeout = std::chrono::minutes(30);
};

struct HttpResponse {
    long status = 0;
    HttpHeaders headers; // names as the server sent them
    std::string body;    // empty for downloads, whose body went to the file

    // First header of that name, compared without regard to case.
    std::optional<std::string> header(std::string_view name) const;
};

// A transfer that did not produce a response. Cancellation is CancellationError instead. The
// message never shows a credential that the URL carried.
class HttpError : public std::runtime_error {
public:
    enum class Kind { timedOut, cannotConnect, invalidUrl, transferFailed, fileWriteFailed };
    HttpError(Kind kind, const std::string& message);
    Kind kind() const { return kind_; }

private:
    Kind kind_;
};

// Received bytes, and the total when the server announced one.
using DownloadProgress =
    std::function<void(std::int64_t received, std::optional<std::int64_t> total)>;

// One call is one request on its own connection; the client holds no state, so one instance may be
// used from many threads at once. Redirects are followed. Any HTTP status is a response, not an
// error: callers decide what a 404 means. An exception thrown by a progress callback ends the
// transfer and reaches the caller.
class HttpClient {
public:
    HttpResponse send(const HttpRequest& request, std::stop_token stop = {}) const;

    // Streams the body into `destination` (created or truncated). The file is left as received,
    // whatever the status; callers remove it when they do not want it.
    HttpResponse download(const HttpRequest& request, const std::filesystem::path& destination,
                          const DownloadProgress& progress = {}, std::stop_token stop = {}) const;
};

} // namespace lumivesper::platform
