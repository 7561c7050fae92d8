#include "editor/EditorModel.h"

#include "base/ManualExecutor.h"
#include "persistence/Preferences.h"
#include "support/ModelTestAudio.h"

#include <gtest/gtest.h>

using namespace sonvale;

namespace {

struct SpectrogramEditor {
    ManualExecutor executor;
    Preferences preferences;
    EditorModel model{executor, preferences};

    AudioTrackPtr add(int64_t frames) {
        auto track = AudioTrack::create("/music/take.wav");
        model.addTrack(track);
        model.setSelectedTrackIDs({track->id()});
        track->finishLoading(sonvale::test::makeNoise(48000, 2, frames));
        executor.drain();
        return track;
    }
    bool showsCurrent(const AudioTrack& track) {
        const auto& s = track.spectrogram();
        return s && s->source.lock() == track.audio() && model.hasCurrentSpectrogram(track);
    }
};

} // namespace

TEST(EditorSpectrogram, TheViewComputesCachesAndRecomputesAfterEdits) {
    SpectrogramEditor e;
    const auto track = e.add(96000);
    EXPECT_FALSE(track->spectrogram()); // the waveform view needs none
    e.model.setTrackView(EditorModel::TrackView::spectrogram);
    EXPECT_EQ(e.model.spectrogramProgress(*track), 0.0);
    e.executor.drain();
    ASSERT_TRUE(e.showsCurrent(*track));
    EXPECT_FALSE(e.model.spectrogramProgress(*track));
    EXPECT_EQ(track->spectrogram()->fftSize, 2048);
    EXPECT_EQ(track->spectrogram()->columnCount, 96000 / 256);

    // An edit drops the cache at once; the new audio gets its own.
    track->setSelection(FrameRange{0, 48000});
    e.model.deleteSelection();
    EXPECT_FALSE(track->spectrogram());
    e.executor.drain();
    ASSERT_TRUE(e.showsCurrent(*track));
    EXPECT_EQ(track->spectrogram()->columnCount, (48000 + 255) / 256);

    // An edit while one is computed: the computation for the old audio is dropped.
    track->setSelection(FrameRange{0, 24000});
    e.model.deleteSelection();
    e.model.undo();
    e.model.redo();
    e.executor.drain();
    ASSERT_TRUE(e.showsCurrent(*track));
    EXPECT_EQ(track->spectrogram()->columnCount, (24000 + 255) / 256);

    // A new FFT size is computed; the old picture shows until it is there.
    e.preferences.setSpectrogramSettings({512, SpectrogramColorMap::magma, false});
    EXPECT_TRUE(track->spectrogram());
    EXPECT_FALSE(e.model.hasCurrentSpectrogram(*track));
    e.executor.drain();
    ASSERT_TRUE(e.showsCurrent(*track));
    EXPECT_EQ(track->spectrogram()->fftSize, 512);
    // Colours and the axis need no new computation.
    e.preferences.setSpectrogramSettings({512, SpectrogramColorMap::viridis, true});
    EXPECT_EQ(e.executor.pendingBackground(), 0u);

    // Back on the waveform, edits compute nothing; removing a track mid-way is harmless.
    e.model.setTrackView(EditorModel::TrackView::waveform);
    track->setSelection(FrameRange{0, 1000});
    e.model.deleteSelection();
    EXPECT_FALSE(track->spectrogram());
    EXPECT_EQ(e.executor.drain(), 2); // the loudness measurement alone
    const auto other = e.add(48000);
    e.model.setTrackView(EditorModel::TrackView::spectrogram);
    e.model.removeTracks({other->id()});
    e.executor.drain();
    EXPECT_FALSE(other->spectrogram());
    EXPECT_FALSE(e.model.spectrogramProgress(*other));
    // Back in the list, it is computed afresh.
    e.model.addTrack(other);
    e.model.setSelectedTrackIDs({other->id()});
    e.executor.drain();
    EXPECT_TRUE(e.showsCurrent(*other));
}
