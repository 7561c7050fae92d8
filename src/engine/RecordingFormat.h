#pragma once

#include <optional>
#include <string_view>

namespace sonvale {

// The sample format new recordings are written in.
enum class RecordingFormat { wav16, wav24, wav32Float };

inline std::string_view rawValue(RecordingFormat format) {
    switch (format) {
    case RecordingFormat::wav16: return "wav16";
    case RecordingFormat::wav24: return "wav24";
    case RecordingFormat::wav32Float: return "wav32Float";
    }
    return "wav24";
}

// Exact, case-sensitive match of a case name.
inline std::optional<RecordingFormat> recordingFormatFromRawValue(std::string_view raw) {
    if (raw == "wav16") return RecordingFormat::wav16;
    if (raw == "wav24") return RecordingFormat::wav24;
    if (raw == "wav32Float") return RecordingFormat::wav32Float;
    return std::nullopt;
}

} // namespace sonvale
