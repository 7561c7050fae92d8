#include "base/AtomicFile.h"
#include "base/Errors.h"
#include "support/ModelTestFiles.h"

#include <filesystem>
#include <gtest/gtest.h>

using namespace sonvale;
using sonvale::test::readText;
namespace fs = std::filesystem;

namespace {
struct TempDir {
    test::TemporaryFolder folder;
    const fs::path& path = folder.path();
};
} // namespace

TEST(AtomicFile, ReplacesContentsAndLeavesNoTemporaryFiles) {
    TempDir dir;
    const auto file = dir.path / "preferences.json";
    writeFileAtomically(file, "first");
    writeFileAtomically(file, "second, longer");
    EXPECT_EQ(readText(file), "second, longer");
    EXPECT_EQ(std::distance(fs::directory_iterator(dir.path), fs::directory_iterator()), 1);
}

TEST(AtomicFile, CreatesMissingFolders) {
    TempDir dir;
    const auto file = dir.path / "a" / "b" / "Session.json";
    writeFileAtomically(file, "{}");
    EXPECT_EQ(readText(file), "{}");
}

TEST(AtomicFile, FailureNamesTheFileAndKeepsTheOldContents) {
    TempDir dir;
    const auto file = dir.path / "keep.json";
    writeFileAtomically(file, "precious");
    // A folder standing where the file should go: rename onto it fails.
    const auto blocked = dir.path / "blocked";
    fs::create_directories(blocked / "inside");
    try {
        writeFileAtomically(blocked, "x");
        FAIL() << "expected a FileError";
    } catch (const FileError& error) {
        EXPECT_NE(std::string(error.what()).find("\u201Cblocked\u201D"), std::string::npos)
            << error.what();
    }
    EXPECT_EQ(readText(file), "precious");
    // No temporary file was left behind.
    int entries = 0;
    for (auto& entry : fs::directory_iterator(dir.path))
        entries += entry.path().filename().string()[0] == '.';
    EXPECT_EQ(entries, 0);
}

TEST(AtomicFile, ParentThatIsAFileGivesAClearError) {
    TempDir dir;
    writeFileAtomically(dir.path / "plain", "x");
    EXPECT_THROW(writeFileAtomically(dir.path / "plain" / "child.json", "y"), FileError);
}
