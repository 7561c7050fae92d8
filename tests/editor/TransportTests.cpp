#include "base/ManualExecutor.h"
#include "editor/EditorModel.h"
#include "effects/EffectRenderer.h"
#include "engine/PlaybackEngine.h"
#include "persistence/Preferences.h"
#include "support/AllocationCounter.h"
#include "support/ModelTestAudio.h"
#include "support/PlaybackTestAudio.h"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>

using namespace sonvale;
using namespace sonvale::test;
using sonvale::test::AllocationCounter;
using sonvale::test::ManualOutput;

namespace {

constexpr float step = 1e-6f; // sample i of a test track is i * step

// An editor whose engine plays into a hand-driven output: each pull() renders one buffer.
struct Transport {
    ManualExecutor executor;
    Preferences preferences;
    ManualOutput* output;
    std::unique_ptr<EditorModel> model;
    AudioTrackPtr track = AudioTrack::create("/music/Talk.wav");

    explicit Transport(int64_t frames = 48000) {
        auto manual = std::make_unique<ManualOutput>();
        output = manual.get();
        model = std::make_unique<EditorModel>(executor, preferences,
                                              std::make_unique<PlaybackEngine>(std::move(manual)));
        track->finishLoading(makeRamp(48000, 1, frames, step));
        model->addTrack(track);
        model->setSelectedTrackIDs({track->id()});
    }

    // Renders `frames` frames stamped `at` seconds and returns the left channel.
    const std::vector<float>& pull(double at, int64_t frames = 512) {
        return output->pull(frames, hostTimeFromSeconds(at))[0];
    }
    void hearAt(double seconds) { output->clock = hostTimeFromSeconds(seconds); }
    void tick() { executor.advance(EditorModel::playbackTimerInterval); }
};

int64_t frameOf(float sample, float scale = step) { return std::llround(sample / scale); }

} // namespace

// ---- what plays --------------------------------------------------------------------------

// The cursor at the very end plays from the start.
TEST(Transport, PlaysTheWholeTrackFromTheCursor) {
    for (const int64_t cursor : {int64_t(1000), int64_t(48000)}) {
        SCOPED_TRACE(cursor);
        Transport t;
        t.track->setCursor(cursor);
        t.model->play();
        ASSERT_TRUE(t.model->isPlaying());
        EXPECT_EQ(t.model->playingTrackID(), t.track->id());
        const int64_t from = cursor % 48000;
        const auto& left = t.pull(1.0);
        EXPECT_EQ(frameOf(left[0]), from);
        EXPECT_EQ(frameOf(left[511]), from + 511);
    }
}

// Played once it ends in silence and stops; looped it wraps to its start and plays on.
TEST(Transport, ASelectionPlaysFromItsStartAndStopsAtItsEndOrWraps) {
    for (const bool loop : {false, true}) {
        SCOPED_TRACE(loop ? "looped" : "once");
        Transport t;
        t.track->setSelection(FrameRange{2000, 2700});
        t.track->setCursor(2300);
        if (loop) t.model->loopPlayback();
        EXPECT_EQ(t.model->isLooping(), loop);
        t.model->play();
        EXPECT_EQ(frameOf(t.pull(1.0)[0]), 2000);
        const auto& left = t.pull(1.0 + 512.0 / 48000);
        EXPECT_EQ(frameOf(left[187]), 2699);
        if (loop)
            EXPECT_EQ(frameOf(left[188]), 2000);
        else
            EXPECT_EQ(left[188], 0.0f);
        t.tick();
        EXPECT_EQ(t.model->isPlaying(), loop);
    }
}

TEST(Transport, TurningTheLoopOnWhilePlayingLoopsThePlayUnderWay) {
    Transport t(1024);
    t.model->play();
    t.model->loopPlayback();
    t.pull(1.0, 1000);
    const auto& left = t.pull(1.1, 48);
    EXPECT_EQ(frameOf(left[23]), 1023);
    EXPECT_EQ(frameOf(left[24]), 0);
}

TEST(Transport, NothingPlaysWithoutAnActiveTrack) {
    Transport t;
    t.model->setSelectedTrackIDs({});
    t.model->play();
    EXPECT_FALSE(t.model->isPlaying());
    EXPECT_EQ(t.output->starts, 0);
}

// L starts at normal speed and goes faster with each press, J slows down while playing and
// steps a second back while stopped, K stops.
TEST(Transport, ShuttleKeysChangeSpeedStopAndStepBack) {
    Transport t(96000);
    t.model->changePlaybackRate(-2);
    ASSERT_EQ(t.model->playbackRate(), 0.5f);
    t.model->shuttle(1);
    EXPECT_TRUE(t.model->isPlaying());
    EXPECT_EQ(t.model->playbackRate(), 1.0f);
    t.model->shuttle(1);
    EXPECT_EQ(t.model->playbackRate(), 1.25f);
    t.model->shuttle(-1);
    EXPECT_EQ(t.model->playbackRate(), 1.0f);
    t.model->shuttle(0);
    EXPECT_FALSE(t.model->isPlaying());
    t.track->setCursor(60000);
    t.model->shuttle(-1);
    EXPECT_EQ(t.track->cursor(), 12000);
    t.model->shuttle(-1);
    EXPECT_EQ(t.track->cursor(), 0);
    EXPECT_FALSE(t.model->isPlaying());
}

// ---- stopping ----------------------------------------------------------------------------

TEST(Transport, StopLeavesTheCursorAtTheFrameBeingHeard) {
    Transport t;
    t.model->play();
    t.pull(1.0);
    t.hearAt(1.0 + 0.02 + 0.01); // 0.02 s output latency, then 10 ms in
    t.model->stop();
    EXPECT_FALSE(t.model->isPlaying());
    EXPECT_FALSE(t.output->isRunning());
    EXPECT_EQ(t.track->cursor(), 480);
    // Playing again carries on from there.
    t.model->play();
    EXPECT_EQ(frameOf(t.pull(2.0)[0]), 480);
}

TEST(Transport, StopAfterPlayingASelectionLeavesTheCursorAlone) {
    Transport t;
    t.track->setSelection(FrameRange{2000, 30000});
    t.track->setCursor(2000);
    t.model->play();
    t.pull(1.0);
    t.hearAt(1.1);
    t.model->stop();
    EXPECT_EQ(t.track->cursor(), 2000);
    EXPECT_EQ(t.model->playheadPosition(), 2000);
}

TEST(Transport, TheTimerMovesThePlayheadAndStopsAtTheEnd) {
    Transport t(2048);
    int moves = 0;
    t.model->playheadChanged.connect([&] { ++moves; });
    t.model->play();
    EXPECT_EQ(t.model->playheadPosition(), 0); // nothing heard yet
    t.pull(1.0);
    t.hearAt(1.03);
    moves = 0;
    t.tick();
    EXPECT_EQ(moves, 1);
    EXPECT_EQ(t.model->playheadPosition(), 480);
    EXPECT_TRUE(t.model->isPlaying());
    t.pull(1.0 + 512.0 / 48000, 1600); // past the end of the track
    t.tick();
    EXPECT_FALSE(t.model->isPlaying());
    EXPECT_FALSE(t.output->isRunning());
    EXPECT_EQ(t.track->cursor(), 0); // the end does not move the cursor
    EXPECT_EQ(t.executor.pendingDelayed(), 0u);
}

// ---- seeking and scrubbing ---------------------------------------------------------------

TEST(Transport, SeekWhilePlayingJumpsAtTheNextBuffer) {
    Transport t;
    t.model->play();
    t.pull(1.0);
    t.model->seek(30000);
    EXPECT_EQ(frameOf(t.pull(1.0 + 512.0 / 48000)[0]), 30000);
    EXPECT_EQ(t.track->cursor(), 0);
}

TEST(Transport, SeekWhilePlayingASelectionStaysInsideIt) {
    Transport t;
    t.track->setSelection(FrameRange{2000, 3000});
    t.model->play();
    t.model->seek(40000);
    EXPECT_EQ(frameOf(t.pull(1.0)[0]), 2999);
}

TEST(Transport, SeekWhileStoppedMovesTheCursorInsideTheTrack) {
    Transport t;
    t.model->seek(1234);
    EXPECT_EQ(t.track->cursor(), 1234);
    t.model->seek(90000);
    EXPECT_EQ(t.track->cursor(), 48000);
}

TEST(Transport, JumpingToAMarkerWhilePlayingSeeks) {
    Transport t;
    t.track->addMarker(10000, std::nullopt);
    t.model->play();
    t.pull(1.0);
    t.hearAt(1.03);
    t.model->jumpToMarker(1);
    EXPECT_EQ(frameOf(t.pull(1.0 + 512.0 / 48000)[0]), 10000);
    EXPECT_EQ(t.track->cursor(), 0);
}

TEST(Transport, AddMarkerUsesThePlayheadWhilePlaying) {
    Transport t;
    t.model->play();
    t.pull(1.0);
    t.hearAt(1.0 + 0.02 + 0.1);
    t.model->addMarker();
    ASSERT_EQ(t.track->markers().size(), 1u);
    EXPECT_EQ(t.track->markers()[0].start, 4800);
    EXPECT_FALSE(t.track->markers()[0].isRegion());
}

// ---- speed -------------------------------------------------------------------------------

TEST(Transport, SpeedStepsUpAndDownStopsAtTheEndsAndOutlastsAPlay) {
    Transport t;
    EXPECT_EQ(t.model->playbackRateText(), "1×");
    t.model->changePlaybackRate(1);
    EXPECT_EQ(t.model->playbackRate(), 1.25f);
    EXPECT_EQ(t.model->playbackRateText(), "1.25×");
    EXPECT_EQ(t.model->player().rate(), 1.25f);
    for (int i = 0; i < 5; ++i)
        t.model->changePlaybackRate(1);
    EXPECT_EQ(t.model->playbackRate(), 2.0f);
    EXPECT_EQ(t.model->playbackRateText(), "2×");
    for (int i = 0; i < 10; ++i)
        t.model->changePlaybackRate(-1);
    EXPECT_EQ(t.model->playbackRate(), 0.5f);
    EXPECT_EQ(t.model->playbackRateText(), "0.5×");
    t.model->play();
    EXPECT_EQ(t.model->player().rate(), 0.5f);
    t.model->changePlaybackRate(1); // changes the play under way
    EXPECT_EQ(t.model->player().rate(), 0.75f);
}

// ---- failures ----------------------------------------------------------------------------

TEST(Transport, AnOutputThatWontStartShowsPlaybackFailed) {
    Transport t;
    t.output->failStart = true;
    t.model->play();
    EXPECT_FALSE(t.model->isPlaying());
    ASSERT_TRUE(t.model->alert());
    EXPECT_EQ(*t.model->alert(), (AppAlert{"Playback failed", "The audio output could not start: "
                                                              "Device unavailable"}));
    EXPECT_EQ(t.executor.pendingDelayed(), 0u);
    // The next attempt works once the device does.
    t.output->failStart = false;
    t.model->play();
    EXPECT_TRUE(t.model->isPlaying());
}

TEST(Transport, AnOutputThatGoesAwayAndWontComeBackEndsPlaybackWithAnAlert) {
    Transport t;
    t.model->play();
    t.pull(1.0);
    t.output->failStart = true;
    t.output->failed = true; // the stream died on its own
    t.tick();
    EXPECT_FALSE(t.model->isPlaying());
    ASSERT_TRUE(t.model->alert());
    EXPECT_EQ(*t.model->alert(), (AppAlert{"Playback failed", "The audio output could not start: "
                                                              "Device unavailable"}));
    EXPECT_EQ(t.executor.pendingDelayed(), 0u); // the playback timer is gone too
}

// ---- switching tracks, gain, edits -------------------------------------------------------

TEST(Transport, SelectingAnotherTrackCarriesOnAtTheSameTime) {
    Transport t;
    auto other = AudioTrack::create("/music/Other.wav");
    other->finishLoading(makeRamp(24000, 1, 24000, 2 * step));
    t.model->addTrack(other);
    t.model->play();
    t.pull(1.0);
    t.hearAt(1.0 + 0.02 + 0.1); // 0.1 s in: frame 4800 at 48 kHz
    t.model->setSelectedTrackIDs({other->id()});
    ASSERT_TRUE(t.model->isPlaying());
    EXPECT_EQ(t.model->playingTrackID(), other->id());
    EXPECT_EQ(frameOf(t.pull(2.0)[0], 2 * step), 2400); // 0.1 s at 24 kHz
}

TEST(Transport, SelectingATrackTooShortToCarryOnStops) {
    Transport t;
    auto other = AudioTrack::create("/music/Short.wav");
    other->finishLoading(makeRamp(48000, 1, 1000, step));
    t.model->addTrack(other);
    t.model->play();
    t.pull(1.0);
    t.hearAt(1.0 + 0.02 + 0.1);
    t.model->setSelectedTrackIDs({other->id()});
    EXPECT_FALSE(t.model->isPlaying());
    EXPECT_FALSE(t.output->isRunning());
}

TEST(Transport, GainChangesReachThePlayingGainBox) {
    Transport t;
    t.model->play();
    EXPECT_EQ(t.model->player().source()->gain, t.track->gainBox());
    t.pull(1.0);
    t.track->setGainDB(20.0f * std::log10(0.5f));
    t.pull(1.01);                    // ramps to the new gain
    const auto& left = t.pull(1.02); // frames 1024 ... at half level
    EXPECT_NEAR(left[0], 1024 * step * 0.5f, 1e-7f);
    EXPECT_NEAR(left[511], 1535 * step * 0.5f, 1e-7f);
}

TEST(Transport, AnEditWhilePlayingIsHeardAtOnce) {
    Transport t;
    t.model->play();
    t.pull(1.0);
    t.hearAt(1.03); // frame 480
    t.track->replace(FrameRange{0, 2000}, makeClip(48000, {std::vector<float>(2000, 0.9f)}),
                     std::nullopt, "Paste");
    ASSERT_TRUE(t.model->isPlaying());
    const auto& left = t.pull(2.0);
    EXPECT_EQ(left[0], 0.9f);
    EXPECT_EQ(t.model->player().source()->content->frameCount(), 48000);
}

// ---- the effects being edited ------------------------------------------------------------

TEST(Transport, TheChainBeingEditedIsHeardThroughTheEngineFromTheFirstPlayOn) {
    Transport t;
    t.executor.drain();
    t.model->addEffect(EffectKind::compressor);
    t.model->play();
    const auto& insert = t.model->player().effectInsert();
    ASSERT_TRUE(insert->hasProcessor());
    EXPECT_FALSE(t.model->effectPreviewInsert()->hasProcessor());

    t.model->setEffectsBypassed(true);
    EXPECT_TRUE(insert->isBypassed());
    t.model->setEffectsBypassed(false);
    EXPECT_FALSE(insert->isBypassed());

    t.model->closeEffects();
    EXPECT_FALSE(insert->hasProcessor());
    t.model->addEffect(EffectKind::limiter); // opened again while playing
    EXPECT_TRUE(insert->hasProcessor());
}

// Ping-pong echoes and a reverb fed from every channel treat the channels differently: a mono
// track is heard as its mono result on both sides and, once a stereo track is selected while
// playing, the chain is rebuilt for two channels; either way what is heard is what Apply
// writes, and the render callback allocates nothing across the switch.
TEST(Transport, TheChainIsHeardAsApplyWritesItAcrossASwitchFromMonoToStereo) {
    Transport t;
    t.executor.drain();
    auto mono = AudioTrack::create("/music/Mono.wav");
    mono->finishLoading(makeNoise(48000, 1, 48000, 3));
    auto stereo = AudioTrack::create("/music/Stereo.wav");
    stereo->finishLoading(makeNoise(48000, 2, 48000, 4));
    t.model->addTrack(mono);
    t.model->addTrack(stereo);
    t.model->setSelectedTrackIDs({mono->id()});
    for (auto [kind, name] :
         {std::pair{EffectKind::delay, "Ping-Pong"}, {EffectKind::reverb, "Hall"}}) {
        t.model->addEffect(kind);
        for (const auto& preset : presets(kind))
            if (preset.name == name)
                t.model->effectChain()->effects().back()->setValues(
                    preset.valuesFor(parameters(kind)));
    }

    const int64_t frames = 20 * 512;
    std::vector<std::vector<float>> heard(2, std::vector<float>(size_t(frames)));
    int64_t allocations = 0;
    // Plays `frames` frames into `heard` and returns the largest difference from Apply's
    // render of `track` from `at`, laid out on the output as playback lays it out.
    auto playAndCompare = [&](const AudioTrackPtr& track, int64_t at, double clock) {
        for (int64_t done = 0; done < frames; done += 512) {
            float* channels[2] = {heard[0].data() + done, heard[1].data() + done};
            AllocationCounter::Scope scope;
            t.output->pullInto(channels, 2, 512, hostTimeFromSeconds(clock + double(done) / 48000));
            allocations += scope.allocations() + scope.frees();
        }
        const int count = track->audio()->channelCount();
        auto render = t.model->effectChain()->renderProcessor(48000, count);
        auto applied =
            EffectRenderer::render(*track->audio(), {at, at + frames}, 0, *render.processor);
        float largest = 0;
        for (int c = 0; c < 2; ++c) {
            const auto& written = applied.channels[size_t(std::min(c, count - 1))];
            for (size_t i = 0; i < size_t(frames); ++i)
                largest = std::max(largest, std::fabs(heard[size_t(c)][i] - written[i]));
        }
        return largest;
    };
    t.model->play();
    EXPECT_LT(playAndCompare(mono, 0, 1.0), 1e-6f);

    t.hearAt(1.0 + 0.02 + 0.1);
    t.model->setSelectedTrackIDs({stereo->id()});
    ASSERT_EQ(t.model->playingTrackID(), stereo->id());
    EXPECT_EQ(t.model->player().effectFormat(), (PlaybackEngine::Format{48000, 2}));
    const int64_t at = t.model->player().source()->rendered.load().frame;
    EXPECT_LT(playAndCompare(stereo, at, 2.0), 1e-6f);
    EXPECT_EQ(allocations, 0);
}
