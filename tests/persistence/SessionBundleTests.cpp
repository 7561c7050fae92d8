#include "persistence/SessionBundle.h"

#include "audio/AudioExporter.h"
#include "audio/AudioLoader.h"
#include "support/ModelTestAudio.h"
#include "support/ModelTestFiles.h"

#include <gtest/gtest.h>

#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace sonvale;
using namespace sonvale::test;
namespace fs = std::filesystem;

namespace {

SessionBundle::Track trackOf(const fs::path& source, const std::string& name,
                             AudioDataPtr edited = nullptr) {
    SessionBundle::Track t;
    t.state.samplesPerPoint = 1;
    t.state.viewportWidth = 100;
    t.source = source;
    t.name = name;
    t.edited = std::move(edited);
    return t;
}

SessionBundle::WriteResult
save(const fs::path& url, const std::vector<SessionBundle::Track>& tracks,
     SessionBundle::Clock::time_point date = SessionBundle::Clock::now()) {
    return SessionBundle::write(tracks, {0}, false, std::nullopt, {}, SessionBundle::history(url),
                                SessionBundle::NewSnapshot{date, std::vector<uint8_t>{0xFF, 0xD8}},
                                url);
}

// Every file below `root` with its bytes.
std::map<std::string, std::string> contentsOf(const fs::path& root) {
    std::map<std::string, std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(root))
        files[fs::relative(entry.path(), root).string()] =
            entry.is_regular_file() ? readText(entry.path()) : "/";
    return files;
}

std::vector<std::string> siblings(const fs::path& folder) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace

TEST(SessionBundle, EditedAudioIsWrittenIntoTheBundleAndOutsideFilesAreReferenced) {
    TempFolder folder;
    const fs::path outside = folder / "Music/Take.wav";
    AudioExporter::writeLossless(*makeRamp(48000, 2, 1000), outside);
    const auto edited = makeNoise(44100, 1, 777);
    const fs::path url = folder / "Show.sonvale";
    auto result = save(url, {trackOf(outside, "Take"), trackOf(outside, "Take", edited),
                             trackOf(outside, "take", makeNoise(48000, 2, 10))});

    EXPECT_EQ(result.state.tracks[0].path, outside.string());
    EXPECT_EQ(result.state.tracks[1].path, "Audio/Take.wav");
    EXPECT_EQ(result.state.tracks[2].path, "Audio/take 2.wav");
    const SessionState read = SessionBundle::read(url);
    EXPECT_EQ(read.tracks[1].path, (url / "Audio/Take.wav").string());
    EXPECT_EQ(samplesOf(*AudioLoader::load(read.tracks[1].path)), samplesOf(*edited));
    EXPECT_EQ(SessionBundle::audioPaths(result.state),
              (std::set<std::string>{"Audio/Take.wav", "Audio/take 2.wav"}));
    EXPECT_EQ(readText(url / "Session.json"), result.json);
    ASSERT_TRUE(result.snapshot);
    EXPECT_EQ(readText(url / "Snapshots" / *result.snapshot / "Session.json"), result.json);
    EXPECT_TRUE(fs::exists(url / "Snapshots" / *result.snapshot / "Window.jpg"));
    EXPECT_EQ(siblings(folder.path()), (std::vector<std::string>{"Music", "Show.sonvale"}));

    // Saved again from its own audio: linked, not rewritten, and no new snapshot.
    struct stat before {
    }, after{};
    ::stat((url / "Audio/Take.wav").c_str(), &before);
    auto again = save(url, {trackOf(outside, "Take"), trackOf(url / "Audio/Take.wav", "Take"),
                            trackOf(url / "Audio/take 2.wav", "take")});
    ::stat((url / "Audio/Take.wav").c_str(), &after);
    EXPECT_EQ(before.st_ino, after.st_ino);
    EXPECT_EQ(again.json, result.json);
    EXPECT_FALSE(again.snapshot);
    EXPECT_EQ(SessionBundle::snapshots(url).size(), 1u);
}

TEST(SessionBundle, KeepsTheNewestTwentySnapshotsAndTheAudioTheyReferTo) {
    TempFolder folder;
    const fs::path url = folder / "History.sonvale";
    auto date = SessionBundle::Clock::now();
    std::vector<std::string> added;
    for (int i = 0; i < 21; ++i) {
        // Each save holds a different edit; only the first one's audio is named "First".
        const std::string name = i == 0 ? "First" : "Take";
        auto result =
            save(url, {trackOf(folder / "x.wav", name, makeNoise(8000, 1, 10, uint32_t(i + 1)))},
                 date + std::chrono::seconds(i));
        ASSERT_TRUE(result.snapshot);
        added.push_back(*result.snapshot);
    }
    const auto kept = SessionBundle::snapshots(url);
    ASSERT_EQ(kept.size(), size_t(SessionBundle::snapshotLimit));
    EXPECT_EQ(kept.front().id, added[1]);
    EXPECT_EQ(kept.back().id, added[20]);
    EXPECT_EQ(kept.back().trackCount, 1);
    EXPECT_EQ(kept.back().date, *SessionBundle::parseID(added[20]));
    EXPECT_FALSE(fs::exists(url / "Audio/First.wav")); // only the dropped snapshot used it

    // The oldest kept snapshot's audio outlived the live session's use of it.
    const SessionState oldest = SessionBundle::read(kept.front().id, url);
    EXPECT_EQ(samplesOf(*AudioLoader::load(oldest.tracks[0].path)),
              samplesOf(*makeNoise(8000, 1, 10, 2)));
}

TEST(SessionBundle, AFailedSaveLeavesTheOldBundleAsItWasAndNoTemporaryFolder) {
    TempFolder folder;
    TmpfsMount disk(folder / "disk", "2m");
    if (!disk.isMounted()) GTEST_SKIP() << "mounting a small tmpfs is not allowed here";
    const fs::path url = folder / "disk/Keep.sonvale";
    save(url, {trackOf(folder / "x.wav", "Take", makeNoise(48000, 2, 1000))});
    const auto before = contentsOf(url);

    // A track whose bundle file vanished can't be linked into the new bundle.
    fs::path gone = url / "Audio/Gone.wav";
    EXPECT_THROW(save(url, {trackOf(gone, "Gone")}), FileError);
    // Ten seconds of float stereo do not fit in 2 MB.
    EXPECT_THROW(save(url, {trackOf(folder / "x.wav", "Long", makeNoise(48000, 2, 10 * 48000))}),
                 FileError);
    EXPECT_EQ(contentsOf(url), before);
    EXPECT_EQ(siblings(folder / "disk"), (std::vector<std::string>{"Keep.sonvale"}));

    ASSERT_TRUE(disk.makeReadOnly());
    EXPECT_THROW(save(url, {trackOf(folder / "x.wav", "Take", makeNoise(48000, 2, 10))}),
                 FileError);
    EXPECT_EQ(contentsOf(url), before);
}

TEST(SessionBundle, ASaveKilledHalfWayLeavesTheOldBundleWhole) {
    TempFolder folder;
    const fs::path url = folder / "Keep.sonvale";
    save(url, {trackOf(folder / "x.wav", "Take", makeNoise(48000, 2, 1000))});
    const auto before = contentsOf(url);
    const auto big = makeNoise(48000, 2, 60 * 48000); // 23 MB to write

    for (int delayMs : {5, 20, 60}) {
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            try {
                save(url, {trackOf(folder / "x.wav", "Long", big),
                           trackOf(folder / "x.wav", "Again", big)});
            } catch (...) {
            }
            _exit(0);
        }
        usleep(useconds_t(delayMs * 1000));
        kill(child, SIGKILL);
        int status = 0;
        waitpid(child, &status, 0);
        // Either the old bundle, or (had the save finished) a whole new one; never a mixture.
        const SessionState state = SessionBundle::read(url);
        if (state.tracks.size() == 1) {
            EXPECT_EQ(contentsOf(url), before) << "killed after " << delayMs << " ms";
        } else {
            EXPECT_EQ(AudioLoader::load(state.tracks[1].path)->frameCount, big->frameCount);
        }
    }
    // The next save clears away what the killed ones left.
    save(url, {trackOf(folder / "x.wav", "Take")});
    EXPECT_EQ(siblings(folder.path()), (std::vector<std::string>{"Keep.sonvale"}));
}

TEST(SessionBundle, ReadRefusesWhatIsNotASessionOrIsNewer) {
    TempFolder folder;
    fs::create_directories(folder / "Empty.sonvale");
    try {
        SessionBundle::read(folder / "Empty.sonvale");
        ADD_FAILURE();
    } catch (const SessionBundleFailure& failure) {
        EXPECT_EQ(failure.kind(), SessionBundleFailure::Kind::notASession);
        EXPECT_STREQ(failure.what(), "The file isn't a Sonvale session.");
    }
    writeText(folder / "New.sonvale/Session.json", R"({"format": 3, "session": {}})");
    try {
        SessionBundle::read(folder / "New.sonvale");
        ADD_FAILURE();
    } catch (const SessionBundleFailure& failure) {
        EXPECT_EQ(failure.format(), 3);
    }
    EXPECT_TRUE(SessionBundle::history(folder / "Missing.sonvale").snapshots.empty());
}

TEST(SessionBundle, NamesAreUniqueWithoutRegardToCaseAndIdsReadBackAsDates) {
    std::set<std::string> used;
    EXPECT_EQ(SessionBundle::uniqueName("Take", "wav", used), "Take.wav");
    EXPECT_EQ(SessionBundle::uniqueName("take", "wav", used), "take 2.wav");
    EXPECT_EQ(SessionBundle::uniqueName("TAKE", "wav", used), "TAKE 3.wav");
    EXPECT_EQ(used.count("take 2.wav"), 1u);

    const auto date = SessionBundle::Clock::time_point(std::chrono::milliseconds(1764079381042));
    const std::string id = SessionBundle::snapshotID(date);
    EXPECT_EQ(id.size(), 23u);
    EXPECT_EQ(id.substr(19), ".042");
    EXPECT_EQ(SessionBundle::parseID(id), date);
    EXPECT_FALSE(SessionBundle::parseID("2026-11-25 14.03.01"));
    EXPECT_EQ(SessionBundle::displayName(fs::path("/x/My Show.sonvale")), "My Show");
    EXPECT_EQ(SessionBundle::displayName(std::nullopt), "Untitled Session");
}
