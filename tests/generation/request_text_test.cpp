#include "generation/base64.h"
#include "generation/image_provider_route.h"
#include "generation/request_text.h"

#include <gtest/gtest.h>

namespace lumivesper::generation {
namespace {

struct RouteCase {
    const char* model;
    ImageProviderRoute route;
};

class ImageProviderRouteTest : public ::testing::TestWithParam<RouteCase> {};

TEST_P(ImageProviderRouteTest, ClassifiesModelId) {
    EXPECT_EQ(imageProviderRoute(GetParam().model), GetParam().route) << GetParam().model;
}

INSTANTIATE_TEST_SUITE_P(
    Table, ImageProviderRouteTest,
    ::testing::Values(
        RouteCase{"OpenAI/gpt-image-1 ", ImageProviderRoute::openAI},
        RouteCase{"\n openai/dall-e-3", ImageProviderRoute::openAI},
        RouteCase{"google/imagen", ImageProviderRoute::gemini},
        RouteCase{"my-gemini-model", ImageProviderRoute::gemini},
        RouteCase{"openrouter/google/gemini-3-pro-image-preview", ImageProviderRoute::gemini},
        RouteCase{"openrouter/black-forest-labs/flux", ImageProviderRoute::openRouter},
        RouteCase{"stability/sd3", ImageProviderRoute::automatic},
        RouteCase{"", ImageProviderRoute::automatic}));

struct SizeCase {
    const char* aspectRatio;
    std::optional<std::string> imageSize;
    std::optional<std::string> expected;
};

class NormalizedImageSizeTest : public ::testing::TestWithParam<SizeCase> {};

TEST_P(NormalizedImageSizeTest, MapsToSupportedSize) {
    const auto& c = GetParam();
    EXPECT_EQ(normalizedImageSize(c.aspectRatio, c.imageSize), c.expected)
        << c.aspectRatio << " / " << c.imageSize.value_or("none");
}

INSTANTIATE_TEST_SUITE_P(
    Table, NormalizedImageSizeTest,
    ::testing::Values(SizeCase{"16:9", "AUTO", "auto"}, SizeCase{"16:9", "2000x1000", "1536x1024"},
                      SizeCase{"16:9", "500X500", "1024x1024"},
                      SizeCase{"16:9", std::nullopt, std::nullopt},
                      SizeCase{"16:9", "1024x576", "1536x1024"},
                      SizeCase{"", " 1024x1536\n", "1024x1536"},
                      SizeCase{"640x960", std::nullopt, "1024x1536"},
                      SizeCase{"1:1", "  ", std::nullopt}, // the size wins even when blank
                      SizeCase{"", "0x100", std::nullopt}, SizeCase{"", "10x20x30", std::nullopt},
                      SizeCase{"", "axb", std::nullopt}, SizeCase{"", "x100x", std::nullopt},
                      SizeCase{"", "100xx50", "1536x1024"}));

TEST(PromptTextTest, CombinedPromptJoinsWithOneNewline) {
    EXPECT_EQ(combinedPrompt(std::nullopt, "a lake"), "a lake");
    EXPECT_EQ(combinedPrompt(std::string(), "a lake"), "a lake");
    EXPECT_EQ(combinedPrompt(std::string("Be calm."), ""), "Be calm.");
    EXPECT_EQ(combinedPrompt(std::string(" Be calm. "), " a lake"), " Be calm. \n a lake");
}

TEST(PromptTextTest, ModelNameAfterProviderDropsFirstSegment) {
    EXPECT_EQ(modelNameAfterProvider("openai/gpt-image-1"), "gpt-image-1");
    EXPECT_EQ(modelNameAfterProvider(" gpt-image-1\n"), "gpt-image-1");
    EXPECT_EQ(modelNameAfterProvider("a/b/c"), "b/c");
}

TEST(DataURLTest, ReadsBase64DataURLs) {
    const auto plain = parseDataURL("data:;base64,QUJD");
    ASSERT_TRUE(plain);
    EXPECT_EQ(toText(plain->bytes), "ABC");
    EXPECT_FALSE(plain->mimeType);

    const auto webp = parseDataURL("data:image/webp;base64,QU\nJD");
    ASSERT_TRUE(webp);
    EXPECT_EQ(toText(webp->bytes), "ABC");
    EXPECT_EQ(webp->mimeType, "image/webp");
}

TEST(DataURLTest, RefusesOtherTexts) {
    EXPECT_FALSE(parseDataURL("data:image/png,abc"));
    EXPECT_FALSE(parseDataURL("data:image/png;base64"));
    EXPECT_FALSE(parseDataURL("https://h/x.png"));
    EXPECT_FALSE(parseDataURL("data:image/png;base64,Q"));
}

TEST(DataURLTest, ReferenceImagesAreLabelledPng) {
    EXPECT_EQ(pngDataURL(toBytes("ABC")), "data:image/png;base64,QUJD");
}

TEST(Base64Test, RoundTripsEveryRemainder) {
    for (const std::string text : {"", "A", "AB", "ABC", "ABCD", "\xff\x00\x80"}) {
        const auto encoded = encodeBase64(toBytes(text));
        EXPECT_EQ(encoded.find('\n'), std::string::npos);
        const auto strict = decodeBase64Strict(encoded);
        ASSERT_TRUE(strict) << encoded;
        EXPECT_EQ(toText(*strict), text);
    }
    EXPECT_EQ(encodeBase64(toBytes("AB")), "QUI=");
}

TEST(Base64Test, StrictRefusesWhatLenientSkips) {
    EXPECT_FALSE(decodeBase64Strict("QU JD"));
    EXPECT_FALSE(decodeBase64Strict("QUJ"));
    EXPECT_EQ(toText(decodeBase64IgnoringUnknown("QU JD\r\n").value()), "ABC");
    EXPECT_FALSE(decodeBase64IgnoringUnknown("QUJD=QUJD"));
}

TEST(URLTextTest, AcceptsOnlyAbsoluteURLs) {
    EXPECT_TRUE(isParsableURL("http://127.0.0.1:8080/api/token"));
    EXPECT_TRUE(isParsableURL("https://h/x.png"));
    EXPECT_FALSE(isParsableURL("not a url/api/token"));
    EXPECT_FALSE(isParsableURL("http://"));
    EXPECT_FALSE(isParsableURL("/api/token"));
    EXPECT_FALSE(isParsableURL("http://host name/x"));
}

TEST(URLTextTest, Utf8Validation) {
    EXPECT_EQ(utf8Text("h\xc3\xa9"), "h\xc3\xa9");
    EXPECT_FALSE(utf8Text("\x89PNG\r\n\x1a\n"));
    EXPECT_FALSE(utf8Text("\xc0\xaf")); // overlong
}

} // namespace
} // namespace lumivesper::generation
