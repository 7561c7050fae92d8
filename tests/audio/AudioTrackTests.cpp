#include "audio/AudioTrack.h"

#include "audio/AudioErrors.h"
#include "support/ModelTestAudio.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace sonvale;
using namespace sonvale::test;

namespace {

AudioTrackPtr readyTrack(AudioDataPtr audio, double width = 0) {
    auto track = AudioTrack::create("/music/take.wav");
    if (width > 0) track->updateWidth(width);
    track->finishLoading(std::move(audio));
    return track;
}

std::vector<int64_t> positions(const std::vector<Marker>& markers) {
    std::vector<int64_t> result;
    for (const auto& m : markers) {
        result.push_back(m.start);
        if (m.end) result.push_back(*m.end);
    }
    return result;
}

// A mono signal at +0.5 that turns to -0.5 at frame `edge`: its only zero crossing.
AudioDataPtr stepDown(double rate, int64_t frames, int64_t edge) {
    std::vector<float> samples(size_t(frames), 0.5f);
    for (int64_t i = edge; i < frames; ++i)
        samples[size_t(i)] = -0.5f;
    return makeAudio(rate, {samples});
}

} // namespace

// ---- selection ---------------------------------------------------------------------------

TEST(AudioTrack, SelectRoundsOrdersClampsAndPutsTheCursorAtTheLowerEdge) {
    const struct {
        double a, b;
        std::optional<FrameRange> selection;
        int64_t cursor;
    } cases[] = {{500.4, 100.6, FrameRange{101, 500}, 101},
                 {-50, 5000, FrameRange{0, 1000}, 0},
                 {300, 300, std::nullopt, 300}}; // one position: no selection
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.a << ":" << c.b);
        auto track = readyTrack(makeNoise(48000, 1, 1000));
        track->select(10, 20, false);
        track->select(c.a, c.b, false);
        EXPECT_EQ(track->selection(), c.selection);
        EXPECT_EQ(track->cursor(), c.cursor);
    }
    auto empty = AudioTrack::create("/b.wav");
    empty->select(10, 20, true);
    EXPECT_FALSE(empty->selection());
    EXPECT_EQ(empty->cursor(), 0);
}

TEST(AudioTrack, SelectionSignalsOnlyWhenTheValueChanges) {
    auto track = readyTrack(makeNoise(48000, 1, 1000));
    int selection = 0, cursor = 0;
    track->selectionChanged.connect([&] { ++selection; });
    track->cursorChanged.connect([&] { ++cursor; });
    track->select(10, 20, false);
    track->select(20, 10, false);
    track->select(10.2, 19.8, false);
    EXPECT_EQ(selection, 1);
    EXPECT_EQ(cursor, 1);
}

// The snap radius is 100 ms or six points, whichever is narrower; the step's zero crossing
// lies between frames edge - 1 and edge. Edges that snap to the same frame leave no selection.
TEST(AudioTrack, SelectionEdgesSnapWithinHundredMillisecondsOrSixPoints) {
    const int64_t edge = 10000;
    const struct {
        double width; // 1000 frames per point: 100 ms (4800) is narrower; 100: six points (600)
        int64_t from, to;
        std::optional<FrameRange> selection;
        int64_t cursor;
    } cases[] = {{20, edge - 4850, edge + 5000, FrameRange{edge - 4850, edge + 5000}, edge - 4850},
                 {20, edge - 4700, edge + 5000, FrameRange{edge - 1, edge + 5000}, edge - 1},
                 {200, edge - 650, edge + 5000, FrameRange{edge - 650, edge + 5000}, edge - 650},
                 {200, edge - 550, edge + 5000, FrameRange{edge - 1, edge + 5000}, edge - 1},
                 {200, edge - 5000, edge + 550, FrameRange{edge - 5000, edge - 1}, edge - 5000},
                 {200, edge - 100, edge + 100, std::nullopt, edge - 1}};
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.width << " points, " << c.from << ":" << c.to);
        auto track = readyTrack(stepDown(48000, 20000, edge), c.width);
        track->select(double(c.from), double(c.to), true);
        EXPECT_EQ(track->selection(), c.selection);
        EXPECT_EQ(track->cursor(), c.cursor);
    }
}

// ---- replace ---------------------------------------------------------------------------

TEST(AudioTrack, DeletingARangeMovesAndRemovesMarkers) {
    auto track = readyTrack(makeNoise(48000, 2, 1000));
    track->setMarkers({point("at250", 250), point("at150", 150), region("inside", 120, 180),
                       point("at100", 100), region("across", 50, 150)});
    track->replace({100, 200}, AudioClip{}, std::nullopt, "Delete");
    std::vector<std::string> names;
    for (const auto& m : track->markers())
        names.push_back(m.name);
    EXPECT_EQ(names, (std::vector<std::string>{"across", "at100", "at150", "at250"}));
    EXPECT_EQ(positions(track->markers()), (std::vector<int64_t>{50, 100, 100, 100, 150}));
    EXPECT_EQ(track->frameCount(), 900);
}

TEST(AudioTrack, InsertingKeepsMarkersAtTheInsertionPointAndShiftsLaterOnes) {
    auto track = readyTrack(makeNoise(48000, 1, 1000));
    track->setMarkers({point("at", 300), point("after", 301), region("spans", 200, 400)});
    track->replace({300, 300}, makeClip(48000, {std::vector<float>(50, 0.25f)}),
                   FrameRange{300, 350}, "Paste");
    EXPECT_EQ(positions(track->markers()), (std::vector<int64_t>{200, 450, 300, 351}));
    EXPECT_EQ(track->selection(), (FrameRange{300, 350}));
    EXPECT_EQ(track->cursor(), 300);
}

TEST(AudioTrack, PositionsInsideAReplacedRangeArePulledIntoTheShorterContent) {
    auto track = readyTrack(makeNoise(48000, 1, 1000));
    track->setMarkers({point("a", 110), point("b", 150), point("c", 199)});
    track->replace({100, 200}, makeClip(48000, {std::vector<float>(20, 0.1f)}), std::nullopt,
                   "Effects");
    EXPECT_EQ(positions(track->markers()), (std::vector<int64_t>{110, 120, 120}));
}

TEST(AudioTrack, EditUndoRedoAndExportMoveDepthRevisionAndUnexportedEdits) {
    auto track = readyTrack(makeNoise(48000, 1, 1000));
    const auto revision = track->editRevision();
    track->replace({0, 10}, AudioClip{}, std::nullopt, "Delete");
    EXPECT_EQ(track->audioEditDepth(), 1);
    EXPECT_TRUE(track->hasUnexportedEdits());
    track->undoStack().undo();
    EXPECT_EQ(track->audioEditDepth(), 0);
    EXPECT_EQ(track->editRevision(), revision + 2);
    EXPECT_FALSE(track->hasUnexportedEdits());
    track->undoStack().redo();
    EXPECT_EQ(track->audioEditDepth(), 1);
    EXPECT_EQ(track->editRevision(), revision + 3);
    track->setExportedRevision(track->editRevision());
    EXPECT_FALSE(track->hasUnexportedEdits());
    EXPECT_EQ(track->audioEditDepth(), 1); // still marked edited, now "Edited and exported"
    track->replace({0, 10}, AudioClip{}, std::nullopt, "Delete");
    EXPECT_TRUE(track->hasUnexportedEdits());
}

TEST(AudioTrack, ReplaceThatWouldRemoveEverythingChangesNothing) {
    auto audio = makeNoise(48000, 1, 1000);
    auto track = readyTrack(audio);
    track->setMarkers({point("p", 10)});
    track->select(0, 1000, false);
    const auto revision = track->editRevision();
    int audioSignals = 0;
    track->audioChanged.connect([&] { ++audioSignals; });
    try {
        track->replace({0, 1000}, AudioClip{}, std::nullopt, "Delete");
        FAIL() << "expected EditError";
    } catch (const EditError& error) {
        EXPECT_EQ(error.code(), EditError::Code::wouldRemoveEverything);
        EXPECT_STREQ(error.what(), "A track can't be left empty. Remove it from the list instead.");
    }
    EXPECT_EQ(track->audio(), audio);
    EXPECT_EQ(track->selection(), (FrameRange{0, 1000}));
    EXPECT_EQ(track->markers().size(), 1u);
    EXPECT_EQ(track->editRevision(), revision);
    EXPECT_FALSE(track->undoStack().canUndo());
    EXPECT_EQ(audioSignals, 0);
}

TEST(AudioTrack, ReplaceReportsTheNewAudioAndEndsMarkerRenaming) {
    auto track = readyTrack(makeNoise(48000, 1, 1000));
    track->setMarkers({point("p", 10)});
    track->setRenamingMarker(track->markers()[0].id);
    AudioDataPtr reported;
    track->onAudioReplaced = [&](const AudioDataPtr& audio) { reported = audio; };
    track->replace({0, 10}, AudioClip{}, std::nullopt, "Delete");
    EXPECT_EQ(reported, track->audio());
    EXPECT_FALSE(track->renamingMarker());
}

// ---- clamping -----------------------------------------------------------------------------

TEST(AudioTrack, ClampingBringsEverythingInsideTheAudio) {
    auto track = AudioTrack::create("/x.wav");
    track->setMarkers({point("end", 1000), point("past", 1001), region("late", 1000, 1200),
                       region("long", 900, 1500)});
    track->setSelection(FrameRange{800, 1300});
    track->setCursor(5000);
    track->finishLoading(makeNoise(48000, 1, 1000));
    EXPECT_EQ(track->selection(), (FrameRange{800, 1000}));
    EXPECT_EQ(track->cursor(), 1000);
    ASSERT_EQ(track->markers().size(), 2u);
    EXPECT_EQ(track->markers()[0].name, "long");
    EXPECT_EQ(track->markers()[0].end, 1000);
    EXPECT_EQ(track->markers()[1].name, "end");

    auto past = AudioTrack::create("/x.wav");
    past->setSelection(FrameRange{2000, 3000});
    past->finishLoading(makeNoise(48000, 1, 1000));
    EXPECT_FALSE(past->selection());
}

// ---- gain --------------------------------------------------------------------------------

TEST(AudioTrack, GainSetterWritesTheLinearGainEveryTime) {
    auto track = readyTrack(makeNoise(48000, 1, 100));
    int signals = 0;
    track->gainChanged.connect([&] { ++signals; });
    track->setGainDB(-6);
    EXPECT_NEAR(track->gainBox()->load(), std::pow(10.0, -6.0 / 20), 1e-6);
    track->gainBox()->store(0.25f);
    track->setGainDB(-6);
    EXPECT_NEAR(track->gainBox()->load(), 0.501187, 1e-6);
    EXPECT_EQ(signals, 1);
    EXPECT_EQ(track->editRevision(), 0);
    EXPECT_EQ(track->audioEditDepth(), 0);
}

// ---- transcript --------------------------------------------------------------------------

TEST(AudioTrack, TranscriptAndCachedLoudnessGoStaleWithTheNextEdit) {
    auto track = readyTrack(makeNoise(48000, 1, 1000));
    EXPECT_FALSE(track->isTranscriptStale());
    Transcript transcript;
    transcript.revision = track->editRevision();
    track->setTranscript(transcript);
    track->setIntegratedLoudness(-20.0, track->audio());
    EXPECT_FALSE(track->isTranscriptStale());
    EXPECT_EQ(track->currentLoudness(), -20.0);
    track->replace({0, 10}, AudioClip{}, std::nullopt, "Delete");
    EXPECT_TRUE(track->isTranscriptStale());
    EXPECT_FALSE(track->currentLoudness());
    track->undoStack().undo(); // same audio, but a new revision
    EXPECT_TRUE(track->isTranscriptStale());
}

// ---- viewport ----------------------------------------------------------------------------

TEST(AudioTrack, ZoomKeepsTheFrameUnderTheAnchorBetweenTheDeepestZoomAndTheWholeTrack) {
    auto track = readyTrack(makeNoise(48000, 1, 10000), 100);
    track->zoom(0.5, 40); // 100 -> 50 frames per point around frame 4000
    EXPECT_DOUBLE_EQ(track->viewport().samplesPerPoint, 50);
    EXPECT_DOUBLE_EQ(track->viewport().start + 40 * 50, 4000);
    for (int i = 0; i < 40; ++i)
        track->zoom(0.25, 50);
    EXPECT_DOUBLE_EQ(track->viewport().samplesPerPoint, AudioTrack::minSamplesPerPoint);
    track->zoom(1e9, 50); // far past the whole track
    EXPECT_DOUBLE_EQ(track->viewport().samplesPerPoint, 100);
    EXPECT_DOUBLE_EQ(track->viewport().start, 0);
}

TEST(AudioTrack, ShowPanAndScrollStayWithinTheAudio) {
    auto track = readyTrack(makeNoise(48000, 1, 10000), 100);
    track->show(1000, 2000); // 10 frames per point
    EXPECT_DOUBLE_EQ(track->viewport().samplesPerPoint, 10);
    EXPECT_DOUBLE_EQ(track->viewport().start, 1000);
    track->show(500, 500); // an empty or reversed span is ignored
    track->show(600, 500);
    EXPECT_DOUBLE_EQ(track->viewport().start, 1000);
    track->pan(-500);
    EXPECT_DOUBLE_EQ(track->viewport().start, 0);
    track->pan(5000);
    EXPECT_DOUBLE_EQ(track->viewport().start, 9000);
    track->scrollToStart(9500);
    EXPECT_DOUBLE_EQ(track->viewport().start, 9000);
}

TEST(AudioTrack, FollowScrollsSoTheFrameStandsTwoPercentFromTheLeft) {
    auto track = readyTrack(makeNoise(48000, 1, 100000), 100);
    track->show(0, 10000);
    track->follow(5000); // visible: nothing moves
    EXPECT_DOUBLE_EQ(track->viewport().start, 0);
    track->follow(10000); // the end is exclusive
    EXPECT_DOUBLE_EQ(track->viewport().start, 10000 - 200);
}

TEST(AudioTrack, WidthChangeKeepsAWholeViewWholeAndTheZoomOfAPartialOne) {
    auto track = readyTrack(makeNoise(48000, 1, 10000), 100);
    track->updateWidth(400);
    EXPECT_DOUBLE_EQ(track->viewport().samplesPerPoint, 25);
    EXPECT_DOUBLE_EQ(track->viewport().start, 0);
    track->updateWidth(100);
    track->show(8000, 9000); // 10 frames per point
    track->updateWidth(150);
    EXPECT_DOUBLE_EQ(track->viewport().samplesPerPoint, 10);
    EXPECT_DOUBLE_EQ(track->viewport().start, 8000);
    track->updateWidth(400); // the span would pass the end: start moves back
    EXPECT_DOUBLE_EQ(track->viewport().start, 6000);
}

TEST(AudioTrack, WidthChangeOnAShortTrackCannotZoomPastTheDeepestZoom) {
    auto track = readyTrack(makeNoise(48000, 1, 1), 100);
    EXPECT_DOUBLE_EQ(track->viewport().samplesPerPoint, 0.01);
    track->updateWidth(100000);
    EXPECT_DOUBLE_EQ(track->viewport().samplesPerPoint, AudioTrack::minSamplesPerPoint);
}

TEST(AudioTrack, ViewportSignalsOnlyOnChange) {
    auto track = readyTrack(makeNoise(48000, 1, 10000), 100);
    int signals = 0;
    track->viewportChanged.connect([&] { ++signals; });
    track->pan(-10);    // already at the start
    track->zoom(10, 0); // already whole
    track->updateWidth(100);
    EXPECT_EQ(signals, 0);
    track->pan(0);
    track->zoom(0.5, 0);
    EXPECT_EQ(signals, 1);
}

TEST(AudioTrack, MovingAMarkerIsOneUndoStepKeptInsideTheAudio) {
    auto track = readyTrack(makeNoise(48000, 1, 1000));
    const Marker p = point("p", 100), r = region("r", 200, 400);
    track->setMarkers({p, r});
    track->moveMarker(p.id, 5000, std::nullopt);
    EXPECT_EQ(track->markers().back().start, 1000); // clamped to the end, now sorted last
    EXPECT_EQ(track->undoStack().undoActionName(), "Move Marker");
    track->moveMarker(r.id, 300, 700);
    EXPECT_EQ(positions(track->markers()), (std::vector<int64_t>{300, 700, 1000}));
    EXPECT_EQ(track->undoStack().undoActionName(), "Move Region");
    track->undoStack().undo();
    track->undoStack().undo();
    EXPECT_EQ(positions(track->markers()), (std::vector<int64_t>{100, 200, 400}));
}

TEST(AudioTrack, MovingARegionToNothingOrNowhereChangesNothing) {
    auto track = readyTrack(makeNoise(48000, 1, 1000));
    const Marker r = region("r", 200, 400);
    track->setMarkers({r});
    const int64_t revision = track->markerRevision();
    track->moveMarker(r.id, 500, 500);         // would be empty
    track->moveMarker(r.id, 200, 400);         // unchanged
    track->moveMarker(Uuid::random(), 10, 20); // unknown
    EXPECT_EQ(track->markerRevision(), revision);
    EXPECT_FALSE(track->undoStack().canUndo());
}
