#include "effects/EffectKind.h"
#include "effects/EffectSession.h"

#include <gtest/gtest.h>

#include <cmath>
#include <set>

using namespace sonvale;

namespace {

// A bank of `kind` holding `values` by parameter name over the defaults.
std::shared_ptr<ParameterBank> bankWith(EffectKind kind,
                                        std::initializer_list<std::pair<std::string, double>> set) {
    auto session = EffectSession::make(kind);
    for (auto& [name, value] : set)
        for (auto& p : parameters(kind))
            if (p.name == name) session->setValue(p.index, value);
    return session->snapshot();
}

} // namespace

TEST(EffectKind, ListsThirteenKindsInMenuOrderWithRawValuesThatRoundTrip) {
    ASSERT_EQ(allEffectKinds.size(), 13u);
    EXPECT_EQ(rawValue(EffectKind::noiseGate), "noiseGate");
    EXPECT_EQ(rawValue(EffectKind::spectrumAnalyzer), "spectrumAnalyzer");
    for (auto kind : allEffectKinds) EXPECT_EQ(effectKindFromRawValue(rawValue(kind)), kind);
    EXPECT_FALSE(effectKindFromRawValue("Equalizer"));
    EXPECT_EQ(title(EffectKind::equalizer), "Parametric EQ");
    EXPECT_EQ(systemImage(EffectKind::compressor), "rectangle.compress.vertical");
    EXPECT_EQ(summary(EffectKind::limiter), "Makes it louder without ever going over the ceiling.");
}

TEST(EffectKind, CategoriesPartitionTheKindsInKindOrder) {
    std::vector<EffectKind> joined;
    for (auto c : allEffectCategories)
        for (auto kind : kinds(c)) joined.push_back(kind);
    EXPECT_EQ(joined.size(), 13u);
    EXPECT_EQ(kinds(EffectCategory::dynamics),
              (std::vector{EffectKind::compressor, EffectKind::limiter, EffectKind::noiseGate}));
    EXPECT_EQ(kinds(EffectCategory::space), (std::vector{EffectKind::delay, EffectKind::reverb}));
    EXPECT_EQ(title(EffectCategory::modulation), "Modulation");
    for (auto kind : allEffectKinds) EXPECT_EQ(isVisual(kind), kind == EffectKind::spectrumAnalyzer);
}

TEST(EffectKind, EveryParameterListIsIndexedInOrderWithDefaultsInRange) {
    const std::map<EffectKind, size_t> counts{
        {EffectKind::equalizer, 21}, {EffectKind::saturation, 5}, {EffectKind::distortion, 5},
        {EffectKind::compressor, 6}, {EffectKind::limiter, 3},    {EffectKind::noiseGate, 5},
        {EffectKind::chorus, 5},     {EffectKind::flanger, 5},    {EffectKind::phaser, 5},
        {EffectKind::delay, 5},      {EffectKind::reverb, 5},     {EffectKind::pitchShifter, 4},
        {EffectKind::spectrumAnalyzer, 6}};
    for (auto kind : allEffectKinds) {
        auto& list = parameters(kind);
        EXPECT_EQ(list.size(), counts.at(kind)) << rawValue(kind);
        std::set<std::string> names;
        for (size_t i = 0; i < list.size(); ++i) {
            auto& p = list[i];
            EXPECT_EQ(p.index, int(i));
            EXPECT_LT(p.lower(), p.upper()) << p.name;
            EXPECT_GE(p.defaultValue, p.lower()) << p.name;
            EXPECT_LE(p.defaultValue, p.upper()) << p.name;
            if (p.logarithmic) {
                EXPECT_GT(p.lower(), 0) << p.name;
            }
            if (p.unit == EffectParameter::Unit::choice) {
                EXPECT_EQ(p.choices.size(), size_t(p.upper()) + 1) << p.name;
            }
            EXPECT_TRUE(names.insert(p.name).second) << "duplicate " << p.name;
        }
    }
}

TEST(EffectKind, EqualizerBandsHaveTheirDefaultTypesFrequenciesAndQ) {
    auto& list = parameters(EffectKind::equalizer);
    EXPECT_EQ(list[0].name, "Band 1 Type");
    EXPECT_EQ(list[0].defaultValue, 1); // Low Shelf
    EXPECT_EQ(list[6].name, "Band 2 Frequency");
    EXPECT_EQ(list[6].defaultValue, 300);
    EXPECT_EQ(list[15].defaultValue, 4); // band 4 High Shelf
    EXPECT_EQ(list[16].defaultValue, 8000);
    EXPECT_DOUBLE_EQ(list[18].defaultValue, 0.71);
    EXPECT_EQ(list[19].name, "Band 4 On");
    EXPECT_EQ(list[20].name, "Output");
    EXPECT_EQ(list[0].choices.front(), "Low Cut");
    EXPECT_EQ(list[0].choices.back(), "High Cut");
}

TEST(EffectKind, EveryPresetSetsOnlyValidParametersWithinTheirRanges) {
    for (auto kind : allEffectKinds) {
        auto& list = parameters(kind);
        EXPECT_GE(presets(kind).size(), 4u) << rawValue(kind);
        for (auto& preset : presets(kind))
            for (auto& [index, value] : preset.values) {
                ASSERT_LT(size_t(index), list.size()) << preset.name;
                EXPECT_GE(value, list[size_t(index)].lower()) << preset.name;
                EXPECT_LE(value, list[size_t(index)].upper()) << preset.name;
            }
    }
}

TEST(EffectKind, EqualizerPresetSetsListedBandsAndLeavesTheRestAtDefaults) {
    auto& telephone = presets(EffectKind::equalizer).back();
    ASSERT_EQ(telephone.name, "Telephone");
    auto values = telephone.valuesFor(parameters(EffectKind::equalizer));
    EXPECT_EQ(values[0], 0);     // band 1 Low Cut
    EXPECT_EQ(values[1], 400);
    EXPECT_EQ(values[5], 2);     // band 2 untouched: Bell at 300 Hz
    EXPECT_EQ(values[6], 300);
    EXPECT_EQ(values[12], 4);    // band 3 +4 dB
    EXPECT_EQ(values[15], 5);    // band 4 High Cut
    EXPECT_EQ(values[19], 1);    // On stays at its default
}

TEST(EffectKind, PresetMatchingFindsStreamingMasterAndLosesItWhenAKnobMoves) {
    auto* found = presetMatching(EffectKind::limiter, {4, -1, 150});
    ASSERT_TRUE(found);
    EXPECT_EQ(found->name, "Streaming Master");
    EXPECT_TRUE(presetMatching(EffectKind::limiter, {4, -1, 150 * (1 + 0.5e-6)}));
    EXPECT_FALSE(presetMatching(EffectKind::limiter, {4, -1, 150 * (1 + 2e-6)}));
    EXPECT_FALSE(presetMatching(EffectKind::limiter, {4, -1 + 2e-6, 150}));
    EXPECT_FALSE(presetMatching(EffectKind::limiter, {4, -1}));
}

TEST(EffectKind, EveryPresetMatchesItsOwnValuesOrAnEarlierIdenticalOne) {
    for (auto kind : allEffectKinds)
        for (auto& preset : presets(kind)) {
            auto* found = presetMatching(kind, preset.valuesFor(parameters(kind)));
            ASSERT_TRUE(found) << preset.name;
            EXPECT_EQ(found->valuesFor(parameters(kind)), preset.valuesFor(parameters(kind)));
        }
}

TEST(EffectKind, DefaultEqualizerAndDynamicsHaveNoTail) {
    for (auto kind : {EffectKind::equalizer, EffectKind::compressor, EffectKind::limiter,
                      EffectKind::noiseGate, EffectKind::saturation, EffectKind::distortion,
                      EffectKind::spectrumAnalyzer})
        EXPECT_EQ(tailSeconds(kind, *EffectSession::make(kind)->bank()), 0) << rawValue(kind);
}

TEST(EffectKind, EqualizerTailFollowsTheRingingOfItsSlowestBand) {
    auto lowCut = bankWith(EffectKind::equalizer, {{"Band 1 Type", 0}, {"Band 1 Frequency", 80}});
    EXPECT_NEAR(tailSeconds(EffectKind::equalizer, *lowCut), 4.88452060054544 / (80 * M_PI), 1e-6);
    auto bell = bankWith(EffectKind::equalizer, {{"Band 2 Gain", 6}, {"Band 2 Q", 4}});
    EXPECT_NEAR(tailSeconds(EffectKind::equalizer, *bell), 4 * std::log(1000.0) / (300 * M_PI), 1e-5);
    auto off = bankWith(EffectKind::equalizer, {{"Band 2 Gain", 6}, {"Band 2 On", 0}});
    EXPECT_EQ(tailSeconds(EffectKind::equalizer, *off), 0);
    auto capped = bankWith(EffectKind::equalizer,
                           {{"Band 2 Gain", 6}, {"Band 2 Q", 10}, {"Band 2 Frequency", 10}});
    EXPECT_EQ(tailSeconds(EffectKind::equalizer, *capped), 2);
}

TEST(EffectKind, DelayTailCountsRepeatsUntilSixtyDecibelsDown) {
    auto feedback90 = bankWith(EffectKind::delay, {{"Feedback", 90}});
    EXPECT_NEAR(tailSeconds(EffectKind::delay, *feedback90), 23.15, 1e-5);
    auto longest = bankWith(EffectKind::delay, {{"Feedback", 90}, {"Time", 2000}});
    EXPECT_EQ(tailSeconds(EffectKind::delay, *longest), 30);
    auto silent = bankWith(EffectKind::delay, {{"Level", 0}});
    EXPECT_EQ(tailSeconds(EffectKind::delay, *silent), 0);
    auto single = bankWith(EffectKind::delay, {{"Feedback", 0}, {"Time", 110}});
    EXPECT_NEAR(tailSeconds(EffectKind::delay, *single), 0.16, 1e-6);
}

TEST(EffectKind, ReverbChorusFlangerPhaserAndPitchTails) {
    auto hall = bankWith(EffectKind::reverb, {{"Size", 100}, {"Pre-delay", 0}});
    EXPECT_NEAR(tailSeconds(EffectKind::reverb, *hall), 1640.0 / 44100 * 6.907755 / 0.0202027, 1e-3);
    auto small = bankWith(EffectKind::reverb, {{"Size", 0}, {"Pre-delay", 100}});
    EXPECT_NEAR(tailSeconds(EffectKind::reverb, *small),
                1640.0 / 44100 * 6.907755278982137 / 0.35667494393873245 + 0.1, 1e-6);
    EXPECT_NEAR(tailSeconds(EffectKind::chorus, *EffectSession::make(EffectKind::chorus)->bank()),
                0.031, 1e-6);
    auto flanger = bankWith(EffectKind::flanger, {{"Feedback", -70}, {"Delay", 3}});
    double n = std::ceil(-std::log(1000.0) / std::log(0.7));
    EXPECT_NEAR(tailSeconds(EffectKind::flanger, *flanger), std::min(0.006 * n, 1.0) + 0.01, 1e-6);
    EXPECT_EQ(tailSeconds(EffectKind::phaser, *EffectSession::make(EffectKind::phaser)->bank()), 0.05);
    EXPECT_NEAR(
        tailSeconds(EffectKind::pitchShifter, *EffectSession::make(EffectKind::pitchShifter)->bank()),
        0.05, 1e-7);
}

TEST(EffectKind, MakesAProcessorForEveryKind) {
    for (auto kind : allEffectKinds)
        EXPECT_NE(makeProcessor(kind, 48000, 2, EffectSession::make(kind)->bank()), nullptr)
            << rawValue(kind);
}
