#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

namespace sonvale {

// The formats a track can be exported in, in the order the format menu lists them.
enum class ExportFormat { wav16, wav24, aiff16, aac };

inline constexpr std::array<ExportFormat, 4> allExportFormats{
    ExportFormat::wav16, ExportFormat::wav24, ExportFormat::aiff16, ExportFormat::aac};

std::string_view rawValue(ExportFormat format);
std::optional<ExportFormat> exportFormatFromRawValue(std::string_view raw);
std::string_view title(ExportFormat format);
// The saved file's extension, without the dot: "wav", "aiff", "m4a".
std::string_view fileExtension(ExportFormat format);
// The MIME type of the saved file.
std::string_view mimeType(ExportFormat format);
// The format a file name's extension implies (wav -> wav16, aif/aiff -> aiff16, m4a/aac -> aac).
std::optional<ExportFormat> exportFormatForExtension(std::string_view extension);

// What the writer needs to encode a format.
struct EncoderSettings {
    enum class Container { wav, aiff, mp4 };
    enum class Codec { linearPCM, aac };
    Container container = Container::wav;
    Codec codec = Codec::linearPCM;
    double sampleRate = 0;
    int channels = 0;
    std::optional<int> bitDepth;     // PCM only
    std::optional<bool> isFloat;     // PCM only
    std::optional<bool> isBigEndian; // PCM only
    std::optional<bool> isNonInterleaved;
    std::optional<int> bitRate; // AAC only, bits per second
    friend bool operator==(const EncoderSettings&, const EncoderSettings&) = default;
};

EncoderSettings settings(ExportFormat format, double sampleRate, int channels);

} // namespace sonvale
