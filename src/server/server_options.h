#pragma once

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace lumivesper::server {

// Everything an operator can set, each by a flag or by an environment variable; a flag wins.
struct ServerOptions {
    std::string host = "127.0.0.1";
    int port = 8080;
    int threads = 64; // each proxied request holds one for as long as the model takes

    std::optional<std::filesystem::path> tlsCertificate;
    std::optional<std::filesystem::path> tlsPrivateKey;

    std::optional<std::string> tokenSecret; // none: a random one, void after a restart
    std::chrono::seconds tokenLifetime{3600};

    std::optional<std::string> providerKey; // none: the proxy answers 503
    std::string providerURL = "https://openrouter.ai/api/v1";
    std::chrono::milliseconds providerTimeout{std::chrono::seconds(170)};
    std::vector<std::string> allowedModels; // empty: any model

    std::optional<std::filesystem::path> promptsFile; // none: the bundled templates
    std::optional<std::filesystem::path> appcastDirectory;

    std::size_t maxBodyBytes = 32 * 1024 * 1024;
    int proxyBurst = 20;
    int proxyPerHour = 120;
    int tokenBurst = 10;
    int tokenPerHour = 60;
    bool trustForwardedFor = false;
};

class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct ParsedCommandLine {
    ServerOptions options;
    bool showHelp = false;
    bool showVersion = false;
};

using EnvironmentLookup = std::function<std::optional<std::string>(const std::string& name)>;

// Reads the process environment.
std::optional<std::string> processEnvironment(const std::string& name);

// Throws UsageError naming the flag or variable at fault. Secrets are read from files here, so
// that they need not appear in a process listing.
ParsedCommandLine parseCommandLine(const std::vector<std::string>& arguments,
                                   const EnvironmentLookup& environment = processEnvironment);

std::string helpText();

} // namespace lumivesper::server
