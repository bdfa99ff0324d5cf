#include "platform/redaction.h"

#include <gtest/gtest.h>

namespace lumivesper::platform {
namespace {

TEST(RedactionTest, CredentialsInUrlsAndHeadersAreHidden) {
    const std::pair<std::string, std::string> cases[] = {
        {"POST https://g.example/v1beta/models/m:generateContent?key=AIzaSy-123_x",
         "POST https://g.example/v1beta/models/m:generateContent?key=REDACTED"},
        {"x?alt=json&KEY=abc&b=2#top", "x?alt=json&KEY=REDACTED&b=2#top"},
        {"a?api_key=1&apikey=2&access_token=3&token=4", "a?api_key=REDACTED&apikey=REDACTED"
                                                        "&access_token=REDACTED&token=REDACTED"},
        // As error pages echo the URL: HTML-escaped, percent-encoded, quoted.
        {"<a href=\"/m?alt=json&amp;key=abc\">", "<a href=\"/m?alt=json&amp;key=REDACTED\">"},
        {"next=%2Fm%3Fkey%3Dabc%26x%3D1", "next=%2Fm%3Fkey%3DREDACTED%26x%3D1"},
        {"The requested URL /m?key=abc was not found.",
         "The requested URL /m?key=REDACTED was not found."},
        {"Authorization: Bearer eyJhbGciOi.x.y", "Authorization: Bearer REDACTED"},
        // Words that only look like the names stay.
        {"monkey=1&keyboard=2&?key=", "monkey=1&keyboard=2&?key="},
        {"the key=value of a map", "the key=value of a map"},
        {"", ""},
    };
    for (const auto& [text, expected] : cases)
        EXPECT_EQ(redactedSecrets(text), expected) << text;
}

} // namespace
} // namespace lumivesper::platform
