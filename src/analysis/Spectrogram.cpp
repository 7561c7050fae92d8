#include "analysis/Spectrogram.h"

#include "analysis/FFTWPlanner.h"
#include "audio/AudioErrors.h"
#include "base/ParallelFor.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <fftw3.h>
#include <limits>
#include <map>
#include <numbers>
#include <vector>

namespace sonvale {

std::mutex& fftwPlannerMutex() {
    static std::mutex mutex;
    return mutex;
}

int Spectrogram::hopFor(int64_t frameCount, int fftSize) {
    int64_t hop = std::max(1, fftSize / 8);
    const int64_t limit = magnitudeBudget / std::max(1, fftSize / 2);
    while ((frameCount + hop - 1) / hop > limit)
        hop *= 2;
    return int(hop);
}

double Spectrogram::Progress::fraction() const {
    const int64_t total = columnTotal.load(std::memory_order_relaxed);
    if (total <= 0) return 0;
    return std::min(1.0, double(columnsDone.load(std::memory_order_relaxed)) / double(total));
}

namespace {

// One real-to-complex plan per transform size, made once and kept: new-array execution of a
// plan is thread-safe, so every worker shares it with buffers of its own.
fftwf_plan sharedPlan(int size) {
    struct Plans {
        std::map<int, fftwf_plan> bySize;
        ~Plans() {
            std::lock_guard lock(fftwPlannerMutex());
            for (auto& [size, plan] : bySize)
                fftwf_destroy_plan(plan);
        }
    };
    // The lock is made first, so it outlives the plans that its destructor takes.
    static std::mutex& mutex = fftwPlannerMutex();
    static Plans plans;
    std::lock_guard lock(mutex);
    auto& plan = plans.bySize[size];
    if (!plan) {
        float* input = fftwf_alloc_real(size_t(size));
        fftwf_complex* output = fftwf_alloc_complex(size_t(size) / 2 + 1);
        plan = fftwf_plan_dft_r2c_1d(size, input, output, FFTW_ESTIMATE);
        fftwf_free(output);
        fftwf_free(input);
    }
    return plan;
}

// A worker's transform buffers, aligned as FFTW wants them for a shared plan.
struct TransformBuffers {
    float* input;
    fftwf_complex* output;
    explicit TransformBuffers(int size)
        : input(fftwf_alloc_real(size_t(size)))
        , output(fftwf_alloc_complex(size_t(size) / 2 + 1)) {
        if (!input || !output) {
            release();
            throw AudioLoaderError::outOfMemory();
        }
    }
    ~TransformBuffers() { release(); }
    TransformBuffers(const TransformBuffers&) = delete;
    TransformBuffers& operator=(const TransformBuffers&) = delete;
    void release() {
        fftwf_free(output);
        fftwf_free(input);
    }
};

constexpr int64_t columnsPerTask = 128;

} // namespace

std::shared_ptr<const Spectrogram>
Spectrogram::compute(const std::shared_ptr<const AudioData>& audio, int fftSize,
                     Progress* progress) {
    if (!SpectrogramSettings::isValidFFTSize(fftSize)) fftSize = 2048;
    return compute(audio, fftSize, {0, audio->frameCount}, hopFor(audio->frameCount, fftSize), 0,
                   progress);
}

std::shared_ptr<const Spectrogram>
Spectrogram::compute(const std::shared_ptr<const AudioData>& audio, int fftSize, FrameRange range,
                     int hop, int spacing, Progress* progress) {
    if (!SpectrogramSettings::isValidFFTSize(fftSize)) fftSize = 2048;
    auto result = std::make_shared<Spectrogram>();
    result->source = audio;
    result->fftSize = fftSize;
    result->sampleRate = audio->sampleRate;
    const int64_t frames = audio->frameCount;
    range.lower = std::clamp<int64_t>(range.lower, 0, frames);
    range.upper = std::clamp<int64_t>(range.upper, range.lower, frames);
    hop = result->hop = std::max(1, hop);
    const int64_t columns = result->columnCount = (range.length() + hop - 1) / hop;
    const int bins = fftSize / 2;
    if (progress) progress->columnTotal = columns;
    // Each worker faults in the pages it writes, so the filling is spread as the work is.
    result->magnitudes = FloatBuffer(columns * bins, FloatBuffer::FaultOnWrite{});
    if (columns == 0) return result;

    // The periodic Hann window with the channel average folded in.
    const int channels = std::max(1, audio->channelCount());
    std::vector<float> window(static_cast<size_t>(fftSize));
    for (int n = 0; n < fftSize; ++n)
        window[size_t(n)] =
            float((0.5 - 0.5 * std::cos(2 * std::numbers::pi * n / fftSize)) / channels);
    // The Hann window sums to fftSize ÷ 2; a sine of amplitude 1 then peaks at fftSize ÷ 4.
    const float scale = 4.0f / float(fftSize);

    // The channels' average at `start`, windowed, into `in`.
    const float* w = window.data();
    auto windowed = [&](int64_t start, float* in) {
        if (start >= 0 && start + fftSize <= frames && channels == 2) {
            const float* left = audio->samples(0) + start;
            const float* right = audio->samples(1) + start;
            for (int n = 0; n < fftSize; ++n)
                in[n] = w[n] * (left[n] + right[n]);
        } else if (start >= 0 && start + fftSize <= frames) {
            const float* s = audio->samples(0) + start;
            for (int n = 0; n < fftSize; ++n)
                in[n] = w[n] * s[n];
            for (int ch = 1; ch < channels; ++ch) {
                s = audio->samples(ch) + start;
                for (int n = 0; n < fftSize; ++n)
                    in[n] += w[n] * s[n];
            }
        } else {
            // At either end the frame reaches past the audio: zeros there.
            for (int n = 0; n < fftSize; ++n) {
                const int64_t f = start + n;
                float sum = 0;
                if (f >= 0 && f < frames)
                    for (int ch = 0; ch < channels; ++ch)
                        sum += audio->samples(ch)[f];
                in[n] = w[n] * sum;
            }
        }
    };
    // Transforms merged into each column, `spacing` frames apart.
    spacing = std::clamp(spacing, 0, hop);
    const int transforms = spacing > 0 ? hop / spacing : 1;

    const fftwf_plan plan = sharedPlan(fftSize);
    const int64_t tasks = (columns + columnsPerTask - 1) / columnsPerTask;
    parallelFor(size_t(tasks), [&](size_t task) {
        if (progress && progress->cancelled.load(std::memory_order_relaxed)) return;
        TransformBuffers buffers(fftSize);
        float* in = buffers.input;
        const int64_t first = int64_t(task) * columnsPerTask;
        const int64_t last = std::min(columns, first + columnsPerTask);
        for (int64_t c = first; c < last; ++c) {
            float* out = result->magnitudes.data() + c * bins;
            for (int j = 0; j < transforms; ++j) {
                const int64_t start = range.lower + c * hop + j * spacing - fftSize / 2;
                // The next frames are on their way from memory while these are transformed:
                // reading the audio, not the transform, bounds the speed.
                const int64_t next = j + 1 < transforms ? start + spacing : start + hop;
                if (next >= 0 && next + fftSize <= frames)
                    for (int ch = 0; ch < channels; ++ch)
                        for (int n = 0; n < fftSize; n += 16)
                            __builtin_prefetch(audio->samples(ch) + next + n);
                windowed(start, in);
                fftwf_execute_dft_r2c(plan, in, buffers.output);
                const fftwf_complex* spectrum = buffers.output;
                for (int k = 0; k < bins; ++k) {
                    const float magnitude = std::sqrt(spectrum[k][0] * spectrum[k][0] +
                                                      spectrum[k][1] * spectrum[k][1]) *
                                            scale;
                    out[k] = j == 0 ? magnitude : std::max(out[k], magnitude);
                }
            }
        }
        if (progress) progress->columnsDone.fetch_add(last - first, std::memory_order_relaxed);
    });
    if (progress && progress->cancelled.load()) return nullptr;
    return result;
}

// ---- colours

namespace {

// Degree-6 fits (coefficients of t^0 … t^6) of the published maps' 256 entries, each made to
// keep its largest error small.
using Fit = std::array<std::array<double, 7>, 3>;
#include "analysis/SpectrogramColorFits.inc"

double horner(const std::array<double, 7>& c, double t) {
    double value = c[6];
    for (int i = 5; i >= 0; --i)
        value = value * t + c[size_t(i)];
    return std::clamp(value, 0.0, 1.0);
}

} // namespace

SpectrogramColor color(SpectrogramColorMap map, double t) {
    t = std::isfinite(t) ? std::clamp(t, 0.0, 1.0) : 0.0;
    const Fit* fit = nullptr;
    switch (map) {
    case SpectrogramColorMap::inferno: fit = &infernoFit; break;
    case SpectrogramColorMap::magma: fit = &magmaFit; break;
    case SpectrogramColorMap::viridis: fit = &viridisFit; break;
    case SpectrogramColorMap::grayscale: return {float(t), float(t), float(t)};
    }
    return {float(horner((*fit)[0], t)), float(horner((*fit)[1], t)), float(horner((*fit)[2], t))};
}

// ---- the picture

double FrequencyAxis::frequencyAt(double fraction) const {
    fraction = std::clamp(fraction, 0.0, 1.0);
    if (!logarithmic || nyquist <= lowestLogFrequency) return fraction * nyquist;
    return lowestLogFrequency * std::pow(nyquist / lowestLogFrequency, fraction);
}

double FrequencyAxis::fractionOf(double frequency) const {
    if (!logarithmic || nyquist <= lowestLogFrequency) return frequency / nyquist;
    if (!(frequency > 0)) return -std::numeric_limits<double>::infinity();
    return std::log(frequency / lowestLogFrequency) / std::log(nyquist / lowestLogFrequency);
}

namespace {

// log2 of a positive float from its exponent and a table of its mantissa's top bits: within
// 0.006 (0.04 dB), and cheap enough for every pixel. Zero comes out near −127.
struct FastLog2 {
    std::array<float, 256> mantissa{};
    FastLog2() {
        for (int i = 0; i < 256; ++i)
            mantissa[size_t(i)] = float(std::log2(1 + (i + 0.5) / 256));
    }
    float operator()(float x) const {
        const uint32_t bits = std::bit_cast<uint32_t>(x);
        return float(int(bits >> 23) - 127) + mantissa[(bits >> 15) & 0xff];
    }
};

uint32_t packed(SpectrogramColor c) {
    auto byte = [](float v) { return uint32_t(std::lround(std::clamp(v, 0.0f, 1.0f) * 255)); };
    return 0xff000000u | byte(c.red) << 16 | byte(c.green) << 8 | byte(c.blue);
}

} // namespace

void drawSpectrogram(const Spectrogram& spectrogram, const SpectrogramPicture& picture,
                     uint32_t* pixels, int width, int height, ptrdiff_t stride) {
    if (width <= 0 || height <= 0) return;
    static const FastLog2 log2;
    std::array<uint32_t, 256> palette;
    for (size_t i = 0; i < palette.size(); ++i)
        palette[i] = packed(color(picture.colorMap, double(i) / 255));

    // Each row's bins: the nearest bins to the frequencies at its lower and upper edges.
    const int bins = spectrogram.binCount();
    const FrequencyAxis axis{spectrogram.sampleRate / 2, picture.logFrequency};
    const double binWidth = spectrogram.sampleRate / std::max(1, spectrogram.fftSize);
    std::vector<std::pair<int, int>> rowBins(static_cast<size_t>(height));
    for (int y = 0; y < height; ++y) {
        auto binAt = [&](double fraction) {
            return std::clamp(int(std::floor(axis.frequencyAt(fraction) / binWidth + 0.5)), 0,
                              bins - 1);
        };
        const int low = binAt(1 - double(y + 1) / height);
        const int high = binAt(1 - double(y) / height);
        rowBins[size_t(y)] = {low, std::max(low, high - (high > low ? 1 : 0))};
    }

    // A pixel's level in dB maps linearly onto the palette.
    const float dBPerLog2 = float(20 * std::log10(2.0));
    const float span = float(SpectrogramPicture::ceilingDB - SpectrogramPicture::floorDB);
    const float toIndex = 255 * dBPerLog2 / span;
    const float offset = float(-SpectrogramPicture::floorDB / span * 255);

    std::vector<float> merged(size_t(std::max(bins, 1)));
    const int64_t hop = std::max(1, spectrogram.hop);
    for (int x = 0; x < width; ++x) {
        const double from = picture.startFrame + x * picture.framesPerColumn;
        const double to = from + picture.framesPerColumn;
        if (spectrogram.columnCount == 0 || from >= double(picture.frameCount) || to <= 0) {
            for (int y = 0; y < height; ++y)
                pixels[y * stride + x] = picture.outside;
            continue;
        }
        // The columns centred inside the pixel; the nearest one when none is.
        const int64_t last = spectrogram.columnCount - 1;
        int64_t c0 = std::clamp<int64_t>(int64_t(std::ceil(from / double(hop))), 0, last);
        int64_t c1 = std::clamp<int64_t>(int64_t(std::ceil(to / double(hop))) - 1, 0, last);
        if (c1 < c0) c0 = c1 = std::clamp<int64_t>(std::llround((from + to) / 2 / hop), 0, last);
        const float* column = spectrogram.column(c0);
        if (c1 > c0) {
            std::copy(column, column + bins, merged.begin());
            const int64_t count = c1 - c0 + 1, looked = std::min<int64_t>(count, 4);
            for (int64_t k = 1; k < looked; ++k) {
                const float* other = spectrogram.column(c0 + k * (count - 1) / (looked - 1));
                for (int b = 0; b < bins; ++b)
                    merged[size_t(b)] = std::max(merged[size_t(b)], other[b]);
            }
            column = merged.data();
        }
        for (int y = 0; y < height; ++y) {
            const auto [low, high] = rowBins[size_t(y)];
            float level = column[low];
            for (int b = low + 1; b <= high; ++b)
                level = std::max(level, column[b]);
            const float index = log2(level) * toIndex + offset;
            pixels[y * stride + x] = palette[size_t(std::clamp(index, 0.0f, 255.0f))];
        }
    }
}

} // namespace sonvale
