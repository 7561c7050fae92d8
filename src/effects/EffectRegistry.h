#pragma once

#include "effects/EffectKind.h"
#include "effects/EffectParameter.h"
#include "effects/EffectProcessor.h"
#include "effects/ParameterBank.h"

#include <memory>
#include <string_view>
#include <vector>

namespace sonvale {

// One built-in effect: what the effects layer, the shells and the stored files know of it
// besides its processor's code. Everything that lists or looks up effects reads these.
struct EffectRegistration {
    using Factory = std::unique_ptr<EffectProcessor> (*)(double sampleRate, int channelCount,
                                                         std::shared_ptr<ParameterBank> bank);
    using Tail = double (*)(const ParameterBank& bank);

    EffectKind kind;
    // The identifier stored in sessions and preference keys, and the command line's name
    // ("noiseGate"); never changes once released.
    std::string_view key;
    std::string_view title; // "Noise Gate"
    EffectCategory category;
    std::string_view icon; // icon name, mapped to a drawn icon by the shell
    std::string_view summary;
    std::vector<EffectParameter> parameters; // in index order
    std::vector<EffectPreset> presets;       // in menu order
    Factory makeProcessor = nullptr;
    int processorParameterCount = 0; // the bank slots the processor reads
    // How long the effect keeps sounding after its input stops, from the bank's values.
    Tail tailSeconds = nullptr;
};

// The built-in effects in the order of the add-effect menu: each category's effects
// together, the categories in the order of allEffectCategories.
const std::vector<EffectRegistration>& effectRegistry();

// The entry of a kind; throws std::out_of_range for a kind the registry does not list.
const EffectRegistration& registration(EffectKind kind);

} // namespace sonvale
