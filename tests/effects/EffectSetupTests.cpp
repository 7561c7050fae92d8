#include "base/Errors.h"
#include "effects/EffectSetup.h"

#include <gtest/gtest.h>

using namespace sonvale;

namespace {

// The message of the UserError that parsing `text` throws; empty when it parses.
std::string refusal(const std::string& text) {
    try {
        EffectSetup::parse(text);
    } catch (const UserError& error) {
        return error.what();
    }
    return "";
}

} // namespace

TEST(EffectSetup, KindsMatchRawValueOrTitleIgnoringCaseSpacesAndHyphens) {
    EXPECT_EQ(EffectSetup::parse("noiseGate").kind, EffectKind::noiseGate);
    EXPECT_EQ(EffectSetup::parse("Noise Gate").kind, EffectKind::noiseGate);
    EXPECT_EQ(EffectSetup::parse("noise-gate").kind, EffectKind::noiseGate);
    EXPECT_EQ(EffectSetup::parse("Parametric EQ").kind, EffectKind::equalizer);
    EXPECT_EQ(EffectSetup::parse(" 'pitch shifter' ").kind, EffectKind::pitchShifter);
}

TEST(EffectSetup, PresetThenSettingsOverrideTheDefaultsInOrder) {
    auto setup = EffectSetup::parse("limiter@streaming master,Release=20");
    EXPECT_EQ(setup.values, (std::vector<double>{4, -1, 20}));
    auto eq = EffectSetup::parse("equalizer@Telephone,Band 1 Gain=3,band2gain=-1.5,"
                                 "\"Band 4 Type\"=low shelf,Band 2 On=off");
    EXPECT_EQ(eq.values[0], 0); // the preset's Low Cut
    EXPECT_EQ(eq.values[1], 400);
    EXPECT_EQ(eq.values[2], 3);
    EXPECT_EQ(eq.values[7], -1.5);
    EXPECT_EQ(eq.values[9], 0);
    EXPECT_EQ(eq.values[15], 1);
}

TEST(EffectSetup, UnknownNamesAreRefusedWithTheNamesThatAreKnown) {
    const std::pair<const char*, const char*> cases[] = {
        {"echo", "unknown effect \"echo\""},
        {"echo", "spectrumAnalyzer"},
        {"compressor@Squash", "\"Podcast Leveler\""},
        {"compressor,Threshhold=-20", "\"Threshold\", \"Ratio\""},
    };
    for (const auto& [text, named] : cases) {
        const auto message = refusal(text);
        EXPECT_NE(message.find(named), std::string::npos) << text << ": " << message;
    }
}

TEST(EffectSetup, OutOfRangeOrMalformedValuesAreRefusedWithTheRange) {
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
