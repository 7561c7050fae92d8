// Saturation and distortion curves at known inputs, and the analyzer as a pass-through tap.

#include "effects/EffectKind.h"
#include "effects/ParameterBank.h"
#include "support/ProcessorRun.h"
#include "support/Signals.h"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <numbers>

using namespace sonvale;
using namespace sonvale::test;

namespace {

std::vector<float> shaped(EffectKind kind, std::initializer_list<std::pair<int, double>> values,
                          std::vector<float> input) {
    auto bank = std::make_shared<ParameterBank>(parameters(kind));
    for (auto [index, value] : values)
        bank->set(index, value);
    Channels audio{std::move(input)};
    runInBlocks(*makeProcessor(kind, 48000, 1, bank), audio, 300);
    return audio[0];
}

float minimum(const std::vector<float>& s, size_t from) {
    return *std::min_element(s.begin() + long(from), s.end());
}
float maximum(const std::vector<float>& s, size_t from) {
    return *std::max_element(s.begin() + long(from), s.end());
}

} // namespace

TEST(Saturation, DriveZeroIsAGentleTanhCurveNotABypass) {
    // Drive 0 dB, Warmth 0, Mix 100, Output 0 dB; a 1 kHz sine passes the 5 Hz DC blocker intact.
    auto y = shaped(EffectKind::saturation, {{0, 0}, {1, 0}, {3, 100}, {4, 0}},
                    sine(1000, 48000, 48000, 0.5));
    float expected = float(std::tanh(0.5) / std::tanh(1.0));
    EXPECT_NEAR(maximum(y, 24000), expected, 0.005f);
    EXPECT_NEAR(minimum(y, 24000), -expected, 0.005f);
}

TEST(Saturation, WarmthMakesTheCurveAsymmetricWithoutADCOffset) {
    auto y = shaped(EffectKind::saturation, {{0, 12}, {1, 100}, {3, 100}, {4, 0}},
                    sine(200, 48000, 96000, 0.5));
    float top = maximum(y, 48000), bottom = -minimum(y, 48000);
    EXPECT_GT(std::fabs(top - bottom), 0.02f);
    double mean = 0;
    for (size_t i = 48000; i < y.size(); ++i)
        mean += y[i];
    EXPECT_NEAR(mean / 48000, 0.0, 1e-3);
}

TEST(Saturation, FollowsTheBiasedTanhCurveThroughTheDCBlockerAndTheMix) {
    // 44.1 kHz, where the 20 kHz Tone is above 0.45 x the rate and so off: the output is the
    // curve (tanh(b + g x) - tanh b) / tanh g, a 5 Hz DC blocker, then the mix and output gain.
    constexpr double rate = 44100, drive = 12, warmth = 60, mix = 70, output = -3;
    auto bank = std::make_shared<ParameterBank>(parameters(EffectKind::saturation));
    for (auto [index, value] : {std::pair{0, drive}, {1, warmth}, {3, mix}, {4, output}})
        bank->set(index, value);
    std::vector<float> input = sine(330, rate, 22050, 0.8);
    for (size_t i = 0; i < input.size(); i += 97)
        input[i] = -input[i]; // some jagged edges
    Channels audio{input};
    runInBlocks(*makeProcessor(EffectKind::saturation, rate, 1, bank), audio, 512);

    const double g = std::pow(10, drive / 20), b = 0.4 * warmth / 100;
    const double pole = std::exp(-2 * std::numbers::pi * 5 / rate);
    double x1 = 0, y1 = 0, worst = 0;
    for (size_t i = 0; i < input.size(); ++i) {
        const double x = input[i];
        const double s = (std::tanh(b + g * x) - std::tanh(b)) / std::tanh(g);
        const double y = s - x1 + pole * y1;
        x1 = s;
        y1 = y;
        const double expected = std::pow(10, output / 20) * (mix / 100 * (y - x) + x);
        worst = std::max(worst, std::abs(expected - audio[0][i]));
    }
    EXPECT_LT(worst, 2e-6); // float precision, not an approximation of the curve
}

TEST(Distortion, SoftAndHardFollowTheirCurvesAtKnownLevels) {
    // Constant inputs settle through the Tone low-pass, whose gain at DC is one.
    auto soft =
        shaped(EffectKind::distortion, {{0, 0}, {1, 0}, {3, 100}, {4, 0}}, constant(4000, 0.5f));
    EXPECT_NEAR(soft.back(), 2 * std::atan(0.5) / std::numbers::pi, 1e-4);
    auto hard = shaped(EffectKind::distortion, {{0, 1}, {1, 0}, {3, 100}}, constant(4000, 0.8f));
    EXPECT_NEAR(hard.back(), 0.8 * std::pow(10.0, -12.0 / 20), 1e-4); // default Output -12 dB
    auto clipped =
        shaped(EffectKind::distortion, {{0, 1}, {1, 6}, {3, 100}, {4, 0}}, constant(4000, 0.8f));
    EXPECT_NEAR(clipped.back(), 1.0, 1e-4);
    auto negative =
        shaped(EffectKind::distortion, {{0, 1}, {1, 6}, {3, 100}, {4, 0}}, constant(4000, -0.8f));
    EXPECT_NEAR(negative.back(), -1.0, 1e-4);
}

TEST(Distortion, FuzzIsLopsidedWithTheNegativeHalfSaturatingLower) {
    // Drive 0 dB on a full-scale sine: the fuzz reaches 1 - e^-1 on top and -0.7 (1 - e^-1.5)
    // below (the DC blocker shifts both by the curve's mean, not their distance).
    auto fuzz = shaped(EffectKind::distortion, {{0, 2}, {1, 0}, {2, 20000}, {3, 100}, {4, 0}},
                       sine(1000, 48000, 96000, 1));
    double top = 1 - std::exp(-1.0), bottom = -0.7 * (1 - std::exp(-1.5));
    EXPECT_NEAR(maximum(fuzz, 48000) - minimum(fuzz, 48000), top - bottom, 0.01);
    // Fully driven, the swing is 1 + 0.7 at most, never the 2 of a symmetric curve.
    auto driven = shaped(EffectKind::distortion, {{0, 2}, {1, 30}, {2, 20000}, {3, 100}, {4, 0}},
                         sine(1000, 48000, 96000, 1));
    std::vector<float> sorted(driven.begin() + 48000, driven.end());
    std::sort(sorted.begin(), sorted.end());
    float low = sorted[sorted.size() / 10], high = sorted[sorted.size() * 9 / 10];
    EXPECT_NEAR(high - low, 1.7f, 0.05f);
}

TEST(SpectrumAnalyzer, PassesAudioBitExactAndFeedsTheTapTheChannelAverage) {
    auto bank = std::make_shared<ParameterBank>(parameters(EffectKind::spectrumAnalyzer), true);
    ASSERT_NE(bank->tap(), nullptr);
    Channels input{noise(5000, 1), noise(5000, 2)};
    Channels audio = input;
    runInBlocks(*makeProcessor(EffectKind::spectrumAnalyzer, 44100, 2, bank), audio, 333);
    EXPECT_EQ(audio, input);
    auto* tap = bank->tap();
    EXPECT_EQ(tap->writtenCount(), 5000u);
    EXPECT_EQ(tap->sampleRate(), 44100.0);
    for (int64_t i = 0; i < 5000; i += 97)
        EXPECT_EQ(tap->sample(i), (input[0][size_t(i)] + input[1][size_t(i)]) * 0.5f) << i;
}

TEST(SpectrumAnalyzer, WithoutATapItStillPassesAudio) {
    auto bank = std::make_shared<ParameterBank>(parameters(EffectKind::spectrumAnalyzer), false);
    Channels audio{noise(1000, 1)};
    auto input = audio;
    runInBlocks(*makeProcessor(EffectKind::spectrumAnalyzer, 48000, 1, bank), audio, 100);
    EXPECT_EQ(audio, input);
}
