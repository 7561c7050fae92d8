#pragma once

#include "audio/ExportFormat.h"

#include <functional>
#include <sigc++/signal.h>
#include <string>

namespace sonvale {

// The choices beside the export save dialog: format, range and the gain that will be applied.
// Observable; main thread only.
class ExportOptions {
public:
    ExportOptions(ExportFormat format, bool hasSelection, float gainDB)
        : currentFormat(format)
        , selection(hasSelection)
        , gain(gainDB) {}

    ExportFormat format() const { return currentFormat; }
    // Changing the format tells onFormatChange, so the dialog can switch the file's extension.
    void setFormat(ExportFormat format);
    // "Selection" is only offered when the track has one; without it the entire track is exported.
    bool selectionOnly() const { return selection && onlySelection; }
    void setSelectionOnly(bool value);
    bool hasSelection() const { return selection; }
    float gainDB() const { return gain; }

    // "%+.1f dB applied"
    std::string gainText() const;
    static std::string formatLabel() { return "Format:"; }
    static std::string rangeLabel() { return "Range:"; }
    static std::string gainLabel() { return "Gain:"; }

    std::function<void(ExportFormat)> onFormatChange;
    sigc::signal<void()> changed;

private:
    ExportFormat currentFormat;
    bool selection;
    bool onlySelection = true;
    float gain;
};

} // namespace sonvale
