#pragma once

#include "persistence/CanvasThemeID.h"

#include <QColor>
#include <QPalette>

namespace sonvale {

class Preferences;

// The colours the waveform canvas draws with. The two native themes are taken from the
// widget palette, so they follow the desktop; the others are fixed palettes.
struct CanvasTheme {
    QColor background;
    QColor rulerBackground;
    QColor rulerText;
    QColor grid;      // ruler ticks and the zero line of each channel
    QColor wave;      // min-max outline of the waveform
    QColor waveRMS;   // the RMS body drawn inside the outline
    QColor selection; // fill behind the selected frames
    QColor selectedWave;
    QColor cursor;
    QColor playhead;
    QColor marker;
    QColor region; // region bar on the ruler; its tint over the waveform is derived
    QColor markerText;

    static CanvasTheme make(CanvasThemeID id, const QPalette& palette);
    // Whether `palette` is a dark one (its window colour is darker than its text).
    static bool isDark(const QPalette& palette);
    // The theme the preferences pick for the given system appearance.
    static CanvasThemeID chosen(const Preferences& preferences, bool darkAppearance);
};

} // namespace sonvale
