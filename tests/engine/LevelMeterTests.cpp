#include "engine/LevelMeter.h"

#include "support/PlaybackTestAudio.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace sonvale;
using namespace sonvale::test;

namespace {
constexpr float tolerance = 1e-4f;
}

TEST(MeterBallistics, PeakOfExactlyOneDoesNotClipButJustAboveDoes) {
    MeterBallistics meter;
    float one[] = {1.0f, 1.0f};
    meter.update(one, 0.0);
    EXPECT_FALSE(meter.clipped);
    EXPECT_NEAR(meter.levels[0].peakDB, 0.0f, tolerance);
    float over[] = {0.5f, 1.0001f};
    meter.update(over, 0.1);
    EXPECT_TRUE(meter.clipped);
    // It stays lit until reset.
    float quiet[] = {0.01f, 0.01f};
    for (int i = 2; i <= 50; ++i)
        meter.update(quiet, i * 0.1);
    EXPECT_TRUE(meter.clipped);
    meter.resetClip();
    EXPECT_FALSE(meter.clipped);
}

TEST(MeterBallistics, PeakFallsTwentyDecibelsPerSecondToTheFloor) {
    MeterBallistics meter;
    float loud[] = {1.0f};
    float silent[] = {0.0f};
    meter.update(loud, 0.0);
    meter.update(silent, 0.1);
    EXPECT_NEAR(meter.levels[0].peakDB, -2.0f, tolerance);
    meter.update(silent, 0.35);
    EXPECT_NEAR(meter.levels[0].peakDB, -7.0f, tolerance);
    for (int i = 1; i <= 40; ++i)
        meter.update(silent, 0.35 + i * 0.1);
    EXPECT_EQ(meter.levels[0].peakDB, MeterBallistics::floorDB);
    EXPECT_EQ(meter.levels[0].rmsDB, MeterBallistics::floorDB);
}

TEST(MeterBallistics, UpdateAfterTwoSecondsFallsAsIfAQuarterSecondPassed) {
    MeterBallistics meter;
    float loud[] = {1.0f};
    float silent[] = {0.0f};
    meter.update(loud, 10.0);
    meter.update(silent, 12.0);
    EXPECT_NEAR(meter.levels[0].peakDB, -5.0f, tolerance);
}

TEST(MeterBallistics, HeldPeakStaysOneAndAHalfSecondsThenFallsThirtyDecibelsPerSecond) {
    MeterBallistics meter;
    float loud[] = {0.5f};    // -6.02 dB
    float quiet[] = {0.001f}; // -60 dB
    const float held = 20 * std::log10(0.5f);
    meter.update(loud, 0.0);
    for (int i = 1; i <= 7; ++i)
        meter.update(quiet, i * 0.2); // up to 1.4 s
    EXPECT_NEAR(meter.levels[0].holdDB, held, tolerance);
    meter.update(quiet, 1.6); // past the hold: falls for the 0.2 s since the last update
    EXPECT_NEAR(meter.levels[0].holdDB, held - 6.0f, tolerance);
    meter.update(quiet, 1.8);
    EXPECT_NEAR(meter.levels[0].holdDB, held - 12.0f, tolerance);
    // A new peak at or above the held value takes over and starts a new hold.
    meter.update(loud, 1.9);
    EXPECT_NEAR(meter.levels[0].holdDB, held, tolerance);
    EXPECT_NEAR(meter.holdUntil[0], 3.4, 1e-9);
}

TEST(MeterBallistics, TrackPathMeasuresPeakAndRMSOfTheHeardAudioTimesTheGain) {
    auto audio = makeSine(48000, 2, 48000, 1000, 0.5f);
    MeterBallistics meter;
    meter.update(4800, *audio, 0.5f, 0.0);
    ASSERT_EQ(meter.levels.size(), 2u);
    EXPECT_NEAR(meter.levels[0].peakDB, 20 * std::log10(0.25f), 0.01f);
    EXPECT_NEAR(meter.levels[1].rmsDB, 20 * std::log10(0.25f / std::sqrt(2.0f)), 0.05f);
    EXPECT_EQ(meter.lastFrame, 4800);
}

TEST(MeterBallistics, TrackPathSeesAPeakBetweenTwoUpdates) {
    // Silence with one loud sample between the frames of two updates 0.1 s apart.
    auto audio = makeAudio(48000, 1, 48000, [](int, int64_t i) { return i == 7000 ? 0.9f : 0.0f; });
    MeterBallistics meter;
    meter.update(4800, *audio, 1.0f, 0.0);
    EXPECT_EQ(meter.levels[0].peakDB, MeterBallistics::floorDB);
    meter.update(9600, *audio, 1.0f, 0.1);
    EXPECT_NEAR(meter.levels[0].peakDB, 20 * std::log10(0.9f), 0.01f);
}

TEST(LampBallistics, AttacksAtOnceAndFallsNinetyDecibelsPerSecond) {
    LampBallistics lamp;
    lamp.step(1.0f, 0.01);
    EXPECT_NEAR(lamp.level, 0.0f, tolerance);
    EXPECT_NEAR(lamp.glow, 1.0f, tolerance);
    lamp.step(0.0f, 0.1);
    EXPECT_NEAR(lamp.level, -9.0f, tolerance);
    lamp.step(0.0f, 1.0);
    EXPECT_EQ(lamp.level, LampBallistics::floorDB);
    EXPECT_FALSE(lamp.clipped); // full scale is not a clip
    lamp.step(1.0001f, 0.01);
    EXPECT_TRUE(lamp.clipped);
}

TEST(LampBallistics, GlowFollowsTheSquareOfTheLevelWithAnExponentialRelease) {
    LampBallistics lamp;
    lamp.step(std::pow(10.0f, -18.0f / 20), 0.01); // half-way up the range
    EXPECT_NEAR(lamp.glow, 0.25f, tolerance);
    // Falling to the floor: the target is 0 and the glow releases with a 0.18 s constant.
    lamp.step(0.0f, 1.0);
    EXPECT_NEAR(lamp.glow, 0.25f * std::exp(-1.0f / 0.18f), tolerance);
}

TEST(InputLevel, PeaksBecomeDecibelsWithAFloorOfMinus120) {
    float peaks[] = {1.0f, 0.0f, 0.1f};
    auto level = InputLevel::fromPeaks(peaks);
    ASSERT_EQ(level.peaksDB.size(), 3u);
    EXPECT_NEAR(level.peaksDB[0], 0.0f, tolerance);
    EXPECT_NEAR(level.peaksDB[1], -120.0f, 1e-3f);
    EXPECT_NEAR(level.peaksDB[2], -20.0f, tolerance);
}
