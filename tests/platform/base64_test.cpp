#include "platform/base64.h"

#include <gtest/gtest.h>

namespace lumivesper::platform {
namespace {

std::vector<std::uint8_t> bytes(std::string_view text) {
    return {text.begin(), text.end()};
}

TEST(Base64Test, RoundTripsEveryTailLengthAndBinaryBytes) {
    const std::pair<std::string_view, std::string_view> cases[] = {
        {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {"foob", "Zm9vYg=="}};
    for (const auto& [plain, encoded] : cases) {
        EXPECT_EQ(encodeBase64(bytes(plain)), encoded);
        EXPECT_EQ(decodeBase64(encoded), bytes(plain));
    }
    const std::vector<std::uint8_t> binary = {0xFF, 0x00, 0x80, 0xFB, 0xEF, 0xBE};
    EXPECT_EQ(encodeBase64(binary), "/wCA++++");
    EXPECT_EQ(decodeBase64("/wCA++++"), binary);
}

TEST(Base64Test, StrictDecodingRefusesWhatTheLenientOneSkips) {
    for (std::string_view bad : {"Zm9v\n", "Zm9", "Z===", "Zm=v", "Zm9v!"})
        EXPECT_FALSE(decodeBase64(bad)) << bad;
    EXPECT_EQ(decodeBase64IgnoringUnknown("Zm9v\nYmFy\r\n"), bytes("foobar"));
    EXPECT_EQ(decodeBase64IgnoringUnknown("Zm8"), bytes("fo")); // padding may be missing
    EXPECT_FALSE(decodeBase64IgnoringUnknown("Zm8=Zg"));        // data after padding
}

} // namespace
} // namespace lumivesper::platform
