#include "platform/http_client.h"

#include "platform/cancellation.h"
#include "platform/redaction.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <curl/curl.h>
#include <exception>
#include <fstream>
#include <memory>
#include <mutex>

namespace lumivesper::platform {

namespace {

void startCurl() {
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

struct CurlEasyCleanup {
    void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
};
struct CurlSlistFree {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using CurlEasy = std::unique_ptr<CURL, CurlEasyCleanup>;
using CurlHeaderList = std::unique_ptr<curl_slist, CurlSlistFree>;

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return std::tolower(static_cast<unsigned char>(x)) ==
                      std::tolower(static_cast<unsigned char>(y));
           });
}

// Everything the curl callbacks need for one transfer.
struct Transfer {
    HttpResponse response;
    std::ofstream* file = nullptr;
    bool fileFailed = false;
    const DownloadProgress* progress = nullptr;
    std::stop_token stop;
    std::int64_t lastReported = -1;
    // What a callback threw: no exception may unwind through curl's C frames, so it is kept here,
    // the transfer aborted, and the exception rethrown once curl has returned.
    std::exception_ptr failure;
};

// Runs a callback's body; an exception is kept for the caller and `abort` returned to curl.
template <typename Result, typename Body>
Result guarded(Transfer& transfer, Result abort, Body&& body) noexcept {
    try {
        return body();
    } catch (...) {
        transfer.failure = std::current_exception();
        return abort;
    }
}

size_t onBody(char* data, size_t size, size_t count, void* context) {
    auto& transfer = *static_cast<Transfer*>(context);
    const size_t bytes = size * count;
    // Returning fewer bytes than given makes curl stop with CURLE_WRITE_ERROR.
    return guarded(transfer, size_t{0}, [&]() -> size_t {
        if (!transfer.file) {
            transfer.response.body.append(data, bytes);
            return bytes;
        }
        transfer.file->write(data, static_cast<std::streamsize>(bytes));
        if (*transfer.file)
            return bytes;
        transfer.fileFailed = true;
        return 0;
    });
}

size_t readHeaderLine(Transfer& transfer, char* data, size_t bytes) {
    std::string_view line(data, bytes);
    if (line.starts_with("HTTP/")) {
        transfer.response.headers.clear(); // a redirect or "100 Continue" starts a new header block
        return bytes;
    }
    const auto colon = line.find(':');
    if (colon == std::string_view::npos)
        return bytes;
    auto trim = [](std::string_view text) {
        while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front())))
            text.remove_prefix(1);
        while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back())))
            text.remove_suffix(1);
        return std::string(text);
    };
    transfer.response.headers.emplace_back(trim(line.substr(0, colon)),
                                           trim(line.substr(colon + 1)));
    return bytes;
}

size_t onHeader(char* data, size_t size, size_t count, void* context) {
    auto& transfer = *static_cast<Transfer*>(context);
    return guarded(transfer, size_t{0},
                   [&] { return readHeaderLine(transfer, data, size * count); });
}

int onProgress(void* context, curl_off_t downloadTotal, curl_off_t downloaded, curl_off_t,
               curl_off_t) {
    auto& transfer = *static_cast<Transfer*>(context);
    // Any non-zero answer aborts with CURLE_ABORTED_BY_CALLBACK.
    return guarded(transfer, 1, [&] {
        if (transfer.stop.stop_requested())
            return 1;
        if (transfer.progress && *transfer.progress && downloaded != transfer.lastReported &&
            downloaded > 0) {
            transfer.lastReported = downloaded;
            std::optional<std::int64_t> total;
            if (downloadTotal > 0)
                total = downloadTotal;
            (*transfer.progress)(downloaded, total);
        }
        return 0;
    });
}

// The idle rule in curl's terms: below one byte a second for this many whole seconds.
long idleSeconds(std::chrono::milliseconds timeout) {
    return std::max(1L,
                    static_cast<long>(std::ceil(static_cast<double>(timeout.count()) / 1000.0)));
}

HttpResponse perform(const HttpRequest& request, Transfer& transfer) {
    startCurl();
    CurlEasy handle(curl_easy_init());
    if (!handle)
        throw HttpError(HttpError::Kind::transferFailed, "Could not create an HTTP transfer");
    CURL* curl = handle.get();

    CurlHeaderList headers;
    for (const auto& [name, value] : request.headers) {
        const std::string line = name + ": " + value;
        curl_slist* extended = curl_slist_append(headers.get(), line.c_str());
        if (!extended)
            throw HttpError(HttpError::Kind::transferFailed, "Could not build request headers");
        headers.release();
        headers.reset(extended);
    }

    curl_easy_setopt(curl, CURLOPT_URL, request.url.c_str());
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(curl, CURLOPT_MAXREDIRS, 10L);
    curl_easy_setopt(curl, CURLOPT_ACCEPT_ENCODING, ""); // whatever curl can decode
    curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(request.timeout.count()));
    curl_easy_setopt(curl, CURLOPT_LOW_SPEED_LIMIT, 1L);
    curl_easy_setopt(curl, CURLOPT_LOW_SPEED_TIME, idleSeconds(request.timeout));
    curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS,
                     static_cast<long>(std::max(request.overallTimeout, request.timeout).count()));
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers.get());
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, onBody);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &transfer);
    curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, onHeader);
    curl_easy_setopt(curl, CURLOPT_HEADERDATA, &transfer);
    curl_easy_setopt(curl, CURLOPT_NOPROGRESS, 0L);
    curl_easy_setopt(curl, CURLOPT_XFERINFOFUNCTION, onProgress);
    curl_easy_setopt(curl, CURLOPT_XFERINFODATA, &transfer);

    if (request.method == "GET") {
        curl_easy_setopt(curl, CURLOPT_HTTPGET, 1L);
    } else if (request.method == "HEAD") {
        curl_easy_setopt(curl, CURLOPT_NOBODY, 1L);
    } else {
        curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, request.method.c_str());
    }
    if (!request.body.empty() || request.method == "POST" || request.method == "PUT" ||
        request.method == "PATCH") {
        curl_easy_setopt(curl, CURLOPT_POSTFIELDS, request.body.data());
        curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE,
                         static_cast<curl_off_t>(request.body.size()));
    }

    const CURLcode result = curl_easy_perform(curl);
    if (transfer.failure)
        std::rethrow_exception(transfer.failure);
    if (result == CURLE_ABORTED_BY_CALLBACK || transfer.stop.stop_requested())
        throw CancellationError();
    if (transfer.fileFailed)
        throw HttpError(HttpError::Kind::fileWriteFailed, "Could not write the downloaded file");
    if (result != CURLE_OK) {
        const std::string message = curl_easy_strerror(result);
        switch (result) {
        case CURLE_OPERATION_TIMEDOUT:
            throw HttpError(HttpError::Kind::timedOut, "The request timed out");
        case CURLE_COULDNT_CONNECT:
        case CURLE_COULDNT_RESOLVE_HOST:
        case CURLE_COULDNT_RESOLVE_PROXY:
            throw HttpError(HttpError::Kind::cannotConnect,
                            "Could not connect to the server: " + message);
        case CURLE_URL_MALFORMAT:
        case CURLE_UNSUPPORTED_PROTOCOL:
            throw HttpError(HttpError::Kind::invalidUrl, "Invalid URL: " + request.url);
        default:
            throw HttpError(HttpError::Kind::transferFailed, message);
        }
    }
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &transfer.response.status);
    return std::move(transfer.response);
}

} // namespace

HttpError::HttpError(Kind kind, const std::string& message)
    : std::runtime_error(redactedSecrets(message)), kind_(kind) {}

std::optional<std::string> HttpResponse::header(std::string_view name) const {
    for (const auto& [key, value] : headers)
        if (equalsIgnoringCase(key, name))
            return value;
    return std::nullopt;
}

HttpResponse HttpClient::send(const HttpRequest& request, std::stop_token stop) const {
    throwIfCancelled(stop);
    Transfer transfer;
    transfer.stop = std::move(stop);
    return perform(request, transfer);
}

HttpResponse HttpClient::download(const HttpRequest& request,
                                  const std::filesystem::path& destination,
                                  const DownloadProgress& progress, std::stop_token stop) const {
    throwIfCancelled(stop);
    std::ofstream file(destination, std::ios::binary | std::ios::trunc);
    if (!file)
        throw HttpError(HttpError::Kind::fileWriteFailed,
                        "Could not create " + destination.string());
    Transfer transfer;
    transfer.file = &file;
    transfer.progress = &progress;
    transfer.stop = std::move(stop);
    HttpResponse response = perform(request, transfer);
    file.close();
    if (!file)
        throw HttpError(HttpError::Kind::fileWriteFailed,
                        "Could not write " + destination.string());
    return response;
}

} // namespace lumivesper::platform
