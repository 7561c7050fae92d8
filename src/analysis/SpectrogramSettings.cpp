#include "analysis/SpectrogramSettings.h"

#include <nlohmann/json.hpp>

#include <array>
#include <cmath>

namespace sonvale {

namespace {
constexpr std::array<std::pair<SpectrogramColorMap, std::string_view>, 4> colorMapNames{{
    {SpectrogramColorMap::inferno, "inferno"},
    {SpectrogramColorMap::magma, "magma"},
    {SpectrogramColorMap::viridis, "viridis"},
    {SpectrogramColorMap::grayscale, "grayscale"},
}};
} // namespace

std::string_view rawValue(SpectrogramColorMap map) {
    for (const auto& [value, name] : colorMapNames)
        if (value == map) return name;
    return "inferno";
}

std::optional<SpectrogramColorMap> spectrogramColorMapFromRawValue(std::string_view raw) {
    for (const auto& [value, name] : colorMapNames)
        if (name == raw) return value;
    return std::nullopt;
}

SpectrogramSettings SpectrogramSettings::load(const nlohmann::json& defaults) {
    SpectrogramSettings settings;
    if (!defaults.is_object()) return settings;
    if (auto it = defaults.find("spectrogramFFTSize"); it != defaults.end() && it->is_number()) {
        const double size = it->get<double>();
        if (size == std::floor(size) && isValidFFTSize(int(size))) settings.fftSize = int(size);
    }
    if (auto it = defaults.find("spectrogramColorMap"); it != defaults.end() && it->is_string()) {
        if (auto map = spectrogramColorMapFromRawValue(it->get<std::string>()))
            settings.colorMap = *map;
    }
    if (auto it = defaults.find("spectrogramLogFrequency");
        it != defaults.end() && it->is_boolean())
        settings.logFrequency = it->get<bool>();
    return settings;
}

void SpectrogramSettings::save(nlohmann::json& defaults) const {
    defaults["spectrogramFFTSize"] = fftSize;
    defaults["spectrogramColorMap"] = std::string(rawValue(colorMap));
    defaults["spectrogramLogFrequency"] = logFrequency;
}

} // namespace sonvale
