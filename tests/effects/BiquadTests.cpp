#include "effects/Biquad.h"
#include "effects/EQBand.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace sonvale;

namespace {
constexpr double exactDB = 1e-9; // closed-form values the designs hit exactly
constexpr double butterworth3dB = -3.010299956639812;
} // namespace

TEST(EQBandType, FlagsAndTitlesFollowTheType) {
    EXPECT_EQ(title(EQBandType::highShelf), "High Shelf");
    EXPECT_TRUE(usesGain(EQBandType::bell));
    EXPECT_FALSE(usesGain(EQBandType::notch));
    EXPECT_FALSE(usesGain(EQBandType::lowCut));
    EXPECT_TRUE(usesQ(EQBandType::notch));
    EXPECT_FALSE(usesQ(EQBandType::highCut));
    EXPECT_EQ(eqBandType(2.4), EQBandType::bell);
    EXPECT_EQ(eqBandType(-3), EQBandType::lowCut);
    EXPECT_EQ(eqBandType(9), EQBandType::highCut);
}

TEST(Biquad, IdentitySectionIsFlatAndPassesSamples) {
    Biquad identity;
    BiquadState state;
    EXPECT_EQ(state.process(identity, 0.25), 0.25);
    EXPECT_NEAR(identity.decibels(1234, 48000), 0, exactDB);
}

TEST(Biquad, BellHasItsGainAtTheCentreAtEveryRate) {
    for (double rate : {44100.0, 48000.0, 96000.0})
        for (double gain : {-12.0, 6.0, 18.0}) {
            auto f = EQBand{EQBandType::bell, 1000, gain, 2, true}.biquad(rate);
            EXPECT_NEAR(f.decibels(1000, rate), gain, 1e-6);
            EXPECT_NEAR(f.decibels(20, rate), 0, 0.05);
        }
}

TEST(Biquad, ShelvesReachTheirGainAtOneEndHalfAtTheCornerAndNothingAtTheOther) {
    for (double rate : {44100.0, 48000.0, 96000.0}) {
        auto low = EQBand{EQBandType::lowShelf, 200, 9, 0.71, true}.biquad(rate);
        EXPECT_NEAR(low.decibels(0, rate), 9, 1e-6);
        EXPECT_NEAR(low.decibels(200, rate), 4.5, 1e-6);
        EXPECT_NEAR(low.decibels(rate / 2, rate), 0, 1e-6);
        auto high = EQBand{EQBandType::highShelf, 5000, -6, 0.71, true}.biquad(rate);
        EXPECT_NEAR(high.decibels(rate / 2, rate), -6, 1e-6);
        EXPECT_NEAR(high.decibels(5000, rate), -3, 1e-6);
        EXPECT_NEAR(high.decibels(0, rate), 0, 1e-6);
    }
}

TEST(Biquad, CutsAreButterworthThreeDecibelsDownAtTheCornerAndIgnoreQAndGain) {
    for (double rate : {44100.0, 48000.0, 96000.0}) {
        auto lowCut = EQBand{EQBandType::lowCut, 100, 12, 8, true}.biquad(rate);
        EXPECT_NEAR(lowCut.decibels(100, rate), butterworth3dB, 1e-6);
        EXPECT_NEAR(lowCut.decibels(10, rate), -40, 0.1); // 12 dB per octave
        EXPECT_NEAR(lowCut.decibels(rate / 2, rate), 0, 1e-6);
        EXPECT_EQ(lowCut, (EQBand{EQBandType::lowCut, 100, 0, 0.71, true}.biquad(rate)));
        auto highCut = EQBand{EQBandType::highCut, 3000, -5, 0.3, true}.biquad(rate);
        EXPECT_NEAR(highCut.decibels(3000, rate), butterworth3dB, 1e-6);
        EXPECT_NEAR(highCut.decibels(0, rate), 0, 1e-6);
        EXPECT_LT(highCut.decibels(rate / 2, rate), -100);
    }
}

TEST(Biquad, NotchRemovesItsFrequencyAndIgnoresGain) {
    for (double rate : {44100.0, 48000.0, 96000.0}) {
        auto notch = EQBand{EQBandType::notch, 1000, 12, 4, true}.biquad(rate);
        EXPECT_LT(notch.decibels(1000, rate), -120);
        EXPECT_NEAR(notch.decibels(0, rate), 0, 1e-6);
        EXPECT_NEAR(notch.decibels(rate / 2, rate), 0, 1e-6);
        EXPECT_EQ(notch, (EQBand{EQBandType::notch, 1000, 0, 4, true}.biquad(rate)));
    }
}

TEST(Biquad, DesignHoldsFrequencyAndQWithinTheirLimits) {
    double rate = 44100;
    EXPECT_EQ((EQBand{EQBandType::bell, 30000, 6, 1, true}.biquad(rate)),
              (EQBand{EQBandType::bell, 0.45 * rate, 6, 1, true}.biquad(rate)));
    EXPECT_EQ((EQBand{EQBandType::bell, 2, 6, 1, true}.biquad(rate)),
              (EQBand{EQBandType::bell, 10, 6, 1, true}.biquad(rate)));
    EXPECT_EQ((EQBand{EQBandType::bell, 500, 6, 50, true}.biquad(rate)),
              (EQBand{EQBandType::bell, 500, 6, 20, true}.biquad(rate)));
    EXPECT_EQ((EQBand{EQBandType::bell, 500, 6, 0.01, true}.biquad(rate)),
              (EQBand{EQBandType::bell, 500, 6, 0.05, true}.biquad(rate)));
    EXPECT_NE((EQBand{EQBandType::bell, 500, 6, 0.06, true}.biquad(rate)),
              (EQBand{EQBandType::bell, 500, 6, 0.05, true}.biquad(rate)));
}

TEST(Biquad, DecibelsAgreesWithAMeasuredSineThroughTheSection) {
    double rate = 48000;
    auto f = EQBand{EQBandType::bell, 700, 8, 1.5, true}.biquad(rate);
    for (double frequency : {100.0, 700.0, 2500.0}) {
        BiquadState state;
        double in = 0, out = 0;
        for (int i = 0; i < 96000; ++i) {
            double x = std::sin(2 * M_PI * frequency * i / rate);
            double y = state.process(f, x);
            if (i >= 48000) in += x * x, out += y * y;
        }
        EXPECT_NEAR(10 * std::log10(out / in), f.decibels(frequency, rate), 0.01);
    }
}

TEST(DCBlocker, RemovesAConstantOffsetAndPassesAudio) {
    DCBlocker blocker{0, 0, DCBlocker::fiveHertzPole(48000)};
    double y = 0;
    for (int i = 0; i < 48000; ++i)
        y = blocker.process(0.5);
    EXPECT_LT(std::fabs(y), 1e-6);
    blocker.reset();
    double sum = 0;
    for (int i = 0; i < 48000; ++i) {
        double x = std::sin(2 * M_PI * 1000 * i / 48000);
        double out = blocker.process(x);
        if (i >= 24000) sum += (out - x) * (out - x);
    }
    EXPECT_LT(std::sqrt(sum / 24000), 0.01);
}

TEST(Smoothed, ReachesTwoThirdsOfAStepInOneTimeConstant) {
    Smoothed s{0, Smoothed::coefficientFor(0.03, 1000)}; // 30 samples
    for (int i = 0; i < 30; ++i)
        s.step(1);
    EXPECT_NEAR(s.value, 1 - std::exp(-1.0), 0.01);
}
