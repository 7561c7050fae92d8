#pragma once

#include "effects/EffectParameter.h"
#include "effects/EffectProcessor.h"
#include "effects/ParameterBank.h"

#include <array>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

namespace sonvale {

// The built-in effects. Their order, names and everything else about them come from the
// registry (effects/EffectRegistry.h); a new effect adds its case here and its entry there.
enum class EffectKind {
    equalizer,
    saturation,
    distortion,
    compressor,
    limiter,
    noiseGate,
    chorus,
    flanger,
    phaser,
    delay,
    reverb,
    pitchShifter,
    spectrumAnalyzer
};

// Every registered kind, in the order of the add-effect menu.
const std::vector<EffectKind>& allEffectKinds();

// The groups of the add-effect menu (EffectKind's category).
enum class EffectCategory { tone, dynamics, modulation, space, pitch, visual };

inline constexpr std::array<EffectCategory, 6> allEffectCategories{
    EffectCategory::tone,  EffectCategory::dynamics, EffectCategory::modulation,
    EffectCategory::space, EffectCategory::pitch,    EffectCategory::visual};

// The registry key: stored in sessions and preference keys, named on the command line.
std::string_view rawValue(EffectKind kind);
std::optional<EffectKind> effectKindFromRawValue(std::string_view raw);
std::string_view title(EffectKind kind); // "Parametric EQ"
EffectCategory category(EffectKind kind);
std::string_view summary(EffectKind kind);
bool isVisual(EffectKind kind); // the visual category: its bank carries a SampleTap

std::string_view title(EffectCategory category); // "Tone"
// The kinds of a category, in menu order.
std::vector<EffectKind> kinds(EffectCategory category);

// The kind's parameters in index order.
const std::vector<EffectParameter>& parameters(EffectKind kind);
// The kind's presets in menu order.
const std::vector<EffectPreset>& presets(EffectKind kind);
// The first preset whose full value array equals `values` within a relative tolerance of
// 10^-6 (absolute for preset values within ±1); null when none does.
const EffectPreset* presetMatching(EffectKind kind, const std::vector<double>& values);

// How long the effect keeps sounding after its input stops, from the bank's current values.
double tailSeconds(EffectKind kind, const ParameterBank& bank);

// A new processor of the kind reading from `bank`.
std::unique_ptr<EffectProcessor> makeProcessor(EffectKind kind, double sampleRate, int channelCount,
                                               std::shared_ptr<ParameterBank> bank);

} // namespace sonvale
