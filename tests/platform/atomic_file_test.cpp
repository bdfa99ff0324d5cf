#include "../support/temporary_folder.h"
#include "platform/atomic_file.h"

#include <fstream>
#include <gmock/gmock.h>

namespace lumivesper::platform {
namespace {

namespace fs = std::filesystem;

std::string readText(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// Failing writes that must keep the old file are checked where it matters, on project.json.
TEST(AtomicFileTest, ReplacesTheWholeFileAndNamesFileAndCauseOnFailure) {
    testing::TemporaryFolder folder;
    const fs::path file = folder.path() / "settings.json";
    writeFileAtomically(file, std::string(10000, 'a'));
    writeFileAtomically(file, "short");
    EXPECT_EQ(readText(file), "short");

    const fs::path nowhere = folder.path() / "absent" / "settings.json";
    try {
        writeFileAtomically(nowhere, "x");
        ADD_FAILURE() << "a write into a missing folder succeeded";
    } catch (const FileWriteError& error) {
        EXPECT_EQ(std::string(error.what()),
                  "Could not write \"" + nowhere.string() + "\": No such file or directory.");
    }
}

} // namespace
} // namespace lumivesper::platform
