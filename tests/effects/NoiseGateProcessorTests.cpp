#include "effects/EffectSession.h"
#include "effects/NoiseGateProcessor.h"

#include "support/ProcessorRun.h"
#include "support/Signals.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace sonvale;
using namespace sonvale::test;

namespace {

std::shared_ptr<EffectSession> gate(double threshold, double range, double attack = 1,
                                    double hold = 50, double release = 20) {
    return EffectSession::make(EffectKind::noiseGate,
                               std::vector<double>{threshold, range, attack, hold, release});
}

// The gain applied to the last sample of a constant run.
double gainOfLast(const std::vector<float>& out, float level) { return out.back() / level; }

} // namespace

TEST(NoiseGate, StartsClosedAndSilentThenOpensWithItsAttack) {
    auto session = gate(-40, -80, 5);
    NoiseGateProcessor processor(48000, 1, session->bank());
    Channels audio{constant(4800, fromDB(-20))};
    runInBlocks(processor, audio, 64);
    EXPECT_LT(audio[0][0], fromDB(-20) * 0.01f);
    EXPECT_NEAR(gainOfLast(audio[0], fromDB(-20)), 1, 1e-6);
    EXPECT_LT(session->bank()->readout(4800 - 64), -20); // the first block's lowest gain
    EXPECT_NEAR(session->bank()->readout(0), 0, 1e-3);
}

TEST(NoiseGate, LevelBetweenTheThresholdsKeepsAnOpenGateOpen) {
    auto session = gate(-40, -60);
    NoiseGateProcessor processor(48000, 1, session->bank());
    Channels open{constant(4800, fromDB(-30))};
    runInBlocks(processor, open, 480);
    Channels between{constant(48000, fromDB(-43))}; // under -40, over -46
    runInBlocks(processor, between, 480);
    EXPECT_NEAR(gainOfLast(between[0], fromDB(-43)), 1, 1e-6);
    EXPECT_NEAR(session->bank()->readout(0), 0, 1e-4);
}

TEST(NoiseGate, LevelBetweenTheThresholdsKeepsAClosedGateClosed) {
    auto session = gate(-40, -60);
    NoiseGateProcessor processor(48000, 1, session->bank());
    Channels between{constant(48000, fromDB(-43))};
    runInBlocks(processor, between, 480);
    EXPECT_NEAR(gainOfLast(between[0], fromDB(-43)), fromDB(-60), 1e-6);
}

TEST(NoiseGate, ClosesAfterTheHoldWhenTheLevelFallsBelowTheCloseThreshold) {
    double rate = 48000;
    auto session = gate(-40, -60, 1, 100, 5);
    NoiseGateProcessor processor(rate, 1, session->bank());
    Channels open{constant(4800, fromDB(-20))};
    runInBlocks(processor, open, 480);
    Channels quiet{constant(int64_t(rate), fromDB(-50))};
    runInBlocks(processor, quiet, 480);
    // The detector needs ~30 ms to fall 30 dB, then 100 ms of hold: still open at 100 ms.
    EXPECT_NEAR(quiet[0][4800] / fromDB(-50), 1, 1e-6);
    EXPECT_NEAR(gainOfLast(quiet[0], fromDB(-50)), fromDB(-60), 1e-6);
}

TEST(NoiseGate, RangeZeroNeverChangesTheLevelOnceOpen) {
    auto session = gate(-30, 0);
    NoiseGateProcessor processor(48000, 1, session->bank());
    Channels audio{noise(48000, 11, 0.001)}; // far below the threshold
    auto original = audio[0];
    runInBlocks(processor, audio, 512);
    for (size_t i = 4800; i < audio[0].size(); ++i)
        ASSERT_NEAR(audio[0][i], original[i], 1e-9);
}

TEST(NoiseGate, ResetClosesTheGateAgain) {
    auto session = gate(-40, -80);
    NoiseGateProcessor processor(48000, 1, session->bank());
    Channels open{constant(4800, 0.5f)};
    runInBlocks(processor, open, 480);
    processor.reset();
    Channels again{constant(1, 0.5f)};
    runInBlocks(processor, again, 1);
    EXPECT_LT(again[0][0], 0.5f * 0.1f);
}
