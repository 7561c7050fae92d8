#include "persistence/SessionState.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using namespace sonvale;

namespace {

Marker marker(const char* id, const char* name, int64_t start, std::optional<int64_t> end = {}) {
    return {*Uuid::parse(id), name, start, end};
}

// Every record and every optional member set.
SessionState fullState() {
    TrackState outside;
    outside.path = "/music/Take.wav";
    outside.gainDB = -3.5f;
    outside.verticalZoom = 2;
    outside.cursor = 480;
    outside.selection = std::pair<int64_t, int64_t>(100, 900);
    outside.viewportStart = 12.5;
    outside.samplesPerPoint = 40.25;
    outside.viewportWidth = 800;
    outside.markers = {marker("E621E1F8-C36C-495A-93FC-0C247A3E6E5F", "Intro", 0, 4800),
                       marker("0A1B2C3D-4E5F-4A6B-8C7D-9E0F1A2B3C4D", "Marker 1", 2400)};
    outside.transcript = Transcript{"en_GB",
                                    {{"Hello there.", 0.25, 1.5}, {"Bye.", 2, 2.75}},
                                    3,
                                    std::string("A greeting."),
                                    std::string("Hello")};
    TrackState inside;
    inside.path = "Audio/Take 2.wav";

    TimelineState timeline;
    timeline.sampleRate = 44100;
    timeline.cursor = 22050;
    timeline.isShowing = true;
    TimelineState::Clip fromTrack{"Take", TimelineState::Clip::TrackSource{0}, 10, 1000, 0, 64, 128,
                                  0};
    TimelineState::Clip fromFile{
        "Room", TimelineState::Clip::FileSource{"Audio/Clips/Room.wav"}, 0, 500, 2000, {}, {}, {}};
    timeline.lanes = {{"Voice", -1, -0.25f, true, 0, 3, {fromTrack, fromFile}},
                      {"Music", 0, 0, false, {}, {}, {}}};
    timeline.mixer = TimelineState::Mixer{
        {{"Reverb bus", -6, false, 0.5, {{{"reverb", {0.25, 0.5}, true}}, true}, true}},
        {{{"limiter", {-1, 0.1}, false}}, false},
        -0.5f,
        true};
    timeline.markers = {marker("11111111-2222-4333-8444-555555555555", "Chorus", 100, 200)};

    SessionState state;
    state.tracks = {outside, inside};
    state.selectedIndices = {1};
    state.loopPlayback = true;
    state.timeline = timeline;
    return state;
}

std::string sessionFile(const std::string& session, int format = 1) {
    return "{\"format\": " + std::to_string(format) + ", \"session\": " + session + "}";
}

const std::string minimalTrack =
    R"({"path": "/a.wav", "gainDB": 0, "verticalZoom": 1, "cursor": 0, "viewportStart": 0,
        "samplesPerPoint": 1, "viewportWidth": 100)";

} // namespace

TEST(SessionState, EveryRecordSurvivesAWriteAndAReadAndWritesTheSameBytesAgain) {
    const SessionState state = fullState();
    const std::string text = encodeSessionFile(state);
    EXPECT_EQ(decodeSessionFile(text), state);
    EXPECT_EQ(encodeSessionFile(decodeSessionFile(text)), text);
    EXPECT_EQ(decodeSessionState(encodeSessionState(state)), state);
    EXPECT_NE(text.find("\"format\": 2"), std::string::npos);
    EXPECT_NE(text.find("\"_0\": \"Audio/Clips/Room.wav\""), std::string::npos);
    // The automatic store's form is compact.
    EXPECT_EQ(encodeSessionState(state).find('\n'), std::string::npos);
}

TEST(SessionState, ASessionWithoutTimelineIsFormatOneWithSortedKeysAndNoUnsetMembers) {
    SessionState state;
    TrackState t;
    t.path = "/a.wav";
    t.samplesPerPoint = 2;
    t.viewportWidth = 100;
    t.markers = {marker("E621E1F8-C36C-495A-93FC-0C247A3E6E5F", "Marker 1", 5)};
    state.tracks = {t};
    state.selectedIndices = {0};
    const std::string golden = R"({
  "format": 1,
  "session": {
    "loopPlayback": false,
    "selectedIndices": [
      0
    ],
    "tracks": [
      {
        "cursor": 0,
        "gainDB": 0.0,
        "markers": [
          {
            "id": "E621E1F8-C36C-495A-93FC-0C247A3E6E5F",
            "name": "Marker 1",
            "start": 5
          }
        ],
        "path": "/a.wav",
        "samplesPerPoint": 2.0,
        "verticalZoom": 1.0,
        "viewportStart": 0.0,
        "viewportWidth": 100.0
      }
    ]
  }
}
)";
    EXPECT_EQ(encodeSessionFile(state), golden);
    state.timeline = TimelineState{};
    EXPECT_NE(encodeSessionFile(state).find("\"format\": 2"), std::string::npos);
}

TEST(SessionState, AbsentOptionalMembersReadAsUnsetAndUnknownKeysAreIgnored) {
    const std::string lane =
        R"({"name": "L", "gainDB": 0, "pan": 0, "isMuted": false, "clips": [], "future": 1})";
    const std::string text = sessionFile(
        R"({"tracks": [)" + minimalTrack +
            R"(, "selection": null, "comment": "x"}], "selectedIndices": [],
            "loopPlayback": false, "timeline": {"sampleRate": 48000, "cursor": 0, "isShowing": false,
            "lanes": [)" +
            lane + R"(], "mixer": {"buses": [], "masterGainDB": 0, "master": {"effects": []}}}})",
        2);
    const SessionState state = decodeSessionFile(text);
    const TrackState& t = state.tracks.at(0);
    EXPECT_FALSE(t.selection || t.bookmark || t.transcript);
    EXPECT_TRUE(t.markers.empty());
    ASSERT_TRUE(state.timeline && state.timeline->mixer);
    EXPECT_FALSE(state.timeline->lanes.at(0).output); // feeds the master
    EXPECT_FALSE(state.timeline->mixer->isMasterMinimized);
    EXPECT_FALSE(state.timeline->mixer->master.isBypassed);
}

TEST(SessionState, MalformedFilesAreRefusedWithAMessageThatSaysWhere) {
    const std::string tail = R"(], "selectedIndices": [], "loopPlayback": false})";
    const struct {
        std::string text;
        std::string message;
    } cases[] = {
        {sessionFile(R"({"tracks": [)" + tail, 3), "saved by a newer version of Sonvale"},
        {sessionFile(R"({"tracks": [)" + minimalTrack + R"(, "selection": [100, 50]})" + tail),
         "“selection” starts after it ends"},
        {sessionFile(R"({"selectedIndices": [], "loopPlayback": false})"), "“tracks” is missing"},
        {sessionFile(R"({"tracks": [)" + minimalTrack + R"(, "cursor": "0"})" + tail),
         "session.tracks[0], “cursor” isn't a whole number"},
        {sessionFile(R"({"tracks": [)" + minimalTrack +
                     R"(, "markers": [{"id": "x", "name": "", "start": 0}]})" + tail),
         "“id” isn't a UUID"},
        {sessionFile(
             R"({"tracks": [], "selectedIndices": [], "loopPlayback": false, "timeline": {"sampleRate": 1,
             "cursor": 0, "isShowing": false, "lanes": [{"name": "", "gainDB": 0, "pan": 0, "isMuted": false,
             "clips": [{"name": "", "sourceStart": 0, "length": 1, "start": 0,
                        "source": {"track": {"_0": 0}, "file": {"_0": "a"}}}]}]}})",
             2),
         "exactly one of “track” and “file”"},
        {"{\"format\": 1, \"session\": ", "isn't valid JSON"},
    };
    for (const auto& c : cases) {
        try {
            decodeSessionFile(c.text);
            ADD_FAILURE() << "accepted: " << c.text;
        } catch (const UserError& error) {
            EXPECT_NE(std::string(error.what()).find(c.message), std::string::npos) << error.what();
        }
    }
    EXPECT_THROW(decodeSessionFile(sessionFile(R"({"tracks": [)" + tail, 3)), SessionBundleFailure);
}

TEST(SessionState, AValueThatIsNotFiniteFailsTheSave) {
    for (double bad : {std::nan(""), std::numeric_limits<double>::infinity()}) {
        SessionState state = fullState();
        state.tracks[0].viewportStart = bad;
        EXPECT_THROW(encodeSessionFile(state), SessionDataError);
        state = fullState();
        state.timeline->mixer->buses[0].chain.effects[0].values[1] = bad;
        EXPECT_THROW(encodeSessionState(state), SessionDataError);
    }
}
