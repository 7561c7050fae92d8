// sonvale-cli effects [--json] [KIND]: the effect catalogue with parameters and presets.

#include "cli/Commands.h"

#include "base/Errors.h"
#include "effects/EffectKind.h"
#include "effects/EffectSetup.h"

#include <nlohmann/json.hpp>

#include <cstdio>
#include <sstream>

namespace sonvale::cli {

namespace {

std::string_view unitName(EffectParameter::Unit unit) {
    using Unit = EffectParameter::Unit;
    switch (unit) {
    case Unit::milliseconds: return "milliseconds";
    case Unit::percent: return "percent";
    case Unit::hertz: return "hertz";
    case Unit::decibels: return "decibels";
    case Unit::ratio: return "ratio";
    case Unit::toggle: return "toggle";
    case Unit::factor: return "factor";
    case Unit::choice: return "choice";
    case Unit::semitones: return "semitones";
    case Unit::cents: return "cents";
    }
    return "";
}

std::string number(double value) {
    std::ostringstream out;
    out << value;
    return out.str();
}

nlohmann::ordered_json describe(EffectKind kind) {
    nlohmann::ordered_json parametersJSON = nlohmann::ordered_json::array();
    for (auto& p : parameters(kind)) {
        nlohmann::ordered_json entry{{"index", p.index},
                                     {"name", p.name},
                                     {"minimum", p.lower()},
                                     {"maximum", p.upper()},
                                     {"default", p.defaultValue},
                                     {"unit", unitName(p.unit)},
                                     {"logarithmic", p.logarithmic}};
        if (!p.choices.empty()) entry["choices"] = p.choices;
        if (p.step) entry["step"] = *p.step;
        parametersJSON.push_back(entry);
    }
    nlohmann::ordered_json presetsJSON = nlohmann::ordered_json::array();
    for (auto& preset : presets(kind)) {
        nlohmann::ordered_json values = nlohmann::ordered_json::object();
        for (auto& [index, value] : preset.values)
            values[parameters(kind)[size_t(index)].name] = value;
        presetsJSON.push_back({{"name", preset.name}, {"values", values}});
    }
    return {{"kind", rawValue(kind)},
            {"title", title(kind)},
            {"category", title(category(kind))},
            {"summary", summary(kind)},
            {"tailSeconds", tailSeconds(kind, ParameterBank(parameters(kind)))},
            {"parameters", parametersJSON},
            {"presets", presetsJSON}};
}

void printText(EffectKind kind) {
    std::printf("%s: %s (%s)\n  %s\n  parameters:\n", std::string(rawValue(kind)).c_str(),
                std::string(title(kind)).c_str(), std::string(title(category(kind))).c_str(),
                std::string(summary(kind)).c_str());
    for (auto& p : parameters(kind)) {
        std::string range;
        if (p.unit == EffectParameter::Unit::choice) {
            for (size_t i = 0; i < p.choices.size(); ++i)
                range += (i ? ", " : "") + std::to_string(i) + " " + p.choices[i];
        } else {
            range = number(p.lower()) + " to " + number(p.upper()) + " " +
                    std::string(unitName(p.unit));
            if (p.logarithmic) range += ", logarithmic";
            if (p.step) range += ", step " + number(*p.step);
        }
        std::printf("    %-18s %s; default %s (%s)\n", p.name.c_str(), range.c_str(),
                    number(p.defaultValue).c_str(), p.format(p.defaultValue).c_str());
    }
    std::printf("  presets:\n");
    for (auto& preset : presets(kind)) {
        std::string values;
        for (auto& [index, value] : preset.values) {
            auto& p = parameters(kind)[size_t(index)];
            values += (values.empty() ? "" : ", ") + p.name + "=" + number(value);
        }
        std::printf("    %-18s %s\n", preset.name.c_str(), values.c_str());
    }
}

} // namespace

int effects(const Arguments& args) {
    bool json = false;
    std::optional<EffectKind> only;
    for (auto& arg : args) {
        if (arg == "--json") {
            json = true;
        } else if (!arg.empty() && arg[0] == '-') {
            throw UsageError{"unknown option \"" + arg + "\" (usage: effects [--json] [KIND])"};
        } else if (only) {
            throw UsageError{"give at most one effect kind"};
        } else {
            try {
                only = EffectSetup::parse(arg).kind;
            } catch (const UserError& error) {
                throw UsageError{error.what()};
            }
        }
    }
    std::vector<EffectKind> kinds;
    if (only)
        kinds.push_back(*only);
    else
        kinds = allEffectKinds();

    if (json) {
        nlohmann::ordered_json out = nlohmann::ordered_json::array();
        for (auto kind : kinds)
            out.push_back(describe(kind));
        std::printf("%s\n", (only ? out[0] : out).dump(2).c_str());
    } else {
        for (size_t i = 0; i < kinds.size(); ++i) {
            if (i) std::printf("\n");
            printText(kinds[i]);
        }
    }
    return 0;
}

} // namespace sonvale::cli
