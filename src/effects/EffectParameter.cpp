#include "effects/EffectParameter.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace sonvale {

namespace {

std::string printed(const char* pattern, double value) {
    char text[64];
    std::snprintf(text, sizeof text, pattern, value);
    return text;
}

} // namespace

double EffectParameter::value(double normalized) const {
    double t = std::clamp(std::isnan(normalized) ? 0.0 : normalized, 0.0, 1.0);
    double v = logarithmic && lower() > 0 ? lower() * std::pow(upper() / lower(), t)
                                          : lower() + t * (upper() - lower());
    if (unit == Unit::choice) {
        v = std::clamp(std::round(v), lower(), upper());
    } else if (step && *step > 0) {
        v = std::clamp(std::round(v / *step) * *step, lower(), upper());
    }
    return v;
}

double EffectParameter::normalized(double value) const {
    if (!(upper() > lower())) return 0;
    double v = std::clamp(value, lower(), upper());
    double t = logarithmic && lower() > 0 ? std::log(v / lower()) / std::log(upper() / lower())
                                          : (v - lower()) / (upper() - lower());
    return std::clamp(t, 0.0, 1.0);
}

std::string EffectParameter::format(double value) const {
    switch (unit) {
    case Unit::milliseconds:
        // Short times (attacks) need their tenths; longer ones read as whole milliseconds.
        return std::fabs(value) < 9.95 ? printed("%.1f ms", value) : printed("%.0f ms", value);
    case Unit::percent: return printed("%.0f%%", value);
    case Unit::hertz:
        return value < 1000 ? printed("%.0f Hz", value) : printed("%.1f kHz", value / 1000);
    case Unit::decibels: {
        double shown = std::round(value * 10) / 10;
        return printed("%+.1f dB", shown == 0 ? 0.0 : shown);
    }
    case Unit::ratio: return printed("%.1f:1", value);
    case Unit::toggle: return value >= 0.5 ? "On" : "Off";
    case Unit::factor: return printed("%.2f", value);
    case Unit::choice: {
        if (choices.empty()) return printed("%.0f", value);
        double rounded = std::round(value);
        auto index = size_t(std::clamp(rounded, 0.0, double(choices.size() - 1)));
        return choices[index];
    }
    case Unit::semitones: {
        double rounded = std::round(value);
        return rounded == 0 ? "0 st" : printed("%+.0f st", rounded);
    }
    case Unit::cents: {
        double rounded = std::round(value);
        return rounded == 0 ? "0 ct" : printed("%+.0f ct", rounded);
    }
    }
    return printed("%g", value);
}

std::vector<double> EffectPreset::valuesFor(const std::vector<EffectParameter>& parameters) const {
    std::vector<double> result;
    result.reserve(parameters.size());
    for (auto& parameter : parameters) {
        auto found = values.find(parameter.index);
        result.push_back(found != values.end() ? found->second : parameter.defaultValue);
    }
    return result;
}

} // namespace sonvale
