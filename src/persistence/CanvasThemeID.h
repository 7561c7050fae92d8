#pragma once

#include <array>
#include <optional>
#include <string_view>

namespace sonvale {

// The colour themes of the waveform canvas. The two native themes follow the desktop's own
// light and dark palettes; the others are fixed palettes.
enum class CanvasThemeID {
    nativeDark,
    nativeLight,
    classic,
    graphite,
    midnight,
    paper,
    ocean,
    forest,
    ember,
    amber,
    rose,
    slate,
    highContrast,
};

inline constexpr std::array<std::pair<CanvasThemeID, std::string_view>, 13> canvasThemeNames{{
    {CanvasThemeID::nativeDark, "nativeDark"},
    {CanvasThemeID::nativeLight, "nativeLight"},
    {CanvasThemeID::classic, "classic"},
    {CanvasThemeID::graphite, "graphite"},
    {CanvasThemeID::midnight, "midnight"},
    {CanvasThemeID::paper, "paper"},
    {CanvasThemeID::ocean, "ocean"},
    {CanvasThemeID::forest, "forest"},
    {CanvasThemeID::ember, "ember"},
    {CanvasThemeID::amber, "amber"},
    {CanvasThemeID::rose, "rose"},
    {CanvasThemeID::slate, "slate"},
    {CanvasThemeID::highContrast, "highContrast"},
}};

inline std::string_view rawValue(CanvasThemeID theme) {
    for (const auto& [value, name] : canvasThemeNames)
        if (value == theme) return name;
    return "classic";
}

// Exact, case-sensitive match of a case name.
inline std::optional<CanvasThemeID> canvasThemeFromRawValue(std::string_view raw) {
    for (const auto& [value, name] : canvasThemeNames)
        if (name == raw) return value;
    return std::nullopt;
}

} // namespace sonvale
