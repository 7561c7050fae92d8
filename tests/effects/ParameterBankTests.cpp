#include "effects/EffectKind.h"
#include "effects/ParameterBank.h"

#include <gtest/gtest.h>

using namespace sonvale;

TEST(ParameterBank, StartsWithEachParameterDefaultInItsSlotAndZeroElsewhere) {
    ParameterBank bank(parameters(EffectKind::compressor));
    EXPECT_EQ(bank.value(0), -18);
    EXPECT_EQ(bank.value(1), 4);
    EXPECT_EQ(bank.value(5), 0);
    EXPECT_EQ(bank.value(6), 0);
    EXPECT_EQ(bank.value(23), 0);
    EXPECT_EQ(bank.tap(), nullptr);
}

TEST(ParameterBank, IgnoresIndicesOutsideItsTwentyFourSlots) {
    EffectParameter far{24, "Far", {0, 10}, 5, EffectParameter::Unit::factor, false, {}, {}};
    ParameterBank bank({far});
    bank.set(24, 3);
    bank.set(-1, 3);
    EXPECT_EQ(bank.value(24), 0);
    EXPECT_EQ(bank.value(-1), 0);
    for (int i = 0; i < ParameterBank::slotCount; ++i)
        EXPECT_EQ(bank.value(i), 0);
}

TEST(ParameterBank, ReadoutReturnsTheValueOfTheAudioBeingHeard) {
    ParameterBank bank({});
    EXPECT_EQ(bank.readout(0), 0); // nothing reported yet
    bank.report(-1, 512);          // covers frames up to 512
    bank.report(-2, 512);          // ... 1024
    bank.report(-3, 512);          // ... 1536
    EXPECT_EQ(bank.processedFrames(), 1536);
    EXPECT_EQ(bank.reportCount(), 3u);
    EXPECT_EQ(bank.readout(0), -3);
    EXPECT_EQ(bank.readout(-50), -3); // negative latency counts as none
    EXPECT_EQ(bank.readout(511), -2); // target 1025: the record at 1024
    EXPECT_EQ(bank.readout(512), -2);
    EXPECT_EQ(bank.readout(1024), -1);
    EXPECT_EQ(bank.readout(1025), 0); // before the first report's frame
}

TEST(ParameterBank, ReadoutLooksBackAtMostOneRingOfRecords) {
    ParameterBank bank({});
    for (int i = 0; i < 600; ++i)
        bank.report(float(-i), 1);
    EXPECT_EQ(bank.readout(0), -599);
    EXPECT_EQ(bank.readout(511), -88);
    EXPECT_EQ(bank.readout(512), 0); // that record has been overwritten
}

TEST(ParameterBank, BankWithTapHasAZeroedRingAtFortyEightKilohertz) {
    ParameterBank bank(parameters(EffectKind::spectrumAnalyzer), true);
    ASSERT_NE(bank.tap(), nullptr);
    EXPECT_EQ(bank.tap()->writtenCount(), 0u);
    EXPECT_EQ(bank.tap()->sampleRate(), 48000);
    EXPECT_EQ(bank.tap()->sample(12345), 0);
    bank.tap()->store(SampleTap::capacity + 3, 0.5f);
    EXPECT_EQ(bank.tap()->sample(3), 0.5f);
}
