#include "effects/EffectSetup.h"

#include "base/Errors.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <sstream>

namespace sonvale {

namespace {

std::string trimmed(std::string_view text) {
    auto isSpace = [](char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; };
    while (!text.empty() && isSpace(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isSpace(text.back()))
        text.remove_suffix(1);
    if (text.size() >= 2 && (text.front() == '"' || text.front() == '\'') &&
        text.back() == text.front())
        text = text.substr(1, text.size() - 2);
    return std::string(text);
}

std::string joined(const std::vector<std::string>& items) {
    std::string out;
    for (size_t i = 0; i < items.size(); ++i)
        out += (i ? ", " : "") + items[i];
    return out;
}

std::optional<double> number(const std::string& text) {
    if (text.empty()) return std::nullopt;
    double value = 0;
    const char* begin = text.data() + (text[0] == '+' ? 1 : 0);
    auto [end, error] = std::from_chars(begin, text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(value))
        return std::nullopt;
    return value;
}

std::string shown(double value) {
    std::ostringstream out;
    out << value;
    return out.str();
}

EffectKind parseKind(const std::string& text) {
    auto key = foldedName(text);
    for (auto kind : allEffectKinds())
        if (foldedName(rawValue(kind)) == key || foldedName(title(kind)) == key) return kind;
    std::vector<std::string> names;
    for (auto kind : allEffectKinds())
        names.emplace_back(rawValue(kind));
    throw UserError("unknown effect \"" + text + "\"; the effects are " + joined(names));
}

const EffectPreset& parsePreset(EffectKind kind, const std::string& text) {
    auto key = foldedName(text);
    for (auto& preset : presets(kind))
        if (foldedName(preset.name) == key) return preset;
    std::vector<std::string> names;
    for (auto& preset : presets(kind))
        names.push_back("\"" + preset.name + "\"");
    throw UserError("unknown preset \"" + text + "\" for " + std::string(rawValue(kind)) +
                    "; its presets are " + joined(names));
}

const EffectParameter& parseParameter(EffectKind kind, const std::string& text) {
    auto key = foldedName(text);
    for (auto& parameter : parameters(kind))
        if (foldedName(parameter.name) == key) return parameter;
    std::vector<std::string> names;
    for (auto& parameter : parameters(kind))
        names.push_back("\"" + parameter.name + "\"");
    throw UserError("unknown parameter \"" + text + "\" for " + std::string(rawValue(kind)) +
                    "; its parameters are " + joined(names));
}

double parseValue(EffectKind kind, const EffectParameter& parameter, const std::string& text) {
    using Unit = EffectParameter::Unit;
    auto key = foldedName(text);
    if (parameter.unit == Unit::choice)
        for (size_t i = 0; i < parameter.choices.size(); ++i)
            if (foldedName(parameter.choices[i]) == key) return double(i);
    if (parameter.unit == Unit::toggle) {
        if (key == "on" || key == "true" || key == "yes") return 1;
        if (key == "off" || key == "false" || key == "no") return 0;
    }
    auto value = number(text);
    bool inRange = value && *value >= parameter.lower() && *value <= parameter.upper();
    if (inRange) return *value;

    std::string valid =
        "a number from " + shown(parameter.lower()) + " to " + shown(parameter.upper());
    if (parameter.unit == Unit::choice) {
        std::vector<std::string> labels;
        for (size_t i = 0; i < parameter.choices.size(); ++i)
            labels.push_back(std::to_string(i) + " \"" + parameter.choices[i] + "\"");
        valid = "one of " + joined(labels);
    } else if (parameter.unit == Unit::toggle) {
        valid = "on, off, 1 or 0";
    }
    throw UserError("\"" + text + "\" is not a valid " + std::string(rawValue(kind)) + " \"" +
                    parameter.name + "\"; it takes " + valid);
}

// Splits at commas outside quotes.
std::vector<std::string> fields(std::string_view text) {
    std::vector<std::string> out(1);
    char quote = 0;
    for (char c : text) {
        if (quote) {
            if (c == quote) quote = 0;
        } else if (c == '"' || c == '\'') {
            quote = c;
        } else if (c == ',') {
            out.emplace_back();
            continue;
        }
        out.back() += c;
    }
    return out;
}

} // namespace

std::string foldedName(std::string_view name) {
    std::string out;
    for (char c : name) {
        if (c == ' ' || c == '-' || c == '_' || c == '"' || c == '\'' || c == '\t') continue;
        out += char(std::tolower(static_cast<unsigned char>(c)));
    }
    return out;
}

EffectSetup EffectSetup::parse(std::string_view text) {
    auto parts = fields(text);
    std::string head = parts[0];
    std::optional<std::string> presetName;
    if (auto at = head.find('@'); at != std::string::npos) {
        presetName = trimmed(head.substr(at + 1));
        head = head.substr(0, at);
    }
    EffectSetup setup;
    setup.kind = parseKind(trimmed(head));
    auto& list = parameters(setup.kind);
    setup.values = presetName ? parsePreset(setup.kind, *presetName).valuesFor(list)
                              : EffectPreset{}.valuesFor(list);
    for (size_t i = 1; i < parts.size(); ++i) {
        auto setting = trimmed(parts[i]);
        if (setting.empty()) continue;
        auto equals = setting.find('=');
        if (equals == std::string::npos)
            throw UserError("\"" + setting + "\" in the " + std::string(rawValue(setup.kind)) +
                            " settings is not NAME=VALUE");
        auto& parameter = parseParameter(setup.kind, trimmed(setting.substr(0, equals)));
        setup.values[size_t(parameter.index)] =
            parseValue(setup.kind, parameter, trimmed(setting.substr(equals + 1)));
    }
    return setup;
}

} // namespace sonvale
