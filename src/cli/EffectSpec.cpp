#include "cli/EffectSpec.h"

#include "cli/Commands.h"
#include "cli/Options.h"

#include <algorithm>
#include <cctype>
#include <charconv>

namespace sonvale::cli {

namespace {

// Lower case without spaces, '-' and '_', so "Band-1 gain" matches "Band 1 Gain".
std::string folded(std::string_view text) {
    std::string result;
    for (char c : text)
        if (c != ' ' && c != '-' && c != '_') result += char(std::tolower(static_cast<unsigned char>(c)));
    return result;
}

std::string trimmed(std::string_view text) {
    size_t begin = text.find_first_not_of(" \t");
    size_t end = text.find_last_not_of(" \t");
    return begin == std::string_view::npos ? std::string() : std::string(text.substr(begin, end - begin + 1));
}

std::optional<double> number(const std::string& text) {
    double value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

std::optional<EffectKind> kindNamed(const std::string& name) {
    for (EffectKind kind : allEffectKinds)
        if (folded(rawValue(kind)) == folded(name) || folded(title(kind)) == folded(name)) return kind;
    return std::nullopt;
}

} // namespace

std::string effectKindList() {
    std::string list;
    for (EffectKind kind : allEffectKinds) {
        if (!list.empty()) list += ", ";
        list += rawValue(kind);
    }
    return list;
}

EffectSessionPtr parseEffectSpec(const std::string& spec) {
    const size_t colon = spec.find(':');
    const std::string kindName = trimmed(spec.substr(0, colon));
    auto kind = kindNamed(kindName);
    if (!kind)
        throw UsageError{"unknown effect " + curlyQuoted(kindName) + " (effects: " + effectKindList() + ")"};
    const auto& parameters = sonvale::parameters(*kind);
    auto session = EffectSession::make(*kind);
    if (colon == std::string::npos) return session;

    std::vector<double> values = session->values();
    std::string rest = spec.substr(colon + 1);
    size_t start = 0;
    while (start <= rest.size()) {
        size_t comma = rest.find(',', start);
        std::string setting = trimmed(rest.substr(start, comma == std::string::npos ? std::string::npos : comma - start));
        start = comma == std::string::npos ? rest.size() + 1 : comma + 1;
        if (setting.empty()) continue;
        size_t equals = setting.find('=');
        if (equals == std::string::npos)
            throw UsageError{"effect setting " + curlyQuoted(setting) + " needs NAME=VALUE"};
        const std::string name = trimmed(setting.substr(0, equals));
        const std::string value = trimmed(setting.substr(equals + 1));

        if (folded(name) == "preset") {
            const auto& list = presets(*kind);
            auto preset = std::find_if(list.begin(), list.end(), [&](const EffectPreset& p) {
                return folded(p.name) == folded(value);
            });
            if (preset == list.end()) {
                std::string names;
                for (auto& p : list) names += (names.empty() ? "" : ", ") + p.name;
                throw UsageError{"no preset " + curlyQuoted(value) + " for " + std::string(rawValue(*kind)) +
                                 " (presets: " + names + ")"};
            }
            values = preset->valuesFor(parameters);
            continue;
        }

        auto parameter = std::find_if(parameters.begin(), parameters.end(),
                                      [&](const EffectParameter& p) { return folded(p.name) == folded(name); });
        if (parameter == parameters.end()) {
            std::string names;
            for (auto& p : parameters) names += (names.empty() ? "" : ", ") + p.name;
            throw UsageError{"no parameter " + curlyQuoted(name) + " in " + std::string(rawValue(*kind)) +
                             " (parameters: " + names + ")"};
        }
        std::optional<double> parsed = number(value);
        if (!parsed && parameter->unit == EffectParameter::Unit::toggle) {
            if (folded(value) == "on") parsed = 1;
            if (folded(value) == "off") parsed = 0;
        }
        for (size_t i = 0; !parsed && i < parameter->choices.size(); ++i)
            if (folded(parameter->choices[i]) == folded(value)) parsed = double(i);
        if (!parsed)
            throw UsageError{curlyQuoted(value) + " is not a value for " + parameter->name};
        if (*parsed < parameter->lower() || *parsed > parameter->upper())
            throw UsageError{parameter->name + " must lie between " + parameter->format(parameter->lower()) +
                             " and " + parameter->format(parameter->upper())};
        values[size_t(parameter->index)] = *parsed;
    }
    session->setValues(values);
    return session;
}

EffectChainPtr parseEffectChain(const std::vector<std::string>& specs) {
    auto chain = std::make_shared<EffectChain>();
    for (const auto& spec : specs) chain->append(parseEffectSpec(spec));
    return chain;
}

} // namespace sonvale::cli
