#include "editor/EditorModel.h"

#include "base/ManualExecutor.h"
#include "persistence/Preferences.h"
#include "support/ModelTestAudio.h"

#include <gtest/gtest.h>

using namespace sonvale;
using namespace sonvale::test;

namespace {

struct MarkerEditor {
    ManualExecutor executor;
    Preferences preferences;
    EditorModel model{executor, preferences};
    AudioTrackPtr track = AudioTrack::create("/music/Talk.wav");

    MarkerEditor() {
        track->finishLoading(makeNoise(48000, 1, 10000));
        model.addTrack(track);
        model.setSelectedTrackIDs({track->id()});
    }
};

std::vector<std::string> names(const AudioTrack& track) {
    std::vector<std::string> result;
    for (const auto& m : track.markers())
        result.push_back(m.name);
    return result;
}

} // namespace

// ---- naming ------------------------------------------------------------------------------

TEST(Markers, ANewNameTakesOneMoreThanTheLargestNumberOfExactlyThatFormAndKind) {
    MarkerEditor e;
    e.track->setMarkers({point("Marker 1", 10), point("Marker 3", 20), point("Intro", 30)});
    e.track->addMarker(40, std::nullopt);
    EXPECT_EQ(e.track->markers().back().name, "Marker 4");
    e.track->addMarker(0, FrameRange{50, 60});
    EXPECT_EQ(e.track->markers().back().name, "Region 1");
    e.track->setMarkers({region("Marker 7", 1, 2), point("Marker 3a", 3), point("Marker -5", 4),
                         point("marker 9", 5), point("Marker  8", 6), point("Marker 02", 7),
                         point("Region 12", 8), point("Marker 99999999999999999999", 9)});
    EXPECT_EQ(e.track->nextMarkerName(false), "Marker 3");
    EXPECT_EQ(e.track->nextMarkerName(true), "Region 1");
}

// ---- adding, removing, renaming ----------------------------------------------------------------

TEST(Markers, AddMarkerMakesARegionFromTheSelectionElseAPointAtThePlayhead) {
    MarkerEditor e;
    EXPECT_EQ(e.model.addMarkerTitle(), "Add Marker at Playhead");
    e.track->setCursor(1234);
    e.model.addMarker();
    ASSERT_EQ(e.track->markers().size(), 1u);
    EXPECT_EQ(e.track->markers()[0].start, 1234);
    EXPECT_FALSE(e.track->markers()[0].end);
    EXPECT_EQ(e.model.undoMenuTitle(), "Undo Add Marker");

    e.track->select(2000, 3000, false);
    EXPECT_EQ(e.model.addMarkerTitle(), "Add Region from Selection");
    e.model.addMarker();
    ASSERT_EQ(e.track->markers().size(), 2u);
    EXPECT_EQ(e.track->markers()[1].start, 2000);
    EXPECT_EQ(e.track->markers()[1].end, 3000);
    EXPECT_EQ(e.model.undoMenuTitle(), "Undo Add Region");
    EXPECT_TRUE(e.model.hasMarkers());
}

TEST(Markers, WithoutAudioNoMarkerCanBeAdded) {
    MarkerEditor e;
    auto loading = AudioTrack::create("/music/loading.wav");
    e.model.addTrack(loading);
    e.model.setSelectedTrackIDs({loading->id()});
    EXPECT_FALSE(e.model.canAddMarker());
    e.model.addMarker();
    EXPECT_TRUE(loading->markers().empty());
    EXPECT_FALSE(loading->undoStack().canUndo());
}

TEST(Markers, ListStaysSortedByStart) {
    MarkerEditor e;
    e.track->addMarker(500, std::nullopt);
    e.track->addMarker(100, std::nullopt);
    e.track->addMarker(0, FrameRange{100, 300});
    e.track->addMarker(300, std::nullopt);
    EXPECT_EQ(names(*e.track),
              (std::vector<std::string>{"Marker 2", "Region 1", "Marker 3", "Marker 1"}));
}

TEST(Markers, RemovingAMarkerIsOneStepNamedForItsKind) {
    MarkerEditor e;
    const auto pointID = *e.track->addMarker(100, std::nullopt);
    const auto regionID = *e.track->addMarker(0, FrameRange{200, 300});
    const auto before = e.track->markers();
    e.track->removeMarker(regionID);
    EXPECT_EQ(e.model.undoMenuTitle(), "Undo Delete Region");
    e.track->removeMarker(pointID);
    EXPECT_EQ(e.model.undoMenuTitle(), "Undo Delete Marker");
    EXPECT_TRUE(e.track->markers().empty());
    e.model.undo();
    e.model.undo();
    EXPECT_EQ(e.track->markers(), before);
    e.model.redo();
    EXPECT_EQ(e.track->markers().size(), 1u);
    EXPECT_EQ(e.track->markers()[0].id, pointID);
}

TEST(Markers, RenamingIsUndoableAndEndsTheRenamingButABlankOrUnchangedNameIsNoStep) {
    MarkerEditor e;
    const auto id = *e.track->addMarker(100, std::nullopt);
    const auto steps = e.track->undoStack().undoCount();
    e.track->renameMarker(id, "   ");
    e.track->renameMarker(id, "Marker 1");
    e.track->renameMarker(Uuid::random(), "Elsewhere");
    EXPECT_EQ(e.track->undoStack().undoCount(), steps);
    e.track->setRenamingMarker(id);
    e.track->renameMarker(id, "  Chorus ");
    EXPECT_EQ(e.track->markers()[0].name, "Chorus");
    EXPECT_FALSE(e.track->renamingMarker());
    EXPECT_EQ(e.model.undoMenuTitle(), "Undo Rename Marker");
    e.model.undo();
    EXPECT_EQ(e.track->markers()[0].name, "Marker 1");
    e.model.redo();
    EXPECT_EQ(e.track->markers()[0].name, "Chorus");
}

TEST(Markers, AddRegionsIsOneStepAndSkipsWhatIsNotARegion) {
    MarkerEditor e;
    e.track->addRegions({});
    EXPECT_FALSE(e.track->undoStack().canUndo());
    e.track->addRegions({point("not a region", 5), region("empty", 50, 50)});
    EXPECT_FALSE(e.track->undoStack().canUndo());
    e.track->addRegions({region("Opening", 0, 4000), region("Past the end", 9000, 12000),
                         region("Outside", 20000, 30000)});
    EXPECT_EQ(names(*e.track), (std::vector<std::string>{"Opening", "Past the end"}));
    EXPECT_EQ(e.track->markers()[1].end, 10000);
    EXPECT_EQ(e.model.undoMenuTitle(), "Undo Add Regions");
    e.model.undo();
    EXPECT_TRUE(e.track->markers().empty());
}

TEST(Markers, RemoveAllOnAnEmptyListRegistersNoStep) {
    MarkerEditor e;
    e.model.removeAllMarkers();
    EXPECT_FALSE(e.track->undoStack().canUndo());
    e.track->addMarker(10, std::nullopt);
    e.track->addMarker(20, std::nullopt);
    e.model.removeAllMarkers();
    EXPECT_FALSE(e.model.hasMarkers());
    EXPECT_EQ(e.model.undoMenuTitle(), "Undo Remove All Markers");
    e.model.undo();
    EXPECT_EQ(e.track->markers().size(), 2u);
}

TEST(Markers, EveryChangeRaisesTheMarkerRevisionAndSignals) {
    MarkerEditor e;
    int signals = 0;
    e.track->markersChanged.connect([&] { ++signals; });
    const auto start = e.track->markerRevision();
    const auto id = *e.track->addMarker(10, std::nullopt);
    e.track->renameMarker(id, "A");
    e.model.undo();
    e.model.undo();
    e.model.redo();
    EXPECT_EQ(e.track->markerRevision(), start + 5);
    EXPECT_EQ(signals, 5);
}

// ---- jumping -----------------------------------------------------------------------------------

// Boundaries at 100, 300 and 700 (a region's end and a point coincide there: one boundary).
TEST(Markers, JumpGoesToTheNearestBoundaryInItsDirectionAndStaysAtTheLast) {
    MarkerEditor e;
    e.track->setMarkers({point("a", 100), region("r", 300, 700), point("b", 700)});
    EXPECT_EQ(e.track->markerBoundaries(), (std::vector<int64_t>{100, 300, 700}));
    const struct {
        int64_t from;
        int direction;
        int64_t to;
    } cases[] = {{300, 1, 700}, {700, 1, 700}, {700, -1, 300}, {300, 0, 100}, // below 1: back
                 {100, 0, 100}, {500, 1, 700}, {500, -1, 300}};
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.from << " by " << c.direction);
        e.track->setCursor(c.from);
        e.model.jumpToMarker(c.direction);
        EXPECT_EQ(e.track->cursor(), c.to);
    }
    e.track->setMarkers({});
    e.track->setCursor(40);
    e.model.jumpToMarker(1); // no markers: nothing moves
    e.model.jumpToMarker(-1);
    EXPECT_EQ(e.track->cursor(), 40);
}
