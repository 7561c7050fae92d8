#include "editor/EditorModel.h"

#include "effects/EffectSession.h"

#include "audio/AudioExporter.h"
#include "base/ManualExecutor.h"
#include "persistence/Preferences.h"
#include "persistence/SessionStore.h"
#include "support/ModelTestAudio.h"
#include "support/ModelTestFiles.h"

#include <gtest/gtest.h>

using namespace sonvale;
using namespace sonvale::test;
namespace fs = std::filesystem;
using namespace std::chrono_literals;

namespace {

// A model with an automatic store and preferences in a private folder, and real files.
struct Session {
    explicit Session(const fs::path& root)
        : root(root) {}
    fs::path root;
    ManualExecutor executor;
    Preferences preferences{root / "preferences.json"};
    std::shared_ptr<SessionStore> store = std::make_shared<SessionStore>(root / "Store");
    EditorModel model{executor, preferences};

    void start(bool incognito = false) {
        model.attachSessionStore(store);
        model.restoreLastSession(incognito);
        executor.drain();
    }
    AudioTrackPtr open(const fs::path& file) {
        auto tracks = model.open({file});
        executor.drain();
        return tracks.at(0);
    }
    // What a second later the automatic store holds.
    std::optional<SessionState> stored() {
        executor.advance(1000ms);
        executor.drain();
        return store->load();
    }
};

fs::path writeRamp(const fs::path& path, int64_t frames = 4800) {
    AudioExporter::writeLossless(*makeRamp(48000, 2, frames), path);
    return path;
}

} // namespace

TEST(EditorSession, TenChangesWithinASecondSaveOnceASecondAfterTheLast) {
    TempFolder folder;
    Session s(folder.path());
    s.start();
    auto track = s.open(writeRamp(folder / "Take.wav"));
    for (int i = 0; i < 10; ++i) {
        track->setGainDB(float(-i));
        s.executor.advance(100ms);
    }
    s.executor.advance(900ms - 1ms);
    s.executor.drain();
    EXPECT_FALSE(s.store->contents());
    s.executor.advance(1ms);
    EXPECT_EQ(s.executor.pendingBackground(), 1u);
    s.executor.drain();
    ASSERT_TRUE(s.store->load());
    EXPECT_EQ(s.store->load()->tracks.at(0).gainDB, -9.0f);
    EXPECT_EQ(s.executor.pendingDelayed(), 0u);
}

TEST(EditorSession, TheNextLaunchGetsTheTracksTheirEditsAndTheirViewBack) {
    TempFolder folder;
    const fs::path file = writeRamp(folder / "Take.wav", 48000);
    fs::path missing = writeRamp(folder / "Gone.wav");
    {
        Session s(folder.path());
        s.start();
        auto track = s.open(file);
        s.open(missing);
        s.model.setSelectedTrackIDs({track->id()});
        track->select(1000, 2000, false);
        s.model.deleteSelection();
        track->select(100, 300, false);
        track->addMarker(50, FrameRange{10, 20});
        track->setTranscript(Transcript{"en", {{"Hi.", 0, 0.5}}, track->editRevision(), {}, {}});
        s.model.loopPlayback();
        ASSERT_TRUE(s.stored());
        EXPECT_EQ(fs::path(s.store->load()->tracks[0].path).parent_path(), s.store->audioFolder());
    }
    fs::remove(missing);
    Session next(folder.path());
    next.start();
    ASSERT_EQ(next.model.tracks().size(), 2u);
    const auto& track = next.model.tracks()[0];
    EXPECT_EQ(track->frameCount(), 47000); // the delete came back
    EXPECT_EQ(track->selection(), (FrameRange{100, 300}));
    EXPECT_EQ(track->markers().size(), 1u);
    EXPECT_EQ(track->transcript()->segments.at(0).text, "Hi.");
    EXPECT_EQ(next.model.activeTrack(), track);
    EXPECT_TRUE(next.model.isLooping());
    // The vanished file stays in the session as missing, with how to find it.
    const auto& gone = next.model.tracks()[1];
    EXPECT_TRUE(EditorModel::isMissing(*gone));
    EXPECT_EQ(std::get<AudioTrack::Failed>(gone->state()).message,
              EditorModel::missingFileMessage(missing));
    EXPECT_EQ(next.stored()->tracks[1].path, missing.string());
    writeRamp(folder / "Found/Gone.wav");
    writeRamp(folder / "Found/Take.wav");
    EXPECT_EQ(next.model.relinkMissing(gone->id(), folder / "Found/Gone.wav"), 1);
    next.executor.drain();
    EXPECT_TRUE(gone->isReady());
}

TEST(EditorSession, IncognitoNeverWritesTheStoreAndAnEmptyLaunchStartsEmpty) {
    TempFolder folder;
    const fs::path file = writeRamp(folder / "Take.wav");
    {
        Session s(folder.path());
        s.start();
        s.open(file);
        ASSERT_TRUE(s.stored());
    }
    const auto before = Session(folder.path()).store->contents();
    for (bool incognito : {true, false}) {
        Session s(folder.path());
        if (!incognito) s.preferences.setLaunchSession(Preferences::LaunchSession::empty);
        s.start(incognito);
        EXPECT_TRUE(s.model.tracks().empty());
        EXPECT_EQ(s.model.isSessionTemporary(), incognito);
        if (incognito) {
            EXPECT_EQ(s.model.alert()->message, EditorModel::incognitoMessage);
        }
        s.open(file)->setGainDB(-6);
        if (incognito) {
            s.model.saveSession();
            EXPECT_EQ(s.stored(), Session(folder.path()).store->load());
            EXPECT_EQ(s.store->contents(), before);
        }
    }
}

TEST(EditorSession, ADocumentIsSavedRevertedRestoredFromASnapshotAndReopenedAtLaunch) {
    TempFolder folder;
    const fs::path url = folder / "Show.sonvale";
    Session s(folder.path());
    s.start();
    auto track = s.open(writeRamp(folder / "Take.wav", 48000));
    track->select(0, 1000, false);
    s.model.deleteSelection();
    EXPECT_TRUE(s.model.hasUnsavedChanges());
    EXPECT_EQ(s.model.documentName(), "Untitled Session");

    bool saved = false;
    s.model.saveDocumentAs(folder / "Show", [&] { saved = true; });
    EXPECT_TRUE(s.model.isSavingDocument());
    s.executor.drain();
    ASSERT_TRUE(saved);
    EXPECT_EQ(s.model.document()->url, url);
    EXPECT_FALSE(s.model.needsSaving());
    EXPECT_EQ(s.preferences.recentSessions().at(0), url.string());

    track->setGainDB(-3);
    EXPECT_TRUE(s.model.isDocumentEdited());
    s.model.saveDocument();
    s.executor.drain();
    ASSERT_EQ(s.model.snapshots().size(), 2u);

    track->select(0, 1000, false);
    s.model.deleteSelection();
    EXPECT_TRUE(s.model.needsSaving());
    s.model.revertDocument();
    s.executor.drain();
    EXPECT_FALSE(s.model.isDocumentEdited());
    EXPECT_EQ(s.model.tracks().at(0)->frameCount(), 47000);
    EXPECT_EQ(s.model.tracks().at(0)->gainDB(), -3.0f);

    s.model.restoreSnapshot(s.model.snapshots().front().id);
    s.executor.drain();
    EXPECT_EQ(s.model.tracks().at(0)->gainDB(), 0.0f);
    EXPECT_TRUE(s.model.isDocumentEdited());
    s.model.restoreSnapshot("2001-01-01 00.00.00.000");
    EXPECT_EQ(s.model.alert()->title, "Can't restore the snapshot");
    ASSERT_TRUE(s.stored());

    // The next launch opens the document, with the restored snapshot's change still pending.
    Session next(folder.path());
    next.start();
    ASSERT_TRUE(next.model.document());
    EXPECT_EQ(next.model.document()->url, url);
    EXPECT_EQ(next.model.tracks().at(0)->gainDB(), 0.0f);
    EXPECT_TRUE(next.model.isDocumentEdited());
}

TEST(EditorSession, SavingIsRefusedWhileRecordingAndFailuresSayWhy) {
    TempFolder folder;
    Session s(folder.path());
    s.start();
    auto track = s.open(writeRamp(folder / "Take.wav"));
    track->setIsRecording(true);
    s.model.saveDocumentAs(folder / "Show.sonvale");
    EXPECT_EQ(s.model.alert(), (AppAlert{EditorModel::saveFailedTitle,
                                         "Stop recording before saving the session."}));
    EXPECT_FALSE(s.model.isSavingDocument());
    track->setIsRecording(false);

    s.model.saveDocumentAs(folder / "No such folder/Show.sonvale");
    s.executor.drain();
    EXPECT_EQ(s.model.alert()->title, EditorModel::saveFailedTitle);
    EXPECT_NE(s.model.alert()->message.find("Show.sonvale"), std::string::npos);
    EXPECT_FALSE(s.model.document());

    fs::create_directories(folder / "Empty.sonvale");
    EXPECT_FALSE(s.model.openDocumentNow(folder / "Empty.sonvale"));
    EXPECT_NE(s.model.alert()->message.find("The file isn't a Sonvale session."),
              std::string::npos);
    EXPECT_EQ(s.model.tracks().size(), 1u); // the live session is untouched
}

// The timeline goes into the automatic store and into bundles: a clip of a track by the track,
// audio no track has as a clip file, buses with their effects. It comes back once its audio has
// loaded, a bundle saved again unchanged is the same bytes, and the document sees a change.
TEST(EditorSession, TheTimelineIsKeptWithItsClipsBusesAndEffects) {
    TempFolder folder;
    const fs::path first = folder / "Show.sonvale", second = folder / "Again.sonvale";
    auto sessionJSON = [](const fs::path& bundle) { return readText(bundle / "Session.json"); };
    {
        Session s(folder.path());
        s.start();
        auto track = s.open(writeRamp(folder / "Take.wav", 48000));
        const TimelinePtr timeline = s.model.timeline();
        const Uuid voice = timeline->addLane("Voice").id, music = timeline->addLane("Music").id;
        timeline->insertCopy(
            {Uuid::random(), "Take", track->audio(), 1000, 20000, 0, 0, 0, track->id()}, voice,
            4800, "Paste Clip");
        timeline->insertCopy({Uuid::random(), "Noise", makeNoise(48000, 2, 9600, 3), 0, 9600, 0,
                              480, 480, std::nullopt},
                             music, 0, "Paste Clip");
        const Uuid bus = timeline->addBus().id;
        timeline->setOutput(music, bus);
        timeline->chain(MixerChannel::forBus(bus))->append(EffectSession::make(EffectKind::reverb));
        timeline->setMasterGain(-2);
        s.model.setShowingTimeline(true);
        const auto stored = s.stored();
        ASSERT_TRUE(stored && stored->timeline);
        const auto& noise = stored->timeline->lanes.at(1).clips.at(0).source;
        ASSERT_TRUE(std::holds_alternative<TimelineState::Clip::FileSource>(noise));
        EXPECT_EQ(fs::path(std::get<TimelineState::Clip::FileSource>(noise).path).parent_path(),
                  s.store->audioFolder());

        s.model.saveDocumentAs(first);
        s.executor.drain();
        EXPECT_NE(sessionJSON(first).find("\"format\": 2"), std::string::npos);
        EXPECT_TRUE(fs::exists(first / "Audio/Clips/Noise.wav"));
        EXPECT_FALSE(s.model.isDocumentEdited());
        timeline->setLaneGain(voice, -6);
        EXPECT_TRUE(s.model.isDocumentEdited());
        timeline->undoStack().undo();
        s.model.saveDocument();
        s.executor.drain();
        timeline->chain(MixerChannel::master())->append(EffectSession::make(EffectKind::limiter));
        EXPECT_TRUE(s.model.isDocumentEdited());
        ASSERT_TRUE(s.stored()->timeline->mixer);
    }
    // The next launch finds the edited document; opening the saved one brings its timeline back.
    Session next(folder.path());
    next.start();
    const auto master = next.model.timeline()->existingChain(MixerChannel::master());
    ASSERT_TRUE(master);
    EXPECT_EQ(master->effects().size(), 1u);
    EXPECT_TRUE(next.model.isDocumentEdited());
    ASSERT_TRUE(next.model.openDocumentNow(first));
    EXPECT_TRUE(next.model.timeline()->lanes().empty()); // until the audio has loaded
    next.executor.drain();
    const Timeline& timeline = *next.model.timeline();
    ASSERT_EQ(timeline.lanes().size(), 2u);
    EXPECT_TRUE(next.model.isShowingTimeline());
    const TimelineClip& take = timeline.lanes()[0].clips.at(0);
    EXPECT_EQ(take.audio, next.model.tracks().at(0)->audio());
    EXPECT_EQ(take.trackID, next.model.tracks().at(0)->id());
    EXPECT_EQ((std::tuple(take.sourceStart, take.length, take.start)),
              std::tuple(1000, 20000, 4800));
    const TimelineClip& noise = timeline.lanes()[1].clips.at(0);
    EXPECT_EQ(noise.audio->samples(1)[77], makeNoise(48000, 2, 9600, 3)->samples(1)[77]);
    EXPECT_EQ(timeline.lanes()[1].output, timeline.buses().at(0).id);
    EXPECT_EQ(
        timeline.existingChain(MixerChannel::forBus(timeline.buses()[0].id))->effects().size(), 1u);
    EXPECT_EQ(timeline.masterGainDB(), -2.0f);
    EXPECT_FALSE(next.model.isDocumentEdited());

    next.model.saveDocumentAs(second);
    next.executor.drain();
    EXPECT_EQ(sessionJSON(second), sessionJSON(first));
    EXPECT_TRUE(fs::exists(second / "Audio/Clips/Noise.wav"));

    // A clip whose audio is gone is left out, and the alert names its file.
    fs::remove(second / "Audio/Clips/Noise.wav");
    ASSERT_TRUE(next.model.openDocumentNow(second));
    next.executor.drain();
    EXPECT_TRUE(next.model.timeline()->lanes()[1].clips.empty());
    ASSERT_TRUE(next.model.alert());
    EXPECT_NE(next.model.alert()->message.find("One clip of the timeline could not be restored "
                                               "because “Noise.wav” is missing"),
              std::string::npos);
}
