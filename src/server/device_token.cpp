#include "server/device_token.h"

#include "platform/base64.h"

#include <charconv>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>
#include <stdexcept>

namespace lumivesper::server {

namespace {

// Tokens travel in headers, so they use the URL-safe alphabet without padding.
std::string base64URL(std::string_view bytes) {
    std::string text = platform::encodeBase64(
        std::span(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()));
    while (!text.empty() && text.back() == '=')
        text.pop_back();
    for (char& c : text)
        c = c == '+' ? '-' : c == '/' ? '_' : c;
    return text;
}

std::optional<std::string> fromBase64URL(std::string_view text) {
    std::string standard(text);
    for (char& c : standard) {
        if (c == '+' || c == '/' || c == '=')
            return std::nullopt; // only one spelling of a token is genuine
        c = c == '-' ? '+' : c == '_' ? '/' : c;
    }
    standard.append((4 - standard.size() % 4) % 4, '=');
    const auto bytes = platform::decodeBase64(standard);
    if (!bytes)
        return std::nullopt;
    return std::string(bytes->begin(), bytes->end());
}

std::int64_t secondsSinceEpoch(std::chrono::system_clock::time_point time) {
    return std::chrono::duration_cast<std::chrono::seconds>(time.time_since_epoch()).count();
}

} // namespace

DeviceTokenSigner::DeviceTokenSigner(std::string secret, std::chrono::seconds lifetime, Clock clock)
    : secret_(std::move(secret)), lifetime_(lifetime), now_(std::move(clock)) {
    if (secret_.size() < minimumSecretLength)
        throw std::invalid_argument("The token secret must be at least " +
                                    std::to_string(minimumSecretLength) + " bytes long");
}

bool DeviceTokenSigner::isAcceptableDeviceId(std::string_view deviceId) {
    if (deviceId.empty() || deviceId.size() > 128)
        return false;
    for (const char c : deviceId) {
        const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                           (c >= '0' && c <= '9') || c == '-' || c == '_' || c == '.';
        if (!plain)
            return false;
    }
    return true;
}

std::string DeviceTokenSigner::randomSecret() {
    std::string secret(minimumSecretLength, '\0');
    if (RAND_bytes(reinterpret_cast<unsigned char*>(secret.data()),
                   static_cast<int>(secret.size())) != 1)
        throw std::runtime_error("The system could not supply random bytes for a token secret");
    return secret;
}

std::string DeviceTokenSigner::signature(std::string_view payload) const {
    unsigned char mac[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (!HMAC(EVP_sha256(), secret_.data(), static_cast<int>(secret_.size()),
              reinterpret_cast<const unsigned char*>(payload.data()), payload.size(), mac, &length))
        throw std::runtime_error("Could not sign a token");
    return std::string(reinterpret_cast<const char*>(mac), length);
}

std::string DeviceTokenSigner::issue(std::string_view deviceId) const {
    const auto expiresAt = secondsSinceEpoch(now_() + lifetime_);
    const std::string payload = base64URL(std::string(deviceId) + ":" + std::to_string(expiresAt));
    return payload + "." + base64URL(signature(payload));
}

DeviceTokenSigner::Verification DeviceTokenSigner::verify(std::string_view token) const {
    const auto dot = token.find('.');
    if (dot == std::string_view::npos)
        return {};
    const auto payload = token.substr(0, dot);
    const auto givenSignature = fromBase64URL(token.substr(dot + 1));
    const auto claims = fromBase64URL(payload);
    if (!givenSignature || !claims)
        return {};
    const std::string expected = signature(payload);
    if (givenSignature->size() != expected.size() ||
        CRYPTO_memcmp(givenSignature->data(), expected.data(), expected.size()) != 0)
        return {Verdict::badSignature, {}};

    // Signed by us, so the shape is ours; still, read it defensively.
    const auto colon = claims->rfind(':');
    if (colon == std::string::npos)
        return {};
    std::int64_t expiresAt = 0;
    const char* end = claims->data() + claims->size();
    if (std::from_chars(claims->data() + colon + 1, end, expiresAt).ptr != end)
        return {};
    if (secondsSinceEpoch(now_()) >= expiresAt)
        return {Verdict::expired, {}};
    return {Verdict::valid, claims->substr(0, colon)};
}

} // namespace lumivesper::server
