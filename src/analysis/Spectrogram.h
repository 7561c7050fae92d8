#pragma once

#include "analysis/SpectrogramSettings.h"
#include "audio/AudioData.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace sonvale {

class AudioData;

// The magnitudes of a track's audio over time, as the spectrogram view draws them.
// Column c is the Hann-windowed transform of the fftSize frames centred on frame c × hop
// (zero outside the audio), of the channels' average. Each column holds fftSize ÷ 2 linear
// magnitudes, bin k at k × sampleRate ÷ fftSize Hz, scaled so that a full-scale sine
// reads 1 in its bin. Immutable once computed; cached on the track it was computed for.
struct Spectrogram {
    std::weak_ptr<const AudioData> source;
    int fftSize = 0;
    int hop = 0;
    int64_t columnCount = 0;
    FloatBuffer magnitudes; // columnCount × fftSize ÷ 2, column after column
    double sampleRate = 0;

    // The magnitude buffer never holds more than this many floats (256 MiB).
    static constexpr int64_t magnitudeBudget = int64_t(1) << 26;

    int binCount() const { return fftSize / 2; }
    const float* column(int64_t c) const { return magnitudes.data() + c * binCount(); }
    int64_t memoryBytes() const { return int64_t(magnitudes.allocatedBytes()); }

    // Frames between columns for audio of `frameCount` frames: fftSize ÷ 8, doubled until the
    // columns fit the magnitude budget.
    static int hopFor(int64_t frameCount, int fftSize);

    // Lets another thread follow a computation and stop it.
    struct Progress {
        std::atomic<bool> cancelled{false};
        std::atomic<int64_t> columnsDone{0};
        std::atomic<int64_t> columnTotal{0};
        // 0…1; 0 before the computation has started.
        double fraction() const;
    };

    // Computes the spectrogram of `audio` on the shared pool of threads and the calling one.
    // Returns null when `progress` is cancelled before it finishes. Throws
    // AudioLoaderError::outOfMemory when the buffer can't be had. Not for the main thread.
    static std::shared_ptr<const Spectrogram> compute(const std::shared_ptr<const AudioData>& audio,
                                                      int fftSize, Progress* progress = nullptr);
    // The same for the frames of `range` only, with columns `hop` frames apart: column c is
    // centred on frame range.lower + c × hop (the audio around the range still counts). With
    // a `spacing`, each column is instead the bin by bin maximum of the transforms at
    // range.lower + c × hop + j × spacing for j < hop ÷ spacing, so a picture with fewer
    // columns than the audio has windows still shows every moment of it.
    static std::shared_ptr<const Spectrogram> compute(const std::shared_ptr<const AudioData>& audio,
                                                      int fftSize, FrameRange range, int hop,
                                                      int spacing = 0,
                                                      Progress* progress = nullptr);
};

// ---- colours

struct SpectrogramColor {
    float red = 0, green = 0, blue = 0; // 0…1
};
// The map's colour for t, clamped to 0…1: inferno, magma and viridis as polynomial fits of
// the published maps, grayscale as t itself.
SpectrogramColor color(SpectrogramColorMap map, double t);

// ---- the picture

// How frequencies are laid out from the bottom of a picture (0) to its top (1).
struct FrequencyAxis {
    double nyquist = 24000;
    bool logarithmic = true;
    // The bottom of a logarithmic axis.
    static constexpr double lowestLogFrequency = 20;

    double frequencyAt(double fraction) const;
    double fractionOf(double frequency) const;
};

// What part of a spectrogram a picture shows, and how.
struct SpectrogramPicture {
    double startFrame = 0;      // the audio frame at the picture's left edge
    double framesPerColumn = 1; // audio frames per pixel column
    int64_t frameCount = 0;     // columns past the audio's end get `outside`
    SpectrogramColorMap colorMap = SpectrogramColorMap::inferno;
    bool logFrequency = true;
    uint32_t outside = 0xff000000;
    // The levels mapped onto the colour map's ends, dB relative to a full-scale sine.
    static constexpr double floorDB = -100;
    static constexpr double ceilingDB = 0;
};

// Draws `spectrogram` into `width` × `height` opaque 0xAARRGGBB pixels (`stride` pixels from
// one row to the next), time across and frequency up. A pixel shows the loudest bin and
// column it covers (at most four columns are looked at per pixel column, so a whole long
// track draws as fast as a short one).
void drawSpectrogram(const Spectrogram& spectrogram, const SpectrogramPicture& picture,
                     uint32_t* pixels, int width, int height, ptrdiff_t stride);

} // namespace sonvale
