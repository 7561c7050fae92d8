#include "effects/EffectKind.h"

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
#include <cassert>
#include <cmath>
#include <initializer_list>
#include <utility>

namespace sonvale {

namespace {

using Unit = EffectParameter::Unit;

struct KindInfo {
    std::string_view raw, title;
    EffectCategory category;
    std::string_view image, summary;
};

const KindInfo& describe(EffectKind kind) {
    static const std::array<KindInfo, 13> table{{
        {"equalizer", "Parametric EQ", EffectCategory::tone, "slider.vertical.3",
         "Shapes the tone: lift or cut bass, mids and treble."},
        {"saturation", "Saturation", EffectCategory::tone, "flame",
         "Analog warmth and grit that helps a track cut through the mix."},
        {"distortion", "Distortion", EffectCategory::tone, "bolt",
         "Clips the sound hard, for crunchy guitars, synths and 808s."},
        {"compressor", "Compressor", EffectCategory::dynamics, "rectangle.compress.vertical",
         "Evens out loud and quiet parts by turning the loud ones down."},
        {"limiter", "Limiter", EffectCategory::dynamics, "arrow.up.to.line",
         "Makes it louder without ever going over the ceiling."},
        {"noiseGate", "Noise Gate", EffectCategory::dynamics, "door.left.hand.closed",
         "Mutes the hiss and hum between the parts that matter."},
        {"chorus", "Chorus", EffectCategory::modulation, "person.3",
         "A shimmering doubling, as if several players played along."},
        {"flanger", "Flanger", EffectCategory::modulation, "wind",
         "A sweeping, jet-like whoosh from a very short, moving delay."},
        {"phaser", "Phaser", EffectCategory::modulation, "hurricane",
         "A smooth, spacey swoosh sweeping up and down the spectrum."},
        {"delay", "Delay", EffectCategory::space, "dot.radiowaves.right",
         "Echoes of the audio, each repeat quieter and darker than the last."},
        {"reverb", "Reverb", EffectCategory::space, "building.columns",
         "The sound of a room around the audio, from a small room to a hall."},
        {"pitchShifter", "Pitch Shifter", EffectCategory::pitch, "tuningfork",
         "Shifts the pitch, for harmonies or otherworldly voices."},
        {"spectrumAnalyzer", "Spectrum Analyzer", EffectCategory::visual, "chart.bar.xaxis",
         "Shows the frequencies as they play, bass to treble. Doesn't change the sound."},
    }};
    return table[size_t(kind)];
}

// Builds a parameter list in index order.
class ListBuilder {
public:
    ListBuilder& add(std::string name, double lower, double upper, double defaultValue,
                     Unit unit, bool logarithmic = false, std::vector<std::string> choices = {},
                     std::optional<double> step = {}) {
        list.push_back({int(list.size()), std::move(name), {lower, upper}, defaultValue, unit,
                        logarithmic, std::move(choices), step});
        return *this;
    }
    ListBuilder& choice(std::string name, std::vector<std::string> choices, double defaultValue) {
        double upper = double(choices.size() - 1);
        return add(std::move(name), 0, upper, defaultValue, Unit::choice, false,
                   std::move(choices));
    }
    ListBuilder& toggle(std::string name, double defaultValue) {
        return add(std::move(name), 0, 1, defaultValue, Unit::toggle);
    }
    std::vector<EffectParameter> list;
};

constexpr bool log = true;

std::vector<EffectParameter> equalizerParameters() {
    struct Band { EQBandType type; double frequency, q; };
    const Band bands[4] = {{EQBandType::lowShelf, 100, 0.71},
                           {EQBandType::bell, 300, 1.0},
                           {EQBandType::bell, 2000, 1.0},
                           {EQBandType::highShelf, 8000, 0.71}};
    std::vector<std::string> types;
    for (auto type : allEQBandTypes) types.emplace_back(title(type));
    ListBuilder b;
    for (int n = 0; n < 4; ++n) {
        std::string prefix = "Band " + std::to_string(n + 1);
        b.choice(prefix + " Type", types, double(int(bands[n].type)))
            .add(prefix + " Frequency", 20, 20000, bands[n].frequency, Unit::hertz, log)
            .add(prefix + " Gain", -18, 18, 0, Unit::decibels)
            .add(prefix + " Q", 0.1, 10, bands[n].q, Unit::factor, log)
            .toggle(prefix + " On", 1);
    }
    b.add("Output", -12, 12, 0, Unit::decibels);
    return b.list;
}

std::vector<EffectParameter> makeParameters(EffectKind kind) {
    ListBuilder b;
    switch (kind) {
    case EffectKind::equalizer: return equalizerParameters();
    case EffectKind::saturation:
        b.add("Drive", 0, 24, 6, Unit::decibels)
            .add("Warmth", 0, 100, 30, Unit::percent)
            .add("Tone", 1000, 20000, 20000, Unit::hertz, log)
            .add("Mix", 0, 100, 100, Unit::percent)
            .add("Output", -24, 12, 0, Unit::decibels);
        break;
    case EffectKind::distortion:
        b.choice("Type", {"Soft", "Hard", "Fuzz"}, 1)
            .add("Drive", 0, 48, 24, Unit::decibels)
            .add("Tone", 500, 12000, 5000, Unit::hertz, log)
            .add("Mix", 0, 100, 100, Unit::percent)
            .add("Output", -36, 0, -12, Unit::decibels);
        break;
    case EffectKind::compressor:
        b.add("Threshold", -60, 0, -18, Unit::decibels)
            .add("Ratio", 1, 20, 4, Unit::ratio, log)
            .add("Attack", 0.1, 100, 10, Unit::milliseconds, log)
            .add("Release", 10, 1000, 150, Unit::milliseconds, log)
            .add("Knee", 0, 12, 6, Unit::decibels)
            .add("Makeup", 0, 24, 0, Unit::decibels);
        break;
    case EffectKind::limiter:
        b.add("Gain", 0, 24, 6, Unit::decibels)
            .add("Ceiling", -12, 0, -1, Unit::decibels)
            .add("Release", 1, 1000, 100, Unit::milliseconds, log);
        break;
    case EffectKind::noiseGate:
        b.add("Threshold", -80, 0, -50, Unit::decibels)
            .add("Range", -80, 0, -80, Unit::decibels)
            .add("Attack", 0.1, 50, 1, Unit::milliseconds, log)
            .add("Hold", 0, 500, 50, Unit::milliseconds)
            .add("Release", 5, 2000, 150, Unit::milliseconds, log);
        break;
    case EffectKind::chorus:
        b.add("Rate", 0.05, 5, 0.8, Unit::hertz, log)
            .add("Depth", 0, 10, 3, Unit::milliseconds)
            .add("Delay", 5, 40, 18, Unit::milliseconds, log)
            .add("Width", 0, 100, 70, Unit::percent)
            .add("Mix", 0, 100, 50, Unit::percent);
        break;
    case EffectKind::flanger:
        b.add("Rate", 0.05, 5, 0.25, Unit::hertz, log)
            .add("Depth", 0, 100, 70, Unit::percent)
            .add("Delay", 0.5, 10, 2.5, Unit::milliseconds, log)
            .add("Feedback", -90, 90, 50, Unit::percent)
            .add("Mix", 0, 100, 50, Unit::percent);
        break;
    case EffectKind::phaser:
        b.add("Rate", 0.05, 5, 0.4, Unit::hertz, log)
            .add("Depth", 0, 100, 70, Unit::percent)
            .choice("Stages", {"4", "6", "8", "12"}, 1)
            .add("Feedback", -90, 90, 40, Unit::percent)
            .add("Mix", 0, 100, 50, Unit::percent);
        break;
    case EffectKind::delay:
        b.add("Time", 10, 2000, 350, Unit::milliseconds, log)
            .add("Feedback", 0, 90, 35, Unit::percent)
            .add("Tone", 500, 20000, 6000, Unit::hertz, log)
            .add("Level", 0, 100, 40, Unit::percent)
            .toggle("Ping-Pong", 0);
        break;
    case EffectKind::reverb:
        b.add("Size", 0, 100, 60, Unit::percent)
            .add("Damping", 0, 100, 40, Unit::percent)
            .add("Pre-delay", 0, 200, 20, Unit::milliseconds)
            .add("Width", 0, 100, 100, Unit::percent)
            .add("Mix", 0, 100, 25, Unit::percent);
        break;
    case EffectKind::pitchShifter:
        b.add("Pitch", -12, 12, 7, Unit::semitones, false, {}, 1.0)
            .add("Fine", -50, 50, 0, Unit::cents, false, {}, 1.0)
            .add("Window", 20, 100, 50, Unit::milliseconds)
            .add("Mix", 0, 100, 50, Unit::percent);
        break;
    case EffectKind::spectrumAnalyzer:
        b.choice("Style", {"Bars", "LED", "Analogue", "Line"}, 0)
            .choice("Bands", {"12", "16", "24", "32", "48", "64"}, 3)
            .add("Release", 50, 3000, 300, Unit::milliseconds, log)
            .add("Floor", -120, -30, -80, Unit::decibels)
            .add("Tilt", 0, 6, 3, Unit::decibels)
            .toggle("Peaks", 1);
        break;
    }
    return b.list;
}

// A preset given by parameter names; a name not in the list is a programming error.
using Setting = std::pair<std::string_view, double>;

EffectPreset named(EffectKind kind, std::string name, std::initializer_list<Setting> settings) {
    EffectPreset preset{std::move(name), {}};
    auto& list = parameters(kind);
    for (auto& [parameterName, value] : settings) {
        auto found = std::find_if(list.begin(), list.end(),
                                  [&](auto& p) { return p.name == parameterName; });
        assert(found != list.end());
        if (found != list.end()) preset.values[found->index] = value;
    }
    return preset;
}

// A preset that sets the first parameters in order, as the dynamics and modulation tables list them.
EffectPreset ordered(std::string name, std::initializer_list<double> values) {
    EffectPreset preset{std::move(name), {}};
    int index = 0;
    for (double value : values) preset.values[index++] = value;
    return preset;
}

// An equalizer band's Type, Frequency, Gain and Q (band numbered from 1).
struct BandSetting {
    int band;
    EQBandType type;
    double frequency, gain, q;
};

EffectPreset equalizerPreset(std::string name, std::initializer_list<BandSetting> bands) {
    EffectPreset preset{std::move(name), {}};
    for (auto& band : bands) {
        int base = 5 * (band.band - 1);
        preset.values[base] = double(int(band.type));
        preset.values[base + 1] = band.frequency;
        preset.values[base + 2] = band.gain;
        preset.values[base + 3] = band.q;
    }
    return preset;
}

std::vector<EffectPreset> makePresets(EffectKind kind) {
    using T = EQBandType;
    auto k = kind;
    switch (kind) {
    case EffectKind::equalizer:
        return {
            equalizerPreset("Vocal Presence", {{1, T::lowCut, 80, 0, 0.71},
                                               {2, T::bell, 300, -2, 1.0},
                                               {3, T::bell, 3000, 3, 1.2},
                                               {4, T::highShelf, 10000, 2, 0.71}}),
            equalizerPreset("Warm", {{1, T::lowShelf, 150, 3, 0.71},
                                     {3, T::bell, 3000, -1.5, 1.0},
                                     {4, T::highShelf, 9000, -2, 0.71}}),
            equalizerPreset("Clear Mud", {{1, T::lowCut, 40, 0, 0.71},
                                          {2, T::bell, 350, -4, 1.4},
                                          {4, T::highShelf, 12000, 4, 0.71}}),
            equalizerPreset("Cut Rumble", {{1, T::lowCut, 60, 0, 0.71}}),
            equalizerPreset("Telephone", {{1, T::lowCut, 400, 0, 0.71},
                                          {3, T::bell, 1500, 4, 1.0},
                                          {4, T::highCut, 3000, 0, 0.71}}),
        };
    case EffectKind::saturation:
        return {
            named(k, "Tape Warmth", {{"Drive", 4}, {"Warmth", 60}, {"Tone", 12000}}),
            named(k, "Tube Glow", {{"Drive", 9}, {"Warmth", 80}, {"Tone", 9000}, {"Output", -3}}),
            named(k, "Vocal Edge", {{"Drive", 8}, {"Warmth", 20}, {"Mix", 60}}),
            named(k, "Drum Crunch",
                  {{"Drive", 15}, {"Warmth", 40}, {"Tone", 10000}, {"Output", -4}}),
            named(k, "Bass Grit",
                  {{"Drive", 12}, {"Warmth", 50}, {"Tone", 6000}, {"Mix", 70}, {"Output", -3}}),
        };
    case EffectKind::distortion:
        return {
            named(k, "Overdrive", {{"Type", 0}, {"Drive", 18}, {"Tone", 4000}, {"Output", -9}}),
            named(k, "Rock Crunch", {{"Drive", 30}, {"Tone", 4500}, {"Output", -14}}),
            named(k, "Fuzz Box", {{"Type", 2}, {"Drive", 40}, {"Tone", 3000}, {"Output", -12}}),
            named(k, "808 Drive",
                  {{"Type", 0}, {"Drive", 20}, {"Tone", 2500}, {"Mix", 70}, {"Output", -8}}),
            named(k, "Industrial", {{"Drive", 48}, {"Tone", 9000}, {"Output", -16}}),
        };
    case EffectKind::compressor:
        return {
            ordered("Gentle Glue", {-20, 2, 30, 250, 6, 2}),
            ordered("Vocal", {-22, 3, 8, 120, 6, 4}),
            ordered("Punchy Drums", {-18, 4, 25, 80, 3, 3}),
            ordered("Podcast Leveler", {-26, 3.5, 10, 200, 8, 6}),
            ordered("Limiter", {-6, 20, 0.5, 60, 0}),
        };
    case EffectKind::limiter:
        return {
            named(k, "Safety", {{"Gain", 0}, {"Ceiling", -0.3}, {"Release", 50}}),
            named(k, "Streaming Master", {{"Gain", 4}, {"Ceiling", -1}, {"Release", 150}}),
            named(k, "Loud Master", {{"Gain", 10}, {"Ceiling", -0.3}, {"Release", 60}}),
            named(k, "Broadcast", {{"Gain", 3}, {"Ceiling", -2}, {"Release", 200}}),
        };
    case EffectKind::noiseGate:
        return {
            named(k, "Vocal Cleanup",
                  {{"Threshold", -45}, {"Range", -25}, {"Hold", 80}, {"Release", 250}}),
            named(k, "Guitar Amp Hiss",
                  {{"Threshold", -55}, {"Attack", 0.5}, {"Hold", 30}, {"Release", 120}}),
            named(k, "Tight Drums",
                  {{"Threshold", -30}, {"Attack", 0.2}, {"Hold", 20}, {"Release", 60}}),
            named(k, "Podcast Room Tone",
                  {{"Threshold", -48}, {"Range", -15}, {"Hold", 150}, {"Release", 400}}),
        };
    case EffectKind::chorus:
        return {
            ordered("Gentle Doubling", {0.4, 2, 20, 60, 35}),
            ordered("Lush", {0.9, 5, 18, 100, 50}),
            ordered("Wide Stereo", {0.3, 3, 25, 100, 45}),
            ordered("Vibrato", {5, 1.5, 6, 0, 100}),
        };
    case EffectKind::flanger:
        return {
            ordered("Classic Jet", {0.2, 80, 2.5, 70, 50}),
            ordered("Subtle", {0.1, 40, 1.5, 20, 30}),
            ordered("Hollow", {0.3, 70, 3, -70, 50}),
            ordered("Fast Wobble", {2.5, 50, 1.2, 40, 50}),
        };
    case EffectKind::phaser:
        return {
            named(k, "Slow Swirl", {{"Rate", 0.15}, {"Depth", 80}, {"Feedback", 30}}),
            named(k, "Classic Four",
                  {{"Rate", 0.5}, {"Depth", 60}, {"Stages", 0}, {"Feedback", 20}}),
            named(k, "Jet Sweep", {{"Rate", 0.25}, {"Depth", 100}, {"Stages", 3}, {"Feedback", 70}}),
            named(k, "Fast Shimmer",
                  {{"Rate", 3}, {"Depth", 40}, {"Stages", 2}, {"Feedback", 20}, {"Mix", 40}}),
        };
    case EffectKind::delay:
        return {
            ordered("Slapback", {110, 0, 8000, 45}),
            ordered("Echo", {375, 45, 5000, 40}),
            ordered("Ping-Pong", {300, 50, 6000, 40, 1}),
            ordered("Dub", {500, 75, 1800, 55}),
        };
    case EffectKind::reverb:
        return {
            named(k, "Small Room", {{"Size", 25}, {"Damping", 50}, {"Pre-delay", 5},
                                    {"Width", 70}, {"Mix", 20}}),
            named(k, "Vocal Plate",
                  {{"Size", 55}, {"Damping", 30}, {"Pre-delay", 25}, {"Mix", 22}}),
            named(k, "Hall", {{"Size", 85}, {"Damping", 40}, {"Pre-delay", 30}, {"Mix", 30}}),
            named(k, "Cathedral", {{"Size", 97}, {"Damping", 25}, {"Pre-delay", 60}, {"Mix", 40}}),
            named(k, "Dark Ambience",
                  {{"Size", 80}, {"Damping", 90}, {"Pre-delay", 15}, {"Mix", 35}}),
        };
    case EffectKind::pitchShifter:
        return {
            named(k, "Octave Up", {{"Pitch", 12}, {"Mix", 100}}),
            named(k, "Octave Down", {{"Pitch", -12}, {"Window", 80}, {"Mix", 100}}),
            named(k, "Third Above", {{"Pitch", 4}}),
            named(k, "Octave Doubling", {{"Pitch", -12}, {"Window", 80}, {"Mix", 40}}),
            named(k, "Deep Voice", {{"Pitch", -5}, {"Window", 40}, {"Mix", 100}}),
            named(k, "Thicken", {{"Pitch", 0}, {"Fine", 12}, {"Window", 30}, {"Mix", 40}}),
        };
    case EffectKind::spectrumAnalyzer:
        return {
            named(k, "Oldschool", {{"Style", 1}, {"Bands", 2}, {"Release", 600}, {"Floor", -60}}),
            named(k, "Analogue", {{"Style", 2}, {"Bands", 5}, {"Release", 900}, {"Floor", -72},
                                  {"Tilt", 4.5}}),
            named(k, "Studio", {{"Style", 3}, {"Bands", 5}, {"Release", 250}, {"Floor", -90},
                                {"Tilt", 4.5}, {"Peaks", 0}}),
            named(k, "Club", {{"Bands", 1}, {"Release", 150}, {"Floor", -50}}),
        };
    }
    return {};
}

// Repeats of a feedback loop needed to fall by 60 dB.
double repeatsToDecay(double feedback) {
    if (!(feedback > 0.001)) return 1;
    return std::max(1.0, -std::log(1000.0) / std::log(std::min(feedback, 0.95)));
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

} // namespace

std::string_view rawValue(EffectKind kind) { return describe(kind).raw; }

std::optional<EffectKind> effectKindFromRawValue(std::string_view raw) {
    for (auto kind : allEffectKinds)
        if (rawValue(kind) == raw) return kind;
    return std::nullopt;
}

std::string_view title(EffectKind kind) { return describe(kind).title; }
EffectCategory category(EffectKind kind) { return describe(kind).category; }
std::string_view systemImage(EffectKind kind) { return describe(kind).image; }
std::string_view summary(EffectKind kind) { return describe(kind).summary; }
bool isVisual(EffectKind kind) { return kind == EffectKind::spectrumAnalyzer; }

std::string_view title(EffectCategory category) {
    switch (category) {
    case EffectCategory::tone: return "Tone";
    case EffectCategory::dynamics: return "Dynamics";
    case EffectCategory::modulation: return "Modulation";
    case EffectCategory::space: return "Space";
    case EffectCategory::pitch: return "Pitch";
    case EffectCategory::visual: return "Visual";
    }
    return "";
}

std::vector<EffectKind> kinds(EffectCategory which) {
    std::vector<EffectKind> result;
    for (auto kind : allEffectKinds)
        if (category(kind) == which) result.push_back(kind);
    return result;
}

const std::vector<EffectParameter>& parameters(EffectKind kind) {
    static const auto lists = [] {
        std::array<std::vector<EffectParameter>, 13> all;
        for (auto k : allEffectKinds) all[size_t(k)] = makeParameters(k);
        return all;
    }();
    return lists[size_t(kind)];
}

const std::vector<EffectPreset>& presets(EffectKind kind) {
    static const auto lists = [] {
        std::array<std::vector<EffectPreset>, 13> all;
        for (auto k : allEffectKinds) all[size_t(k)] = makePresets(k);
        return all;
    }();
    return lists[size_t(kind)];
}

const EffectPreset* presetMatching(EffectKind kind, const std::vector<double>& values) {
    auto& list = parameters(kind);
    for (auto& preset : presets(kind)) {
        auto full = preset.valuesFor(list);
        if (full.size() != values.size()) continue;
        bool same = true;
        for (size_t i = 0; i < full.size() && same; ++i) {
            double a = full[i], b = values[i];
            double tolerance = std::fabs(a) <= 1 ? 1e-6 : std::fabs(a) * 1e-6;
            same = std::fabs(a - b) <= tolerance;
        }
        if (same) return &preset;
    }
    return nullptr;
}

double tailSeconds(EffectKind kind, const ParameterBank& bank) {
    auto v = [&](int index) { return bank.value(index); };
    switch (kind) {
    case EffectKind::equalizer: return equalizerTail(bank);
    case EffectKind::saturation:
    case EffectKind::distortion:
    case EffectKind::compressor:
    case EffectKind::limiter:
    case EffectKind::noiseGate:
    case EffectKind::spectrumAnalyzer: return 0;
    case EffectKind::chorus: return (v(2) + v(1)) / 1000 + 0.01;
    case EffectKind::flanger: {
        double n = repeatsToDecay(std::fabs(v(3)) / 100);
        return std::min(2 * v(2) / 1000 * std::ceil(n), 1.0) + 0.01;
    }
    case EffectKind::phaser: return 0.05;
    case EffectKind::delay: {
        if (v(3) / 100 <= 0.001) return 0;
        double n = repeatsToDecay(v(1) / 100);
        return std::min(v(0) / 1000 * std::ceil(n) + 0.05, 30.0);
    }
    case EffectKind::reverb: {
        constexpr double combLength = 1640; // largest comb tuning + 23 samples at 44.1 kHz
        double size = v(0);
        double logG = size <= 0 ? std::log(0.7) : std::log(0.7 + 0.28 * std::min(size / 100, 1.0));
        double decay = std::min(combLength / 44100 * -std::log(1000.0) / logG, 15.0);
        return decay + v(2) / 1000;
    }
    case EffectKind::pitchShifter: return v(2) / 1000;
    }
    return 0;
}

std::unique_ptr<EffectProcessor> makeProcessor(EffectKind kind, double sampleRate,
                                               int channelCount,
                                               std::shared_ptr<ParameterBank> bank) {
    switch (kind) {
    case EffectKind::equalizer:
        return std::make_unique<EqualizerProcessor>(sampleRate, channelCount, std::move(bank));
    case EffectKind::compressor:
        return std::make_unique<CompressorProcessor>(sampleRate, channelCount, std::move(bank));
    case EffectKind::limiter:
        return std::make_unique<LimiterProcessor>(sampleRate, channelCount, std::move(bank));
    case EffectKind::noiseGate:
        return std::make_unique<NoiseGateProcessor>(sampleRate, channelCount, std::move(bank));
    case EffectKind::saturation:
        return std::make_unique<SaturationProcessor>(sampleRate, channelCount, std::move(bank));
    case EffectKind::distortion:
        return std::make_unique<DistortionProcessor>(sampleRate, channelCount, std::move(bank));
    case EffectKind::chorus:
        return std::make_unique<ChorusProcessor>(sampleRate, channelCount, std::move(bank));
    case EffectKind::flanger:
        return std::make_unique<FlangerProcessor>(sampleRate, channelCount, std::move(bank));
    case EffectKind::phaser:
        return std::make_unique<PhaserProcessor>(sampleRate, channelCount, std::move(bank));
    case EffectKind::delay:
        return std::make_unique<DelayProcessor>(sampleRate, channelCount, std::move(bank));
    case EffectKind::reverb:
        return std::make_unique<ReverbProcessor>(sampleRate, channelCount, std::move(bank));
    case EffectKind::pitchShifter:
        return std::make_unique<PitchShifterProcessor>(sampleRate, channelCount, std::move(bank));
    case EffectKind::spectrumAnalyzer:
        return std::make_unique<SpectrumAnalyzerProcessor>(sampleRate, channelCount,
                                                           std::move(bank));
    }
    return nullptr;
}

} // namespace sonvale
