// sonvale-cli session info on bundles written by SessionBundle::write, run as its own process.

#include "persistence/SessionBundle.h"
#include "support/AudioFiles.h"
#include "support/CliCommand.h"

#include <chrono>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <nlohmann/json.hpp>

using namespace sonvale;
namespace fs = std::filesystem;
using namespace std::chrono;

namespace {

TimelineState::Lane lane(const std::string& name, int clips) {
    TimelineState::Lane lane;
    lane.name = name;
    lane.clips.resize(size_t(clips));
    return lane;
}

TimelineState::Bus bus(const std::string& name) {
    TimelineState::Bus bus;
    bus.name = name;
    return bus;
}

SessionBundle::Track trackFrom(const fs::path& source, AudioDataPtr edited = nullptr,
                               std::string name = "") {
    return {TrackState{}, source, std::move(edited), std::move(name), false};
}

const SessionBundle::Clock::time_point firstSave =
    sys_days(2024y / March / 5) + 12h + 34min + 56s + 789ms;
const SessionBundle::Clock::time_point secondSave = sys_days(2024y / March / 5) + 12h + 40min;

// Two saves of one bundle. The second: a fixture file, a file that isn't there and an edit
// kept only in memory, on a timeline of two lanes and two buses.
class SessionCliInfo : public testing::Test {
protected:
    void SetUp() override {
        TimelineState before;
        before.lanes = {lane("Dialogue", 1)};
        SessionBundle::write({trackFrom(test::fixture("stereo-s16.wav"))}, {}, false, before, {},
                             {}, SessionBundle::NewSnapshot{firstSave, {}}, bundle);

        TimelineState after;
        after.lanes = {lane("Dialogue", 2), lane("Music", 1)};
        after.mixer.emplace().buses = {bus("Reverb"), bus("Echo")};
        after.lanes[1].output = 0;
        after.mixer->buses[0].chain.effects = {{"reverb", {}, false}, {"compressor", {}, false}};
        after.mixer->masterGainDB = -3;
        after.mixer->master.effects = {{"limiter", {}, false}};
        const auto edit = test::makeAudio(48000, {std::vector<float>(24000, 0.25f)});
        SessionBundle::write({trackFrom(test::fixture("stereo-s16.wav")),
                              trackFrom(folder / "gone.wav"),
                              trackFrom(folder / "take.wav", edit, "Edit")},
                             {}, false, after, {}, SessionBundle::history(bundle),
                             SessionBundle::NewSnapshot{secondSave, {}}, bundle);
    }

    test::TemporaryFolder folder;
    fs::path bundle = folder / "Show.sonvale";
};

TEST_F(SessionCliInfo, PrintsTheFormatTracksLanesBusesAndSnapshotsOldestFirst) {
    const auto run = test::runCli("session info " + quoted(bundle));
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.output, bundle.string() + ": session format 2\n" +
                              "tracks: 3\n"
                              "  " +
                              test::fixture("stereo-s16.wav").string() + ": found, 3.000 s\n" +
                              "  " + (folder / "gone.wav").string() + ": missing\n" + "  " +
                              (bundle / "Audio/Edit.wav").string() + ": found, 0.500 s\n" +
                              "lanes: 2\n"
                              "  Dialogue: 2 clips into the master\n"
                              "  Music: 1 clip into Reverb\n"
                              "buses: 2\n"
                              "  Reverb: +0.0 dB, effects: reverb, compressor\n"
                              "  Echo: +0.0 dB, no effects\n"
                              "master: -3.0 dB, effects: limiter\n"
                              "snapshots: 2\n"
                              "  " +
                              SessionBundle::snapshotID(firstSave) +
                              ": saved 2024-03-05T12:34:56.789Z, 1 track, 1 lane, 1 clip\n" + "  " +
                              SessionBundle::snapshotID(secondSave) +
                              ": saved 2024-03-05T12:40:00.000Z, 3 tracks, 2 lanes, 3 clips\n");
}

TEST_F(SessionCliInfo, JSONCarriesTheSameAsTheText) {
    const auto run = test::runCli("session info --json " + quoted(bundle));
    ASSERT_EQ(run.status, 0) << run.output;
    auto expected = nlohmann::json::parse(R"({
        "format": 2,
        "tracks": [{"path": "", "found": true, "duration": 3.0},
                   {"path": "", "found": false, "duration": null},
                   {"path": "", "found": true, "duration": 0.5}],
        "lanes": [{"name": "Dialogue", "clips": 2, "output": null},
                  {"name": "Music", "clips": 1, "output": "Reverb"}],
        "buses": [{"name": "Reverb", "gainDB": 0.0, "effects": ["reverb", "compressor"]},
                  {"name": "Echo", "gainDB": 0.0, "effects": []}],
        "master": {"gainDB": -3.0, "effects": ["limiter"]},
        "snapshots": [{"id": "", "date": "2024-03-05T12:34:56.789Z", "tracks": 1, "lanes": 1, "clips": 1},
                      {"id": "", "date": "2024-03-05T12:40:00.000Z", "tracks": 3, "lanes": 2, "clips": 3}]
    })");
    expected["tracks"][0]["path"] = test::fixture("stereo-s16.wav").string();
    expected["tracks"][1]["path"] = (folder / "gone.wav").string();
    expected["tracks"][2]["path"] = (bundle / "Audio/Edit.wav").string();
    expected["snapshots"][0]["id"] = SessionBundle::snapshotID(firstSave);
    expected["snapshots"][1]["id"] = SessionBundle::snapshotID(secondSave);
    EXPECT_EQ(nlohmann::json::parse(run.output), expected);
}

TEST(SessionCli, ASessionWithoutATimelineIsFormatOneWithNoLanesOrBuses) {
    test::TemporaryFolder folder;
    const fs::path bundle = folder / "Plain.sonvale";
    SessionBundle::write({trackFrom(test::fixture("mono.wav"))}, {}, false, std::nullopt, {}, {},
                         std::nullopt, bundle);
    const auto text = test::runCli("session info " + quoted(bundle));
    EXPECT_EQ(text.output, bundle.string() + ": session format 1\ntracks: 1\n  " +
                               test::fixture("mono.wav").string() +
                               ": found, 2.000 s\nsnapshots: 0\n");
    const auto json =
        nlohmann::json::parse(test::runCli("session info --json " + quoted(bundle)).output);
    EXPECT_EQ(json["format"], 1);
    EXPECT_EQ(json["lanes"], nlohmann::json::array());
    EXPECT_EQ(json["buses"], nlohmann::json::array());
    EXPECT_EQ(json["snapshots"], nlohmann::json::array());
}

TEST(SessionCli, ABundleThatCantBeOpenedFailsWithTheReasonAndStatusOne) {
    test::TemporaryFolder folder;
    fs::create_directories(folder / "Empty.sonvale");
    SessionBundle::write({}, {}, false, TimelineState{}, {}, {}, std::nullopt,
                         folder / "Future.sonvale");
    std::ifstream in(folder / "Future.sonvale/Session.json");
    std::string future{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    future.replace(future.find("\"format\": 2"), 11, "\"format\": 3");
    std::ofstream(folder / "Future.sonvale/Session.json") << future;

    const struct {
        const char* bundle;
        const char* reason;
    } cases[] = {
        {"Empty.sonvale", "The file isn't a Sonvale session."},
        {"Nowhere.sonvale", "The file isn't a Sonvale session."},
        {"Future.sonvale",
         "The session was saved by a newer version of Sonvale. Update the app to open it."},
    };
    for (const auto& c : cases)
        for (const char* json : {"", "--json "}) {
            const auto run =
                test::runCli(std::string("session info ") + json + quoted(folder / c.bundle));
            EXPECT_EQ(run.status, 1) << c.bundle;
            EXPECT_EQ(run.output, "sonvale-cli session info: " + (folder / c.bundle).string() +
                                      ": " + c.reason + "\n");
        }
}

TEST(SessionCli, WrongArgumentsAreAUsageErrorWithStatusTwo) {
    const std::string usage = " (usage: session info [--json] BUNDLE.sonvale)\n";
    const struct {
        const char* arguments;
        std::string message;
    } cases[] = {
        {"session", "sonvale-cli session: no subcommand given" + usage},
        {"session list x.sonvale",
         "sonvale-cli session: unknown subcommand \u201Clist\u201D" + usage},
        {"session info", "sonvale-cli session info: no session given" + usage},
        {"session info --deep x.sonvale",
         "sonvale-cli session info: unknown option \u201C--deep\u201D" + usage},
        {"session info a.sonvale b.sonvale",
         "sonvale-cli session info: one session at a time" + usage},
    };
    for (const auto& c : cases) {
        const auto run = test::runCli(c.arguments);
        EXPECT_EQ(run.status, 2) << c.arguments;
        EXPECT_EQ(run.output, c.message);
    }
}

TEST(SessionCli, HelpListsTheCommand) {
    const auto run = test::runCli("--help");
    EXPECT_NE(run.output.find("\n  session info [--json] BUNDLE.sonvale "), std::string::npos)
        << run.output;
}

} // namespace
