#include "audio/ExportFormat.h"

#include "base/Text.h"

#include <algorithm>
#include <cctype>
#include <string>

namespace sonvale {

std::string_view rawValue(ExportFormat format) {
    switch (format) {
    case ExportFormat::wav16: return "wav16";
    case ExportFormat::wav24: return "wav24";
    case ExportFormat::aiff16: return "aiff16";
    case ExportFormat::aac: return "aac";
    }
    return "";
}

std::optional<ExportFormat> exportFormatFromRawValue(std::string_view raw) {
    for (ExportFormat format : allExportFormats)
        if (rawValue(format) == raw) return format;
    return std::nullopt;
}

std::string_view title(ExportFormat format) {
    switch (format) {
    case ExportFormat::wav16: return "WAV 16-bit";
    case ExportFormat::wav24: return "WAV 24-bit";
    case ExportFormat::aiff16: return "AIFF 16-bit";
    case ExportFormat::aac: return "AAC (M4A, 256 kbps)";
    }
    return "";
}

std::string_view fileExtension(ExportFormat format) {
    switch (format) {
    case ExportFormat::wav16:
    case ExportFormat::wav24: return "wav";
    case ExportFormat::aiff16: return "aiff";
    case ExportFormat::aac: return "m4a";
    }
    return "";
}

std::string_view mimeType(ExportFormat format) {
    switch (format) {
    case ExportFormat::wav16:
    case ExportFormat::wav24: return "audio/x-wav";
    case ExportFormat::aiff16: return "audio/x-aiff";
    case ExportFormat::aac: return "audio/mp4";
    }
    return "";
}

std::optional<ExportFormat> exportFormatForExtension(std::string_view extension) {
    std::string lower(extension);
    if (!lower.empty() && lower.front() == '.') lower.erase(0, 1);
    lower = lowercased(std::move(lower));
    if (lower == "wav" || lower == "wave") return ExportFormat::wav16;
    if (lower == "aif" || lower == "aiff") return ExportFormat::aiff16;
    if (lower == "m4a" || lower == "aac" || lower == "mp4") return ExportFormat::aac;
    return std::nullopt;
}

EncoderSettings settings(ExportFormat format, double sampleRate, int channels) {
    EncoderSettings s;
    s.sampleRate = sampleRate;
    s.channels = channels;
    if (format == ExportFormat::aac) {
        s.container = EncoderSettings::Container::mp4;
        s.codec = EncoderSettings::Codec::aac;
        s.bitRate = 256000;
        return s;
    }
    s.container = format == ExportFormat::aiff16 ? EncoderSettings::Container::aiff
                                                 : EncoderSettings::Container::wav;
    s.codec = EncoderSettings::Codec::linearPCM;
    s.bitDepth = format == ExportFormat::wav24 ? 24 : 16;
    s.isFloat = false;
    s.isBigEndian = format == ExportFormat::aiff16;
    s.isNonInterleaved = false;
    return s;
}

} // namespace sonvale
