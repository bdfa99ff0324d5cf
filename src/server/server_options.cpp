#include "server/server_options.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>

namespace lumivesper::server {

namespace {

using Apply = std::function<void(ServerOptions&, const std::string&)>;

struct OptionDefinition {
    const char* flag;        // without the leading "--"
    const char* environment; // nullptr: flag only
    const char* valueName;   // nullptr: a switch
    const char* help;
    Apply apply;
};

long long parseInteger(const std::string& text, long long minimum, long long maximum) {
    long long value = 0;
    const char* end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || rest != end || value < minimum || value > maximum)
        throw UsageError("expected a whole number from " + std::to_string(minimum) + " to " +
                         std::to_string(maximum) + ", got \"" + text + "\"");
    return value;
}

// "33554432", "512K", "32M", "1G".
std::size_t parseSize(const std::string& text) {
    std::string digits = text;
    long long unit = 1;
    if (!digits.empty()) {
        switch (digits.back()) {
        case 'K':
        case 'k':
            unit = 1024;
            break;
        case 'M':
        case 'm':
            unit = 1024 * 1024;
            break;
        case 'G':
        case 'g':
            unit = 1024 * 1024 * 1024;
            break;
        default:
            break;
        }
        if (unit != 1)
            digits.pop_back();
    }
    return static_cast<std::size_t>(parseInteger(digits, 1, (1LL << 40) / unit) * unit);
}

bool parseSwitch(const std::string& text) {
    if (text == "1" || text == "true" || text == "yes" || text == "on")
        return true;
    if (text == "0" || text == "false" || text == "no" || text == "off" || text.empty())
        return false;
    throw UsageError("expected true or false, got \"" + text + "\"");
}

// The first line of a file, for secrets kept in files (systemd credentials, container secrets).
std::string firstLineOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw UsageError("cannot read " + path);
    std::string line;
    std::getline(file, line);
    if (!line.empty() && line.back() == '\r')
        line.pop_back();
    return line;
}

std::vector<std::string> commaSeparated(const std::string& text) {
    std::vector<std::string> items;
    std::stringstream stream(text);
    for (std::string item; std::getline(stream, item, ',');) {
        while (!item.empty() && item.front() == ' ')
            item.erase(item.begin());
        while (!item.empty() && item.back() == ' ')
            item.pop_back();
        if (!item.empty())
            items.push_back(item);
    }
    return items;
}

const std::vector<OptionDefinition>& optionDefinitions() {
    static const std::vector<OptionDefinition> definitions = {
        {"host", "LUMIVESPER_SERVER_HOST", "ADDRESS",
         "address to listen on (default 127.0.0.1; 0.0.0.0 for every interface)",
         [](ServerOptions& o, const std::string& v) { o.host = v; }},
        {"port", "LUMIVESPER_SERVER_PORT", "PORT", "port to listen on (default 8080; 0 picks one)",
         [](ServerOptions& o, const std::string& v) { o.port = int(parseInteger(v, 0, 65535)); }},
        {"threads", "LUMIVESPER_SERVER_THREADS", "N",
         "requests handled at once (default 64); a proxied request holds one while the model runs",
         [](ServerOptions& o, const std::string& v) { o.threads = int(parseInteger(v, 2, 4096)); }},
        {"tls-cert", "LUMIVESPER_TLS_CERT", "FILE",
         "PEM certificate chain: serve HTTPS directly (with --tls-key)",
         [](ServerOptions& o, const std::string& v) { o.tlsCertificate = v; }},
        {"tls-key", "LUMIVESPER_TLS_KEY", "FILE", "PEM private key for --tls-cert",
         [](ServerOptions& o, const std::string& v) { o.tlsPrivateKey = v; }},
        {"token-secret-file", "LUMIVESPER_TOKEN_SECRET_FILE", "FILE",
         "file whose first line is the token signing secret (32 bytes or more); "
         "LUMIVESPER_TOKEN_SECRET may hold the secret itself. Without either, a random secret "
         "is made and tokens end with the process",
         [](ServerOptions& o, const std::string& v) { o.tokenSecret = firstLineOf(v); }},
        {"token-lifetime", "LUMIVESPER_TOKEN_LIFETIME", "SECONDS",
         "lifetime of a device token (default 3600; the program renews 600 s before the end)",
         [](ServerOptions& o, const std::string& v) {
             o.tokenLifetime = std::chrono::seconds(parseInteger(v, 60, 30 * 24 * 3600));
         }},
        {"provider-key-file", "OPENROUTER_API_KEY_FILE", "FILE",
         "file whose first line is the OpenRouter key; OPENROUTER_API_KEY may hold the key itself",
         [](ServerOptions& o, const std::string& v) { o.providerKey = firstLineOf(v); }},
        {"provider-url", "LUMIVESPER_PROVIDER_URL", "URL",
         "OpenRouter's API base (default https://openrouter.ai/api/v1)",
         [](ServerOptions& o, const std::string& v) {
             o.providerURL = v;
             while (!o.providerURL.empty() && o.providerURL.back() == '/')
                 o.providerURL.pop_back();
         }},
        {"provider-timeout", "LUMIVESPER_PROVIDER_TIMEOUT", "SECONDS",
         "give up on the provider after this long (default 170, inside the program's 180)",
         [](ServerOptions& o, const std::string& v) {
             o.providerTimeout = std::chrono::seconds(parseInteger(v, 1, 3600));
         }},
        {"allowed-models", "LUMIVESPER_ALLOWED_MODELS", "ID,ID",
         "models the proxy forwards; others get 403 (default: any)",
         [](ServerOptions& o, const std::string& v) { o.allowedModels = commaSeparated(v); }},
        {"prompts-file", "LUMIVESPER_PROMPTS_FILE", "FILE",
         "prompt templates to serve, re-read when changed (default: the bundled ones)",
         [](ServerOptions& o, const std::string& v) { o.promptsFile = v; }},
        {"appcast-dir", "LUMIVESPER_APPCAST_DIR", "DIR",
         "folder holding appcast.xml and appcast-beta.xml (default: no update feeds)",
         [](ServerOptions& o, const std::string& v) { o.appcastDirectory = v; }},
        {"max-body", "LUMIVESPER_MAX_BODY", "SIZE",
         "largest request body, e.g. 32M (default); larger ones get 413 unread",
         [](ServerOptions& o, const std::string& v) { o.maxBodyBytes = parseSize(v); }},
        {"proxy-burst", "LUMIVESPER_PROXY_BURST", "N",
         "image requests a device may make at once (default 20)",
         [](ServerOptions& o, const std::string& v) {
             o.proxyBurst = int(parseInteger(v, 1, 1000000));
         }},
        {"proxy-per-hour", "LUMIVESPER_PROXY_PER_HOUR", "N",
         "image requests a device may make an hour after its burst (default 120)",
         [](ServerOptions& o, const std::string& v) {
             o.proxyPerHour = int(parseInteger(v, 1, 1000000));
         }},
        {"token-burst", "LUMIVESPER_TOKEN_BURST", "N",
         "tokens one client address may fetch at once (default 10)",
         [](ServerOptions& o, const std::string& v) {
             o.tokenBurst = int(parseInteger(v, 1, 1000000));
         }},
        {"token-per-hour", "LUMIVESPER_TOKEN_PER_HOUR", "N",
         "tokens one client address may fetch an hour after its burst (default 60)",
         [](ServerOptions& o, const std::string& v) {
             o.tokenPerHour = int(parseInteger(v, 1, 1000000));
         }},
        {"trust-forwarded-for", "LUMIVESPER_TRUST_FORWARDED_FOR", nullptr,
         "take the client address from X-Forwarded-For (only behind a reverse proxy that sets it)",
         [](ServerOptions& o, const std::string& v) { o.trustForwardedFor = parseSwitch(v); }},
    };
    return definitions;
}

void applyOption(const OptionDefinition& definition, ServerOptions& options,
                 const std::string& value, const std::string& source) {
    try {
        definition.apply(options, value);
    } catch (const UsageError& error) {
        throw UsageError(source + ": " + error.what());
    }
}

} // namespace

std::optional<std::string> processEnvironment(const std::string& name) {
    if (const char* value = std::getenv(name.c_str()))
        return std::string(value);
    return std::nullopt;
}

ParsedCommandLine parseCommandLine(const std::vector<std::string>& arguments,
                                   const EnvironmentLookup& environment) {
    ParsedCommandLine parsed;
    ServerOptions& options = parsed.options;

    // The secrets' own variables first, so that a file named by a variable or flag replaces them.
    if (auto secret = environment("LUMIVESPER_TOKEN_SECRET"); secret && !secret->empty())
        options.tokenSecret = *secret;
    if (auto key = environment("OPENROUTER_API_KEY"); key && !key->empty())
        options.providerKey = *key;
    for (const auto& definition : optionDefinitions())
        if (definition.environment)
            if (auto value = environment(definition.environment); value && !value->empty())
                applyOption(definition, options, *value, definition.environment);

    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        if (argument == "--help" || argument == "-h") {
            parsed.showHelp = true;
            continue;
        }
        if (argument == "--version") {
            parsed.showVersion = true;
            continue;
        }
        if (!argument.starts_with("--"))
            throw UsageError("unexpected argument \"" + argument + "\"");
        const auto equals = argument.find('=');
        const std::string name =
            argument.substr(2, equals == std::string::npos ? std::string::npos : equals - 2);
        const auto definition =
            std::find_if(optionDefinitions().begin(), optionDefinitions().end(),
                         [&](const OptionDefinition& s) { return name == s.flag; });
        if (definition == optionDefinitions().end())
            throw UsageError("unknown option --" + name);
        std::string value;
        if (equals != std::string::npos) {
            value = argument.substr(equals + 1);
        } else if (!definition->valueName) {
            value = "true";
        } else {
            if (i + 1 >= arguments.size())
                throw UsageError("--" + name + " needs a value");
            value = arguments[++i];
        }
        applyOption(*definition, options, value, "--" + name);
    }

    if (options.tlsCertificate.has_value() != options.tlsPrivateKey.has_value())
        throw UsageError("--tls-cert and --tls-key go together");
    if (options.tokenSecret && options.tokenSecret->size() < 32)
        throw UsageError("the token secret must be at least 32 bytes long");
    return parsed;
}

std::string helpText() {
    std::string text =
        "Usage: lumivesper-server [OPTION]...\n"
        "The server of Lumivesper AI: device tokens, prompt templates, the image proxy to\n"
        "OpenRouter and the update feeds. Each option may also be given by the environment\n"
        "variable named beside it; an option on the command line wins.\n\n";
    for (const auto& definition : optionDefinitions()) {
        std::string left = std::string("  --") + definition.flag;
        if (definition.valueName)
            left += std::string(" ") + definition.valueName;
        text += left + "\n      " + definition.help + "\n";
        if (definition.environment)
            text += std::string("      [") + definition.environment + "]\n";
    }
    text += "  --help      this text\n"
            "  --version   the version\n\n"
            "Endpoints: POST /api/token, GET /api/prompts, POST /api/proxy/chat/completions,\n"
            "GET /api/updates/appcast.xml, GET /api/updates/appcast-beta.xml, GET /healthz.\n"
            "Access logs are JSON lines on standard output.\n";
    return text;
}

} // namespace lumivesper::server
