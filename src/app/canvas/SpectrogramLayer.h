#pragma once

#include "analysis/Spectrogram.h"
#include "audio/AudioTrack.h"

#include <QColor>
#include <QImage>
#include <QString>
#include <memory>
#include <optional>
#include <vector>

class QPainter;
class QRect;

namespace sonvale {

// The spectrogram view's pictures for the waveform canvas: the track's spectrogram for the
// visible frames, and the frequency scale beside it. The last picture is kept, so repaints
// for the cursor or the playhead only copy it.
class SpectrogramLayer {
public:
    // Draws `spectrogram` for `view` into `area` at the painter's device pixel ratio; the
    // colour map's floor where there is no audio.
    void draw(QPainter& painter, QRect area, const Viewport& view, const Spectrogram& spectrogram,
              int64_t frameCount, const SpectrogramSettings& settings, double dpr);
    // Fills `area` with the colour map's floor (before a first spectrogram is there).
    static void drawEmpty(QPainter& painter, QRect area, const SpectrogramSettings& settings);

    // Labelled frequencies for a scale `height` points high, bottom to top: round values in
    // Hz and kHz ("500", "2k", "12.5k") spaced at least `spacing` points apart.
    struct Tick {
        double frequency;
        double y; // from the top of the scale
        QString label;
    };
    static std::vector<Tick> scaleTicks(const FrequencyAxis& axis, double height, double spacing);

private:
    struct Key {
        const Spectrogram* spectrogram = nullptr;
        Viewport view;
        int64_t frameCount = 0;
        SpectrogramSettings settings;
        QSize pixels;
        friend bool operator==(const Key&, const Key&) = default;
    };
    std::optional<Key> drawn;
    QImage image;
};

} // namespace sonvale
