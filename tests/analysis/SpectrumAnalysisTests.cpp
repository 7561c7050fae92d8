#include "analysis/SpectrumAnalysis.h"
#include "effects/EffectKind.h"
#include "support/Signals.h"

#include <cmath>
#include <gtest/gtest.h>

using namespace sonvale;
using namespace std::chrono_literals;

namespace {

constexpr double binWidth48k = 48000.0 / SpectrumAnalysis::transformSize;

// Appends samples to a tap the way the analyzer effect does.
void write(SampleTap& tap, const std::vector<float>& samples) {
    int64_t position = int64_t(tap.writtenCount());
    for (float sample : samples)
        tap.store(position++, sample);
    tap.publish(uint64_t(position));
}

SpectrumAnalysis::Settings flat(int bands = 32) {
    return {.bands = bands, .release = 0.3, .floor = -80, .tilt = 0};
}

// The band whose edges hold `frequency`.
size_t bandOf(const SpectrumAnalysis& analysis, double frequency) {
    const auto& edges = analysis.edges();
    for (size_t i = 0; i + 1 < edges.size(); ++i)
        if (frequency >= edges[i] && frequency < edges[i + 1]) return i;
    return edges.size();
}

const auto start = SpectrumAnalysis::Clock::time_point{} + 1h;

} // namespace

TEST(SpectrumAnalysisEdges, ThirtyTwoBandsAt48kHzSpan20HzTo20kHz) {
    SpectrumAnalysis analysis;
    analysis.configure(flat(32), 48000);
    ASSERT_EQ(analysis.edges().size(), 33u);
    EXPECT_DOUBLE_EQ(analysis.edges().front(), 20);
    EXPECT_NEAR(analysis.edges().back(), 20000, 1e-6);
    // Logarithmic spacing: every band spans the same ratio.
    EXPECT_NEAR(analysis.edges()[1] / analysis.edges()[0],
                analysis.edges()[17] / analysis.edges()[16], 1e-9);
}

TEST(SpectrumAnalysisEdges, At32kHzTheBandsEndAt14400Hz) {
    SpectrumAnalysis analysis;
    analysis.configure(flat(32), 32000);
    EXPECT_NEAR(analysis.edges().back(), 14400, 1e-6);
}

TEST(SpectrumAnalysisEdges, SettingsComeFromTheAnalyzerParameters) {
    const auto& params = parameters(EffectKind::spectrumAnalyzer);
    std::vector<double> values;
    for (const auto& p : params)
        values.push_back(p.defaultValue);
    values[1] = 5; // "64"
    values[2] = 900;
    values[3] = -72;
    values[4] = 4.5;
    const auto settings = SpectrumAnalysis::settingsFromValues(values);
    EXPECT_EQ(settings.bands, 64);
    EXPECT_DOUBLE_EQ(settings.release, 0.9);
    EXPECT_DOUBLE_EQ(settings.floor, -72);
    EXPECT_DOUBLE_EQ(settings.tilt, 4.5);
}

TEST(SpectrumAnalysisBands, ASineLandsInItsBandAtItsLevel) {
    SampleTap tap;
    const double frequency = 85 * binWidth48k; // on a bin: no scalloping loss
    write(tap, test::sine(frequency, 48000, 8192, 0.5));
    SpectrumAnalysis analysis;
    analysis.update(&tap, 0, flat(), start);

    const size_t band = bandOf(analysis, frequency);
    ASSERT_LT(band, analysis.values().size());
    EXPECT_NEAR(analysis.values()[band], 20 * std::log10(0.5), 0.05);
    EXPECT_NEAR(analysis.levels()[band], 20 * std::log10(0.5), 0.05);
    // The window keeps the tone out of bands two away.
    EXPECT_LT(analysis.values()[band - 2], -60);
    EXPECT_LT(analysis.values()[band + 2], -60);
}

TEST(SpectrumAnalysisBands, TiltLiftsBandsAbove1kHzAndLowersThoseBelow) {
    SampleTap tap;
    write(tap, test::sine(340 * binWidth48k, 48000, 8192, 0.5));
    SpectrumAnalysis analysis;
    auto settings = flat();
    analysis.update(&tap, 0, settings, start);
    const auto untilted = analysis.values();
    settings.tilt = 3;
    write(tap, test::sine(340 * binWidth48k, 48000, 4096, 0.5, 0));
    analysis.update(&tap, 0, settings, start + 10ms);
    for (size_t i = 0; i < untilted.size(); ++i) {
        const double centre = std::sqrt(analysis.edges()[i] * analysis.edges()[i + 1]);
        if (untilted[i] > -60) {
            EXPECT_NEAR(analysis.values()[i] - untilted[i], 3 * std::log2(centre / 1000), 0.05);
        }
    }
}

TEST(SpectrumAnalysisBands, ABandNarrowerThanABinIsInterpolatedBetweenTheBinsAroundItsCentre) {
    SampleTap tap;
    // A tone on bin 2: the Hann window puts bins 1 and 3 at half its amplitude (-6.02 dB).
    write(tap, test::sine(2 * binWidth48k, 48000, 8192, 1));
    SpectrumAnalysis analysis;
    analysis.update(&tap, 0, flat(64), start);

    const auto& edges = analysis.edges();
    ASSERT_LT(std::floor(edges[1] / binWidth48k), std::ceil(edges[0] / binWidth48k));
    const double position = std::sqrt(edges[0] * edges[1]) / binWidth48k; // about 1.8
    const double expected = -6.0206 + (position - 1) * 6.0206;
    EXPECT_NEAR(analysis.values()[0], expected, 0.05);
}

TEST(SpectrumAnalysisBands, TheDelayReadsTheSamplesBeingHeard) {
    SampleTap tap;
    const double frequency = 85 * binWidth48k;
    write(tap, test::sine(frequency, 48000, 8192, 0.5));
    write(tap, std::vector<float>(8192, 0.0f)); // processed, but not heard yet
    SpectrumAnalysis analysis;
    analysis.update(&tap, 8192, flat(), start);
    EXPECT_NEAR(analysis.values()[bandOf(analysis, frequency)], 20 * std::log10(0.5), 0.05);

    SpectrumAnalysis undelayed;
    undelayed.update(&tap, 0, flat(), start);
    EXPECT_LE(undelayed.levels()[bandOf(undelayed, frequency)], -80);
}

// ---- ballistics

class SpectrumAnalysisBallistics : public ::testing::Test {
protected:
    static constexpr double frequency = 85 * binWidth48k;
    SampleTap tap;
    SpectrumAnalysis analysis;
    size_t band = 0;
    double loud = 0;

    void SetUp() override {
        write(tap, test::sine(frequency, 48000, 8192, 0.5));
        analysis.update(&tap, 0, flat(), start);
        band = bandOf(analysis, frequency);
        loud = analysis.levels()[band];
    }
    void silenceAt(SpectrumAnalysis::Clock::time_point at) {
        write(tap, std::vector<float>(4096, 0.0f));
        analysis.update(&tap, 0, flat(), at);
    }
};

TEST_F(SpectrumAnalysisBallistics, LevelsRiseAtOnceAndFallExponentiallyWithTheRelease) {
    EXPECT_NEAR(loud, -6.02, 0.05);
    silenceAt(start + 50ms);
    const double coefficient = std::exp(-0.05 / 0.3);
    EXPECT_NEAR(analysis.levels()[band], loud + (1 - coefficient) * (-80 - loud), 1e-9);
}

TEST_F(SpectrumAnalysisBallistics, APauseLongerThanATenthOfASecondAdvancesByATenthOnly) {
    silenceAt(start + 5s);
    const double coefficient = std::exp(-0.1 / 0.3);
    EXPECT_NEAR(analysis.levels()[band], loud + (1 - coefficient) * (-80 - loud), 1e-9);
}

TEST_F(SpectrumAnalysisBallistics, PeaksHoldForSixTenthsOfASecondThenFallToTheFloorIn2_5s) {
    auto at = start;
    for (int i = 0; i < 12; ++i) { // 0.6 s in 50 ms frames
        at += 50ms;
        silenceAt(at);
        EXPECT_DOUBLE_EQ(analysis.peaks()[band], loud) << "frame " << i;
    }
    EXPECT_NEAR(analysis.holds()[band], 0, 1e-9);
    // Once the hold has run out (rounding may leave it a hair above 0 for one more frame),
    // the peak falls by floor / 2.5 dB per second.
    at += 50ms;
    silenceAt(at);
    if (analysis.peaks()[band] == loud) {
        at += 50ms;
        silenceAt(at);
    }
    EXPECT_NEAR(analysis.peaks()[band], loud + (-80 / 2.5) * 0.05, 1e-9);
    for (int i = 0; i < 60; ++i) {
        at += 50ms;
        silenceAt(at);
        EXPECT_GE(analysis.peaks()[band], analysis.levels()[band]);
    }
    EXPECT_NEAR(analysis.peaks()[band], -80, 0.01);
    EXPECT_TRUE(analysis.isSettled());
}

TEST_F(SpectrumAnalysisBallistics, ANewMaximumResetsTheHold) {
    silenceAt(start + 100ms);
    silenceAt(start + 200ms);
    EXPECT_NEAR(analysis.holds()[band], 0.4, 1e-9);
    write(tap, test::sine(frequency, 48000, 4096, 0.9));
    analysis.update(&tap, 0, flat(), start + 250ms);
    EXPECT_GT(analysis.peaks()[band], loud);
    EXPECT_DOUBLE_EQ(analysis.holds()[band], 0.6);
    EXPECT_FALSE(analysis.isSettled());
}

TEST_F(SpectrumAnalysisBallistics, WithoutNewSamplesTheBandsFallOnceTheTapGoesQuiet) {
    // A display frame between two audio blocks keeps the last spectrum...
    analysis.update(&tap, 0, flat(), start + 16ms);
    EXPECT_DOUBLE_EQ(analysis.levels()[band], loud);
    // ... but a stopped tap lets it fall.
    analysis.update(&tap, 0, flat(), start + 200ms);
    EXPECT_LT(analysis.levels()[band], loud - 1);
}
