#include "../support/file_size_limit.h"
#include "../support/temporary_folder.h"
#include "platform/atomic_file.h"

#include <fstream>
#include <gmock/gmock.h>

namespace lumivesper::platform {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

std::string readText(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

std::size_t entries(const fs::path& folder) {
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
}

class AtomicFileTest : public ::testing::Test {
protected:
    testing::TemporaryFolder folder;
    fs::path file = folder.path() / "project.json";
};

TEST_F(AtomicFileTest, ReplacesTheWholeFileAndLeavesNothingBeside) {
    writeFileAtomically(file, std::string(10000, 'a'));
    writeFileAtomically(file, "short");
    EXPECT_EQ(readText(file), "short");
    EXPECT_EQ(entries(folder.path()), 1u);
}

TEST_F(AtomicFileTest, AFailureNamesTheFileAndItsCauseAndKeepsTheOldFile) {
    writeFileAtomically(file, "the project as it was");
    {
        testing::FileSizeLimit fullDisk(8); // the write stops after eight bytes
        try {
            writeFileAtomically(file, "the project as it is now, which is longer");
            ADD_FAILURE() << "a write past the limit succeeded";
        } catch (const FileWriteError& error) {
            EXPECT_THAT(error.what(), HasSubstr("\"" + file.string() + "\""));
            EXPECT_THAT(error.what(), HasSubstr("too large"));
        }
    }
    EXPECT_EQ(readText(file), "the project as it was");
    EXPECT_EQ(entries(folder.path()), 1u) << "the partial temporary file is removed";

    const fs::path nowhere = folder.path() / "absent" / "settings.json";
    try {
        writeFileAtomically(nowhere, "x");
        ADD_FAILURE() << "a write into a missing folder succeeded";
    } catch (const FileWriteError& error) {
        EXPECT_THAT(error.what(), HasSubstr(nowhere.string()));
        EXPECT_THAT(error.what(), HasSubstr("No such file or directory"));
    }
}

} // namespace
} // namespace lumivesper::platform
