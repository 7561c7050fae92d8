#include "effects/EffectRegistry.h"

#include "effects/ChorusProcessor.h"
#include "effects/CompressorProcessor.h"
#include "effects/DelayProcessor.h"
#include "effects/DistortionProcessor.h"
#include "effects/EQBand.h"
#include "effects/EqualizerProcessor.h"
#include "effects/FlangerProcessor.h"
#include "effects/LimiterProcessor.h"
#include "effects/NoiseGateProcessor.h"
#include "effects/PhaserProcessor.h"
#include "effects/PitchShifterProcessor.h"
#include "effects/ReverbProcessor.h"
#include "effects/SaturationProcessor.h"
#include "effects/SpectrumAnalyzerProcessor.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <initializer_list>
#include <numbers>
#include <stdexcept>
#include <string>
#include <utility>

namespace sonvale {

namespace {

using Unit = EffectParameter::Unit;
constexpr bool log = true;

// A parameter list in index order.
class Parameters {
public:
    Parameters& add(std::string name, double lower, double upper, double defaultValue, Unit unit,
                    bool logarithmic = false, std::optional<double> step = {}) {
        list.push_back({int(list.size()),
                        std::move(name),
                        {lower, upper},
                        defaultValue,
                        unit,
                        logarithmic,
                        {},
                        step});
        return *this;
    }
    Parameters& choice(std::string name, std::vector<std::string> choices, double defaultValue) {
        double upper = double(choices.size() - 1);
        list.push_back({int(list.size()),
                        std::move(name),
                        {0, upper},
                        defaultValue,
                        Unit::choice,
                        false,
                        std::move(choices),
                        {}});
        return *this;
    }
    Parameters& toggle(std::string name, double defaultValue) {
        return add(std::move(name), 0, 1, defaultValue, Unit::toggle);
    }
    std::vector<EffectParameter> list;
};

// A preset, made once its entry's parameter list is known.
using PresetMaker = std::function<EffectPreset(const std::vector<EffectParameter>&)>;
using Setting = std::pair<std::string_view, double>;

// A preset given by parameter names; a name not in the list is a programming error.
PresetMaker named(std::string name, std::initializer_list<Setting> settings) {
    return [name = std::move(name), settings = std::vector(settings)](const auto& list) {
        EffectPreset preset{name, {}};
        for (auto& [parameterName, value] : settings) {
            auto found = std::find_if(list.begin(), list.end(),
                                      [&](auto& p) { return p.name == parameterName; });
            if (found == list.end())
                throw std::logic_error("preset \"" + name + "\" sets an unknown parameter \"" +
                                       std::string(parameterName) + "\"");
            preset.values[found->index] = value;
        }
        return preset;
    };
}

// A preset that sets the first parameters in index order.
PresetMaker ordered(std::string name, std::initializer_list<double> values) {
    return [name = std::move(name), values = std::vector(values)](const auto&) {
        EffectPreset preset{name, {}};
        int index = 0;
        for (double value : values)
            preset.values[index++] = value;
        return preset;
    };
}

// One registry entry, built field by field: the parameters before the presets that name them.
class Entry {
public:
    Entry(EffectKind kind, std::string_view key, std::string_view title, EffectCategory category,
          std::string_view icon, std::string_view summary) {
        entry.kind = kind;
        entry.key = key;
        entry.title = title;
        entry.category = category;
        entry.icon = icon;
        entry.summary = summary;
        entry.tailSeconds = [](const ParameterBank&) { return 0.0; };
    }
    Entry&& parameters(const Parameters& list) && {
        entry.parameters = list.list;
        return std::move(*this);
    }
    Entry&& presets(std::initializer_list<PresetMaker> makers) && {
        for (auto& make : makers)
            entry.presets.push_back(make(entry.parameters));
        return std::move(*this);
    }
    template <class Processor> Entry&& processor() && {
        entry.makeProcessor =
            [](double sampleRate, int channelCount,
               std::shared_ptr<ParameterBank> bank) -> std::unique_ptr<EffectProcessor> {
            return std::make_unique<Processor>(sampleRate, channelCount, std::move(bank));
        };
        entry.processorParameterCount = Processor::parameterCount;
        return std::move(*this);
    }
    Entry&& tail(EffectRegistration::Tail seconds) && {
        entry.tailSeconds = seconds;
        return std::move(*this);
    }
    operator EffectRegistration() && { return std::move(entry); }

private:
    EffectRegistration entry;
};

// ---- the equalizer: four bands of Type, Frequency, Gain, Q and On, then Output

Parameters equalizerParameters() {
    struct Band {
        EQBandType type;
        double frequency, q;
    };
    const Band bands[4] = {{EQBandType::lowShelf, 100, 0.71},
                           {EQBandType::bell, 300, 1.0},
                           {EQBandType::bell, 2000, 1.0},
                           {EQBandType::highShelf, 8000, 0.71}};
    std::vector<std::string> types;
    for (auto type : allEQBandTypes)
        types.emplace_back(title(type));
    Parameters list;
    for (int n = 0; n < 4; ++n) {
        std::string prefix = "Band " + std::to_string(n + 1);
        list.choice(prefix + " Type", types, double(int(bands[n].type)))
            .add(prefix + " Frequency", 20, 20000, bands[n].frequency, Unit::hertz, log)
            .add(prefix + " Gain", -18, 18, 0, Unit::decibels)
            .add(prefix + " Q", 0.1, 10, bands[n].q, Unit::factor, log)
            .toggle(prefix + " On", 1);
    }
    list.add("Output", -12, 12, 0, Unit::decibels);
    return list;
}

// An equalizer band's Type, Frequency, Gain and Q (band numbered from 1).
struct BandSetting {
    int band;
    EQBandType type;
    double frequency, gain, q;
};

PresetMaker bands(std::string name, std::initializer_list<BandSetting> settings) {
    return [name = std::move(name), settings = std::vector(settings)](const auto&) {
        EffectPreset preset{name, {}};
        for (auto& band : settings) {
            int base = 5 * (band.band - 1);
            preset.values[base] = double(int(band.type));
            preset.values[base + 1] = band.frequency;
            preset.values[base + 2] = band.gain;
            preset.values[base + 3] = band.q;
        }
        return preset;
    };
}

double equalizerTail(const ParameterBank& bank) {
    double tail = 0;
    for (int b = 0; b < 4; ++b) {
        EQBandType type = eqBandType(bank.value(5 * b));
        double frequency = bank.value(5 * b + 1), gain = bank.value(5 * b + 2);
        double q = bank.value(5 * b + 3);
        if (bank.value(5 * b + 4) < 0.5) continue;
        if (usesGain(type) && std::fabs(gain) < 0.01) continue;
        bool isCut = type == EQBandType::lowCut || type == EQBandType::highCut;
        double ring = isCut ? std::log(1000.0) / std::numbers::sqrt2 : q * std::log(1000.0);
        tail = std::max(tail, ring / (std::numbers::pi * std::max(frequency, 10.0)));
    }
    return std::min(tail, 2.0);
}

// Repeats of a feedback loop needed to fall by 60 dB.
double repeatsToDecay(double feedback) {
    if (!(feedback > 0.001)) return 1;
    return std::max(1.0, -std::log(1000.0) / std::log(std::min(feedback, 0.95)));
}

std::vector<EffectRegistration> builtIn() {
    using C = EffectCategory;
    using K = EffectKind;
    using T = EQBandType;
    return {
        Entry(K::equalizer, "equalizer", "Parametric EQ", C::tone, "slider.vertical.3",
              "Shapes the tone: lift or cut bass, mids and treble.")
            .parameters(equalizerParameters())
            .presets({
                bands("Vocal Presence", {{1, T::lowCut, 80, 0, 0.71},
                                         {2, T::bell, 300, -2, 1.0},
                                         {3, T::bell, 3000, 3, 1.2},
                                         {4, T::highShelf, 10000, 2, 0.71}}),
                bands("Warm", {{1, T::lowShelf, 150, 3, 0.71},
                               {3, T::bell, 3000, -1.5, 1.0},
                               {4, T::highShelf, 9000, -2, 0.71}}),
                bands("Clear Mud", {{1, T::lowCut, 40, 0, 0.71},
                                    {2, T::bell, 350, -4, 1.4},
                                    {4, T::highShelf, 12000, 4, 0.71}}),
                bands("Cut Rumble", {{1, T::lowCut, 60, 0, 0.71}}),
                bands("Telephone", {{1, T::lowCut, 400, 0, 0.71},
                                    {3, T::bell, 1500, 4, 1.0},
                                    {4, T::highCut, 3000, 0, 0.71}}),
            })
            .processor<EqualizerProcessor>()
            .tail(equalizerTail),

        Entry(K::saturation, "saturation", "Saturation", C::tone, "flame",
              "Analog warmth and grit that helps a track cut through the mix.")
            .parameters(Parameters()
                            .add("Drive", 0, 24, 6, Unit::decibels)
                            .add("Warmth", 0, 100, 30, Unit::percent)
                            .add("Tone", 1000, 20000, 20000, Unit::hertz, log)
                            .add("Mix", 0, 100, 100, Unit::percent)
                            .add("Output", -24, 12, 0, Unit::decibels))
            .presets({
                named("Tape Warmth", {{"Drive", 4}, {"Warmth", 60}, {"Tone", 12000}}),
                named("Tube Glow", {{"Drive", 9}, {"Warmth", 80}, {"Tone", 9000}, {"Output", -3}}),
                named("Vocal Edge", {{"Drive", 8}, {"Warmth", 20}, {"Mix", 60}}),
                named("Drum Crunch",
                      {{"Drive", 15}, {"Warmth", 40}, {"Tone", 10000}, {"Output", -4}}),
                named("Bass Grit",
                      {{"Drive", 12}, {"Warmth", 50}, {"Tone", 6000}, {"Mix", 70}, {"Output", -3}}),
            })
            .processor<SaturationProcessor>(),

        Entry(K::distortion, "distortion", "Distortion", C::tone, "bolt",
              "Clips the sound hard, for crunchy guitars, synths and 808s.")
            .parameters(Parameters()
                            .choice("Type", {"Soft", "Hard", "Fuzz"}, 1)
                            .add("Drive", 0, 48, 24, Unit::decibels)
                            .add("Tone", 500, 12000, 5000, Unit::hertz, log)
                            .add("Mix", 0, 100, 100, Unit::percent)
                            .add("Output", -36, 0, -12, Unit::decibels))
            .presets({
                named("Overdrive", {{"Type", 0}, {"Drive", 18}, {"Tone", 4000}, {"Output", -9}}),
                named("Rock Crunch", {{"Drive", 30}, {"Tone", 4500}, {"Output", -14}}),
                named("Fuzz Box", {{"Type", 2}, {"Drive", 40}, {"Tone", 3000}, {"Output", -12}}),
                named("808 Drive",
                      {{"Type", 0}, {"Drive", 20}, {"Tone", 2500}, {"Mix", 70}, {"Output", -8}}),
                named("Industrial", {{"Drive", 48}, {"Tone", 9000}, {"Output", -16}}),
            })
            .processor<DistortionProcessor>(),

        Entry(K::compressor, "compressor", "Compressor", C::dynamics, "rectangle.compress.vertical",
              "Evens out loud and quiet parts by turning the loud ones down.")
            .parameters(Parameters()
                            .add("Threshold", -60, 0, -18, Unit::decibels)
                            .add("Ratio", 1, 20, 4, Unit::ratio, log)
                            .add("Attack", 0.1, 100, 10, Unit::milliseconds, log)
                            .add("Release", 10, 1000, 150, Unit::milliseconds, log)
                            .add("Knee", 0, 12, 6, Unit::decibels)
                            .add("Makeup", 0, 24, 0, Unit::decibels))
            .presets({
                ordered("Gentle Glue", {-20, 2, 30, 250, 6, 2}),
                ordered("Vocal", {-22, 3, 8, 120, 6, 4}),
                ordered("Punchy Drums", {-18, 4, 25, 80, 3, 3}),
                ordered("Podcast Leveler", {-26, 3.5, 10, 200, 8, 6}),
                ordered("Limiter", {-6, 20, 0.5, 60, 0}),
            })
            .processor<CompressorProcessor>(),

        Entry(K::limiter, "limiter", "Limiter", C::dynamics, "arrow.up.to.line",
              "Makes it louder without ever going over the ceiling.")
            .parameters(Parameters()
                            .add("Gain", 0, 24, 6, Unit::decibels)
                            .add("Ceiling", -12, 0, -1, Unit::decibels)
                            .add("Release", 1, 1000, 100, Unit::milliseconds, log))
            .presets({
                named("Safety", {{"Gain", 0}, {"Ceiling", -0.3}, {"Release", 50}}),
                named("Streaming Master", {{"Gain", 4}, {"Ceiling", -1}, {"Release", 150}}),
                named("Loud Master", {{"Gain", 10}, {"Ceiling", -0.3}, {"Release", 60}}),
                named("Broadcast", {{"Gain", 3}, {"Ceiling", -2}, {"Release", 200}}),
            })
            .processor<LimiterProcessor>(),

        Entry(K::noiseGate, "noiseGate", "Noise Gate", C::dynamics, "door.left.hand.closed",
              "Mutes the hiss and hum between the parts that matter.")
            .parameters(Parameters()
                            .add("Threshold", -80, 0, -50, Unit::decibels)
                            .add("Range", -80, 0, -80, Unit::decibels)
                            .add("Attack", 0.1, 50, 1, Unit::milliseconds, log)
                            .add("Hold", 0, 500, 50, Unit::milliseconds)
                            .add("Release", 5, 2000, 150, Unit::milliseconds, log))
            .presets({
                named("Vocal Cleanup",
                      {{"Threshold", -45}, {"Range", -25}, {"Hold", 80}, {"Release", 250}}),
                named("Guitar Amp Hiss",
                      {{"Threshold", -55}, {"Attack", 0.5}, {"Hold", 30}, {"Release", 120}}),
                named("Tight Drums",
                      {{"Threshold", -30}, {"Attack", 0.2}, {"Hold", 20}, {"Release", 60}}),
                named("Podcast Room Tone",
                      {{"Threshold", -48}, {"Range", -15}, {"Hold", 150}, {"Release", 400}}),
            })
            .processor<NoiseGateProcessor>(),

        Entry(K::chorus, "chorus", "Chorus", C::modulation, "person.3",
              "A shimmering doubling, as if several players played along.")
            .parameters(Parameters()
                            .add("Rate", 0.05, 5, 0.8, Unit::hertz, log)
                            .add("Depth", 0, 10, 3, Unit::milliseconds)
                            .add("Delay", 5, 40, 18, Unit::milliseconds, log)
                            .add("Width", 0, 100, 70, Unit::percent)
                            .add("Mix", 0, 100, 50, Unit::percent))
            .presets({
                ordered("Gentle Doubling", {0.4, 2, 20, 60, 35}),
                ordered("Lush", {0.9, 5, 18, 100, 50}),
                ordered("Wide Stereo", {0.3, 3, 25, 100, 45}),
                ordered("Vibrato", {5, 1.5, 6, 0, 100}),
            })
            .processor<ChorusProcessor>()
            .tail([](const ParameterBank& bank) {
                using P = ChorusProcessor;
                return (bank.value(P::delay) + bank.value(P::depth)) / 1000 + 0.01;
            }),

        Entry(K::flanger, "flanger", "Flanger", C::modulation, "wind",
              "A sweeping, jet-like whoosh from a very short, moving delay.")
            .parameters(Parameters()
                            .add("Rate", 0.05, 5, 0.25, Unit::hertz, log)
                            .add("Depth", 0, 100, 70, Unit::percent)
                            .add("Delay", 0.5, 10, 2.5, Unit::milliseconds, log)
                            .add("Feedback", -90, 90, 50, Unit::percent)
                            .add("Mix", 0, 100, 50, Unit::percent))
            .presets({
                ordered("Classic Jet", {0.2, 80, 2.5, 70, 50}),
                ordered("Subtle", {0.1, 40, 1.5, 20, 30}),
                ordered("Hollow", {0.3, 70, 3, -70, 50}),
                ordered("Fast Wobble", {2.5, 50, 1.2, 40, 50}),
            })
            .processor<FlangerProcessor>()
            .tail([](const ParameterBank& bank) {
                using P = FlangerProcessor;
                double n = repeatsToDecay(std::fabs(bank.value(P::feedback)) / 100);
                return std::min(2 * bank.value(P::delay) / 1000 * std::ceil(n), 1.0) + 0.01;
            }),

        Entry(K::phaser, "phaser", "Phaser", C::modulation, "hurricane",
              "A smooth, spacey swoosh sweeping up and down the spectrum.")
            .parameters(Parameters()
                            .add("Rate", 0.05, 5, 0.4, Unit::hertz, log)
                            .add("Depth", 0, 100, 70, Unit::percent)
                            .choice("Stages", {"4", "6", "8", "12"}, 1)
                            .add("Feedback", -90, 90, 40, Unit::percent)
                            .add("Mix", 0, 100, 50, Unit::percent))
            .presets({
                named("Slow Swirl", {{"Rate", 0.15}, {"Depth", 80}, {"Feedback", 30}}),
                named("Classic Four",
                      {{"Rate", 0.5}, {"Depth", 60}, {"Stages", 0}, {"Feedback", 20}}),
                named("Jet Sweep",
                      {{"Rate", 0.25}, {"Depth", 100}, {"Stages", 3}, {"Feedback", 70}}),
                named("Fast Shimmer",
                      {{"Rate", 3}, {"Depth", 40}, {"Stages", 2}, {"Feedback", 20}, {"Mix", 40}}),
            })
            .processor<PhaserProcessor>()
            .tail([](const ParameterBank&) { return 0.05; }),

        Entry(K::delay, "delay", "Delay", C::space, "dot.radiowaves.right",
              "Echoes of the audio, each repeat quieter and darker than the last.")
            .parameters(Parameters()
                            .add("Time", 10, 2000, 350, Unit::milliseconds, log)
                            .add("Feedback", 0, 90, 35, Unit::percent)
                            .add("Tone", 500, 20000, 6000, Unit::hertz, log)
                            .add("Level", 0, 100, 40, Unit::percent)
                            .toggle("Ping-Pong", 0))
            .presets({
                ordered("Slapback", {110, 0, 8000, 45}),
                ordered("Echo", {375, 45, 5000, 40}),
                ordered("Ping-Pong", {300, 50, 6000, 40, 1}),
                ordered("Dub", {500, 75, 1800, 55}),
            })
            .processor<DelayProcessor>()
            .tail([](const ParameterBank& bank) {
                using P = DelayProcessor;
                if (bank.value(P::level) / 100 <= 0.001) return 0.0;
                double n = repeatsToDecay(bank.value(P::feedback) / 100);
                return std::min(bank.value(P::time) / 1000 * std::ceil(n) + 0.05, 30.0);
            }),

        Entry(K::reverb, "reverb", "Reverb", C::space, "building.columns",
              "The sound of a room around the audio, from a small room to a hall.")
            .parameters(Parameters()
                            .add("Size", 0, 100, 60, Unit::percent)
                            .add("Damping", 0, 100, 40, Unit::percent)
                            .add("Pre-delay", 0, 200, 20, Unit::milliseconds)
                            .add("Width", 0, 100, 100, Unit::percent)
                            .add("Mix", 0, 100, 25, Unit::percent))
            .presets({
                named(
                    "Small Room",
                    {{"Size", 25}, {"Damping", 50}, {"Pre-delay", 5}, {"Width", 70}, {"Mix", 20}}),
                named("Vocal Plate",
                      {{"Size", 55}, {"Damping", 30}, {"Pre-delay", 25}, {"Mix", 22}}),
                named("Hall", {{"Size", 85}, {"Damping", 40}, {"Pre-delay", 30}, {"Mix", 30}}),
                named("Cathedral", {{"Size", 97}, {"Damping", 25}, {"Pre-delay", 60}, {"Mix", 40}}),
                named("Dark Ambience",
                      {{"Size", 80}, {"Damping", 90}, {"Pre-delay", 15}, {"Mix", 35}}),
            })
            .processor<ReverbProcessor>()
            .tail([](const ParameterBank& bank) {
                using P = ReverbProcessor;
                // The largest comb tuning + 23 samples at 44.1 kHz.
                constexpr double combLength = 1640;
                double size = bank.value(P::size);
                double logG =
                    size <= 0 ? std::log(0.7) : std::log(0.7 + 0.28 * std::min(size / 100, 1.0));
                double decay = std::min(combLength / 44100 * -std::log(1000.0) / logG, 15.0);
                return decay + bank.value(P::preDelay) / 1000;
            }),

        Entry(K::pitchShifter, "pitchShifter", "Pitch Shifter", C::pitch, "tuningfork",
              "Shifts the pitch, for harmonies or otherworldly voices.")
            .parameters(Parameters()
                            .add("Pitch", -12, 12, 7, Unit::semitones, false, 1.0)
                            .add("Fine", -50, 50, 0, Unit::cents, false, 1.0)
                            .add("Window", 20, 100, 50, Unit::milliseconds)
                            .add("Mix", 0, 100, 50, Unit::percent))
            .presets({
                named("Octave Up", {{"Pitch", 12}, {"Mix", 100}}),
                named("Octave Down", {{"Pitch", -12}, {"Window", 80}, {"Mix", 100}}),
                named("Third Above", {{"Pitch", 4}}),
                named("Octave Doubling", {{"Pitch", -12}, {"Window", 80}, {"Mix", 40}}),
                named("Deep Voice", {{"Pitch", -5}, {"Window", 40}, {"Mix", 100}}),
                named("Thicken", {{"Pitch", 0}, {"Fine", 12}, {"Window", 30}, {"Mix", 40}}),
            })
            .processor<PitchShifterProcessor>()
            .tail([](const ParameterBank& bank) {
                return bank.value(PitchShifterProcessor::window) / 1000;
            }),

        Entry(K::spectrumAnalyzer, "spectrumAnalyzer", "Spectrum Analyzer", C::visual,
              "chart.bar.xaxis",
              "Shows the frequencies as they play, bass to treble. Doesn't change the sound.")
            .parameters(Parameters()
                            .choice("Style", {"Bars", "LED", "Analogue", "Line"}, 0)
                            .choice("Bands", {"12", "16", "24", "32", "48", "64"}, 3)
                            .add("Release", 50, 3000, 300, Unit::milliseconds, log)
                            .add("Floor", -120, -30, -80, Unit::decibels)
                            .add("Tilt", 0, 6, 3, Unit::decibels)
                            .toggle("Peaks", 1))
            .presets({
                named("Oldschool", {{"Style", 1}, {"Bands", 2}, {"Release", 600}, {"Floor", -60}}),
                named(
                    "Analogue",
                    {{"Style", 2}, {"Bands", 5}, {"Release", 900}, {"Floor", -72}, {"Tilt", 4.5}}),
                named("Studio", {{"Style", 3},
                                 {"Bands", 5},
                                 {"Release", 250},
                                 {"Floor", -90},
                                 {"Tilt", 4.5},
                                 {"Peaks", 0}}),
                named("Club", {{"Bands", 1}, {"Release", 150}, {"Floor", -50}}),
            })
            .processor<SpectrumAnalyzerProcessor>(),
    };
}

} // namespace

const std::vector<EffectRegistration>& effectRegistry() {
    static const std::vector<EffectRegistration> registry = builtIn();
    return registry;
}

const EffectRegistration& registration(EffectKind kind) {
    static const auto byKind = [] {
        std::vector<const EffectRegistration*> index;
        for (auto& entry : effectRegistry()) {
            if (index.size() <= size_t(entry.kind)) index.resize(size_t(entry.kind) + 1);
            index[size_t(entry.kind)] = &entry;
        }
        return index;
    }();
    if (size_t(kind) >= byKind.size() || !byKind[size_t(kind)])
        throw std::out_of_range("effect kind " + std::to_string(int(kind)) + " is not registered");
    return *byKind[size_t(kind)];
}

} // namespace sonvale
