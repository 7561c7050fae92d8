#pragma once

#include <cstdint>
#include <vector>

namespace sonvale::test {

// Test signals and measurements; a signal is one channel of float samples.
std::vector<float> sine(double frequency, double sampleRate, int64_t frames, double amplitude = 1,
                        double phase = 0);
std::vector<float> impulse(int64_t frames, int64_t at = 0, float height = 1);
// Uniform white noise in [-amplitude, amplitude], the same for the same seed.
std::vector<float> noise(int64_t frames, uint32_t seed, double amplitude = 1);
std::vector<float> constant(int64_t frames, float value);

float peak(const float* samples, int64_t count);
float peak(const std::vector<float>& samples);
double rms(const float* samples, int64_t count);
double rms(const std::vector<float>& samples);
double toDB(double linear); // 20 log10, floored at -300 dB
float fromDB(double dB);    // the linear gain of a level, worked out here and not by Sonvale

// The gain in dB of a processor on a steady tone: the RMS of `output` against the RMS of
// `input` over the second half of both (the steady state).
double gainAt(const std::vector<float>& input, const std::vector<float>& output);
// The magnitude in dB at `frequency` of an impulse response (direct DFT at that frequency).
double responseAt(const std::vector<float>& impulseResponse, double frequency, double sampleRate);

// The largest difference between neighbouring samples: a click shows as a jump.
float largestStep(const std::vector<float>& samples);

} // namespace sonvale::test
