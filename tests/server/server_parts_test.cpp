// The server's building blocks on their own: tokens, rate limits, configuration.

#include "server/device_token.h"
#include "server/rate_limiter.h"
#include "server/server_options.h"
#include "support/temporary_folder.h"

#include <fstream>
#include <gtest/gtest.h>
#include <map>

namespace lumivesper::server {
namespace {

using namespace std::chrono_literals;
using Verdict = DeviceTokenSigner::Verdict;

TEST(DeviceTokens, AcceptOnlyTheirOwnUnalteredTokensUntilTheyEnd) {
    auto now = std::chrono::system_clock::now();
    const std::string secret(40, 's');
    const DeviceTokenSigner signer(secret, 3600s, [&] { return now; });
    const std::string token = signer.issue("8F0C-UUID");
    const auto dot = token.find('.');
    std::string flipped = token;
    flipped[dot - 1] = flipped[dot - 1] == 'A' ? 'B' : 'A';

    const std::pair<std::string, Verdict> cases[] = {
        {token, Verdict::valid},
        {DeviceTokenSigner(std::string(40, 'o'), 3600s).issue("8F0C-UUID"), Verdict::badSignature},
        {flipped, Verdict::badSignature},
        {signer.issue("OTHER").substr(0, signer.issue("OTHER").find('.')) + token.substr(dot),
         Verdict::badSignature},
        {token + "=", Verdict::malformed}, // one spelling only
        {token.substr(0, dot), Verdict::malformed},
        {"", Verdict::malformed},
        {"no.tokens+here", Verdict::malformed},
    };
    for (const auto& [candidate, verdict] : cases)
        EXPECT_EQ(signer.verify(candidate).verdict, verdict) << candidate;
    EXPECT_EQ(signer.verify(token).deviceId, "8F0C-UUID");

    now += 3599s;
    EXPECT_EQ(signer.verify(token).verdict, Verdict::valid);
    now += 1s;
    EXPECT_EQ(signer.verify(token).verdict, Verdict::expired);

    EXPECT_THROW(DeviceTokenSigner(std::string(31, 's'), 3600s), std::invalid_argument);
}

TEST(RateLimits, AllowABurstThenRefillAtTheHourlyRatePerKey) {
    auto now = std::chrono::steady_clock::time_point{};
    RateLimiter limiter(3, 60, [&] { return now; }); // one a minute after the burst
    for (int i = 0; i < 3; ++i)
        EXPECT_FALSE(limiter.admit("device")) << i;
    EXPECT_EQ(limiter.admit("device"), 60s);
    EXPECT_FALSE(limiter.admit("another device"));

    now += 30s;
    EXPECT_EQ(limiter.admit("device"), 30s); // a refusal costs nothing
    now += 30s;
    EXPECT_FALSE(limiter.admit("device"));
    EXPECT_TRUE(limiter.admit("device"));

    // Keys whose buckets have filled again are forgotten, so memory follows recent activity.
    now += 1h;
    limiter.admit("newcomer");
    EXPECT_EQ(limiter.trackedKeys(), 1u);
}

TEST(ServerConfiguration, FlagsWinOverTheEnvironmentAndSecretsComeFromFiles) {
    lumivesper::testing::TemporaryFolder folder;
    std::ofstream(folder.path() / "key") << "sk-from-file\n";
    const std::map<std::string, std::string> environment = {
        {"LUMIVESPER_SERVER_PORT", "9000"},
        {"LUMIVESPER_SERVER_HOST", "0.0.0.0"},
        {"OPENROUTER_API_KEY", "sk-from-environment"},
        {"LUMIVESPER_TOKEN_SECRET", std::string(32, 'e')},
        {"LUMIVESPER_MAX_BODY", "512K"},
        {"LUMIVESPER_TRUST_FORWARDED_FOR", "yes"},
        {"LUMIVESPER_ALLOWED_MODELS", "a/b, c/d ,"},
    };
    const auto lookup = [&](const std::string& name) -> std::optional<std::string> {
        const auto found = environment.find(name);
        return found == environment.end() ? std::nullopt : std::optional(found->second);
    };

    const auto parsed =
        parseCommandLine({"--port=9100", "--provider-key-file", (folder.path() / "key").string(),
                          "--provider-timeout", "30"},
                         lookup);
    const auto& options = parsed.options;
    EXPECT_EQ(options.port, 9100);
    EXPECT_EQ(options.host, "0.0.0.0");
    EXPECT_EQ(options.providerKey, "sk-from-file");
    EXPECT_EQ(options.tokenSecret, std::string(32, 'e'));
    EXPECT_EQ(options.maxBodyBytes, 512u * 1024);
    EXPECT_TRUE(options.trustForwardedFor);
    EXPECT_EQ(options.allowedModels, (std::vector<std::string>{"a/b", "c/d"}));
    EXPECT_EQ(options.providerTimeout, 30s);
}

TEST(ServerConfiguration, NamesWhatIsWrong) {
    const auto noEnvironment = [](const std::string&) { return std::optional<std::string>(); };
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{"--port", "99999"}, "--port"},
        {{"--max-body", "12X"}, "--max-body"},
        {{"--threads"}, "--threads needs a value"},
        {{"--frobnicate"}, "unknown option --frobnicate"},
        {{"stray"}, "unexpected argument"},
        {{"--tls-cert", "c.pem"}, "go together"},
        {{"--token-secret-file", "/nonexistent/secret"}, "cannot read"},
    };
    for (const auto& [arguments, says] : cases) {
        try {
            parseCommandLine(arguments, noEnvironment);
            ADD_FAILURE() << says;
        } catch (const UsageError& error) {
            EXPECT_NE(std::string(error.what()).find(says), std::string::npos) << error.what();
        }
    }
    EXPECT_THROW(parseCommandLine({},
                                  [](const std::string& name) {
                                      return name == "LUMIVESPER_TOKEN_SECRET"
                                                 ? std::optional<std::string>("short")
                                                 : std::nullopt;
                                  }),
                 UsageError);
}

} // namespace
} // namespace lumivesper::server
