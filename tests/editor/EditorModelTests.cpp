#include "editor/EditorModel.h"

#include "audio/AudioLoader.h"
#include "base/ManualExecutor.h"
#include "persistence/Preferences.h"
#include "support/ModelTestAudio.h"
#include "support/ModelTestFiles.h"

#include <gtest/gtest.h>

#include <array>
#include <random>
#include <tuple>

#include <sys/stat.h>
#include <unistd.h>

using namespace sonvale;
using namespace sonvale::test;

namespace {

struct ModelEditor {
    ManualExecutor executor;
    Preferences preferences;
    EditorModel model{executor, preferences};

    AudioTrackPtr add(AudioDataPtr audio, const std::string& name = "take") {
        auto track = AudioTrack::create("/music/" + name + ".wav");
        track->finishLoading(std::move(audio));
        model.addTrack(track);
        model.setSelectedTrackIDs({track->id()});
        executor.drain(); // the loudness measurement every new audio gets
        return track;
    }
    // Mono noise tracks named "a", "b", ...; the last one ends up selected.
    template <size_t N> std::array<AudioTrackPtr, N> addTracks() {
        std::array<AudioTrackPtr, N> tracks;
        for (size_t i = 0; i < N; ++i)
            tracks[i] = add(makeNoise(48000, 1, 100), std::string(1, char('a' + i)));
        return tracks;
    }
};

std::vector<float> channel(const AudioTrack& track, int c) {
    return samplesOf(*track.audio())[size_t(c)];
}

} // namespace

// Each test gets an editor and a folder of its own.
class EditorModelTest : public ::testing::Test {
protected:
    ModelEditor e;
    TempFolder folder;
};

// ---- track list ----------------------------------------------------------------------------

TEST_F(EditorModelTest, ActiveTrackIsTheFirstSelectedInListOrder) {
    const auto [a, b, c] = e.addTracks<3>();
    e.model.setSelectedTrackIDs({c->id(), b->id(), Uuid::random()});
    EXPECT_EQ(e.model.activeTrack(), b);
    EXPECT_EQ(e.model.selectedTrackIDs().size(), 2u); // the unknown id is left out
    e.model.setSelectedTrackIDs({});
    EXPECT_EQ(e.model.activeTrack(), nullptr);
    EXPECT_EQ(e.model.undoMenuTitle(), "Undo");
}

TEST_F(EditorModelTest, SelectAdjacentTrackStopsAtTheEndsAndSelectsOnlyThatTrack) {
    const auto [a, b, c] = e.addTracks<3>();
    const struct {
        std::set<Uuid> selected;
        int step;
        AudioTrackPtr expected;
    } cases[] = {{{c->id()}, -1, b},        {{a->id()}, -1, a}, {{a->id()}, 5, c},
                 {{c->id()}, 1, c},         {{}, 1, a},         {{}, -1, c},
                 {{a->id(), c->id()}, 1, b}};
    for (const auto& k : cases) {
        SCOPED_TRACE(::testing::Message() << k.step << " from " << k.selected.size());
        e.model.setSelectedTrackIDs(k.selected);
        e.model.selectAdjacentTrack(k.step);
        EXPECT_EQ(e.model.selectedTrackIDs(), std::set<Uuid>{k.expected->id()});
    }
}

TEST_F(EditorModelTest, RemovingTheSelectedTrackSelectsTheOneThatTookItsPlace) {
    const auto [a, b, c, d] = e.addTracks<4>();
    e.model.setSelectedTrackIDs({b->id()});
    int signals = 0;
    e.model.selectionChanged.connect([&] { ++signals; });
    e.model.removeTracks({d->id()}); // not selected: the selection stays
    EXPECT_EQ(e.model.activeTrack(), b);
    EXPECT_EQ(signals, 0);
    e.model.removeTracks({b->id()});
    EXPECT_EQ(e.model.tracks(), (std::vector<AudioTrackPtr>{a, c}));
    EXPECT_EQ(e.model.activeTrack(), c);
    e.model.removeTracks({c->id()});
    EXPECT_EQ(e.model.activeTrack(), a);
    e.model.removeTracks({a->id()});
    EXPECT_TRUE(e.model.tracks().empty());
    EXPECT_TRUE(e.model.selectedTrackIDs().empty());
}

TEST_F(EditorModelTest, ReorderingPutsNamedTracksFirstAndKeepsTheRestInOrder) {
    const auto [a, b, c] = e.addTracks<3>();
    int changes = 0;
    e.model.tracksChanged.connect([&] { ++changes; });
    e.model.reorderTracks({c->id(), Uuid::random(), a->id(), c->id()});
    EXPECT_EQ(e.model.tracks(), (std::vector<AudioTrackPtr>{c, a, b}));
    EXPECT_EQ(changes, 1);
    // The same order again is no change.
    e.model.reorderTracks({c->id()});
    EXPECT_EQ(changes, 1);
    EXPECT_EQ(e.model.activeTrack(), c);
}

// ---- copy, cut, delete ---------------------------------------------------------------------

TEST_F(EditorModelTest, CopyKeepsRateAndEveryChannelAndAnEmptySelectionKeepsTheClipboard) {
    auto track = e.add(makeRamp(44100, 3, 1000));
    track->select(100, 110, false);
    e.model.copySelection();
    ASSERT_TRUE(e.model.clipboard());
    EXPECT_EQ(e.model.clipboard()->sampleRate, 44100);
    ASSERT_EQ(e.model.clipboard()->channels.size(), 3u);
    EXPECT_EQ(e.model.clipboard()->channels[2][0], channel(*track, 2)[100]);
    EXPECT_EQ(e.model.clipboard()->length(), 10);
    track->select(50, 50, false);
    e.model.copySelection();
    EXPECT_EQ(e.model.clipboard()->length(), 10);
}

TEST_F(EditorModelTest, CutAndDeleteRemoveTheSelectionAndOnlyCutCopiesIt) {
    for (const bool cut : {true, false}) {
        SCOPED_TRACE(cut ? "cut" : "delete");
        ModelEditor e;
        auto track = e.add(makeRamp(48000, 2, 1000));
        const auto before = channel(*track, 1);
        track->select(200, 300, false);
        cut ? e.model.cutSelection() : e.model.deleteSelection();
        EXPECT_EQ(track->frameCount(), 900);
        EXPECT_EQ(channel(*track, 1)[200], before[300]);
        EXPECT_FALSE(track->selection());
        EXPECT_EQ(track->cursor(), 200);
        EXPECT_EQ(e.model.undoMenuTitle(), cut ? "Undo Cut" : "Undo Delete");
        if (!cut) {
            EXPECT_FALSE(e.model.clipboard());
            continue;
        }
        ASSERT_TRUE(e.model.clipboard());
        EXPECT_EQ(e.model.clipboard()->channels[1],
                  std::vector<float>(before.begin() + 200, before.begin() + 300));
    }
}

// Taking everything away, by any command, is refused with the command's alert.
TEST_F(EditorModelTest, EditsThatWouldEmptyTheTrackFailWithAnAlertAndChangeNothing) {
    const struct {
        std::string title;
        void (*run)(EditorModel&);
    } cases[] = {{"Delete failed", [](EditorModel& m) { m.deleteSelection(); }},
                 {"Cut failed", [](EditorModel& m) { m.cutSelection(); }},
                 {"Trim failed", [](EditorModel& m) {
                      m.trim({500, 500}, "Trim", true);
                  }}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.title);
        ModelEditor e;
        auto audio = makeNoise(48000, 1, 1000);
        auto track = e.add(audio);
        track->select(0, 1000, false);
        c.run(e.model);
        ASSERT_TRUE(e.model.alert());
        EXPECT_EQ(
            *e.model.alert(),
            (AppAlert{c.title, "A track can't be left empty. Remove it from the list instead."}));
        EXPECT_EQ(track->audio(), audio);
        EXPECT_EQ(track->selection(), (FrameRange{0, 1000}));
        EXPECT_FALSE(track->undoStack().canUndo());
    }
}

TEST_F(EditorModelTest, RecordingTrackIsCopiedFromButNotEditedAndTrimBeeps) {
    auto audio = makeNoise(48000, 1, 1000);
    auto track = e.add(audio);
    track->setIsRecording(true);
    track->select(0, 100, false);
    EXPECT_TRUE(e.model.canCopy());
    EXPECT_FALSE(e.model.canEdit());
    int beeps = 0;
    e.model.beepRequested.connect([&] { ++beeps; });
    e.model.cutSelection();
    EXPECT_EQ(e.model.clipboard()->length(), 100);
    e.model.deleteSelection();
    e.model.paste();
    e.model.trim({10, 20}, "Trim", true);
    EXPECT_EQ(beeps, 1);
    EXPECT_EQ(track->audio(), audio);
    EXPECT_FALSE(track->undoStack().canUndo());
}

TEST_F(EditorModelTest, CommandsWithoutAnActiveTrackDoNothing) {
    e.model.setClipboard(makeClip(48000, {{0.1f}}));
    e.model.copySelection();
    e.model.cutSelection();
    e.model.deleteSelection();
    e.model.paste();
    e.model.trim({0, 1}, "Trim", true);
    e.model.newTrackFromSelection();
    e.model.undo();
    EXPECT_FALSE(e.model.alert());
    EXPECT_EQ(e.executor.pendingBackground(), 0u);
}

// ---- paste ---------------------------------------------------------------------------------

TEST_F(EditorModelTest, PasteInsertsAtTheCursorOrReplacesTheSelectionAndSelectsWhatItPasted) {
    const struct {
        std::optional<FrameRange> selected; // else the cursor stands at 400
        int64_t frames;
        FrameRange pasted;
        int64_t resumesAt; // the first frame of the old audio after the paste
    } cases[] = {{std::nullopt, 1050, {400, 450}, 400},
                 {FrameRange{100, 200}, 950, {100, 150}, 200}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.pasted.lower);
        ModelEditor e;
        auto track = e.add(makeRamp(48000, 1, 1000));
        e.model.setClipboard(makeClip(48000, {std::vector<float>(50, 0.75f)}));
        if (c.selected)
            track->select(double(c.selected->lower), double(c.selected->upper), false);
        else
            track->setCursor(400);
        e.model.paste();
        EXPECT_EQ(track->frameCount(), c.frames);
        EXPECT_EQ(track->selection(), c.pasted);
        EXPECT_EQ(channel(*track, 0)[size_t(c.pasted.lower - 1)],
                  float(c.pasted.lower - 1) * 1e-4f);
        EXPECT_EQ(channel(*track, 0)[size_t(c.pasted.upper - 1)], 0.75f);
        EXPECT_EQ(channel(*track, 0)[size_t(c.pasted.upper)], float(c.resumesAt) * 1e-4f);
        EXPECT_EQ(e.model.undoMenuTitle(), "Undo Paste");
    }
}

TEST_F(EditorModelTest, PastingFortyFourPointOneIntoFortyEightFailsNamingBothRates) {
    auto source = e.add(makeNoise(44100, 2, 1000), "source");
    source->select(0, 100, false);
    e.model.copySelection();
    auto audio = makeNoise(48000, 2, 1000);
    auto target = e.add(audio, "target");
    e.model.paste();
    ASSERT_TRUE(e.model.alert());
    EXPECT_EQ(*e.model.alert(),
              (AppAlert{"Paste failed", "The copied audio is 44.1 kHz but this track is 48 kHz."}));
    EXPECT_EQ(target->audio(), audio);
    EXPECT_FALSE(target->undoStack().canUndo());
}

// Pasted at the start: a mono clip goes into both channels, stereo into mono is averaged, a
// third channel is dropped and the last one repeats into a third.
TEST_F(EditorModelTest, PasteMatchesTheClipToTheTracksChannels) {
    using Channels = std::vector<std::vector<float>>;
    const struct {
        Channels track, clip, expected;
    } cases[] = {{{{0, 0}, {0, 0}}, {{0.5f, 0.25f}}, {{0.5f, 0.25f, 0, 0}, {0.5f, 0.25f, 0, 0}}},
                 {{{0, 0}}, {{0.5f}, {0.25f}}, {{0.375f, 0, 0}}},
                 {{{0}, {0}}, {{0.1f}, {0.2f}, {0.3f}}, {{0.1f, 0}, {0.2f, 0}}},
                 {{{0}, {0}, {0}}, {{0.1f}, {0.2f}}, {{0.1f, 0}, {0.2f, 0}, {0.2f, 0}}}};
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.clip.size() << " into " << c.track.size());
        ModelEditor e;
        auto track = e.add(makeAudio(48000, c.track));
        e.model.setClipboard(makeClip(48000, c.clip));
        track->setCursor(0);
        e.model.paste();
        EXPECT_EQ(samplesOf(*track->audio()), c.expected);
        EXPECT_FALSE(e.model.alert());
    }
}

// ---- trim ----------------------------------------------------------------------------------

TEST_F(EditorModelTest, TrimCutsBothEndsAsOneUndoStep) {
    auto original = makeRamp(48000, 2, 1000);
    auto track = e.add(original);
    track->setMarkers({{Uuid::random(), "m", 500, std::nullopt}});
    const auto markers = track->markers();
    track->select(200, 700, false);
    e.model.trimToSelection();
    EXPECT_EQ(track->frameCount(), 500);
    EXPECT_EQ(channel(*track, 0)[0], 200 * 1e-4f);
    EXPECT_EQ(track->selection(), (FrameRange{0, 500}));
    EXPECT_EQ(track->markers()[0].start, 300);
    EXPECT_EQ(track->undoStack().undoCount(), 1u);
    EXPECT_EQ(e.model.undoMenuTitle(), "Undo Trim");
    EXPECT_EQ(track->audioEditDepth(), 2);

    e.model.undo();
    EXPECT_EQ(samplesOf(*track->audio()), samplesOf(*original));
    EXPECT_EQ(track->markers(), markers);
    EXPECT_EQ(track->selection(), (FrameRange{200, 700}));
    EXPECT_EQ(track->audioEditDepth(), 0);
    EXPECT_EQ(e.model.redoMenuTitle(), "Redo Trim");
    e.model.redo();
    EXPECT_EQ(track->frameCount(), 500);
    EXPECT_EQ(track->undoStack().undoCount(), 1u);
}

TEST_F(EditorModelTest, TrimAtEitherEndMakesOneCutOnly) {
    for (const FrameRange kept : {FrameRange{0, 600}, FrameRange{400, 1000}}) {
        SCOPED_TRACE(kept.lower);
        ModelEditor e;
        auto track = e.add(makeRamp(48000, 1, 1000));
        const auto revision = track->editRevision();
        track->select(double(kept.lower), double(kept.upper), false);
        e.model.trimToSelection();
        EXPECT_EQ(track->frameCount(), 600);
        EXPECT_EQ(track->editRevision(), revision + 1);
        EXPECT_EQ(channel(*track, 0)[0], float(kept.lower) * 1e-4f);
        EXPECT_EQ(track->selection(), (FrameRange{0, 600}));
    }
}

// ---- undo over many edits --------------------------------------------------------------------

namespace {
struct TrackSnapshot {
    std::vector<std::vector<float>> samples;
    std::vector<Marker> markers;
    friend bool operator==(const TrackSnapshot&, const TrackSnapshot&) = default;
};
TrackSnapshot capture(const AudioTrack& track) {
    return {samplesOf(*track.audio()), track.markers()};
}
} // namespace

TEST_F(EditorModelTest, RandomEditsUndoneRestoreTheOriginalAndRedoneRestoreTheEdit) {
    auto track = e.add(makeNoise(48000, 2, 3000, 5));
    track->setMarkers(
        {{Uuid::random(), "Intro", 100, 900}, {Uuid::random(), "Marker 1", 1500, std::nullopt}});
    std::mt19937 random(20240611);
    std::vector<TrackSnapshot> states{capture(*track)};
    std::vector<std::string> names;

    for (int step = 0; step < 200; ++step) {
        const int64_t frames = track->frameCount();
        std::uniform_int_distribution<int64_t> position(0, frames);
        track->select(double(position(random)), double(position(random)), false);
        const size_t stepsBefore = track->undoStack().undoCount();
        switch (random() % 8) {
        case 0: e.model.copySelection(); break;
        case 1: e.model.cutSelection(); break;
        case 2: e.model.deleteSelection(); break;
        case 3:
        case 4: e.model.paste(); break;
        case 5: e.model.trimToSelection(); break;
        case 6: e.model.addMarker(); break;
        case 7:
            if (!track->markers().empty())
                track->removeMarker(track->markers()[random() % track->markers().size()].id);
            break;
        }
        e.model.dismissAlert();
        if (track->undoStack().undoCount() != stepsBefore) {
            ASSERT_EQ(track->undoStack().undoCount(), stepsBefore + 1) << "one step per command";
            states.push_back(capture(*track));
            names.push_back(track->undoStack().undoActionName());
        }
    }
    ASSERT_GT(states.size(), 100u);
    const auto edited = states.back();

    for (size_t k = states.size() - 1; k > 0; --k) {
        ASSERT_EQ(e.model.undoMenuTitle(), "Undo " + names[k - 1]);
        e.model.undo();
        ASSERT_TRUE(capture(*track) == states[k - 1]) << "after undoing step " << k;
    }
    EXPECT_FALSE(e.model.canUndo());
    EXPECT_EQ(track->audioEditDepth(), 0);
    EXPECT_FALSE(track->hasUnexportedEdits());

    for (size_t k = 1; k < states.size(); ++k) {
        e.model.redo();
        ASSERT_TRUE(capture(*track) == states[k]) << "after redoing step " << k;
    }
    EXPECT_FALSE(e.model.canRedo());
    EXPECT_TRUE(capture(*track) == edited);
    EXPECT_FALSE(e.model.alert());
}

TEST_F(EditorModelTest, UndoFollowsTheActiveTrack) {
    auto a = e.add(makeNoise(48000, 1, 1000), "a");
    a->select(0, 10, false);
    e.model.cutSelection();
    auto b = e.add(makeNoise(48000, 1, 1000), "b");
    EXPECT_EQ(e.model.undoMenuTitle(), "Undo");
    EXPECT_FALSE(e.model.canUndo());
    e.model.undo();
    EXPECT_EQ(a->frameCount(), 990);
    e.model.setSelectedTrackIDs({a->id()});
    EXPECT_EQ(e.model.undoMenuTitle(), "Undo Cut");
    e.model.undo();
    EXPECT_EQ(a->frameCount(), 1000);
    EXPECT_EQ(b->frameCount(), 1000);
}

// ---- alerts ----------------------------------------------------------------------------------

TEST_F(EditorModelTest, NewAlertReplacesTheOneShown) {
    int signals = 0;
    e.model.alertChanged.connect([&] { ++signals; });
    e.model.showAlert({"Cut failed", "one"});
    e.model.showAlert({"Paste failed", "two"});
    EXPECT_EQ(e.model.alert()->message, "two");
    e.model.dismissAlert();
    e.model.dismissAlert();
    EXPECT_FALSE(e.model.alert());
    EXPECT_EQ(signals, 3);
}

// ---- new track from selection ---------------------------------------------------------------

TEST_F(EditorModelTest, NewTrackThatCannotBeWrittenShowsAnAlert) {
    writeText(folder / "blocker", "a file where the recordings folder should be");
    e.preferences.setRecordingsFolderPath((folder / "blocker/recordings").string());
    auto track = e.add(makeNoise(48000, 1, 1000));
    track->select(0, 100, false);
    e.model.newTrackFromSelection();
    EXPECT_EQ(e.executor.pendingBackground(), 1u);
    e.executor.drain();
    ASSERT_TRUE(e.model.alert());
    EXPECT_EQ(e.model.alert()->title, "Can't create the track");
    EXPECT_FALSE(e.model.alert()->message.empty());
    EXPECT_EQ(e.model.tracks().size(), 1u);
}

TEST_F(EditorModelTest, WorkFinishingAfterTheModelIsGoneIsDropped) {
    ManualExecutor executor;
    Preferences preferences;
    preferences.setRecordingsFolderPath((folder / "blocker/x").string());
    writeText(folder / "blocker", "");
    {
        EditorModel model(executor, preferences);
        auto track = AudioTrack::create("/music/a.wav");
        track->finishLoading(makeNoise(48000, 1, 1000));
        model.addTrack(track);
        model.setSelectedTrackIDs({track->id()});
        track->select(0, 10, false);
        model.newTrackFromSelection();
        model.exportJobs(track->audio(), {{{0, 10}, folder / "blocker/out.wav"}}, 1,
                         ExportFormat::wav16);
    }
    EXPECT_GT(executor.drain(), 0);
}

// ---- loading ---------------------------------------------------------------------------------

TEST_F(EditorModelTest, TrackThatCannotBeDecodedShowsWhyInItsState) {
    auto track = AudioTrack::create(folder / "missing.wav");
    e.model.addTrack(track);
    e.model.load(track);
    EXPECT_EQ(track->state(), AudioTrack::LoadState(AudioTrack::Loading{0}));
    e.executor.runBackground();
    EXPECT_EQ(track->state(),
              AudioTrack::LoadState(AudioTrack::Loading{0})); // not before main runs
    e.executor.runMain();
    ASSERT_TRUE(std::holds_alternative<AudioTrack::Failed>(track->state()));
    EXPECT_NE(std::get<AudioTrack::Failed>(track->state()).message.find("missing.wav"),
              std::string::npos);
    EXPECT_FALSE(track->audio());
}

TEST_F(EditorModelTest, ASessionDocumentAmongOpenedFilesOpensAsTheDocument) {
    const auto url = folder / "Show.SONVALE";
    SessionBundle::write({}, {}, true, std::nullopt, {}, {}, std::nullopt, url);
    const auto opened = e.model.open({url / "", folder / "other.sonvale"});
    EXPECT_TRUE(opened.empty());
    ASSERT_TRUE(e.model.document());
    EXPECT_EQ(e.model.document()->url, url);
    EXPECT_TRUE(e.model.isLooping());
}

// ---- export ----------------------------------------------------------------------------------

TEST_F(EditorModelTest, ExportNeedsAnIdleActiveTrackWithAudio) {
    EXPECT_FALSE(e.model.canExport());
    auto loading = AudioTrack::create("/music/loading.wav");
    e.model.addTrack(loading);
    e.model.setSelectedTrackIDs({loading->id()});
    EXPECT_FALSE(e.model.canExport());
    auto track = e.add(makeNoise(48000, 1, 1000));
    EXPECT_TRUE(e.model.canExport());
    EXPECT_FALSE(e.model.canExportRegions());
    track->addMarker(10, std::nullopt);
    EXPECT_FALSE(e.model.canExportRegions());
    track->addMarker(0, FrameRange{10, 20});
    EXPECT_TRUE(e.model.canExportRegions());
    track->setIsRecording(true);
    EXPECT_FALSE(e.model.canExport());
    EXPECT_FALSE(e.model.canExportRegions());
}

TEST_F(EditorModelTest, FailedExportClearsProgressAndShowsExportFailed) {
    writeText(folder / "blocker", "");
    auto track = e.add(makeNoise(48000, 1, 1000));
    std::vector<std::optional<double>> seen;
    e.model.exportProgressChanged.connect([&] { seen.push_back(e.model.exportProgress()); });
    e.model.exportActiveTrack(folder / "blocker/out.wav", ExportFormat::wav16, false);
    EXPECT_EQ(e.model.exportProgress(), 0.0);
    EXPECT_FALSE(e.model.canExport());
    // A second export waits for the first to end.
    e.model.exportJobs(track->audio(), {{{0, 10}, folder / "x.wav"}}, 1, ExportFormat::wav16);
    EXPECT_EQ(e.executor.pendingBackground(), 1u);
    e.executor.drain();
    EXPECT_FALSE(e.model.exportProgress());
    ASSERT_TRUE(e.model.alert());
    EXPECT_EQ(e.model.alert()->title, "Export failed");
    EXPECT_FALSE(e.model.alert()->message.empty());
    EXPECT_EQ(track->exportedRevision(), 0);
    EXPECT_EQ(seen.front(), 0.0);
    EXPECT_EQ(seen.back(), std::nullopt);
}

// ---- with real files -------------------------------------------------------------------------

namespace {

std::vector<std::string> relativeNames(const std::vector<AudioTrackPtr>& tracks,
                                       const std::filesystem::path& root) {
    std::vector<std::string> names;
    for (const auto& t : tracks)
        names.push_back(t->url().lexically_relative(root).string());
    return names;
}

// Copies fixture `name` to `to`, making the folders on the way.
void place(const char* name, const std::filesystem::path& to) {
    std::filesystem::create_directories(to.parent_path());
    std::filesystem::copy_file(sonvale::test::fixture(name), to);
}

} // namespace

TEST_F(EditorModelTest, OpeningAFolderTreeFindsVisibleAudioFilesInPathOrder) {
    const auto tree = folder / "tree";
    place("stereo-s16.wav", tree / "b/second.wav");
    place("stereo.flac", tree / "A.flac");
    place("mono.mp3", tree / "c.MP3");
    place("noise.wav", tree / "d-noise.wav");
    for (const char* skipped : {".hidden.wav", ".cache/inner.wav", "Old.sonvale/Audio/take.wav"})
        place("mono.wav", tree / skipped);
    writeText(tree / "notes.txt", "not audio");
    writeText(tree / "cover.jpg", "not audio either");
    std::filesystem::create_symlink(tree / "gone.wav", tree / "dangling.wav");
    std::filesystem::create_symlink(tree / "loop.wav", tree / "loop.wav");
    ASSERT_EQ(mkfifo((tree / "pipe.wav").c_str(), 0600), 0);

    int tracksSignals = 0;
    e.model.tracksChanged.connect([&] { ++tracksSignals; });
    const auto opened = e.model.open({tree});
    EXPECT_EQ(relativeNames(opened, tree),
              (std::vector<std::string>{"A.flac", "b/second.wav", "c.MP3", "d-noise.wav"}));
    EXPECT_EQ(e.model.tracks(), opened);
    EXPECT_EQ(tracksSignals, 1);
    EXPECT_EQ(e.model.selectedTrackIDs().size(), 4u);
    EXPECT_EQ(e.model.activeTrack(), opened[0]);
    for (const auto& t : opened)
        EXPECT_EQ(t->state(), AudioTrack::LoadState(AudioTrack::Loading{0}));

    e.executor.drain();
    EXPECT_TRUE(opened[0]->isReady());
    EXPECT_TRUE(opened[1]->isReady());
    EXPECT_TRUE(opened[2]->isReady());
    EXPECT_EQ(opened[1]->frameCount(), 144000);
    ASSERT_TRUE(std::holds_alternative<AudioTrack::Failed>(opened[3]->state()));
    EXPECT_FALSE(std::get<AudioTrack::Failed>(opened[3]->state()).message.empty());
    EXPECT_FALSE(opened[3]->audio());
}

TEST_F(EditorModelTest, FilesGivenByNameAndInsideGivenFoldersOpenOnce) {
    place("mono.wav", folder / "one.wav");
    writeText(folder / "readme.md", "x");
    const auto opened = e.model.open({folder / "one.wav", folder.path(), folder / "readme.md"});
    EXPECT_EQ(opened.size(), 1u);
    EXPECT_TRUE(e.model.open({folder / "readme.md"}).empty());
    EXPECT_EQ(e.model.tracks().size(), 1u);
}

TEST_F(EditorModelTest, UnreadableEntriesInAFolderArePassedOver) {
    if (geteuid() == 0) GTEST_SKIP() << "permissions don't stop the superuser from reading";
    for (const char* name : {"locked/inside.wav", "closed.wav", "open.wav"})
        place("mono.wav", folder / name);
    std::filesystem::permissions(folder / "locked", std::filesystem::perms::none);
    std::filesystem::permissions(folder / "closed.wav", std::filesystem::perms::none);
    const auto opened = e.model.open({folder.path()});
    EXPECT_EQ(relativeNames(opened, folder.path()), std::vector<std::string>{"open.wav"});
}

TEST_F(EditorModelTest, LoadingReportsRisingProgressOnTheMainThreadThenReady) {
    auto track = AudioTrack::create(sonvale::test::fixture("stereo-s16.wav"));
    track->updateWidth(1000);
    e.model.addTrack(track);
    std::vector<AudioTrack::LoadState> states{track->state()};
    track->stateChanged.connect([&] { states.push_back(track->state()); });
    e.model.load(track);
    e.executor.runBackground();
    EXPECT_EQ(states.size(), 1u); // nothing reaches the track off the main thread
    e.executor.runMain();
    ASSERT_GE(states.size(), 3u);
    double last = 0;
    for (size_t i = 1; i + 1 < states.size(); ++i) {
        ASSERT_TRUE(std::holds_alternative<AudioTrack::Loading>(states[i]));
        const double p = std::get<AudioTrack::Loading>(states[i]).progress;
        EXPECT_GT(p, last);
        EXPECT_LE(p, 1.0);
        last = p;
    }
    EXPECT_TRUE(std::holds_alternative<AudioTrack::Ready>(states.back()));
    EXPECT_EQ(track->frameCount(), 144000);
    EXPECT_DOUBLE_EQ(track->viewport().samplesPerPoint, 144);
}

TEST_F(EditorModelTest, TrackRemovedWhileLoadingIsLeftAlone) {
    auto opened = e.model.open({sonvale::test::fixture("stereo-s16.wav")});
    ASSERT_EQ(opened.size(), 1u);
    std::weak_ptr<AudioTrack> weak = opened[0];
    e.model.removeTracks({opened[0]->id()});
    opened.clear();
    EXPECT_TRUE(weak.expired());
    e.executor.drain();
    EXPECT_TRUE(e.model.tracks().empty());
}

TEST_F(EditorModelTest, NewTrackFromSelectionCarriesSamplesMarkersAndGain) {
    e.preferences.setRecordingsFolderPath((folder / "Recordings").string());
    auto source = e.add(makeNoise(44100, 2, 10000, 3), "Interview");
    source->setMarkers({{Uuid::random(), "before", 100, std::nullopt},
                        {Uuid::random(), "inside", 2500, std::nullopt},
                        {Uuid::random(), "long", 2600, 9000},
                        {Uuid::random(), "at start", 2000, 2100},
                        {Uuid::random(), "at end", 4000, std::nullopt}});
    source->setGainDB(-4.5f);
    source->select(2000, 4000, false);
    const auto expected = source->audio()->clip({2000, 4000});
    e.model.newTrackFromSelection();
    e.executor.drain();

    ASSERT_EQ(e.model.tracks().size(), 2u);
    const auto made = e.model.tracks()[1];
    EXPECT_EQ(made->url(), folder / "Recordings/Interview (selection).wav");
    EXPECT_TRUE(made->isNewFile());
    EXPECT_TRUE(made->isReady());
    EXPECT_EQ(e.model.selectedTrackIDs(), std::set<Uuid>{made->id()});
    EXPECT_EQ(samplesOf(*made->audio()), expected.channels); // 32-bit float: exact
    EXPECT_EQ(made->sampleRate(), 44100);
    EXPECT_EQ(made->gainDB(), -4.5f);
    std::vector<std::tuple<std::string, int64_t, std::optional<int64_t>>> markers;
    for (const auto& m : made->markers())
        markers.emplace_back(m.name, m.start, m.end);
    EXPECT_EQ(markers,
              (std::vector<std::tuple<std::string, int64_t, std::optional<int64_t>>>{
                  {"at start", 0, 100}, {"inside", 500, std::nullopt}, {"long", 600, 2000}}));
    EXPECT_NE(made->markers()[0].id, source->markers()[1].id);
    EXPECT_FALSE(made->undoStack().canUndo());
}

TEST_F(EditorModelTest, NewTracksStartedTogetherGetDistinctFiles) {
    e.preferences.setRecordingsFolderPath(folder.path().string());
    writeText(folder / "take (selection).wav", "already there");
    auto source = e.add(makeNoise(48000, 1, 1000));
    source->select(0, 100, false);
    e.model.newTrackFromSelection();
    e.model.newTrackFromSelection();
    e.executor.drain();
    ASSERT_EQ(e.model.tracks().size(), 3u);
    EXPECT_EQ(e.model.tracks()[1]->url().filename(), "take (selection) 2.wav");
    EXPECT_EQ(e.model.tracks()[2]->url().filename(), "take (selection) 3.wav");
    EXPECT_EQ(readText(folder / "take (selection).wav"), "already there");
    EXPECT_FALSE(e.model.alert());
}

TEST_F(EditorModelTest, WholeTrackExportMarksTheRevisionItStartedFrom) {
    auto track = e.add(makeNoise(48000, 2, 200000));
    track->select(0, 10, false);
    e.model.deleteSelection();
    const auto startRevision = track->editRevision();
    std::vector<std::optional<double>> progress;
    e.model.exportProgressChanged.connect([&] { progress.push_back(e.model.exportProgress()); });
    e.model.exportActiveTrack(folder / "out.wav", ExportFormat::wav24, false);
    track->select(0, 10, false);
    e.model.deleteSelection(); // while the export runs
    e.executor.drain();

    EXPECT_FALSE(e.model.alert());
    EXPECT_EQ(track->exportedRevision(), startRevision);
    EXPECT_TRUE(track->hasUnexportedEdits());
    ASSERT_GE(progress.size(), 3u);
    EXPECT_EQ(progress.front(), 0.0);
    EXPECT_EQ(progress.back(), std::nullopt);
    for (size_t i = 1; i + 1 < progress.size(); ++i)
        EXPECT_GT(*progress[i], *progress[i - 1]);
    const auto written = AudioLoader::load(folder / "out.wav");
    EXPECT_EQ(written->frameCount, 199990);
    EXPECT_EQ(written->channelCount(), 2);

    e.model.exportActiveTrack(folder / "again.wav", ExportFormat::wav16, true);
    e.executor.drain();
    EXPECT_EQ(track->exportedRevision(), track->editRevision());
    EXPECT_FALSE(track->hasUnexportedEdits());
}

TEST_F(EditorModelTest, SelectionExportWritesTheSelectionWithGainAndLeavesTheRevision) {
    std::vector<float> ramp(1000);
    for (size_t i = 0; i < ramp.size(); ++i)
        ramp[i] = float(i) / 1000.0f;
    auto track = e.add(makeAudio(48000, {ramp}));
    track->setGainDB(6.0206f); // x2: everything from 0.5 up clips
    track->select(400, 700, false);
    e.model.exportActiveTrack(folder / "part.wav", ExportFormat::wav24, true);
    e.executor.drain();
    EXPECT_EQ(track->exportedRevision(), 0);
    const auto written = AudioLoader::load(folder / "part.wav");
    ASSERT_EQ(written->frameCount, 300);
    EXPECT_NEAR(written->samples(0)[0], 0.8f, 1e-4);
    EXPECT_NEAR(written->samples(0)[299], 1.0f, 1e-4);
}

TEST_F(EditorModelTest, RegionsExportAsOneFileEachNamedAfterTrackAndRegion) {
    auto track = e.add(makeNoise(48000, 1, 48000), "Track");
    track->setMarkers({{Uuid::random(), "Intro", 0, 1000},
                       {Uuid::random(), "intro", 2000, 2500},
                       {Uuid::random(), "a/b:c", 3000, 3100},
                       {Uuid::random(), "point", 4000, std::nullopt}});
    EXPECT_EQ(e.model.exportRegionsMessage(), "Choose a folder for 3 region files.");
    e.model.exportRegions(folder.path(), ExportFormat::wav16);
    e.executor.drain();
    EXPECT_FALSE(e.model.alert());
    EXPECT_EQ(AudioLoader::load(folder / "Track - Intro.wav")->frameCount, 1000);
    EXPECT_EQ(AudioLoader::load(folder / "Track - intro 2.wav")->frameCount, 500);
    EXPECT_EQ(AudioLoader::load(folder / "Track - a-b-c.wav")->frameCount, 100);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()),
                            std::filesystem::directory_iterator()),
              3);
}
