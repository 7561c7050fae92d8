#include "effects/EffectRegistry.h"
#include "effects/EffectSession.h"
#include "effects/EffectSetup.h"

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

TEST(EffectRegistry, KeysStayAsStoredInSessionsAndPreferences) {
    std::string keys;
    for (auto kind : allEffectKinds())
        keys += std::string(rawValue(kind)) + " ";
    EXPECT_EQ(keys, "equalizer saturation distortion compressor limiter noiseGate chorus flanger "
                    "phaser delay reverb pitchShifter spectrumAnalyzer ");
    EXPECT_FALSE(effectKindFromRawValue("Equalizer"));
}

TEST(EffectRegistry, EveryEntryIsCompleteAndConsistent) {
    // The add menu lists the categories in order, each with its effects in registry order.
    std::vector<EffectKind> byCategory;
    for (auto c : allEffectCategories)
        for (auto kind : kinds(c))
            byCategory.push_back(kind);
    EXPECT_EQ(byCategory, allEffectKinds());

    std::set<EffectKind> seen;
    for (auto& entry : effectRegistry()) {
        SCOPED_TRACE(std::string(entry.key));
        EXPECT_TRUE(seen.insert(entry.kind).second);
        EXPECT_EQ(&registration(entry.kind), &entry);
        EXPECT_FALSE(entry.title.empty() || entry.icon.empty() || entry.summary.empty());
        // The names the command line takes lead back to this entry.
        EXPECT_EQ(effectKindFromRawValue(entry.key), entry.kind);
        EXPECT_EQ(EffectSetup::parse(entry.key).kind, entry.kind);
        EXPECT_EQ(EffectSetup::parse(entry.title).kind, entry.kind);
        EXPECT_EQ(isVisual(entry.kind), entry.category == EffectCategory::visual);

        auto& list = entry.parameters;
        EXPECT_EQ(int(list.size()), entry.processorParameterCount);
        EXPECT_LE(list.size(), size_t(ParameterBank::slotCount));
        std::set<std::string> names;
        for (size_t i = 0; i < list.size(); ++i) {
            auto& p = list[i];
            EXPECT_EQ(p.index, int(i));
            EXPECT_TRUE(names.insert(p.name).second) << "duplicate " << p.name;
            EXPECT_LT(p.lower(), p.upper()) << p.name;
            EXPECT_GE(p.defaultValue, p.lower()) << p.name;
            EXPECT_LE(p.defaultValue, p.upper()) << p.name;
            if (p.logarithmic) {
                EXPECT_GT(p.lower(), 0) << p.name;
            }
            if (p.unit == EffectParameter::Unit::choice) {
                EXPECT_EQ(p.choices.size(), size_t(p.upper()) + 1) << p.name;
            }
        }

        EXPECT_GE(entry.presets.size(), 4u);
        std::set<std::string> presetNames;
        for (auto& preset : entry.presets) {
            EXPECT_TRUE(presetNames.insert(foldedName(preset.name)).second) << preset.name;
            for (auto& [index, value] : preset.values) {
                ASSERT_LT(size_t(index), list.size()) << preset.name;
                EXPECT_GE(value, list[size_t(index)].lower()) << preset.name;
                EXPECT_LE(value, list[size_t(index)].upper()) << preset.name;
            }
            // Shown as the selected preset: itself, or an earlier one with the same values.
            auto* found = presetMatching(entry.kind, preset.valuesFor(list));
            ASSERT_TRUE(found) << preset.name;
            EXPECT_EQ(found->valuesFor(list), preset.valuesFor(list));
        }

        auto bank = EffectSession::make(entry.kind)->bank();
        EXPECT_NE(entry.makeProcessor(48000, 2, bank), nullptr);
        EXPECT_GE(entry.tailSeconds(*bank), 0);
    }
}

TEST(EffectRegistry, PresetMatchingFindsStreamingMasterAndLosesItWhenAKnobMoves) {
    auto* found = presetMatching(EffectKind::limiter, {4, -1, 150});
    ASSERT_TRUE(found);
    EXPECT_EQ(found->name, "Streaming Master");
    EXPECT_TRUE(presetMatching(EffectKind::limiter, {4, -1, 150 * (1 + 0.5e-6)}));
    EXPECT_FALSE(presetMatching(EffectKind::limiter, {4, -1, 150 * (1 + 2e-6)}));
    EXPECT_FALSE(presetMatching(EffectKind::limiter, {4, -1 + 2e-6, 150}));
    EXPECT_FALSE(presetMatching(EffectKind::limiter, {4, -1}));
}

TEST(EffectRegistry, DefaultEqualizerAndDynamicsHaveNoTail) {
    for (auto kind :
         {EffectKind::equalizer, EffectKind::compressor, EffectKind::limiter, EffectKind::noiseGate,
          EffectKind::saturation, EffectKind::distortion, EffectKind::spectrumAnalyzer})
        EXPECT_EQ(tailSeconds(kind, *EffectSession::make(kind)->bank()), 0) << rawValue(kind);
}

TEST(EffectRegistry, EqualizerTailFollowsTheRingingOfItsSlowestBand) {
    auto lowCut = bankWith(EffectKind::equalizer, {{"Band 1 Type", 0}, {"Band 1 Frequency", 80}});
    EXPECT_NEAR(tailSeconds(EffectKind::equalizer, *lowCut), 4.88452060054544 / (80 * M_PI), 1e-6);
    auto bell = bankWith(EffectKind::equalizer, {{"Band 2 Gain", 6}, {"Band 2 Q", 4}});
    EXPECT_NEAR(tailSeconds(EffectKind::equalizer, *bell), 4 * std::log(1000.0) / (300 * M_PI),
                1e-5);
    auto off = bankWith(EffectKind::equalizer, {{"Band 2 Gain", 6}, {"Band 2 On", 0}});
    EXPECT_EQ(tailSeconds(EffectKind::equalizer, *off), 0);
    auto capped = bankWith(EffectKind::equalizer,
                           {{"Band 2 Gain", 6}, {"Band 2 Q", 10}, {"Band 2 Frequency", 10}});
    EXPECT_EQ(tailSeconds(EffectKind::equalizer, *capped), 2);
}

TEST(EffectRegistry, DelayTailCountsRepeatsUntilSixtyDecibelsDown) {
    auto feedback90 = bankWith(EffectKind::delay, {{"Feedback", 90}});
    EXPECT_NEAR(tailSeconds(EffectKind::delay, *feedback90), 23.15, 1e-5);
    auto longest = bankWith(EffectKind::delay, {{"Feedback", 90}, {"Time", 2000}});
    EXPECT_EQ(tailSeconds(EffectKind::delay, *longest), 30);
    auto silent = bankWith(EffectKind::delay, {{"Level", 0}});
    EXPECT_EQ(tailSeconds(EffectKind::delay, *silent), 0);
    auto single = bankWith(EffectKind::delay, {{"Feedback", 0}, {"Time", 110}});
    EXPECT_NEAR(tailSeconds(EffectKind::delay, *single), 0.16, 1e-6);
}

TEST(EffectRegistry, ReverbChorusFlangerPhaserAndPitchTails) {
    auto hall = bankWith(EffectKind::reverb, {{"Size", 100}, {"Pre-delay", 0}});
    EXPECT_NEAR(tailSeconds(EffectKind::reverb, *hall), 1640.0 / 44100 * 6.907755 / 0.0202027,
                1e-3);
    auto small = bankWith(EffectKind::reverb, {{"Size", 0}, {"Pre-delay", 100}});
    EXPECT_NEAR(tailSeconds(EffectKind::reverb, *small),
                1640.0 / 44100 * 6.907755278982137 / 0.35667494393873245 + 0.1, 1e-6);
    EXPECT_NEAR(tailSeconds(EffectKind::chorus, *EffectSession::make(EffectKind::chorus)->bank()),
                0.031, 1e-6);
    auto flanger = bankWith(EffectKind::flanger, {{"Feedback", -70}, {"Delay", 3}});
    double n = std::ceil(-std::log(1000.0) / std::log(0.7));
    EXPECT_NEAR(tailSeconds(EffectKind::flanger, *flanger), std::min(0.006 * n, 1.0) + 0.01, 1e-6);
    auto longest = bankWith(EffectKind::flanger, {{"Feedback", -90}, {"Delay", 10}});
    EXPECT_NEAR(tailSeconds(EffectKind::flanger, *longest), 1.01, 1e-9); // capped at 1 s
    EXPECT_EQ(tailSeconds(EffectKind::phaser, *EffectSession::make(EffectKind::phaser)->bank()),
              0.05);
    EXPECT_NEAR(tailSeconds(EffectKind::pitchShifter,
                            *EffectSession::make(EffectKind::pitchShifter)->bank()),
                0.05, 1e-7);
}
