#include "scoped_environment.h"
#include "settings/server_config.h"

#include <gtest/gtest.h>

namespace lumivesper::settings {
namespace {

using testing::ScopedEnvironment;

TEST(BuiltInAddresses, AreHttpsWithoutATrailingSlash) {
    for (const std::string url : {builtInServerURL, builtInFeedBaseURL}) {
        EXPECT_TRUE(url.starts_with("https://")) << url;
        EXPECT_FALSE(url.ends_with("/")) << url;
    }
}

struct EnvironmentCase {
    const char* name;
    std::optional<std::string> value;
    std::string expected;
    std::string consoleLine;
};

class DefaultServerURLTest : public ::testing::TestWithParam<EnvironmentCase> {};

TEST_P(DefaultServerURLTest, FollowsTheEnvironment) {
    ScopedEnvironment variable("API_SERVER_URL", GetParam().value);
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(defaultServerURL(), GetParam().expected);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), GetParam().consoleLine + "\n");
}

const std::string releaseLine = std::string("🔧 Using RELEASE serverURL: ") + builtInServerURL;

INSTANTIATE_TEST_SUITE_P(
    Cases, DefaultServerURLTest,
    ::testing::Values(
        EnvironmentCase{"Unset", std::nullopt, builtInServerURL, releaseLine},
        EnvironmentCase{"Empty", "", builtInServerURL, releaseLine},
        EnvironmentCase{"Set", "http://127.0.0.1:8080", "http://127.0.0.1:8080",
                        "🔧 Using API_SERVER_URL from environment: http://127.0.0.1:8080"},
        EnvironmentCase{"TrailingSlashKept", "http://example.test/", "http://example.test/",
                        "🔧 Using API_SERVER_URL from environment: http://example.test/"},
        EnvironmentCase{"BlankCountsAsSet", " ", " ",
                        "🔧 Using API_SERVER_URL from environment:  "}),
    [](const ::testing::TestParamInfo<EnvironmentCase>& testCase) {
        return std::string(testCase.param.name);
    });

TEST(FeedBaseURL, FollowsTheEnvironmentSilently) {
    {
        ScopedEnvironment variable("SPARKLE_FEED_BASE_URL", std::nullopt);
        ::testing::internal::CaptureStdout();
        EXPECT_EQ(feedBaseURL(), builtInFeedBaseURL);
        EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
    }
    {
        ScopedEnvironment variable("SPARKLE_FEED_BASE_URL", "");
        EXPECT_EQ(feedBaseURL(), builtInFeedBaseURL);
    }
    {
        ScopedEnvironment variable("SPARKLE_FEED_BASE_URL", "http://127.0.0.1:9");
        EXPECT_EQ(feedBaseURL(), "http://127.0.0.1:9");
    }
}

} // namespace
} // namespace lumivesper::settings
