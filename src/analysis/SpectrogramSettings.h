#pragma once

#include <nlohmann/json_fwd.hpp>

#include <optional>
#include <string_view>

namespace sonvale {

enum class SpectrogramColorMap { inferno, magma, viridis, grayscale };

std::string_view rawValue(SpectrogramColorMap map);
std::optional<SpectrogramColorMap> spectrogramColorMapFromRawValue(std::string_view raw);

// How the spectrogram view analyses and colours a track.
struct SpectrogramSettings {
    int fftSize = 2048; // 512, 1024, 2048 or 4096
    SpectrogramColorMap colorMap = SpectrogramColorMap::inferno;
    bool logFrequency = true;

    static bool isValidFFTSize(int size) {
        return size == 512 || size == 1024 || size == 2048 || size == 4096;
    }
    // Reads the keys "spectrogramFFTSize", "spectrogramColorMap" and "spectrogramLogFrequency"
    // of a preferences object; a missing or unusable value gives that setting's default.
    static SpectrogramSettings load(const nlohmann::json& defaults);
    void save(nlohmann::json& defaults) const;

    friend bool operator==(const SpectrogramSettings&, const SpectrogramSettings&) = default;
};

} // namespace sonvale
