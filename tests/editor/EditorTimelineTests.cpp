#include "audio/AudioLoader.h"
#include "base/ManualExecutor.h"
#include "editor/EditorModel.h"
#include "engine/PlaybackEngine.h"
#include "persistence/Preferences.h"
#include "support/ModelTestAudio.h"
#include "support/PlaybackTestAudio.h"

#include <gtest/gtest.h>

using namespace sonvale;
using namespace sonvale::test;
using sonvale::test::ManualOutput;
using sonvale::test::TemporaryFolder;

namespace {

// An editor showing a timeline of one lane with a second of noise at 0.5 s, whose engine
// plays into a hand-driven output.
struct Multitrack {
    ManualExecutor executor;
    Preferences preferences;
    ManualOutput* output;
    std::unique_ptr<EditorModel> model;
    TimelinePtr timeline;
    Uuid lane;

    Multitrack() {
        auto manual = std::make_unique<ManualOutput>();
        output = manual.get();
        model = std::make_unique<EditorModel>(executor, preferences,
                                              std::make_unique<PlaybackEngine>(std::move(manual)));
        timeline = model->timeline();
        lane = timeline->addLane("Voice").id;
        TimelineClip clip{Uuid::random(), "Noise", makeNoise(48000, 2, 48000), 0, 48000, 0, 0, 0,
                          std::nullopt};
        timeline->insertCopy(clip, lane, 24000, "Paste Clip");
        model->setShowingTimeline(true);
    }
    // A second of mono noise as the selected track "Talk".
    AudioTrackPtr addTalk() {
        auto track = AudioTrack::create("/music/Talk.wav");
        track->finishLoading(makeNoise(48000, 1, 48000, 9));
        model->addTrack(track);
        model->setSelectedTrackIDs({track->id()});
        return track;
    }
    // The mixer's own render of [from, from + 512).
    std::vector<float> mixed(int64_t from) const {
        TimelineMixer::Scratch scratch(512);
        std::vector<float> left(512), right(512);
        TimelineMixer::renderBlock(*timeline->snapshot(), from, from + 512, left.data(),
                                   right.data(), scratch);
        return left;
    }
};

} // namespace

// While the timeline shows, the transport plays its mix from the timeline's cursor (not the
// waveform editor's effect), stop leaves the cursor where playback was heard, and going back
// to the waveform editor stops the timeline.
TEST(EditorTimeline, TheTransportPlaysTheTimelineWhileItShows) {
    Multitrack m;
    auto track = m.addTalk();
    m.model->addEffect(EffectKind::distortion); // the waveform editor's chain: not the mix's
    m.timeline->setCursor(30000);
    ASSERT_TRUE(m.model->canPlay());
    m.model->play();
    ASSERT_TRUE(m.model->isPlayingTimeline());
    EXPECT_EQ(m.model->playingTrackID(), std::nullopt);
    EXPECT_EQ(m.output->pull(512, hostTimeFromSeconds(1.0))[0], m.mixed(30000));
    m.output->clock = hostTimeFromSeconds(1.0 + 0.02 + 0.005);
    m.model->stop();
    EXPECT_EQ(m.timeline->cursor(), 30000 + 240);

    m.model->play();
    m.model->setShowingTimeline(false);
    EXPECT_FALSE(m.model->isPlaying());
    m.model->play(); // the waveform editor plays the track again
    EXPECT_EQ(m.model->playingTrackID(), track->id());
}

// Undo acts on the history of what shows: the timeline's, or the active track's.
TEST(EditorTimeline, UndoFollowsTheViewThatShows) {
    Multitrack m;
    auto track = m.addTalk();
    track->setSelection(FrameRange{100, 200});
    m.model->deleteSelection();
    EXPECT_EQ(m.model->undoMenuTitle(), "Undo Paste Clip");
    m.model->undo();
    EXPECT_TRUE(m.timeline->lanes()[0].clips.empty());
    EXPECT_EQ(track->frameCount(), 47900);
    m.model->setShowingTimeline(false);
    EXPECT_EQ(m.model->undoMenuTitle(), "Undo Delete");
}

// "Mixdown to New Track" writes the mix (or the selection's) into the recordings folder with
// progress, then opens it as the selected new track; an empty timeline can't be mixed down.
TEST(EditorTimeline, MixdownOpensTheMixAsANewTrack) {
    Multitrack m;
    TemporaryFolder folder;
    m.preferences.setRecordingsFolderPath(folder.path().string());
    EXPECT_EQ(m.model->mixdownHelp(),
              "Mixdown to a new track: the timeline as a stereo track, with the mixer's effects");
    std::vector<double> progress;
    m.model->mixdownProgressChanged.connect(
        [&] { progress.push_back(m.model->mixdownProgress().value_or(-1)); });
    m.model->mixdown();
    EXPECT_FALSE(m.model->canMixdown()); // one at a time
    m.executor.drain();
    ASSERT_GE(progress.size(), 3u);
    EXPECT_EQ(progress.front(), 0.0);
    EXPECT_EQ(progress[progress.size() - 2], 1.0);
    EXPECT_EQ(progress.back(), -1); // done
    const auto track = m.model->activeTrack();
    ASSERT_TRUE(track);
    EXPECT_EQ(track->url(), folder / "Multitrack mix.wav");
    m.executor.drain();
    ASSERT_TRUE(track->audio());
    EXPECT_EQ(track->frameCount(), 72000);
    EXPECT_EQ(track->audio()->channelCount(), 2);

    m.timeline->setSelection(std::pair<int64_t, int64_t>{0, 30000});
    EXPECT_EQ(m.model->mixdownHelp(),
              "Mixdown the selection to a new track, with the mixer's effects");
    m.model->mixdown();
    m.executor.drain();
    m.executor.drain();
    EXPECT_EQ(m.model->activeTrack()->url(), folder / "Multitrack mix (selection).wav");
    EXPECT_EQ(m.model->activeTrack()->frameCount(), 30000);

    m.timeline->removeLane(m.lane);
    EXPECT_FALSE(m.model->canMixdown());
}

// Removing a track whose audio clips play asks first; the answer removes the clips with the
// lane and the bus they alone had (undoably), or keeps them playing the audio.
TEST(EditorTimeline, RemovingATrackWhoseClipsPlayAsksWhatBecomesOfThem) {
    for (bool removeClips : {true, false}) {
        Multitrack m;
        auto track = m.addTalk();
        const Uuid talk = m.timeline->addLane("Talk").id, bus = m.timeline->addBus().id;
        m.timeline->setOutput(talk, bus);
        const TimelineClip clip{Uuid::random(), "Talk", track->audio(), 0, 4800, 0, 0, 0,
                                track->id()};
        m.timeline->insertCopy(clip, talk, 0, "Paste Clip");
        m.timeline->insertCopy(clip, m.lane, 96000, "Paste Clip");
        std::vector<TrackRemovalQuestion> asked;
        m.model->trackRemovalRequested.connect([&](auto question) { asked.push_back(question); });
        m.model->requestTrackRemoval({track->id()});
        ASSERT_EQ(asked.size(), 1u);
        EXPECT_EQ(m.model->tracks().size(), 1u); // nothing goes before the answer
        EXPECT_EQ(asked[0].title, "Remove “Talk” from the list?");
        EXPECT_EQ(asked[0].message.find("Its audio plays in 2 clips on “Voice” and “Talk”. "), 0u);

        m.model->removeTracks(asked[0].ids, removeClips);
        EXPECT_TRUE(m.model->tracks().empty());
        EXPECT_EQ(m.timeline->lanes().size(), removeClips ? 1u : 2u);
        EXPECT_EQ(m.timeline->lanes()[0].clips.size(), removeClips ? 1u : 2u);
        EXPECT_EQ(m.timeline->buses().size(), removeClips ? 0u : 1u);
        if (removeClips) {
            m.timeline->undoStack().undo();
            EXPECT_EQ(m.timeline->lanes().size(), 2u);
            EXPECT_EQ(m.timeline->lanes()[1].output, bus);
        }
    }
    Multitrack m; // a track no clip plays goes at once
    auto track = AudioTrack::create("/music/Other.wav");
    m.model->addTrack(track);
    m.model->requestTrackRemoval({track->id()});
    EXPECT_TRUE(m.model->tracks().empty());
}
