#include "effects/CompressorProcessor.h"
#include "effects/EffectSession.h"

#include "support/ProcessorRun.h"
#include "support/Signals.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace sonvale;
using namespace sonvale::test;

namespace {

constexpr double settledDB = 0.01;

std::shared_ptr<EffectSession> compressor(double threshold, double ratio, double knee,
                                          double makeup = 0, double attack = 1,
                                          double release = 50) {
    return EffectSession::make(EffectKind::compressor, std::vector<double>{threshold, ratio, attack,
                                                                           release, knee, makeup});
}

// The gain change in dB that a settled compressor applies to a constant level.
double settledChange(const std::shared_ptr<EffectSession>& session, double levelDB,
                     double rate = 48000) {
    CompressorProcessor processor(rate, 2, session->bank());
    Channels audio{constant(int64_t(rate), fromDB(levelDB)), constant(int64_t(rate), 0)};
    runInBlocks(processor, audio, 512);
    return toDB(audio[0].back()) - levelDB;
}

} // namespace

TEST(Compressor, HardKneeReducesTenDecibelsOverByThreeQuartersAtRatioFour) {
    auto session = compressor(-20, 4, 0);
    EXPECT_NEAR(settledChange(session, -10), -7.5, settledDB);
    CompressorProcessor processor(48000, 1, session->bank());
    Channels audio{constant(48000, fromDB(-10))};
    runInBlocks(processor, audio, 4800);
    EXPECT_NEAR(session->bank()->readout(0), -7.5, settledDB);
}

TEST(Compressor, SoftKneeAtTheThresholdReducesByTheKneeFormula) {
    for (double ratio : {2.0, 4.0, 10.0}) {
        double expected = (1 / ratio - 1) * 9 / 12; // knee 6: (1/R - 1)(K/2)^2 / 2K
        EXPECT_NEAR(settledChange(compressor(-20, ratio, 6), -20), expected, settledDB);
    }
    EXPECT_NEAR(settledChange(compressor(-20, 4, 6), -20), -0.5625, settledDB);
}

// Settled gain changes: the soft knee joins the straight lines at its edges, makeup gain is
// added even below the threshold, and a ratio below one acts as one.
TEST(Compressor, SettledGainFollowsTheStaticCurve) {
    EXPECT_NEAR(CompressorProcessor::staticCurve(-23, -20, 4, 6), -23, 1e-12);
    EXPECT_NEAR(CompressorProcessor::staticCurve(-17, -20, 4, 6), -20 + 3.0 / 4, 1e-12);
    const struct {
        double ratio, knee, makeup, level, change, tolerance;
    } cases[] = {
        {4, 6, 0, -30, 0, 1e-6},  {4, 6, 0, -5, -15 * 0.75, settledDB},
        {4, 0, 5, -40, 5, 1e-5},  {4, 0, 5, -10, -2.5, settledDB},
        {0.5, 0, 0, -5, 0, 1e-6},
    };
    for (const auto& c : cases)
        EXPECT_NEAR(settledChange(compressor(-20, c.ratio, c.knee, c.makeup), c.level), c.change,
                    c.tolerance)
            << "ratio " << c.ratio << ", knee " << c.knee << ", makeup " << c.makeup << " at "
            << c.level << " dB";
}

TEST(Compressor, LinksChannelsSoTheQuietOneIsTurnedDownToo) {
    auto session = compressor(-20, 4, 0);
    CompressorProcessor processor(48000, 2, session->bank());
    Channels audio{constant(48000, fromDB(-10)), constant(48000, fromDB(-40))};
    runInBlocks(processor, audio, 480);
    EXPECT_NEAR(toDB(audio[1].back()), -47.5, settledDB);
}

TEST(Compressor, AttackIsFasterThanRelease) {
    auto session = compressor(-20, 4, 0, 0, 5, 500);
    CompressorProcessor processor(48000, 1, session->bank());
    Channels loud{constant(480, fromDB(-10))}; // 10 ms = two attack time constants
    runInBlocks(processor, loud, 480);
    double attacked = toDB(loud[0].back()) + 10;
    EXPECT_LT(attacked, -7.5 * 0.8);            // 1 - e^-2 of the way
    Channels quiet{constant(480, fromDB(-40))}; // 10 ms of a 500 ms release
    runInBlocks(processor, quiet, 480);
    EXPECT_LT(toDB(quiet[0].back()) + 40, attacked * 0.95);
    EXPECT_LT(session->bank()->readout(0), -6);
}

TEST(Compressor, EmptyBlockReportsZeroAndResetForgetsTheEnvelope) {
    auto session = compressor(-20, 4, 0);
    CompressorProcessor processor(48000, 1, session->bank());
    Channels loud{constant(4800, fromDB(0))};
    runInBlocks(processor, loud, 4800);
    float* none[1] = {loud[0].data()};
    processor.process(none, 0);
    EXPECT_EQ(session->bank()->readout(0), 0);
    processor.reset();
    Channels quiet{constant(16, fromDB(-40))};
    runInBlocks(processor, quiet, 16);
    EXPECT_EQ(quiet[0][0], fromDB(-40));
}
