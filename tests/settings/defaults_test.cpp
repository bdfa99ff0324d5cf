#include "../support/temporary_folder.h"
#include "settings/defaults.h"

#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>

namespace lumivesper::settings {
namespace {

namespace fs = std::filesystem;

std::string readFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream buffer;
    buffer << in.rdbuf();
    return buffer.str();
}

void writeFile(const fs::path& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

std::vector<fs::path> filesIn(const fs::path& folder) {
    std::vector<fs::path> files;
    for (const auto& entry : fs::directory_iterator(folder))
        files.push_back(entry.path());
    return files;
}

class DefaultsTest : public ::testing::Test {
protected:
    testing::TemporaryFolder folder;
    fs::path file = folder.path() / "nested" / "defaults.json";
};

TEST_F(DefaultsTest, ValuesSurviveAReopen) {
    std::vector<std::uint8_t> bytes;
    for (int i = 0; i < 256; ++i)
        bytes.push_back(static_cast<std::uint8_t>(255 - i));
    {
        Defaults defaults(file);
        defaults.setString("name", "Dämmerung \"quoted\"");
        defaults.setBoolean("flag", true);
        defaults.setInteger("count", -9007199254740993);
        defaults.setData("blob", bytes);
        defaults.setData("empty", {});
        defaults.setData("one", {0x00});
        defaults.setData("two", {0xff, 0x00});
    }
    Defaults reopened(file);
    EXPECT_EQ(reopened.string("name"), "Dämmerung \"quoted\"");
    EXPECT_EQ(reopened.boolean("flag"), true);
    EXPECT_EQ(reopened.integer("count"), -9007199254740993);
    EXPECT_EQ(reopened.data("blob"), bytes);
    EXPECT_EQ(reopened.data("empty"), std::vector<std::uint8_t>{});
    EXPECT_EQ(reopened.data("one"), std::vector<std::uint8_t>{0x00});
    EXPECT_EQ(reopened.data("two"), (std::vector<std::uint8_t>{0xff, 0x00}));
}

TEST_F(DefaultsTest, AValueOfAnotherKindReadsAsAbsent) {
    Defaults defaults(file);
    defaults.setString("key", "text");
    EXPECT_EQ(defaults.boolean("key"), std::nullopt);
    EXPECT_EQ(defaults.integer("key"), std::nullopt);
    EXPECT_EQ(defaults.data("key"), std::nullopt);
    EXPECT_EQ(defaults.string("missing"), std::nullopt);
}

TEST_F(DefaultsTest, RemoveDeletesTheKeyFromTheFile) {
    {
        Defaults defaults(file);
        defaults.setInteger("a", 1);
        defaults.setInteger("b", 2);
        defaults.remove("a");
        defaults.remove("never-set");
    }
    Defaults reopened(file);
    EXPECT_EQ(reopened.integer("a"), std::nullopt);
    EXPECT_EQ(reopened.integer("b"), 2);
}

TEST_F(DefaultsTest, WritingLeavesNoTemporaryFilesBehind) {
    Defaults defaults(file);
    defaults.setString("a", "1");
    defaults.setString("a", "2");
    EXPECT_EQ(filesIn(file.parent_path()), std::vector<fs::path>{file});
}

TEST_F(DefaultsTest, CorruptFileIsCopiedAsideAndTheStoreStartsEmpty) {
    fs::create_directories(file.parent_path());
    writeFile(file, "{\"name\": \"trunc");
    Defaults defaults(file);
    EXPECT_EQ(defaults.string("name"), std::nullopt);

    std::vector<fs::path> copies;
    for (const auto& path : filesIn(file.parent_path()))
        if (path.filename().string().starts_with("defaults.json.corrupt-"))
            copies.push_back(path);
    ASSERT_EQ(copies.size(), 1u);
    EXPECT_EQ(readFile(copies.front()), "{\"name\": \"trunc");

    defaults.setString("name", "fresh");
    EXPECT_EQ(Defaults(file).string("name"), "fresh");
    EXPECT_EQ(readFile(copies.front()), "{\"name\": \"trunc");
}

TEST_F(DefaultsTest, ValidJsonThatIsNotAnObjectIsTreatedAsCorrupt) {
    fs::create_directories(file.parent_path());
    writeFile(file, "[1, 2, 3]");
    Defaults defaults(file);
    defaults.setBoolean("flag", false);
    EXPECT_EQ(filesIn(file.parent_path()).size(), 2u);
    EXPECT_EQ(Defaults(file).boolean("flag"), false);
}

TEST_F(DefaultsTest, MalformedDataValueReadsAsAbsent) {
    fs::create_directories(file.parent_path());
    writeFile(file, R"({"bad": {"data": "not base64!"}, "short": {"data": "QQ="}})");
    Defaults defaults(file);
    EXPECT_EQ(defaults.data("bad"), std::nullopt);
    EXPECT_EQ(defaults.data("short"), std::nullopt);
}

TEST(DefaultsLocation, ConfigDirVariableOverridesTheFolder) {
    const char* saved = std::getenv("LUMIVESPER_CONFIG_DIR");
    const std::optional<std::string> previous =
        saved ? std::optional<std::string>(saved) : std::nullopt;
    ::setenv("LUMIVESPER_CONFIG_DIR", "/tmp/somewhere", 1);
    EXPECT_EQ(Defaults::standardLocation(), fs::path("/tmp/somewhere/defaults.json"));
    ::unsetenv("LUMIVESPER_CONFIG_DIR");
    EXPECT_EQ(Defaults::standardLocation().filename(), "defaults.json");
    EXPECT_EQ(Defaults::standardLocation().parent_path().filename(), "lumivesper");
    if (previous)
        ::setenv("LUMIVESPER_CONFIG_DIR", previous->c_str(), 1);
}

} // namespace
} // namespace lumivesper::settings
