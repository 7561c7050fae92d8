#include "effects/CompressorProcessor.h"

#include "audio/Decibels.h"
#include "effects/Dsp.h"

#include <algorithm>
#include <cmath>

namespace sonvale {

namespace {
// dB conversions through the natural exponential and logarithm, cheaper than pow and log10.
constexpr double dBPerNeper = 8.685889638065035;    // 20 / ln 10
constexpr double nepersPerDB = 0.11512925464970229; // ln 10 / 20
} // namespace

CompressorProcessor::CompressorProcessor(double sampleRate, int channelCount,
                                         std::shared_ptr<ParameterBank> bank)
    : bank(std::move(bank))
    , sampleRate(sampleRate)
    , channelCount(std::max(channelCount, 0)) {}

double CompressorProcessor::staticCurve(double level, double threshold, double ratio, double knee) {
    double over = level - threshold;
    if (knee > 0 && std::fabs(over) <= knee / 2) {
        double into = over + knee / 2;
        return level + (1 / ratio - 1) * into * into / (2 * knee);
    }
    if (over > 0) return threshold + over / ratio;
    return level;
}

void CompressorProcessor::process(float* const* channels, int64_t frameCount) noexcept {
    double T = bank->value(threshold);
    double R = std::max(bank->value(ratio), 1.0);
    double attackMs = std::max(bank->value(attack), 0.01);
    double releaseMs = std::max(bank->value(release), 1.0);
    double K = std::max(bank->value(knee), 0.0);
    double M = bank->value(makeup);
    double a = decayCoefficient(attackMs / 1000, sampleRate);
    double r = decayCoefficient(releaseMs / 1000, sampleRate);

    // The largest peak that the curve leaves alone, a little low so rounding never skips work.
    float quietBelow = float(std::exp((T - K / 2) * nepersPerDB) * 0.999);
    double lowest = 0;
    double lastDB = M, lastLinear = gainFromDecibels(M); // the exponential, cached
    for (int64_t i = 0; i < frameCount; ++i) {
        float peak = 0;
        for (int c = 0; c < channelCount; ++c)
            peak = std::max(peak, std::fabs(channels[c][i]));
        // Below the knee the curve is the identity: no logarithm needed.
        double change = 0;
        if (peak > quietBelow) {
            double level = dBPerNeper * std::log(std::max(double(peak), 1e-9));
            change = staticCurve(level, T, R, K) - level;
        }
        double coefficient = change < envelope ? a : r;
        envelope = envelope * coefficient + change * (1 - coefficient);
        envelope = flushDenormal(envelope, 1e-30); // none while it settles back to 0
        lowest = std::min(lowest, envelope);
        double dB = envelope + M;
        if (dB != lastDB) {
            lastDB = dB;
            lastLinear = std::exp(dB * nepersPerDB);
        }
        for (int c = 0; c < channelCount; ++c)
            channels[c][i] = float(channels[c][i] * lastLinear);
    }
    bank->report(float(frameCount > 0 ? lowest : 0.0), frameCount);
}

void CompressorProcessor::reset() noexcept { envelope = 0; }

} // namespace sonvale
