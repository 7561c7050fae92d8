#include "support/Signals.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>

namespace sonvale::test {

std::vector<float> sine(double frequency, double sampleRate, int64_t frames, double amplitude,
                        double phase) {
    auto out = std::vector<float>(size_t(frames));
    for (int64_t i = 0; i < frames; ++i)
        out[size_t(i)] =
            float(amplitude *
                  std::sin(2 * std::numbers::pi * frequency * double(i) / sampleRate + phase));
    return out;
}

std::vector<float> impulse(int64_t frames, int64_t at, float height) {
    std::vector<float> out(size_t(frames), 0.0f);
    if (at >= 0 && at < frames) out[size_t(at)] = height;
    return out;
}

std::vector<float> noise(int64_t frames, uint32_t seed, double amplitude) {
    std::mt19937 generator(seed);
    std::uniform_real_distribution<double> distribution(-amplitude, amplitude);
    auto out = std::vector<float>(size_t(frames));
    for (auto& sample : out)
        sample = float(distribution(generator));
    return out;
}

std::vector<float> constant(int64_t frames, float value) {
    return std::vector<float>(size_t(frames), value);
}

float peak(const float* samples, int64_t count) {
    float largest = 0;
    for (int64_t i = 0; i < count; ++i)
        largest = std::max(largest, std::fabs(samples[i]));
    return largest;
}
float peak(const std::vector<float>& samples) {
    return peak(samples.data(), int64_t(samples.size()));
}

double rms(const float* samples, int64_t count) {
    if (count <= 0) return 0;
    double sum = 0;
    for (int64_t i = 0; i < count; ++i)
        sum += double(samples[i]) * samples[i];
    return std::sqrt(sum / double(count));
}
double rms(const std::vector<float>& samples) {
    return rms(samples.data(), int64_t(samples.size()));
}

double toDB(double linear) { return 20 * std::log10(std::max(linear, 1e-15)); }

float fromDB(double dB) { return float(std::pow(10.0, dB / 20)); }

double gainAt(const std::vector<float>& input, const std::vector<float>& output) {
    auto half = int64_t(input.size() / 2);
    return toDB(rms(output.data() + half, int64_t(output.size()) - half)) -
           toDB(rms(input.data() + half, int64_t(input.size()) - half));
}

double responseAt(const std::vector<float>& response, double frequency, double sampleRate) {
    double re = 0, im = 0;
    double w = 2 * std::numbers::pi * frequency / sampleRate;
    for (size_t n = 0; n < response.size(); ++n) {
        re += response[n] * std::cos(w * double(n));
        im -= response[n] * std::sin(w * double(n));
    }
    return toDB(std::hypot(re, im));
}

float largestStep(const std::vector<float>& samples) {
    float largest = 0;
    for (size_t i = 1; i < samples.size(); ++i)
        largest = std::max(largest, std::fabs(samples[i] - samples[i - 1]));
    return largest;
}

} // namespace sonvale::test
