#include "audio/AudioExporter.h"
#include "audio/ExportFormat.h"
#include "audio/ExportOptions.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>

using namespace sonvale;
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

TEST(ExportFormat, SettingsDescribePcmDepthAndEndiannessOrAacBitRate) {
    auto wav24 = settings(ExportFormat::wav24, 44100, 2);
    EXPECT_EQ(wav24.codec, EncoderSettings::Codec::linearPCM);
    EXPECT_EQ(wav24.bitDepth, 24);
    EXPECT_EQ(wav24.isBigEndian, false);
    EXPECT_EQ(wav24.isFloat, false);
    EXPECT_EQ(wav24.sampleRate, 44100);
    auto aiff = settings(ExportFormat::aiff16, 48000, 1);
    EXPECT_EQ(aiff.container, EncoderSettings::Container::aiff);
    EXPECT_EQ(aiff.bitDepth, 16);
    EXPECT_EQ(aiff.isBigEndian, true);
    auto aac = settings(ExportFormat::aac, 48000, 6);
    EXPECT_EQ(aac.codec, EncoderSettings::Codec::aac);
    EXPECT_EQ(aac.bitRate, 256000);
    EXPECT_FALSE(aac.bitDepth);
    EXPECT_FALSE(aac.isBigEndian);
    EXPECT_EQ(aac.channels, 6);
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

TEST(ExportOptions, SelectionOnlyNeedsASelection) {
    ExportOptions with(ExportFormat::wav16, true, 0);
    EXPECT_TRUE(with.selectionOnly());
    with.setSelectionOnly(false);
    EXPECT_FALSE(with.selectionOnly());
    ExportOptions without(ExportFormat::wav16, false, 0);
    EXPECT_FALSE(without.selectionOnly());
}

namespace {
struct Folder {
    fs::path path = fs::temp_directory_path() /
                    ("sonvale-naming-" + std::to_string(::getpid()) + "-" +
                     ::testing::UnitTest::GetInstance()->current_test_info()->name());
    Folder() {
        fs::remove_all(path);
        fs::create_directories(path);
    }
    ~Folder() { fs::remove_all(path); }
    void touch(const std::string& name) { std::ofstream(path / name) << "x"; }
};
Marker region(std::string name, int64_t start, int64_t end) {
    return Marker{Uuid::random(), std::move(name), start, end};
}
} // namespace

TEST(RegionExportJobs, NamesAreUniqueWithinTheBatchIgnoringCase) {
    Folder folder;
    auto jobs = regionExportJobs("Track", {region("Intro", 0, 10), region("intro", 10, 20)},
                                 ExportFormat::wav16, folder.path);
    ASSERT_EQ(jobs.size(), 2u);
    EXPECT_EQ(jobs[0].url, folder.path / "Track - Intro.wav");
    EXPECT_EQ(jobs[1].url, folder.path / "Track - intro 2.wav");
    EXPECT_EQ(jobs[1].range, (FrameRange{10, 20}));
}

TEST(RegionExportJobs, SlashesAndColonsBecomeDashesAndPointsAreSkipped) {
    Folder folder;
    std::vector<Marker> markers{Marker{Uuid::random(), "Point", 5, std::nullopt},
                                region("a/b:c", 1, 2)};
    auto jobs = regionExportJobs("Track", markers, ExportFormat::aac, folder.path);
    ASSERT_EQ(jobs.size(), 1u);
    EXPECT_EQ(jobs[0].url, folder.path / "Track - a-b-c.m4a");
}

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
