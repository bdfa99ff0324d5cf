#pragma once

#include <optional>
#include <string>
#include <utility>

namespace lumivesper::generation {

// Where a direct client finds its API key.
class APIKeyProvider {
public:
    virtual ~APIKeyProvider() = default;
    virtual std::optional<std::string> apiKey() const = 0;
};

// Reads the process environment at every call and keeps nothing, so a key never lands in the
// program's settings and a changed environment counts at the next call.
class EnvironmentAPIKeyProvider final : public APIKeyProvider {
public:
    explicit EnvironmentAPIKeyProvider(std::string name) : keyName(std::move(name)) {}

    std::optional<std::string> apiKey() const override;

    const std::string keyName;
};

// Whether `provider` could try a call: a key is present, even an empty one.
bool hasKey(const APIKeyProvider& provider);

// The key a request may use: present and not empty; otherwise missingAPIKey is thrown.
std::string requireKey(const APIKeyProvider& provider);

} // namespace lumivesper::generation
