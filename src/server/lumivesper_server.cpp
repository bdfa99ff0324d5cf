#include "server/lumivesper_server.h"

#include "document/json_coding.h"
#include "generation/server_wire.h"

#include <algorithm>
#include <charconv>
#include <httplib.h>
#include <nlohmann/json.hpp>
#include <regex>
#include <sys/socket.h>

namespace lumivesper::server {

namespace {

// The library's listen backlog is five, too few for a burst of devices connecting at once; the
// socket it keeps for itself is reachable from a subclass, and listening again widens the queue.
template <typename Base> class WideBacklog : public Base {
public:
    using Base::Base;
    bool widenBacklog(int backlog) { return ::listen(this->svr_sock_, backlog) == 0; }
};
constexpr int listenBacklog = 256;

void replyText(httplib::Response& response, int status, const std::string& text) {
    response.status = status;
    response.set_content(text, "text/plain; charset=utf-8");
}

std::string readableSize(std::size_t bytes) {
    constexpr std::size_t mebibyte = 1024 * 1024;
    if (bytes >= mebibyte)
        return std::to_string(bytes / mebibyte) + " MiB";
    return std::to_string(bytes / 1024) + " KiB";
}

std::string routePattern(std::string_view path) {
    static const std::regex metacharacters(R"([.^$|()\[\]{}*+?\\])");
    return std::regex_replace(std::string(path), metacharacters, R"(\$&)");
}

std::optional<std::uint64_t> contentLength(const httplib::Request& request) {
    if (!request.has_header("Content-Length"))
        return std::nullopt;
    const std::string text = request.get_header_value("Content-Length");
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size())
        return UINT64_MAX; // unreadable counts as too large
    return value;
}

// What is wrong with a chat completion request, or none.
std::optional<std::string> chatRequestProblem(const nlohmann::json& body, std::string& model) {
    if (!body.is_object())
        return "the body is not a JSON object";
    const auto modelValue = body.find("model");
    if (modelValue == body.end() || !modelValue->is_string() ||
        modelValue->get_ref<const std::string&>().empty())
        return "\"model\" is missing";
    model = modelValue->get<std::string>();
    const auto messages = body.find("messages");
    if (messages == body.end() || !messages->is_array() || messages->empty())
        return "\"messages\" is missing or empty";
    return std::nullopt;
}

} // namespace

LumivesperServer::LumivesperServer(ServerOptions options, ServerEnvironment environment)
    : options_(std::move(options)), log_(std::move(environment.logSink)),
      signer_(options_.tokenSecret ? *options_.tokenSecret : DeviceTokenSigner::randomSecret(),
              options_.tokenLifetime, std::move(environment.tokenClock)),
      proxyLimiter_(options_.proxyBurst, options_.proxyPerHour),
      tokenLimiter_(options_.tokenBurst, options_.tokenPerHour),
      prompts_(options_.promptsFile,
               [this](const std::string& message) {
                   log_.event("warning", {{"message", message}});
               }),
      feeds_(options_.appcastDirectory) {
    if (options_.providerKey && !options_.providerKey->empty())
        forwarder_.emplace(options_.providerURL, *options_.providerKey, options_.providerTimeout);

    if (options_.tlsCertificate) {
        auto secure = std::make_unique<WideBacklog<httplib::SSLServer>>(
            options_.tlsCertificate->c_str(), options_.tlsPrivateKey->c_str());
        if (!secure->is_valid())
            throw std::runtime_error("Cannot load the TLS certificate " +
                                     options_.tlsCertificate->string() + " with its key " +
                                     options_.tlsPrivateKey->string());
        http_ = std::move(secure);
    } else {
        http_ = std::make_unique<WideBacklog<httplib::Server>>();
    }
    const auto threads = static_cast<std::size_t>(options_.threads);
    http_->new_task_queue = [threads] { return new httplib::ThreadPool(threads); };
    // Backstop only: oversized bodies are refused before the library reads them.
    http_->set_payload_max_length(options_.maxBodyBytes);
    // One request per connection: the program opens a connection per request anyway, a refused
    // body is never read, and no worker idles on a kept-alive connection under load.
    http_->set_keep_alive_max_count(1);
    http_->set_read_timeout(std::chrono::seconds(30));
    http_->set_write_timeout(std::chrono::seconds(30));
    installRoutes();
}

LumivesperServer::~LumivesperServer() {
    stop();
}

void LumivesperServer::installRoutes() {
    http_->set_expect_100_continue_handler(
        [this](const httplib::Request& request, httplib::Response& response) {
            log_.begin();
            return refusedBeforeReading(request, response) ? response.status : 100;
        });
    http_->set_pre_routing_handler(
        [this](const httplib::Request& request, httplib::Response& response) {
            log_.begin();
            return refusedBeforeReading(request, response)
                       ? httplib::Server::HandlerResponse::Handled
                       : httplib::Server::HandlerResponse::Unhandled;
        });
    http_->set_logger([this](const httplib::Request& request, const httplib::Response& response) {
        log_.finish({request.method, request.path, response.status,
                     static_cast<std::size_t>(contentLength(request).value_or(0)),
                     response.body.size(), clientAddress(request)});
    });
    http_->set_exception_handler(
        [this](const httplib::Request&, httplib::Response& response, std::exception_ptr failure) {
            std::string what = "unknown";
            try {
                std::rethrow_exception(failure);
            } catch (const std::exception& error) {
                what = error.what();
            } catch (...) {
            }
            log_.note("error", what);
            replyText(response, 500, "The server failed on this request.");
        });
    http_->set_error_handler([](const httplib::Request&, httplib::Response& response) {
        if (response.body.empty())
            replyText(response, response.status,
                      response.status == 404 ? "Not found." : "The request was refused.");
    });

    using httplib::Request;
    using httplib::Response;
    http_->Get("/healthz", [this](const Request&, Response& response) { handleHealth(response); });
    http_->Post(
        routePattern(generation::tokenPath),
        [this](const Request& request, Response& response) { handleToken(request, response); });
    http_->Get(routePattern(generation::promptsPath),
               [this](const Request&, Response& response) { handlePrompts(response); });
    http_->Post(
        routePattern(std::string(generation::proxyPath) +
                     std::string(generation::chatCompletionsPath)),
        [this](const Request& request, Response& response) { handleProxy(request, response); });
    for (const auto channel : settings::allUpdateChannels)
        http_->Get(
            routePattern(settings::feedPath(channel)),
            [this, channel](const Request&, Response& response) { handleFeed(channel, response); });
}

bool LumivesperServer::refusedBeforeReading(const httplib::Request& request,
                                            httplib::Response& response) {
    const auto length = contentLength(request);
    if (length && *length > options_.maxBodyBytes) {
        replyText(response, 413,
                  "The request is too large: this server takes at most " +
                      readableSize(options_.maxBodyBytes) + ".");
        return true;
    }
    // Without a declared length a body could only be limited by reading it.
    const bool hasBody = request.has_header("Transfer-Encoding") || request.method == "POST" ||
                         request.method == "PUT" || request.method == "PATCH";
    if (hasBody && !length) {
        replyText(response, 411, "Send the request body with a Content-Length.");
        return true;
    }
    return false;
}

std::string LumivesperServer::clientAddress(const httplib::Request& request) const {
    if (options_.trustForwardedFor && request.has_header("X-Forwarded-For")) {
        // The last entry is the one our own reverse proxy added; earlier ones the client may forge.
        std::string forwarded = request.get_header_value("X-Forwarded-For");
        const auto comma = forwarded.rfind(',');
        if (comma != std::string::npos)
            forwarded.erase(0, comma + 1);
        const auto first = forwarded.find_first_not_of(' ');
        const auto last = forwarded.find_last_not_of(' ');
        if (first != std::string::npos)
            return forwarded.substr(first, last - first + 1);
    }
    return request.remote_addr;
}

void LumivesperServer::handleHealth(httplib::Response& response) {
    const nlohmann::json body = {{"status", "ok"},
                                 {"version", LUMIVESPER_VERSION},
                                 {"provider_key", forwarder_.has_value()},
                                 {"prompts_version", prompts_.version()}};
    response.set_content(body.dump(), "application/json");
}

void LumivesperServer::handleToken(const httplib::Request& request, httplib::Response& response) {
    if (const auto wait = tokenLimiter_.admit(clientAddress(request))) {
        response.set_header("Retry-After", std::to_string(wait->count()));
        replyText(response, 429,
                  "Too many token requests from this address; try again in " +
                      std::to_string(wait->count()) + " seconds.");
        return;
    }
    generation::TokenRequest tokenRequest;
    try {
        tokenRequest = generation::decodeTokenRequest(request.body);
    } catch (const document::DecodingError& error) {
        replyText(response, 400, error.what());
        return;
    }
    if (!DeviceTokenSigner::isAcceptableDeviceId(tokenRequest.deviceId)) {
        replyText(response, 400,
                  "The device id must be 1 to 128 letters, digits, '-', '_' or '.'.");
        return;
    }
    log_.note("device", AccessLog::deviceTag(tokenRequest.deviceId));
    log_.note("client_version", tokenRequest.version.substr(0, 32));
    const generation::TokenResponse answer{signer_.issue(tokenRequest.deviceId),
                                           signer_.lifetime().count()};
    response.set_content(generation::encodeTokenResponse(answer), "application/json");
}

void LumivesperServer::handlePrompts(httplib::Response& response) {
    response.set_content(prompts_.text(), "application/json");
}

void LumivesperServer::handleFeed(settings::UpdateChannel channel, httplib::Response& response) {
    const auto feed = feeds_.feed(channel);
    if (!feed) {
        replyText(response, 404,
                  "This server publishes no " + std::string(settings::rawValue(channel)) +
                      " update feed.");
        return;
    }
    response.set_content(*feed, "application/xml");
}

void LumivesperServer::handleProxy(const httplib::Request& request, httplib::Response& response) {
    const std::string authorization = request.get_header_value("Authorization");
    constexpr std::string_view bearer = "Bearer ";
    if (!authorization.starts_with(bearer)) {
        log_.note("auth", "missing");
        replyText(response, 401, "A device token is required.");
        return;
    }
    const auto verification = signer_.verify(std::string_view(authorization).substr(bearer.size()));
    switch (verification.verdict) {
    case DeviceTokenSigner::Verdict::valid:
        break;
    case DeviceTokenSigner::Verdict::expired:
        log_.note("auth", "expired");
        replyText(response, 401, "The device token has expired.");
        return;
    case DeviceTokenSigner::Verdict::malformed:
    case DeviceTokenSigner::Verdict::badSignature:
        log_.note("auth", "invalid");
        replyText(response, 401, "The device token is not valid.");
        return;
    }
    log_.note("device", AccessLog::deviceTag(verification.deviceId));

    if (const auto wait = proxyLimiter_.admit(verification.deviceId)) {
        response.set_header("Retry-After", std::to_string(wait->count()));
        replyText(response, 429,
                  "Too many image requests from this device; try again in " +
                      std::to_string(wait->count()) + " seconds.");
        return;
    }
    if (!forwarder_) {
        replyText(response, 503, "This server has no image provider key configured.");
        return;
    }
    std::string model;
    const auto body = nlohmann::json::parse(request.body, nullptr, false);
    if (const auto problem = chatRequestProblem(body, model)) {
        replyText(response, 400, "The request is not a chat completion: " + *problem + ".");
        return;
    }
    log_.note("model", model.substr(0, 100));
    if (!options_.allowedModels.empty() &&
        std::find(options_.allowedModels.begin(), options_.allowedModels.end(), model) ==
            options_.allowedModels.end()) {
        replyText(response, 403, "This server does not offer the model " + model + ".");
        return;
    }

    ProxyReply reply = forwarder_->forward(request.body, stopping_.get_token());
    log_.note("provider_status", reply.providerStatus);
    response.status = reply.status;
    if (reply.retryAfter)
        response.set_header("Retry-After", *reply.retryAfter);
    response.set_header("Content-Type", reply.contentType);
    response.body = std::move(reply.body); // images run to megabytes: no copy
}

int LumivesperServer::bind() {
    const int port = options_.port == 0
                         ? http_->bind_to_any_port(options_.host)
                         : (http_->bind_to_port(options_.host, options_.port) ? options_.port : -1);
    if (port < 0)
        throw std::runtime_error("Cannot listen on " + options_.host + ":" +
                                 std::to_string(options_.port));
    // Both kinds of server are the same template over the library's classes.
    if (auto* secure = dynamic_cast<WideBacklog<httplib::SSLServer>*>(http_.get()))
        secure->widenBacklog(listenBacklog);
    else if (auto* plain = dynamic_cast<WideBacklog<httplib::Server>*>(http_.get()))
        plain->widenBacklog(listenBacklog);
    port_ = port;
    return port;
}

void LumivesperServer::run() {
    if (port_ < 0 || stopping_.stop_requested())
        return;
    log_.event("listening", {{"host", options_.host},
                             {"port", port_},
                             {"tls", options_.tlsCertificate.has_value()},
                             {"provider_key", forwarder_.has_value()},
                             {"prompts_version", prompts_.version()},
                             {"version", LUMIVESPER_VERSION}});
    http_->listen_after_bind();
    log_.event("stopped");
}

void LumivesperServer::stop() {
    stopping_.request_stop();
    http_->stop();
}

bool LumivesperServer::isRunning() const {
    return http_->is_running();
}

} // namespace lumivesper::server
