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

TEST(EffectParameter, LinearValueTravelsEvenlyAndClampsTheKnob) {
    auto& threshold = parameterNamed(EffectKind::compressor, "Threshold"); // -60 ... 0
    EXPECT_DOUBLE_EQ(threshold.value(0), -60);
    EXPECT_DOUBLE_EQ(threshold.value(0.25), -45);
    EXPECT_DOUBLE_EQ(threshold.value(1), 0);
    EXPECT_DOUBLE_EQ(threshold.value(-3), -60);
    EXPECT_DOUBLE_EQ(threshold.value(7), 0);
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

TEST(EffectParameter, ChoiceHalfwayRoundsAwayFromZero) {
    auto& stages = parameterNamed(EffectKind::phaser, "Stages"); // 0 ... 3
    EXPECT_EQ(stages.value(0.5), 2);
    EXPECT_EQ(stages.value(0.49), 1);
    EXPECT_EQ(stages.value(1), 3);
}

TEST(EffectParameter, SteppedValueSnapsToTheStepWithinTheRange) {
    auto& pitch = parameterNamed(EffectKind::pitchShifter, "Pitch"); // -12 ... 12, step 1
    EXPECT_EQ(pitch.value(0.52), 0);                                 // -0.48 snaps to 0
    EXPECT_EQ(pitch.value(0.73), 6);                                 // 5.52 snaps to 6
    EXPECT_EQ(pitch.value(1), 12);
}

TEST(EffectParameter, FormatsHertzBelowAndAboveOneKilohertz) {
    auto& frequency = parameterNamed(EffectKind::equalizer, "Band 2 Frequency");
    EXPECT_EQ(frequency.format(440), "440 Hz");
    EXPECT_EQ(frequency.format(999.4), "999 Hz");
    EXPECT_EQ(frequency.format(1000), "1.0 kHz");
    EXPECT_EQ(frequency.format(12500), "12.5 kHz");
}

TEST(EffectParameter, FormatsPercentToggleAndChoiceLabels) {
    EXPECT_EQ(parameterNamed(EffectKind::reverb, "Mix").format(25), "25%");
    auto& on = parameterNamed(EffectKind::equalizer, "Band 3 On");
    EXPECT_EQ(on.format(0.5), "On");
    EXPECT_EQ(on.format(0.49), "Off");
    auto& type = parameterNamed(EffectKind::equalizer, "Band 1 Type");
    EXPECT_EQ(type.format(0), "Low Cut");
    EXPECT_EQ(type.format(4.6), "High Cut");
    EXPECT_EQ(parameterNamed(EffectKind::distortion, "Type").format(2), "Fuzz");
}

TEST(EffectParameter, FormatsSemitonesAndCentsWithSignAndPlainZero) {
    auto& pitch = parameterNamed(EffectKind::pitchShifter, "Pitch");
    EXPECT_EQ(pitch.format(7), "+7 st");
    EXPECT_EQ(pitch.format(-12), "-12 st");
    EXPECT_EQ(pitch.format(0), "0 st");
    auto& fine = parameterNamed(EffectKind::pitchShifter, "Fine");
    EXPECT_EQ(fine.format(12), "+12 ct");
    EXPECT_EQ(fine.format(-0.3), "0 ct");
    EXPECT_EQ(fine.format(0), "0 ct");
}

TEST(EffectParameter, FormatsDecibelsRatiosFactorsAndMilliseconds) {
    auto& makeup = parameterNamed(EffectKind::compressor, "Makeup");
    EXPECT_EQ(makeup.format(3), "+3.0 dB");
    EXPECT_EQ(makeup.format(-0.04), "+0.0 dB");
    EXPECT_EQ(parameterNamed(EffectKind::limiter, "Ceiling").format(-0.3), "-0.3 dB");
    EXPECT_EQ(parameterNamed(EffectKind::compressor, "Ratio").format(4), "4.0:1");
    EXPECT_EQ(parameterNamed(EffectKind::equalizer, "Band 1 Q").format(0.71), "0.71");
    auto& attack = parameterNamed(EffectKind::compressor, "Attack");
    EXPECT_EQ(attack.format(0.5), "0.5 ms");
    EXPECT_EQ(attack.format(30), "30 ms");
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
