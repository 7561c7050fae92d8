// Delay, chorus, flanger, phaser, reverb and pitch shifter: echo timing and level, ping-pong
// sides, LFO offsets between channels and measured pitch.

#include "effects/EffectKind.h"
#include "effects/ParameterBank.h"
#include "support/ProcessorRun.h"
#include "support/Signals.h"

#include <cmath>
#include <gtest/gtest.h>
#include <memory>

using namespace sonvale;
using namespace sonvale::test;

namespace {

std::shared_ptr<ParameterBank> bankFor(EffectKind kind,
                                       std::initializer_list<std::pair<int, double>> values) {
    auto bank =
        std::make_shared<ParameterBank>(parameters(kind), kind == EffectKind::spectrumAnalyzer);
    for (auto [index, value] : values)
        bank->set(index, value);
    return bank;
}

Channels render(EffectKind kind, const std::shared_ptr<ParameterBank>& bank, Channels audio,
                double rate = 48000) {
    auto processor = makeProcessor(kind, rate, int(audio.size()), bank);
    runInBlocks(*processor, audio, 256);
    return audio;
}

// The frequency of a steady tone from its upward zero crossings (interpolated).
double measuredFrequency(const std::vector<float>& s, int64_t from, double rate) {
    double first = -1, last = -1;
    int crossings = 0;
    for (size_t i = size_t(from) + 1; i < s.size(); ++i)
        if (s[i - 1] < 0 && s[i] >= 0) {
            double at = double(i - 1) + s[i - 1] / (s[i - 1] - s[i]);
            if (first < 0) first = at;
            last = at;
            ++crossings;
        }
    return (crossings - 1) / (last - first) * rate;
}

} // namespace

TEST(Delay, FeedbackZeroGivesExactlyOneEchoAtTheSetTimeAndLevel) {
    auto bank = bankFor(EffectKind::delay, {{0, 250}, {1, 0}, {2, 20000}, {3, 50}});
    auto out = render(EffectKind::delay, bank, {impulse(48000, 100)});
    auto& y = out[0];
    EXPECT_EQ(y[100], 1.0f); // the dry signal passes at full level
    int64_t echo = 100 + 12000;
    size_t loudest =
        size_t(std::max_element(y.begin() + 101, y.end(),
                                [](float a, float b) { return std::fabs(a) < std::fabs(b); }) -
               y.begin());
    EXPECT_EQ(int64_t(loudest), echo);
    EXPECT_GT(y[size_t(echo)], 0.45f); // Level 50 %, slightly softened by the Tone filter
    EXPECT_LE(y[size_t(echo)], 0.5f);
    EXPECT_LT(peak(y.data() + 101, echo - 101), 1e-7f);
    EXPECT_LT(peak(y.data() + echo + 200, int64_t(y.size()) - echo - 200), 1e-7f); // no repeat
}

TEST(Delay, FeedbackRepeatsEachEchoQuieter) {
    auto bank = bankFor(EffectKind::delay, {{0, 100}, {1, 50}, {2, 20000}, {3, 100}});
    auto y = render(EffectKind::delay, bank, {impulse(24000)})[0];
    float first = peak(y.data() + 4700, 400), second = peak(y.data() + 9500, 400);
    EXPECT_NEAR(second / first, 0.5f * 0.94f, 0.05f);
    EXPECT_GT(peak(y.data() + 14300, 400), 0.0f);
}

TEST(Delay, PingPongStartsLeftAndAlternatesSides) {
    auto bank = bankFor(EffectKind::delay, {{0, 100}, {1, 60}, {2, 20000}, {3, 100}, {4, 1}});
    auto out = render(EffectKind::delay, bank, {impulse(24000), impulse(24000)});
    for (int repeat = 1; repeat <= 4; ++repeat) {
        int64_t at = repeat * 4800 - 50;
        float left = peak(out[0].data() + at, 200), right = peak(out[1].data() + at, 200);
        bool leftSide = repeat % 2 == 1;
        EXPECT_GT(leftSide ? left : right, 0.05f) << "repeat " << repeat;
        EXPECT_LT(leftSide ? right : left, 1e-6f) << "repeat " << repeat;
    }
}

// A channel whose LFO runs `offset` samples ahead, fed the input `offset` samples ahead,
// repeats the first channel's output `offset` samples later.
void expectChannelLfoOffset(EffectKind kind, std::initializer_list<std::pair<int, double>> values,
                            int64_t offset, bool shouldMatch) {
    auto source = noise(60000 + offset, 5, 0.5);
    Channels audio{{source.begin(), source.begin() + 60000},
                   {source.begin() + offset, source.begin() + offset + 60000}};
    auto out = render(kind, bankFor(kind, values), audio);
    float worst = 0;
    for (int64_t i = 5000; i + offset < 60000; ++i)
        worst = std::max(worst, std::fabs(out[1][size_t(i)] - out[0][size_t(i + offset)]));
    if (shouldMatch)
        EXPECT_LT(worst, 1e-3f) << rawValue(kind);
    else
        EXPECT_GT(worst, 1e-2f) << rawValue(kind);
}

TEST(Modulation, ChorusChannelsRunASixthOfACycleApartAtFullWidth) {
    expectChannelLfoOffset(EffectKind::chorus, {{0, 1}, {1, 8}, {3, 100}, {4, 100}}, 8000, true);
    expectChannelLfoOffset(EffectKind::chorus, {{0, 1}, {1, 8}, {3, 0}, {4, 100}}, 8000, false);
}

TEST(Modulation, FlangerChannelsRunAQuarterCycleApart) {
    expectChannelLfoOffset(EffectKind::flanger, {{0, 1}, {1, 90}, {2, 5}, {3, 50}, {4, 100}}, 12000,
                           true);
    expectChannelLfoOffset(EffectKind::flanger, {{0, 1}, {1, 90}, {2, 5}, {3, 50}, {4, 100}}, 8000,
                           false);
}

TEST(Modulation, FlangerNegativeFeedbackInvertsTheRepeats) {
    auto positive = render(EffectKind::flanger,
                           bankFor(EffectKind::flanger, {{1, 0}, {2, 2}, {3, 80}, {4, 100}}),
                           {impulse(2000, 10)})[0];
    auto negative = render(EffectKind::flanger,
                           bankFor(EffectKind::flanger, {{1, 0}, {2, 2}, {3, -80}, {4, 100}}),
                           {impulse(2000, 10)})[0];
    // First pass identical; the second pass through the loop flips sign.
    EXPECT_NEAR(positive[10 + 96], negative[10 + 96], 1e-6f);
    EXPECT_GT(positive[10 + 192], 0.5f);
    EXPECT_NEAR(negative[10 + 192], -positive[10 + 192], 1e-6f);
}

TEST(Phaser, MixZeroIsBitExactAndFullMixChangesTheSound) {
    auto input = Channels{noise(20000, 3, 0.7), noise(20000, 4, 0.7)};
    auto dry = render(EffectKind::phaser, bankFor(EffectKind::phaser, {{4, 0}, {3, 80}}), input);
    EXPECT_EQ(dry, input);
    auto wet = render(EffectKind::phaser, bankFor(EffectKind::phaser, {{4, 100}}), input);
    EXPECT_NE(wet, input);
    for (auto& channel : wet)
        EXPECT_LT(peak(channel), 4.0f);
}

TEST(Phaser, AtDepthZeroSixStagesAtEightHundredHertzCancelThatFrequency) {
    // Each all-pass turns 800 Hz by a quarter cycle; six make half a cycle more than a whole
    // one, and mixed half and half with the dry signal that frequency cancels.
    auto bank = bankFor(EffectKind::phaser, {{1, 0}, {2, 1}, {3, 0}, {4, 50}});
    auto gainOf = [&](double frequency) {
        auto input = sine(frequency, 48000, 48000, 0.5);
        auto output = render(EffectKind::phaser, bank, {input})[0];
        return gainAt(input, output);
    };
    EXPECT_LT(gainOf(800), -30.0);
    EXPECT_GT(gainOf(300), -10.0);
    EXPECT_GT(gainOf(1500), -3.0); // (the next notch is near 2.9 kHz)
}

TEST(Delay, ToneDarkensTheRepeats) {
    auto echoOf = [](double tone) {
        auto bank = bankFor(EffectKind::delay, {{0, 250}, {1, 0}, {2, tone}, {3, 100}});
        auto input = sine(5000, 48000, 24000, 0.5);
        input.resize(48000, 0.0f);
        auto y = render(EffectKind::delay, bank, {input})[0];
        return peak(y.data() + 24000 + 2000, 8000); // only the echo sounds here
    };
    const float bright = echoOf(20000), dark = echoOf(1000);
    EXPECT_GT(bright, 0.4f);
    EXPECT_LT(dark, bright * 0.3f); // a 1 kHz low-pass, more than two octaves below the tone
}

TEST(Reverb, WidthZeroIsMonoWetAndFullWidthKeepsSidesApart) {
    Channels input{impulse(30000, 0), impulse(30000, 700)};
    auto mono = render(EffectKind::reverb, bankFor(EffectKind::reverb, {{3, 0}, {4, 100}}), input);
    EXPECT_EQ(mono[0], mono[1]);
    EXPECT_GT(peak(mono[0]), 1e-3f);
    auto wide =
        render(EffectKind::reverb, bankFor(EffectKind::reverb, {{3, 100}, {4, 100}}), input);
    EXPECT_NE(wide[0], wide[1]);
}

TEST(Reverb, PreDelayHoldsBackTheWetSignalAndTheTailDecays) {
    auto y = render(EffectKind::reverb, bankFor(EffectKind::reverb, {{2, 100}, {4, 100}, {0, 50}}),
                    {impulse(48000 * 4)})[0];
    // 100 ms pre-delay plus the shortest comb (1116 samples at 44.1 kHz, 1214 at 48 kHz).
    EXPECT_LT(peak(y.data() + 1, 4800 + 1200), 1e-9f);
    EXPECT_GT(peak(y.data() + 4800, 4000), 1e-3f);
    EXPECT_LT(peak(y.data() + 48000 * 3, 48000), peak(y.data() + 4800, 48000) * 1e-2f);
}

TEST(PitchShifter, PlusTwelveSemitonesDoublesTheFrequency) {
    auto y = render(EffectKind::pitchShifter,
                    bankFor(EffectKind::pitchShifter, {{0, 12}, {1, 0}, {3, 100}}),
                    {sine(440, 48000, 96000, 0.5)})[0];
    EXPECT_NEAR(measuredFrequency(y, 9600, 48000), 880, 3);
}

TEST(PitchShifter, ThickenDetunesByTwelveCents) {
    auto values = presets(EffectKind::pitchShifter);
    auto thicken =
        std::find_if(values.begin(), values.end(), [](auto& p) { return p.name == "Thicken"; });
    ASSERT_NE(thicken, values.end());
    auto bank = std::make_shared<ParameterBank>(parameters(EffectKind::pitchShifter));
    auto full = thicken->valuesFor(parameters(EffectKind::pitchShifter));
    for (size_t i = 0; i < full.size(); ++i)
        bank->set(int(i), full[i]);
    bank->set(3, 100); // the wet signal alone, to measure it
    auto y = render(EffectKind::pitchShifter, bank, {sine(440, 48000, 48000 * 4, 0.5)})[0];
    EXPECT_NEAR(measuredFrequency(y, 4800, 48000), 440 * std::exp2(12.0 / 1200), 0.5);
}

TEST(PitchShifter, RatioOneOnlyDelaysByHalfAWindowAndASample) {
    auto input = noise(20000, 9, 0.8);
    auto y =
        render(EffectKind::pitchShifter,
               bankFor(EffectKind::pitchShifter, {{0, 0}, {1, 0}, {2, 50}, {3, 100}}), {input})[0];
    int64_t lag = 1200 + 1;
    EXPECT_LT(peak(y.data(), lag), 1e-9f);
    for (int64_t i = lag; i < 20000; ++i)
        ASSERT_NEAR(y[size_t(i)], input[size_t(i - lag)], 1e-6f) << i;
}

TEST(Modulation, FlangerAtFullDepthNeverReadsTheStaleEndOfItsLine) {
    // At 5 Hz the sweep bottoms out at frame 7200 (a delay of zero); the input fell silent at
    // 6500, so around the bottom only silence is within reach.
    auto input = noise(9000, 11, 0.8);
    std::fill(input.begin() + 6500, input.end(), 0.0f);
    auto y = render(EffectKind::flanger,
                    bankFor(EffectKind::flanger, {{0, 5}, {1, 100}, {2, 10}, {3, 0}, {4, 100}}),
                    {input})[0];
    EXPECT_EQ(peak(y.data() + 7150, 100), 0.0f);
    EXPECT_GT(peak(y.data() + 6000, 400), 0.01f);
}

TEST(Reverb, AShortPreDelayNeverReachesTheStaleEndOfItsLine) {
    // 0.03 ms is 1.44 samples: between the newest input and the one before, never the line's
    // oldest sample. Were it the oldest, the impulse would enter again when the 200 ms line
    // wraps (9,604 samples) and the decaying tail would swell a comb length later.
    auto y = render(EffectKind::reverb,
                    bankFor(EffectKind::reverb, {{0, 0}, {1, 0}, {2, 0.03}, {4, 100}}),
                    {impulse(14000)})[0];
    float before = peak(y.data() + 9000, 600), after = peak(y.data() + 10900, 1000);
    EXPECT_GT(before, 0.0f);
    EXPECT_LT(after, before);
}
