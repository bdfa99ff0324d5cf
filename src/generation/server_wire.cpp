#include "generation/server_wire.h"

#include "document/json_coding.h"

#include <nlohmann/json.hpp>

namespace lumivesper::generation {

namespace {

template <typename Decode> auto decoded(std::string_view text, const char* what, Decode decode) {
    try {
        return decode(nlohmann::json::parse(text));
    } catch (const nlohmann::json::exception& error) {
        throw document::DecodingError(std::string("The ") + what +
                                      " could not be read: " + error.what());
    }
}

} // namespace

std::string encodeTokenRequest(const TokenRequest& request) {
    return nlohmann::json{{"deviceId", request.deviceId},
                          {"bundleId", request.bundleId},
                          {"version", request.version}}
        .dump();
}

std::string encodeTokenResponse(const TokenResponse& response) {
    return nlohmann::json{{"token", response.token}, {"expiresIn", response.expiresIn}}.dump();
}

TokenRequest decodeTokenRequest(std::string_view text) {
    return decoded(text, "token request", [](const nlohmann::json& json) {
        return TokenRequest{json.at("deviceId").get<std::string>(),
                            json.at("bundleId").get<std::string>(),
                            json.at("version").get<std::string>()};
    });
}

TokenResponse decodeTokenResponse(std::string_view text) {
    return decoded(text, "token response", [](const nlohmann::json& json) {
        return TokenResponse{json.at("token").get<std::string>(),
                             json.at("expiresIn").get<std::int64_t>()};
    });
}

} // namespace lumivesper::generation
