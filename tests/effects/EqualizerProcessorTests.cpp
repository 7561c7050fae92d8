#include "effects/EQBand.h"
#include "effects/EffectSession.h"
#include "effects/EqualizerProcessor.h"

#include "support/ProcessorRun.h"
#include "support/Signals.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace sonvale;
using namespace sonvale::test;

namespace {

constexpr double responseToleranceDB = 0.02; // float processing against the double design
constexpr double clickDB = 1.0;              // largest level change between 1 ms windows
constexpr size_t window = 48;                // 1 ms at 48 kHz: one whole cycle of 1 kHz

// A session with every band off but `band`, set to `setting`.
std::shared_ptr<EffectSession> oneBand(int band, EQBand setting) {
    auto session = EffectSession::make(EffectKind::equalizer);
    for (int b = 0; b < 4; ++b)
        session->setValue(5 * b + 4, 0);
    session->setValue(5 * band, double(int(setting.type)));
    session->setValue(5 * band + 1, setting.frequency);
    session->setValue(5 * band + 2, setting.gain);
    session->setValue(5 * band + 3, setting.q);
    session->setValue(5 * band + 4, 1);
    return session;
}

// Level per window, in dB.
std::vector<double> blockLevels(const std::vector<float>& samples, size_t from, size_t to) {
    std::vector<double> levels;
    for (size_t at = from; at + window <= to; at += window)
        levels.push_back(toDB(rms(&samples[at], int64_t(window))));
    return levels;
}

double largestJump(const std::vector<double>& levels) {
    double jump = 0;
    for (size_t i = 1; i < levels.size(); ++i)
        jump = std::max(jump, std::fabs(levels[i] - levels[i - 1]));
    return jump;
}

} // namespace

TEST(EqualizerProcessor, ImpulseResponseMatchesTheDesignForEveryTypeAndRate) {
    const EQBand bands[] = {
        {EQBandType::lowCut, 120, 0, 0.71, true},     {EQBandType::lowShelf, 250, 6, 0.71, true},
        {EQBandType::bell, 1000, -9, 2, true},        {EQBandType::notch, 3000, 0, 3, true},
        {EQBandType::highShelf, 6000, 4, 0.71, true}, {EQBandType::highCut, 8000, 0, 0.71, true}};
    for (double rate : {44100.0, 48000.0, 96000.0})
        for (auto& band : bands) {
            auto session = oneBand(2, band);
            EqualizerProcessor eq(rate, 1, session->bank());
            Channels response{impulse(int64_t(rate), 64)};
            runInBlocks(eq, response, 512);
            response[0].erase(response[0].begin(), response[0].begin() + 64);
            auto design = band.biquad(rate);
            for (double f : {40.0, 120.0, 250.0, 1000.0, 2000.0, 3000.0, 6000.0, 8000.0, 15000.0}) {
                double expected = design.decibels(f, rate);
                if (expected < -60) continue; // float noise floor
                EXPECT_NEAR(responseAt(response[0], f, rate), expected, responseToleranceDB)
                    << title(band.type) << " at " << f << " Hz, " << rate << " Hz";
            }
        }
}

TEST(EqualizerProcessor, FourBandsCascade) {
    double rate = 48000;
    auto session = EffectSession::make(EffectKind::equalizer);
    session->setValue(7, 6);   // band 2 bell at 300 Hz +6 dB
    session->setValue(12, -4); // band 3 bell at 2 kHz -4 dB
    EqualizerProcessor eq(rate, 1, session->bank());
    Channels response{impulse(48000, 0)};
    runInBlocks(eq, response, 4096);
    double expected = EQBand{EQBandType::bell, 300, 6, 1, true}.biquad(rate).decibels(1000, rate) +
                      EQBand{EQBandType::bell, 2000, -4, 1, true}.biquad(rate).decibels(1000, rate);
    EXPECT_NEAR(responseAt(response[0], 1000, rate), expected, responseToleranceDB);
}

TEST(EqualizerProcessor, DefaultSettingsLeaveTheSignalUnchanged) {
    auto session = EffectSession::make(EffectKind::equalizer);
    EqualizerProcessor eq(44100, 2, session->bank());
    Channels audio{noise(20000, 1), noise(20000, 2)};
    auto original = audio;
    runInBlocks(eq, audio, 441);
    for (int c = 0; c < 2; ++c)
        for (size_t i = 0; i < audio[c].size(); ++i)
            ASSERT_NEAR(audio[size_t(c)][i], original[size_t(c)][i], 1e-6);
}

TEST(EqualizerProcessor, OutputGainGlidesToItsTarget) {
    auto session = EffectSession::make(EffectKind::equalizer);
    session->setValue(20, -6);
    EqualizerProcessor eq(48000, 1, session->bank());
    Channels audio{constant(48000, 0.5f)};
    runInBlocks(eq, audio, 64);
    EXPECT_NEAR(audio[0][0], 0.5f, 0.01); // starts from unity
    EXPECT_NEAR(toDB(audio[0].back() / 0.5), -6, 0.01);
    EXPECT_LT(largestJump(blockLevels(audio[0], 0, audio[0].size())), clickDB);
}

TEST(EqualizerProcessor, GainFrequencyAndQGlideWithoutClicks) {
    double rate = 48000;
    auto session = oneBand(1, {EQBandType::bell, 1000, 0, 1, true});
    EqualizerProcessor eq(rate, 1, session->bank());
    Channels audio{sine(1000, rate, 48000, 0.25)};
    runInBlocks(eq, audio, 480);
    auto quiet = rms(&audio[0][40000], 8000);

    Channels next{sine(1000, rate, 48000, 0.25)};
    session->setValue(7, 18); // +18 dB at once on the knob
    runInBlocks(eq, next, 480);
    auto levels = blockLevels(next[0], 0, 24000);
    EXPECT_LT(largestJump(levels), clickDB);
    EXPECT_NEAR(toDB(rms(&next[0][40000], 8000) / quiet), 18, 0.05);

    Channels moved{sine(1000, rate, 48000, 0.25)};
    session->setValue(6, 4000); // the bell slides away from the tone
    session->setValue(8, 8);
    runInBlocks(eq, moved, 480);
    // A sliding bell may change the level quickly but never jumps: no step is larger than
    // the steepest step of the loudest sine heard.
    double steepest = 0.25 * std::pow(10.0, 18.0 / 20) * 2 * M_PI * 1000 / rate;
    EXPECT_LT(largestStep(moved[0]), 1.01 * steepest);
    EXPECT_LT(toDB(rms(&moved[0][40000], 8000) / quiet), 3);
}

TEST(EqualizerProcessor, BandSwitchedOffFadesOutOverAboutThirtyMilliseconds) {
    double rate = 48000;
    auto session = oneBand(2, {EQBandType::bell, 1000, 12, 1, true});
    EqualizerProcessor eq(rate, 1, session->bank());
    Channels lifted{sine(1000, rate, 24000, 0.1)};
    runInBlocks(eq, lifted, 256);
    EXPECT_NEAR(toDB(rms(&lifted[0][12000], 12000) / (0.1 / std::sqrt(2))), 12, 0.05);

    session->setValue(14, 0);
    Channels fading{sine(1000, rate, 24000, 0.1, 2 * M_PI * 1000 * 24000 / rate)};
    runInBlocks(eq, fading, 256);
    auto levels = blockLevels(fading[0], 0, fading[0].size());
    EXPECT_LT(largestJump(levels), clickDB);
    double sineDB = toDB(0.1 / std::sqrt(2));
    EXPECT_GT(levels[15] - sineDB, 3); // 15 ms in: still well lifted
    EXPECT_NEAR(levels.back() - sineDB, 0, 0.01);
}

TEST(EqualizerProcessor, TypeChangeTakesEffectAtOnce) {
    double rate = 48000;
    auto session = oneBand(0, {EQBandType::bell, 1000, 0, 1, true});
    EqualizerProcessor eq(rate, 1, session->bank());
    Channels tone{sine(1000, rate, 4800, 0.5)};
    runInBlocks(eq, tone, 480);
    session->setValue(0, double(int(EQBandType::notch)));
    Channels notched{sine(1000, rate, 9600, 0.5)};
    runInBlocks(eq, notched, 480);
    EXPECT_LT(rms(&notched[0][4800], 4800), 0.01);
}
