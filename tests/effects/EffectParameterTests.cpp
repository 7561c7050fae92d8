#include "effects/EffectKind.h"
#include "effects/EffectParameter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

using namespace sonvale;

namespace {

const EffectParameter& parameterNamed(EffectKind kind, const std::string& name) {
    auto& list = parameters(kind);
    auto found = std::find_if(list.begin(), list.end(), [&](auto& p) { return p.name == name; });
    if (found == list.end()) throw std::runtime_error("no parameter " + name);
    return *found;
}

} // namespace

// Linear travel clamps the knob; choices round halfway away from zero; stepped values snap
// to the step within the range.
TEST(EffectParameter, KnobPositionsBecomeValues) {
    const struct {
        EffectKind kind;
        const char* name;
        double knob, value;
    } cases[] = {
        {EffectKind::compressor, "Threshold", 0, -60}, // -60 ... 0
        {EffectKind::compressor, "Threshold", 0.25, -45},
        {EffectKind::compressor, "Threshold", 1, 0},
        {EffectKind::compressor, "Threshold", -3, -60},
        {EffectKind::compressor, "Threshold", 7, 0},
        {EffectKind::phaser, "Stages", 0.5, 2}, // 0 ... 3
        {EffectKind::phaser, "Stages", 0.49, 1},
        {EffectKind::phaser, "Stages", 1, 3},
        {EffectKind::pitchShifter, "Pitch", 0.52, 0}, // -12 ... 12, step 1: -0.48 snaps to 0
        {EffectKind::pitchShifter, "Pitch", 0.73, 6}, // 5.52 snaps to 6
        {EffectKind::pitchShifter, "Pitch", 1, 12},
    };
    for (const auto& c : cases)
        EXPECT_DOUBLE_EQ(parameterNamed(c.kind, c.name).value(c.knob), c.value)
            << c.name << " at " << c.knob;
}

TEST(EffectParameter, LogarithmicValueTravelsGeometrically) {
    auto& frequency = parameterNamed(EffectKind::equalizer, "Band 1 Frequency"); // 20 ... 20,000
    EXPECT_NEAR(frequency.value(0.5), std::sqrt(20.0 * 20000.0), 1e-9);
    EXPECT_NEAR(frequency.value(1.0 / 3), 200, 1e-9);
    EXPECT_NEAR(frequency.normalized(2000), 2.0 / 3, 1e-12);
}

TEST(EffectParameter, NormalizedInvertsValueForEveryContinuousParameter) {
    for (auto kind : allEffectKinds())
        for (auto& p : parameters(kind)) {
            if (p.unit == EffectParameter::Unit::choice || p.step) continue;
            for (double t : {0.0, 0.1, 0.37, 0.5, 0.9, 1.0})
                EXPECT_NEAR(p.normalized(p.value(t)), t, 1e-9) << p.name;
        }
}

TEST(EffectParameter, FormatsEachUnit) {
    const struct {
        EffectKind kind;
        const char* name;
        double value;
        const char* text;
    } cases[] = {
        {EffectKind::equalizer, "Band 2 Frequency", 440, "440 Hz"},
        {EffectKind::equalizer, "Band 2 Frequency", 999.4, "999 Hz"},
        {EffectKind::equalizer, "Band 2 Frequency", 1000, "1.0 kHz"},
        {EffectKind::equalizer, "Band 2 Frequency", 12500, "12.5 kHz"},
        {EffectKind::reverb, "Mix", 25, "25%"},
        {EffectKind::equalizer, "Band 3 On", 0.5, "On"},
        {EffectKind::equalizer, "Band 3 On", 0.49, "Off"},
        {EffectKind::equalizer, "Band 1 Type", 0, "Low Cut"},
        {EffectKind::equalizer, "Band 1 Type", 4.6, "High Cut"},
        {EffectKind::distortion, "Type", 2, "Fuzz"},
        {EffectKind::pitchShifter, "Pitch", 7, "+7 st"},
        {EffectKind::pitchShifter, "Pitch", -12, "-12 st"},
        {EffectKind::pitchShifter, "Pitch", 0, "0 st"},
        {EffectKind::pitchShifter, "Fine", 12, "+12 ct"},
        {EffectKind::pitchShifter, "Fine", -0.3, "0 ct"},
        {EffectKind::pitchShifter, "Fine", 0, "0 ct"},
        {EffectKind::compressor, "Makeup", 3, "+3.0 dB"},
        {EffectKind::compressor, "Makeup", -0.04, "+0.0 dB"},
        {EffectKind::limiter, "Ceiling", -0.3, "-0.3 dB"},
        {EffectKind::compressor, "Ratio", 4, "4.0:1"},
        {EffectKind::equalizer, "Band 1 Q", 0.71, "0.71"},
        {EffectKind::compressor, "Attack", 0.5, "0.5 ms"},
        {EffectKind::compressor, "Attack", 30, "30 ms"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(parameterNamed(c.kind, c.name).format(c.value), c.text) << c.name;
}

TEST(EffectPreset, ValuesFillEveryParameterThePresetLeavesOutWithItsDefault) {
    auto& list = parameters(EffectKind::compressor);
    auto& limiterPreset = presets(EffectKind::compressor).back();
    ASSERT_EQ(limiterPreset.name, "Limiter");
    auto values = limiterPreset.valuesFor(list);
    ASSERT_EQ(values.size(), list.size());
    EXPECT_EQ(values[0], -6);
    EXPECT_EQ(values[4], 0);
    EXPECT_EQ(values[5], list[5].defaultValue); // Makeup is not in the preset
}
