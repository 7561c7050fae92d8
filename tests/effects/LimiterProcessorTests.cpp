#include "effects/EffectSession.h"
#include "effects/LimiterProcessor.h"

#include "support/ProcessorRun.h"
#include "support/Signals.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace sonvale;
using namespace sonvale::test;

namespace {

std::shared_ptr<EffectSession> limiter(double gain, double ceiling, double release = 100) {
    return EffectSession::make(EffectKind::limiter, std::vector<double>{gain, ceiling, release});
}

} // namespace

TEST(Limiter, NeverExceedsItsCeilingEvenOnTheFirstSampleOfATransient) {
    for (double rate : {44100.0, 96000.0})
        for (double ceiling : {-12.0, -1.0, -0.3, 0.0}) {
            auto session = limiter(24, ceiling, 5);
            LimiterProcessor processor(rate, 2, session->bank());
            Channels audio{impulse(4096, 100, 1.0f), noise(4096, 7, 1.0)};
            for (int i = 1000; i < 1010; ++i)
                audio[0][size_t(i)] = 0.99f; // a burst after quiet
            runInBlocks(processor, audio, 333);
            float limit = fromDB(ceiling);
            EXPECT_LE(peak(audio[0]), limit) << ceiling;
            EXPECT_LE(peak(audio[1]), limit) << ceiling;
        }
}

TEST(Limiter, QuietSignalOnlyGetsTheGain) {
    auto session = limiter(6, -1);
    LimiterProcessor processor(48000, 1, session->bank());
    Channels audio{sine(100, 48000, 4800, 0.1)};
    auto original = audio[0];
    runInBlocks(processor, audio, 480);
    for (size_t i = 0; i < audio[0].size(); i += 97)
        EXPECT_NEAR(audio[0][i], original[i] * fromDB(6), 1e-6);
    EXPECT_NEAR(session->bank()->readout(0), 0, 1e-6);
}

TEST(Limiter, ReportsItsDeepestReductionAndRecoversWithTheRelease) {
    auto session = limiter(12, -6, 10);
    LimiterProcessor processor(48000, 1, session->bank());
    Channels loud{constant(480, 0.5f)}; // -6 dB + 12 dB of gain: 12 dB over a -6 dB ceiling
    runInBlocks(processor, loud, 480);
    EXPECT_NEAR(session->bank()->readout(0), -(20 * std::log10(0.5) + 12 + 6), 0.01);
    EXPECT_NEAR(loud[0].back(), fromDB(-6), 1e-6);
    Channels quiet{constant(48000, 0.01f)};
    runInBlocks(processor, quiet, 480);
    EXPECT_NEAR(quiet[0].back(), 0.01f * fromDB(12), 1e-5); // fully released
}

TEST(Limiter, GainAndCeilingGlideInsteadOfJumping) {
    auto session = limiter(0, 0);
    LimiterProcessor processor(48000, 1, session->bank());
    Channels before{constant(480, 0.1f)};
    runInBlocks(processor, before, 480);
    session->setValue(0, 12);
    Channels after{constant(48000, 0.1f)};
    runInBlocks(processor, after, 480);
    EXPECT_LT(after[0][0], 0.1f * 1.01f);
    EXPECT_NEAR(after[0].back(), 0.1f * fromDB(12), 1e-5);
    EXPECT_LT(largestStep(after[0]), 0.01f);
}

TEST(Limiter, PositiveCeilingActsAsZeroDecibels) {
    auto session = limiter(24, 0);
    session->bank()->set(1, 3); // out of the knob's range
    LimiterProcessor processor(48000, 1, session->bank());
    Channels audio{noise(4800, 3)};
    runInBlocks(processor, audio, 64);
    EXPECT_LE(peak(audio[0]), 1.0f);
}
