#include "audio/ExportOptions.h"

#include <cstdio>

namespace sonvale {

void ExportOptions::setFormat(ExportFormat format) {
    if (format == currentFormat) return;
    currentFormat = format;
    if (onFormatChange) onFormatChange(format);
    changed.emit();
}

void ExportOptions::setSelectionOnly(bool value) {
    if (value == onlySelection) return;
    onlySelection = value;
    changed.emit();
}

std::string ExportOptions::gainText() const {
    char text[32];
    std::snprintf(text, sizeof text, "%+.1f dB applied", double(gain));
    return text;
}

} // namespace sonvale
