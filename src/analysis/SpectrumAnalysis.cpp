#include "analysis/SpectrumAnalysis.h"

#include "analysis/FFTWPlanner.h"

#include "audio/Decibels.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <fftw3.h>
#include <numbers>

namespace sonvale {

namespace {
constexpr std::array<int, 6> bandChoices{12, 16, 24, 32, 48, 64};
constexpr int binCount = SpectrumAnalysis::transformSize / 2;
// Samples older than this no longer count as "playing now": the bands fall to the floor.
constexpr double staleSeconds = 0.1;
} // namespace

struct SpectrumAnalysis::Transform {
    float* input = nullptr;
    fftwf_complex* output = nullptr;
    fftwf_plan plan = nullptr;

    Transform() {
        std::lock_guard lock(fftwPlannerMutex());
        input = fftwf_alloc_real(transformSize);
        output = fftwf_alloc_complex(transformSize / 2 + 1);
        // The real input's transform: the complex one's first half, the imaginary part zero.
        plan = fftwf_plan_dft_r2c_1d(transformSize, input, output, FFTW_ESTIMATE);
    }
    ~Transform() {
        std::lock_guard lock(fftwPlannerMutex());
        fftwf_destroy_plan(plan);
        fftwf_free(output);
        fftwf_free(input);
    }
};

SpectrumAnalysis::Settings SpectrumAnalysis::settingsFromValues(const std::vector<double>& values) {
    Settings settings;
    auto at = [&](size_t index, double fallback) {
        return index < values.size() && std::isfinite(values[index]) ? values[index] : fallback;
    };
    const auto choice = size_t(std::clamp(std::lround(at(1, 3)), 0L, long(bandChoices.size() - 1)));
    settings.bands = bandChoices[choice];
    settings.release = at(2, 300) / 1000;
    settings.floor = at(3, -80);
    settings.tilt = at(4, 3);
    return settings;
}

SpectrumAnalysis::SpectrumAnalysis()
    : transform(std::make_unique<Transform>())
    , window(transformSize)
    , magnitudes(binCount) {
    // The periodic ("denormalised") Hann window: 0.5 - 0.5 cos(2 pi n / N).
    for (int n = 0; n < transformSize; ++n)
        window[size_t(n)] =
            float(0.5 - 0.5 * std::cos(2 * std::numbers::pi * n / double(transformSize)));
    configure(current, rate);
}

SpectrumAnalysis::~SpectrumAnalysis() = default;

void SpectrumAnalysis::configure(const Settings& settings, double sampleRate) {
    const int bands = std::max(settings.bands, 1);
    const bool resized = int(bandLevels.size()) != bands;
    current = settings;
    current.bands = bands;
    rate = sampleRate > 0 && std::isfinite(sampleRate) ? sampleRate : 48000;

    const double top = std::min(0.45 * rate, 20000.0);
    bandEdges.resize(size_t(bands) + 1);
    for (int i = 0; i <= bands; ++i)
        bandEdges[size_t(i)] = 20 * std::pow(top / 20, double(i) / bands);

    if (resized) {
        bandLevels.assign(size_t(bands), current.floor);
        bandPeaks.assign(size_t(bands), current.floor);
        peakHolds.assign(size_t(bands), 0);
        bandValues.assign(size_t(bands), current.floor);
    }
}

void SpectrumAnalysis::analyse(const SampleTap& tap, int64_t delay) {
    const int64_t end = int64_t(tap.writtenCount()) - std::clamp<int64_t>(delay, 0, maximumDelay);
    const int64_t start = end - transformSize;
    float* input = transform->input;
    for (int n = 0; n < transformSize; ++n)
        input[n] = tap.sample(start + n) * window[size_t(n)];
    fftwf_execute(transform->plan);

    const fftwf_complex* out = transform->output;
    constexpr float scale = 4.0f / transformSize;
    for (int k = 0; k < binCount; ++k) {
        const float magnitude = std::sqrt(out[k][0] * out[k][0] + out[k][1] * out[k][1]) * scale;
        magnitudes[size_t(k)] = decibelsFromGain(std::max(magnitude, 1e-12f));
    }

    const double binWidth = rate / transformSize;
    for (size_t i = 0; i + 1 < bandEdges.size(); ++i) {
        const double low = bandEdges[i], high = bandEdges[i + 1];
        const int lo = std::min(int(std::ceil(low / binWidth)), binCount - 1);
        const int hi = std::min(int(std::floor(high / binWidth)), binCount - 1);
        const double centre = std::sqrt(low * high);
        double value;
        if (lo <= hi) {
            value = *std::max_element(magnitudes.begin() + lo, magnitudes.begin() + hi + 1);
        } else {
            // Narrower than a bin: read between the two bins around the band's centre.
            const double position = std::min(centre / binWidth, double(binCount - 2));
            const int below = int(position);
            const double fraction = position - below;
            value = magnitudes[size_t(below)] +
                    fraction * (magnitudes[size_t(below) + 1] - magnitudes[size_t(below)]);
        }
        bandValues[i] = value + current.tilt * std::log2(centre / 1000);
    }
}

void SpectrumAnalysis::update(const SampleTap* tap, int64_t delay, const Settings& settings,
                              Clock::time_point at) {
    const double tapRate = tap ? tap->sampleRate() : 48000;
    if (!(settings == current) || tapRate != rate) configure(settings, tapRate);

    const double dt = lastDate ? std::clamp(std::chrono::duration<double>(at - *lastDate).count(),
                                            0.0, maximumStep)
                               : 0.0;
    lastDate = at;

    if (tap && tap->writtenCount() != lastWrite) {
        lastWrite = tap->writtenCount();
        lastNewSamples = at;
        analyse(*tap, delay);
    } else if (!lastNewSamples ||
               std::chrono::duration<double>(at - *lastNewSamples).count() > staleSeconds) {
        std::fill(bandValues.begin(), bandValues.end(), current.floor);
    }

    const double floor = current.floor;
    const double coefficient = std::exp(-dt / std::max(current.release, 0.01));
    bool resting = true;
    for (size_t i = 0; i < bandLevels.size(); ++i) {
        const double target = std::max(bandValues[i], floor);
        double& level = bandLevels[i];
        if (level < target)
            level = target; // instant attack
        else
            level += (1 - coefficient) * (target - level);

        double& peak = bandPeaks[i];
        if (peak <= level) {
            peak = level;
            peakHolds[i] = peakHoldSeconds;
        } else if (peakHolds[i] > 0) {
            peakHolds[i] = std::max(peakHolds[i] - dt, 0.0);
        } else {
            // From 0 dB to the floor in 2.5 s.
            peak = std::max(peak + floor / 2.5 * dt, level);
        }
        constexpr double restingMargin = 0.01; // dB
        if (level > floor + restingMargin || peak > floor + restingMargin) resting = false;
    }
    settled = resting;
}

} // namespace sonvale
