#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace lumivesper::generation {

// What our own server and its clients say to each other. Both sides use these, so the two cannot
// drift apart.

inline constexpr std::string_view tokenPath = "/api/token";
inline constexpr std::string_view promptsPath = "/api/prompts";
inline constexpr std::string_view proxyPath = "/api/proxy";
inline constexpr std::string_view chatCompletionsPath = "/chat/completions";

// The body of a token request: who asks, and from which build.
struct TokenRequest {
    std::string deviceId;
    std::string bundleId;
    std::string version;
};

// The answer: the bearer token and its lifetime in seconds from now.
struct TokenResponse {
    std::string token;
    std::int64_t expiresIn = 0;
};

std::string encodeTokenRequest(const TokenRequest& request);
std::string encodeTokenResponse(const TokenResponse& response);
// Every key is required; throw document::DecodingError naming what is wrong.
TokenRequest decodeTokenRequest(std::string_view text);
TokenResponse decodeTokenResponse(std::string_view text);

} // namespace lumivesper::generation
