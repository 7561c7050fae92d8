#include "editor/EditorModel.h"

#include "base/ManualExecutor.h"
#include "persistence/Preferences.h"
#include "support/AudioFiles.h"

#include <cmath>
#include <gtest/gtest.h>
#include <numbers>

using namespace sonvale;

namespace {

std::vector<float> tone(int frames, float amplitude, int silentEdge = 0) {
    std::vector<float> out(size_t(frames), 0.0f);
    for (int i = silentEdge; i < frames - silentEdge; ++i)
        out[size_t(i)] = amplitude * float(std::sin(2 * std::numbers::pi * 997 * i / 48000.0));
    return out;
}

struct LoudnessEditor {
    ManualExecutor executor;
    Preferences preferences;
    EditorModel model{executor, preferences};

    AudioTrackPtr add(AudioDataPtr audio) {
        auto track = AudioTrack::create("/music/take.wav");
        model.addTrack(track);
        model.setSelectedTrackIDs({track->id()});
        track->finishLoading(std::move(audio));
        return track;
    }
};

} // namespace

TEST(EditorLoudness, LoadedAudioIsMeasuredInTheBackgroundAndEnablesLoudnessTargets) {
    LoudnessEditor editor;
    auto track = editor.add(test::makeAudio(48000, {tone(48000, 1.0f), tone(48000, 1.0f)}));
    EXPECT_FALSE(editor.model.canNormalizeToLoudness());
    EXPECT_EQ(editor.executor.pendingBackground(), 1u);
    editor.executor.drain();
    ASSERT_TRUE(track->currentLoudness());
    EXPECT_NEAR(*track->currentLoudness(), 0.0, 0.05); // full-scale 997 Hz in both channels
    EXPECT_TRUE(editor.model.canNormalizeToLoudness());

    editor.model.normalizeLoudness({-16, "podcasts"});
    EXPECT_NEAR(track->gainDB(), -16.0f, 0.05f);
    // Normalizing sets the gain only: the samples stay as they were, and Undo takes it back.
    EXPECT_EQ(track->audio()->peak, 1.0f);
    EXPECT_EQ(track->audioEditDepth(), 0);
    EXPECT_EQ(editor.model.undoMenuTitle(), "Undo Normalize");
    editor.model.undo();
    EXPECT_EQ(track->gainDB(), 0.0f);
    editor.model.redo();
    EXPECT_NEAR(track->gainDB(), -16.0f, 0.05f);
}

// A measurement without a result (silence, or under 400 ms) still ends the measuring, and the
// track is not measured again.
TEST(EditorLoudness, SilentAndShortAudioAreMeasuredWithoutAResult) {
    LoudnessEditor editor;
    for (auto samples : {std::vector<float>(48000, 0.0f), tone(9600, 1.0f)}) {
        auto track = editor.add(test::makeAudio(48000, {samples}));
        editor.executor.drain();
        EXPECT_TRUE(track->isLoudnessMeasured());
        EXPECT_FALSE(track->currentLoudness());
        editor.model.measureLoudness(track);
        EXPECT_EQ(editor.executor.pendingBackground(), 0u);
    }
}

TEST(EditorLoudness, AMeasurementOfAudioThatChangedMeanwhileIsDropped) {
    LoudnessEditor editor;
    auto track = editor.add(test::makeAudio(48000, {tone(48000, 0.5f)}));
    // The audio is edited before the first measurement comes back.
    track->select(0, 24000, false);
    editor.model.deleteSelection();
    editor.executor.runBackground();
    editor.executor.runMain();
    // The measurement of the edited audio is the one that counts.
    editor.executor.drain();
    ASSERT_TRUE(track->currentLoudness());
    EXPECT_EQ(track->loudnessSource().lock(), track->audio());
    EXPECT_NEAR(*track->currentLoudness(), -3.01 - 6.02, 0.05);
}

TEST(EditorLoudness, PeakNormalizationIsLimitedAndLeavesSilenceAlone) {
    LoudnessEditor editor;
    auto track = editor.add(test::makeAudio(48000, {tone(4800, 0.5f)}));
    editor.model.normalizePeak();
    EXPECT_NEAR(track->gainDB(), 6.02f, 0.01f);
    const float linear = track->gainBox()->load();
    EXPECT_NEAR(linear, 2.0f, 0.001f);

    auto quiet = editor.add(test::makeAudio(48000, {tone(4800, 0.01f)}));
    editor.model.normalizePeak();
    EXPECT_EQ(quiet->gainDB(), 30.0f);

    auto silent = editor.add(test::makeAudio(48000, {std::vector<float>(4800, 0.0f)}));
    silent->setGainDB(-2);
    editor.model.normalizePeak();
    EXPECT_EQ(silent->gainDB(), -2.0f);
}

TEST(EditorLoudness, LoudnessTargetsFollowTheCustomTargetInThePreferences) {
    LoudnessEditor editor;
    EXPECT_EQ(editor.model.loudnessTargets().size(), 3u);
    editor.preferences.setCustomLoudnessTarget(-20.0);
    auto targets = editor.model.loudnessTargets();
    ASSERT_EQ(targets.size(), 4u);
    EXPECT_EQ(loudnessMenuTitle(targets[2]), "Loudness to -20 LUFS (custom)");
}

TEST(EditorTrimSilence, CutsBothEndsAsOneUndoStep) {
    LoudnessEditor editor;
    auto track = editor.add(test::makeAudio(48000, {tone(48000, 0.5f, 12000)}));
    const auto original = track->audio();
    editor.model.trimSilence();
    ASSERT_FALSE(editor.model.alert()) << editor.model.alert()->message;
    // Heard from frame 12000 to 35999; 480 frames of padding on each side.
    EXPECT_EQ(track->audio()->frameCount, (36000 + 480) - (12000 - 480));
    EXPECT_FALSE(track->selection());
    EXPECT_EQ(track->cursor(), 0);
    EXPECT_EQ(track->undoStack().undoMenuTitle(), "Undo Trim Silence");
    track->undoStack().undo();
    EXPECT_EQ(track->audio()->frameCount, original->frameCount);
    EXPECT_FALSE(track->undoStack().canUndo());
}

TEST(EditorTrimSilence, SilentTracksAndTracksWithoutSilenceGetTheirAlerts) {
    LoudnessEditor editor;
    auto silent = editor.add(test::makeAudio(48000, {std::vector<float>(48000, 0.0f)}));
    editor.model.trimSilence();
    ASSERT_TRUE(editor.model.alert());
    EXPECT_EQ(*editor.model.alert(), (AppAlert{"Nothing to trim", "The whole track is silent."}));
    EXPECT_EQ(silent->audio()->frameCount, 48000);

    editor.model.dismissAlert();
    // 5 ms of silence at each end is inside the 10 ms padding.
    auto tight = editor.add(test::makeAudio(48000, {tone(48000, 0.5f, 240)}));
    editor.model.trimSilence();
    ASSERT_TRUE(editor.model.alert());
    EXPECT_EQ(
        *editor.model.alert(),
        (AppAlert{"Nothing to trim", "There's no silence (below -60 dBFS) at the start or end."}));
    EXPECT_FALSE(tight->undoStack().canUndo());
}
