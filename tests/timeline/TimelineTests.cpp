#include "support/ModelTestAudio.h"
#include "timeline/Timeline.h"

#include <gtest/gtest.h>

#include <functional>

using namespace sonvale;
using namespace sonvale::test;

namespace {

// A timeline at 44.1 kHz with one lane holding one clip of `length` frames of a 2-second
// stereo source, at `start`, playing from `sourceStart`.
struct Arrangement {
    TimelinePtr timeline = Timeline::create(44100);
    AudioDataPtr audio = makeNoise(44100, 2, 88200);
    Uuid lane = timeline->addLane("Voice").id;

    Uuid place(int64_t start, int64_t length, int64_t sourceStart = 0, Uuid onLane = {}) {
        TimelineClip clip{Uuid::random(), "Take", audio, sourceStart, length, 0, 0, 0, Uuid()};
        return timeline->insertCopy(clip, onLane.isNil() ? lane : onLane, start, "Paste Clip").id;
    }
    TimelineClip clip(const Uuid& id) const { return timeline->clip(id)->first; }
};

} // namespace

TEST(Timeline, LaneColoursMuteAndHearOnlyThisLane) {
    auto timeline = Timeline::create();
    std::vector<Uuid> lanes;
    for (int i = 0; i < 10; ++i)
        lanes.push_back(timeline->addLane("Lane").id);
    // Eight colours first, then the lane count modulo eight: the ninth lane (eight exist) gets
    // 0, the tenth (nine exist) gets 1.
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(timeline->lanes()[size_t(i)].colorIndex, i < 8 ? i : i - 8);
    timeline->removeLane(lanes[3]);
    EXPECT_EQ(timeline->nextLaneColor(), 3);

    auto muted = [&] {
        std::string flags;
        for (const auto& lane : timeline->lanes())
            flags += lane.isMuted ? 'x' : '-';
        return flags.substr(0, 4);
    };
    auto& undo = timeline->undoStack();
    timeline->toggleLane(lanes[1], false);
    EXPECT_EQ(muted(), "-x--");
    EXPECT_EQ(undo.undoActionName(), "Turn Lane Off");
    timeline->toggleLane(lanes[1], true); // a muted lane: it alone is heard
    EXPECT_EQ(muted(), "x-xx");
    EXPECT_EQ(undo.undoActionName(), "Only This Lane");
    timeline->toggleLane(lanes[1], true); // already the only one: every lane on
    EXPECT_EQ(muted(), "----");
    EXPECT_EQ(undo.undoActionName(), "All Lanes On");
    undo.undo();
    EXPECT_EQ(muted(), "x-xx");
    undo.redo();
    EXPECT_EQ(muted(), "----");

    // A muted lane is not in the snapshot, but the others keep their meter slots.
    timeline->toggleLane(lanes[0], false);
    const auto snapshot = timeline->snapshot();
    ASSERT_EQ(snapshot->lanes.size(), timeline->lanes().size() - 1);
    EXPECT_EQ(snapshot->lanes[0].meter, 1);
}

TEST(Timeline, SnappingTakesTheNearestCandidateWithinReachInItsOrder) {
    Arrangement a;
    const Uuid first = a.place(1000, 500);  // edges 1000, 1500
    const Uuid second = a.place(3000, 500); // edges 3000, 3500
    a.timeline->setCursor(1600);
    a.timeline->addMarker(2000);
    struct Case {
        int64_t frame, within;
        std::optional<Uuid> excluding;
        std::optional<int64_t> expected;
    } cases[] = {
        {1540, 40, {}, 1500},         // exactly at the reach
        {1540, 39, {}, std::nullopt}, // just beyond
        {1540, 60, first, 1600},      // not to the dragged clip's own edge: the cursor
        {1550, 50, {}, 1600},         // a tie between a clip edge and the cursor: the cursor
        {10, 10, {}, 0},              // the timeline start
        {2000, 600, {}, 2000},        // a marker
        {3250, 250, {}, 3000},        // a tie between two edges: the start
        {3250, 250, second, std::nullopt},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.frame) + " within " + std::to_string(c.within));
        EXPECT_EQ(a.timeline->snapTarget(c.frame, c.within, c.excluding), c.expected);
    }
}

// Trims stay inside the clip's audio and never leave less than 10 ms; fades never overlap.
TEST(Timeline, TrimsAndFadesKeepTheirLimits) {
    Arrangement a;
    EXPECT_EQ(a.timeline->minimumClipLength(), 441);
    EXPECT_EQ(Timeline::create(50)->minimumClipLength(), 1);
    const Uuid id = a.place(10000, 20000, 0);
    a.timeline->trimClip(id, ClipEdge::start, 5000); // sourceStart 0: can't grow to the left
    EXPECT_EQ(a.clip(id).start, 10000);
    a.timeline->trimClip(id, ClipEdge::start, 12000);
    EXPECT_EQ(a.clip(id).start, 12000);
    EXPECT_EQ(a.clip(id).sourceStart, 2000);
    EXPECT_EQ(a.clip(id).length, 18000);
    a.timeline->trimClip(id, ClipEdge::start, 40000); // stops the minimum short of the end
    EXPECT_EQ(a.clip(id).length, 441);
    a.timeline->undoStack().undo();
    a.timeline->trimClip(id, ClipEdge::end, 1'000'000); // not past the audio's end
    EXPECT_EQ(a.clip(id).end(), 12000 + (88200 - 2000));
    EXPECT_EQ(a.timeline->undoStack().undoActionName(), "Trim Clip");

    a.timeline->setFade(id, ClipEdge::end, a.clip(id).end() - 30000);
    EXPECT_EQ(a.clip(id).fadeOut, 30000);
    a.timeline->setFade(id, ClipEdge::start, a.clip(id).end()); // stops at the fade-out
    EXPECT_EQ(a.clip(id).fadeIn, a.clip(id).length - 30000);
    a.timeline->trimClip(id, ClipEdge::end, 12000 + 20000); // fades shrink with the clip
    EXPECT_LE(a.clip(id).fadeIn + a.clip(id).fadeOut, a.clip(id).length);
}

TEST(Timeline, SplitsAtTheMinimumLengthFromEitherEdgeAndOnlyTheSelectedClip) {
    Arrangement a;
    const Uuid id = a.place(0, 10000);
    const Uuid other = a.place(0, 10000, 0, a.timeline->addLane("Music").id);
    a.timeline->selectClip(id);
    const auto steps = a.timeline->undoStack().undoCount();
    EXPECT_EQ(a.timeline->splitClips(440), 0); // start + m - 1: neither clip can be split
    EXPECT_EQ(a.timeline->undoStack().undoCount(), steps);
    EXPECT_EQ(a.timeline->splitClips(441), 1); // start + m: only the selected clip
    EXPECT_EQ(a.timeline->undoStack().undoActionName(), "Split Clip");
    EXPECT_EQ(a.timeline->lanes()[0].clips.size(), 2u);
    const auto& right = a.timeline->lanes()[0].clips[1];
    EXPECT_EQ(right.start, 441);
    EXPECT_EQ(right.sourceStart, 441);
    EXPECT_EQ(right.length, 10000 - 441);
    EXPECT_EQ(a.clip(id).length, 441);
    a.timeline->selectClip(std::nullopt);
    EXPECT_EQ(a.timeline->splitClips(5000), 2); // the right piece and the other lane's clip
    EXPECT_EQ(a.timeline->undoStack().undoActionName(), "Split Clips");
    a.timeline->undoStack().undo();
    EXPECT_EQ(a.clip(other).length, 10000);
}

TEST(Timeline, OverlapsCrossfadeAndACopyIsResampledToTheTimelineRate) {
    Arrangement a;
    const Uuid first = a.place(0, 1000);
    const Uuid second = a.place(900, 1000); // overlaps by 100
    EXPECT_EQ(a.clip(first).fadeOut, 100);
    EXPECT_EQ(a.clip(second).fadeIn, 100);
    const Uuid inside = a.place(2000, 1000);
    const Uuid inner = a.place(2200, 200); // wholly inside: no crossfade
    EXPECT_EQ(a.clip(inside).fadeOut, 0);
    EXPECT_EQ(a.clip(inner).fadeIn, 0);
    a.timeline->moveClip(second, 5000);
    EXPECT_EQ(a.clip(second).start, 5000);
    EXPECT_EQ(a.timeline->selectedClipID(), inner); // a placed copy is selected

    TimelineClip foreign{
        Uuid::random(), "48k", makeNoise(48000, 1, 48000), 4800, 24000, 0, 480, 960, std::nullopt};
    const auto copy = a.timeline->insertCopy(foreign, a.lane, 10000, "Paste Clip");
    EXPECT_EQ(copy.audio->sampleRate, 44100);
    EXPECT_EQ(copy.sourceStart, 4410);
    EXPECT_EQ(copy.length, 22050);
    EXPECT_EQ(copy.fadeIn, 441);
    EXPECT_EQ(copy.fadeOut, 882);
    EXPECT_THROW(a.timeline->insertCopy(foreign, Uuid::random(), 0, "Paste Clip"), TimelineError);
    foreign.length = 0;
    EXPECT_THROW(a.timeline->insertCopy(foreign, a.lane, 0, "Paste Clip"), TimelineError);
}

// Every edit is one undo step under its name that brings the arrangement back as it was, raises
// the edit revision and announces the change.
TEST(Timeline, EveryEditUndoesUnderItsName) {
    Arrangement a;
    const Uuid clip = a.place(1000, 5000);
    const Uuid bus = a.timeline->addBus().id;
    const Marker marker = a.timeline->addMarker(300);
    using Edit = std::function<void(Timeline&)>;
    const std::pair<std::string, Edit> edits[] = {
        {"Rename Lane", [&](Timeline& t) { t.renameLane(a.lane, "Speech"); }},
        {"Move Lane", [&](Timeline& t) { t.moveLane(a.lane, 1); }},
        {"Remove Lane", [&](Timeline& t) { t.removeLane(a.lane); }},
        {"Lane Gain", [&](Timeline& t) { t.setLaneGain(a.lane, -3); }},
        {"Lane Pan", [&](Timeline& t) { t.setLanePan(a.lane, 0.5f); }},
        {"Lane Output", [&](Timeline& t) { t.setOutput(a.lane, bus); }},
        {"Rename Bus", [&](Timeline& t) { t.renameBus(bus, "Drums"); }},
        {"Bus Colour", [&](Timeline& t) { t.recolorBus(bus, 0.3); }},
        {"Remove Bus", [&](Timeline& t) { t.removeBus(bus); }},
        {"Master Gain", [&](Timeline& t) { t.setMasterGain(-1); }},
        {"Move Clip", [&](Timeline& t) { t.moveClip(clip, 0); }},
        {"Delete Clip", [&](Timeline& t) { t.removeClip(clip); }},
        {"Rename Marker", [&](Timeline& t) { t.renameMarker(marker.id, "Verse"); }},
        {"Move Marker", [&](Timeline& t) { t.moveMarker(marker.id, 10, std::nullopt); }},
        {"Remove Marker", [&](Timeline& t) { t.removeMarker(marker.id); }},
    };
    a.timeline->addLane("Music");
    for (const auto& [name, edit] : edits) {
        SCOPED_TRACE(name);
        const auto lanes = a.timeline->lanes();
        const auto buses = a.timeline->buses();
        const auto markers = a.timeline->markers();
        const auto revision = a.timeline->editRevision();
        int announced = 0;
        auto connection = a.timeline->contentChanged.connect([&] { ++announced; });
        edit(*a.timeline);
        connection.disconnect();
        EXPECT_EQ(a.timeline->undoStack().undoActionName(), name);
        EXPECT_GT(a.timeline->editRevision(), revision);
        EXPECT_EQ(announced, 1);
        a.timeline->undoStack().undo();
        EXPECT_EQ(a.timeline->lanes(), lanes);
        EXPECT_EQ(a.timeline->buses(), buses);
        EXPECT_EQ(a.timeline->markers(), markers);
    }
    // Markers are numbered after the highest "Marker N"; an edit that changes nothing is no step.
    a.timeline->renameMarker(marker.id, "Marker 7");
    EXPECT_EQ(a.timeline->addMarker(0).name, "Marker 8");
    const auto steps = a.timeline->undoStack().undoCount();
    a.timeline->renameLane(a.lane, a.timeline->lane(a.lane)->name);
    EXPECT_EQ(a.timeline->undoStack().undoCount(), steps);
}

TEST(Timeline, BusesAreNumberedFromTheFirstGapAndRemovingOneFeedsItsLanesToTheMaster) {
    Arrangement a;
    const auto one = a.timeline->addBus(), two = a.timeline->addBus();
    EXPECT_EQ(one.name, "Bus 1");
    EXPECT_EQ(two.name, "Bus 2");
    a.timeline->setOutput(a.lane, one.id);
    a.timeline->removeBus(one.id);
    EXPECT_EQ(a.timeline->lanes()[0].output, std::nullopt);
    EXPECT_EQ(a.timeline->addBus().name, "Bus 1");
    a.timeline->setOutput(a.lane, Uuid::random()); // no such bus: the master
    EXPECT_EQ(a.timeline->lanes()[0].output, std::nullopt);
    // Empty lanes are numbered the same way.
    a.timeline->renameLane(a.lane, "Lane 1");
    EXPECT_EQ(a.timeline->nextLaneName(), "Lane 2");
}

TEST(Timeline, TrackUsageAndRemovingATracksClipsWithTheLanesAndBusesLeftEmpty) {
    Arrangement a;
    const Uuid track = Uuid::random(), kept = Uuid::random();
    TimelineClip clip{Uuid::random(), "Take", a.audio, 0, 1000, 0, 0, 0, track};
    const Uuid music = a.timeline->addLane("Music").id;
    const Uuid bus = a.timeline->addBus().id;
    a.timeline->setOutput(music, bus);
    a.timeline->insertCopy(clip, a.lane, 0, "Paste Clip");
    a.timeline->insertCopy(clip, a.lane, 5000, "Paste Clip");
    a.timeline->insertCopy(clip, music, 0, "Paste Clip");
    clip.trackID = kept;
    a.timeline->insertCopy(clip, a.lane, 9000, "Paste Clip");
    const auto usage = a.timeline->usageByTrack();
    EXPECT_EQ(usage.at(track).clips, 3);
    EXPECT_EQ(usage.at(track).description(), "3 clips on \u201CVoice\u201D and \u201CMusic\u201D");
    EXPECT_EQ(a.timeline->lanesEmptied(track), std::vector<Uuid>{music});
    EXPECT_EQ(a.timeline->busesEmptied({music}), std::vector<Uuid>{bus});

    a.timeline->removeClips(track, true, "Remove Track");
    ASSERT_EQ(a.timeline->lanes().size(), 1u);
    EXPECT_EQ(a.timeline->lanes()[0].clips.size(), 1u);
    EXPECT_TRUE(a.timeline->buses().empty());
    a.timeline->undoStack().undo();
    EXPECT_EQ(a.timeline->lanes().size(), 2u);
    EXPECT_EQ(a.timeline->buses().size(), 1u);
}
