#include "base/Errors.h"
#include "effects/EffectSpec.h"

#include <gtest/gtest.h>

using namespace sonvale;

namespace {

// The message of the UserError that parsing `text` throws; empty when it parses.
std::string refusal(const std::string& text) {
    try {
        EffectSpec::parse(text);
    } catch (const UserError& error) {
        return error.what();
    }
    return "";
}

} // namespace

TEST(EffectSpec, KindAloneGivesTheDefaults) {
    auto spec = EffectSpec::parse("limiter");
    EXPECT_EQ(spec.kind, EffectKind::limiter);
    EXPECT_EQ(spec.values, (std::vector<double>{6, -1, 100}));
}

TEST(EffectSpec, KindsMatchRawValueOrTitleIgnoringCaseSpacesAndHyphens) {
    EXPECT_EQ(EffectSpec::parse("noiseGate").kind, EffectKind::noiseGate);
    EXPECT_EQ(EffectSpec::parse("Noise Gate").kind, EffectKind::noiseGate);
    EXPECT_EQ(EffectSpec::parse("noise-gate").kind, EffectKind::noiseGate);
    EXPECT_EQ(EffectSpec::parse("Parametric EQ").kind, EffectKind::equalizer);
    EXPECT_EQ(EffectSpec::parse(" 'pitch shifter' ").kind, EffectKind::pitchShifter);
}

TEST(EffectSpec, PresetThenSettingsOverrideTheDefaultsInOrder) {
    auto spec = EffectSpec::parse("limiter@streaming master,Release=20");
    EXPECT_EQ(spec.values, (std::vector<double>{4, -1, 20}));
    auto eq = EffectSpec::parse("equalizer@Telephone,Band 1 Gain=3,band2gain=-1.5,"
                                "\"Band 4 Type\"=low shelf,Band 2 On=off");
    EXPECT_EQ(eq.values[0], 0);  // the preset's Low Cut
    EXPECT_EQ(eq.values[1], 400);
    EXPECT_EQ(eq.values[2], 3);
    EXPECT_EQ(eq.values[7], -1.5);
    EXPECT_EQ(eq.values[9], 0);
    EXPECT_EQ(eq.values[15], 1);
}

TEST(EffectSpec, UnknownKindIsRefusedWithTheListOfKinds) {
    auto message = refusal("echo");
    EXPECT_NE(message.find("unknown effect \"echo\""), std::string::npos) << message;
    EXPECT_NE(message.find("spectrumAnalyzer"), std::string::npos) << message;
}

TEST(EffectSpec, UnknownPresetIsRefusedWithTheKindsPresets) {
    auto message = refusal("compressor@Squash");
    EXPECT_NE(message.find("\"Podcast Leveler\""), std::string::npos) << message;
}

TEST(EffectSpec, UnknownParameterIsRefusedWithTheKindsParameters) {
    auto message = refusal("compressor,Threshhold=-20");
    EXPECT_NE(message.find("\"Threshold\", \"Ratio\""), std::string::npos) << message;
}

TEST(EffectSpec, OutOfRangeOrMalformedValuesAreRefusedWithTheRange) {
    auto message = refusal("limiter,Ceiling=3");
    EXPECT_NE(message.find("from -12 to 0"), std::string::npos) << message;
    EXPECT_NE(refusal("limiter,Ceiling=-1dB"), "");
    EXPECT_NE(refusal("limiter,Ceiling="), "");
    EXPECT_NE(refusal("limiter,Ceiling"), "");
    EXPECT_NE(refusal("limiter,Ceiling=nan"), "");
    auto choice = refusal("equalizer,Band 1 Type=Shelf");
    EXPECT_NE(choice.find("0 \"Low Cut\""), std::string::npos) << choice;
    EXPECT_EQ(refusal("limiter,Ceiling=-12"), "");
    EXPECT_EQ(refusal("limiter,Ceiling=+0"), "");
}
