#include "../support/temporary_folder.h"
#include "platform/console.h"
#include "platform/rotating_file_log_sink.h"
#include "platform/utf8.h"

#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <vector>

namespace lumivesper::platform {
namespace {

namespace fs = std::filesystem;

class CollectingSink final : public LogSink {
public:
    void write(std::string_view line) override { lines.emplace_back(line); }
    std::vector<std::string> lines;
};

std::string readText(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

TEST(Utf8Test, KeepsWellFormedTextAndReplacesEachIllFormedPart) {
    const std::string r = "\xEF\xBF\xBD";
    const std::pair<std::string, std::string> cases[] = {
        {"Dämmerung 🌅 日没", "Dämmerung 🌅 日没"},
        {"caf\xE9.lvesper", "caf" + r + ".lvesper"},     // Latin-1
        {"\x80\xBF", r + r},                            // stray continuation bytes
        {"a\xE6\x97", "a" + r},                          // truncated at the end
        {"\xE6\x97" "b", r + "b"},                       // truncated before ASCII
        {"\xC0\xAF", r + r},                            // overlong slash
        {"\xE0\x80\xAF", r + r + r},                    // overlong, three bytes
        {"\xED\xA0\x80", r + r + r},                    // a surrogate
        {"\xF4\x90\x80\x80", r + r + r + r},            // past U+10FFFF
        {"\xF0\x9F\x8C", r},                            // a cut emoji
        {std::string("nul\0byte", 8), std::string("nul\0byte", 8)},
    };
    for (const auto& [input, expected] : cases)
        EXPECT_EQ(validUtf8(input), expected) << input;
}

TEST(LoggerTest, LinesGoToTheInstalledSinkValidAndNowhereWithoutOne) {
    auto sink = std::make_shared<CollectingSink>();
    {
        const ScopedLogSink scoped(sink);
        consoleLine("➕ Adding recent project: /home/u/caf\xE9.lvesper");
        {
            const ScopedLogSink silent(nullptr);
            consoleLine("not seen");
        }
        consoleLine("after");
    }
    consoleLine("after the scope");
    EXPECT_EQ(sink->lines, (std::vector<std::string>{
                               "➕ Adding recent project: /home/u/caf\xEF\xBF\xBD.lvesper", "after"}));
}

TEST(RotatingFileLogSinkTest, KeepsTheNewestLinesInABoundedSetOfFiles) {
    testing::TemporaryFolder folder;
    const fs::path logs = folder.path() / "state" / "lumivesper";
    {
        RotatingFileLogSink sink(logs, 200, 2);
        for (int i = 1; i <= 20; ++i)
            sink.write("line " + std::to_string(i) + std::string(20, '.'));
    }
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(logs)) {
        names.push_back(entry.path().filename().string());
        EXPECT_LE(fs::file_size(entry.path()), 200u) << entry.path();
    }
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"lumivesper.log", "lumivesper.log.1",
                                               "lumivesper.log.2"}));
    const std::string newest = readText(logs / "lumivesper.log");
    EXPECT_NE(newest.find("line 20....."), std::string::npos);
    EXPECT_EQ(readText(logs / "lumivesper.log.2").find("line 1."), std::string::npos);
    // Each line carries its local time: "YYYY-MM-DD hh:mm:ss.mmm ".
    EXPECT_EQ(newest[4], '-');
    EXPECT_EQ(newest[19], '.');
    EXPECT_EQ(newest[23], ' ');

    // A new run appends to what the last one left.
    RotatingFileLogSink(logs, 200, 2).write("next run");
    EXPECT_NE(readText(logs / "lumivesper.log").find("next run"), std::string::npos);

    ::setenv("XDG_STATE_HOME", folder.path().c_str(), 1);
    EXPECT_EQ(RotatingFileLogSink::standardFolder(), folder.path() / "lumivesper");
    ::unsetenv("XDG_STATE_HOME");
}

} // namespace
} // namespace lumivesper::platform
