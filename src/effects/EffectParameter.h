#pragma once

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace sonvale {

// One knob of an effect: where its value lives, its range, default and how it is shown.
struct EffectParameter {
    enum class Unit {
        milliseconds,
        percent,
        hertz,
        decibels,
        ratio,
        toggle,
        factor,
        choice,
        semitones,
        cents
    };

    int index = 0; // position in the session's values and slot number in the ParameterBank
    std::string name;
    std::pair<double, double> range; // closed: lower, upper
    double defaultValue = 0;
    Unit unit = Unit::factor;
    bool logarithmic = false;
    std::vector<std::string> choices; // labels of a choice parameter, by rounded value
    std::optional<double> step;       // snapping step; none means continuous

    double lower() const { return range.first; }
    double upper() const { return range.second; }

    // The value at knob position t (clamped to [0, 1]); logarithmic parameters travel
    // geometrically. Choices round to a whole number and stepped values to the step, both
    // clamped to the range; continuous values are not rounded.
    double value(double normalized) const;
    // The knob position of a value: the inverse of value(normalized:), clamped to [0, 1].
    double normalized(double value) const;
    // The text shown for a value ("440 Hz", "1.5 kHz", "-6.0 dB", "4.0:1", "+7 st", "On" ...).
    std::string format(double value) const;

    friend bool operator==(const EffectParameter&, const EffectParameter&) = default;
};

// A named set of parameter values. Sparse: parameters it leaves out take their defaults.
struct EffectPreset {
    std::string name;
    std::map<int, double> values; // parameter index -> value in the parameter's unit

    // The full value array for `parameters`: the preset's value where it sets one, else the
    // default.
    std::vector<double> valuesFor(const std::vector<EffectParameter>& parameters) const;

    friend bool operator==(const EffectPreset&, const EffectPreset&) = default;
};

} // namespace sonvale
