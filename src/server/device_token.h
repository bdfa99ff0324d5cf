#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace lumivesper::server {

// Bearer tokens that carry their own proof: the device id and the end of the token's life, signed
// with HMAC-SHA256 under the operator's secret. The server keeps no table of tokens; any instance
// holding the same secret accepts them, and changing the secret voids every token at once.
class DeviceTokenSigner {
public:
    using Clock = std::function<std::chrono::system_clock::time_point()>;

    enum class Verdict { valid, malformed, badSignature, expired };
    struct Verification {
        Verdict verdict = Verdict::malformed;
        std::string deviceId; // set when valid
    };

    // The secret must hold at least `minimumSecretLength` bytes.
    static constexpr std::size_t minimumSecretLength = 32;

    DeviceTokenSigner(std::string secret, std::chrono::seconds lifetime,
                      Clock clock = std::chrono::system_clock::now);

    std::string issue(std::string_view deviceId) const;
    Verification verify(std::string_view token) const;

    std::chrono::seconds lifetime() const { return lifetime_; }

    // Whether a device id may go into a token: 1 to 128 characters of letters, digits, "-", "_"
    // and ".". The program sends an upper-case UUID.
    static bool isAcceptableDeviceId(std::string_view deviceId);
    // A secret of `minimumSecretLength` random bytes, for a server started without one.
    static std::string randomSecret();

private:
    std::string signature(std::string_view payload) const;

    std::string secret_;
    std::chrono::seconds lifetime_;
    Clock now_;
};

} // namespace lumivesper::server
