#include "audio/AudioExporter.h"
#include "audio/ExportFormat.h"
#include "audio/ExportOptions.h"
#include "support/ModelTestAudio.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>

using namespace sonvale;
using namespace sonvale::test;
namespace fs = std::filesystem;

TEST(ExportFormat, OffersTheFourFormatsInMenuOrderWithTheirTitles) {
    std::vector<std::string> titles;
    for (auto format : allExportFormats)
        titles.emplace_back(title(format));
    EXPECT_EQ(titles, (std::vector<std::string>{"WAV 16-bit", "WAV 24-bit", "AIFF 16-bit",
                                                "AAC (M4A, 256 kbps)"}));
    for (auto format : allExportFormats)
        EXPECT_EQ(exportFormatFromRawValue(rawValue(format)), format);
    EXPECT_FALSE(exportFormatFromRawValue("mp3"));
    EXPECT_EQ(fileExtension(ExportFormat::aac), "m4a");
    EXPECT_EQ(exportFormatForExtension(".AIF"), ExportFormat::aiff16);
    EXPECT_FALSE(exportFormatForExtension("flac"));
}

TEST(ExportOptions, FormatChangesReachTheDialogAndTheGainReadsAsApplied) {
    ExportOptions options(ExportFormat::wav16, true, -3.04f);
    std::vector<ExportFormat> seen;
    int changes = 0;
    options.onFormatChange = [&](ExportFormat f) { seen.push_back(f); };
    options.changed.connect([&] { ++changes; });
    options.setFormat(ExportFormat::wav16);
    options.setFormat(ExportFormat::aac);
    EXPECT_EQ(seen, std::vector<ExportFormat>{ExportFormat::aac});
    EXPECT_EQ(changes, 1);
    EXPECT_EQ(options.gainText(), "-3.0 dB applied");
    EXPECT_EQ(ExportOptions(ExportFormat::wav16, false, 2.25f).gainText(), "+2.2 dB applied");
    EXPECT_EQ(ExportOptions(ExportFormat::wav16, false, 0).gainText(), "+0.0 dB applied");
}

namespace {
// A fresh folder that can be given names already taken.
struct Folder {
    test::TemporaryFolder temporary;
    const fs::path& path = temporary.path();
    void touch(const std::string& name) { std::ofstream(path / name) << "x"; }
};
} // namespace

TEST(RegionExportJobs, ExistingFilesInTheFolderAreNotOverwritten) {
    Folder folder;
    folder.touch("Show - Part.aiff");
    folder.touch("Show - Part 2.aiff");
    auto jobs = regionExportJobs("Show", {region("Part", 0, 1)}, ExportFormat::aiff16, folder.path);
    ASSERT_EQ(jobs.size(), 1u);
    EXPECT_EQ(jobs[0].url, folder.path / "Show - Part 3.aiff");
}

TEST(UniqueWAV, CountsFromTwoPastExistingFiles) {
    Folder folder;
    EXPECT_EQ(uniqueWAV(folder.path, "take"), folder.path / "take.wav");
    folder.touch("take.wav");
    EXPECT_EQ(uniqueWAV(folder.path, "take"), folder.path / "take 2.wav");
    folder.touch("take 2.wav");
    EXPECT_EQ(uniqueWAV(folder.path, "take"), folder.path / "take 3.wav");
}
