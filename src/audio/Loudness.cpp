#include "audio/Loudness.h"

#include "audio/Decibels.h"
#include "base/ParallelFor.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace sonvale {

std::array<Loudness::Section, 2> Loudness::kWeighting(double fs) {
    std::array<Section, 2> sections;
    {
        const double K = std::tan(5284.078578647628 / fs); // tan(pi * 1681.97 Hz / fs)
        const double Q = 0.7071752369554196;
        const double Vh = 1.5848647011308556; // +3.9998 dB
        const double Vb = 1.2587209302325617;
        const double a0 = 1 + K / Q + K * K;
        sections[0] = {(Vh + Vb * K / Q + K * K) / a0, 2 * (K * K - Vh) / a0,
                       (Vh - Vb * K / Q + K * K) / a0, 2 * (K * K - 1) / a0,
                       (1 - K / Q + K * K) / a0};
    }
    {
        const double K = std::tan(119.8061151453059 / fs); // tan(pi * 38.135 Hz / fs)
        const double Q = 0.5003270373238773;
        const double a0 = 1 + K / Q + K * K;
        // The numerator is deliberately left un-normalised (1, -2, 1).
        sections[1] = {1, -2, 1, 2 * (K * K - 1) / a0, (1 - K / Q + K * K) / a0};
    }
    return sections;
}

namespace {

// Filters `count` samples of up to two channels through the K-weighting cascade (transposed
// direct form II, double precision) and adds each filtered sub-block's mean square to
// `power`. Two channels run interleaved: their recurrences are independent, so the
// processor overlaps them.
struct Cascade {
    Loudness::Section s[2];
    double z[2][2][2] = {}; // [channel][section][state]
};

template <int Channels>
void accumulateSubBlocks(Cascade& cascade, const float* const* samples, int64_t firstBlock,
                         int64_t blocks, int64_t n, double* power) {
    const auto& A = cascade.s[0];
    const auto& B = cascade.s[1];
    for (int64_t blk = 0; blk < blocks; ++blk) {
        double sum[2] = {0, 0};
        const int64_t base = (firstBlock + blk) * n;
        double az1[2], az2[2], bz1[2], bz2[2];
        for (int c = 0; c < Channels; ++c) {
            az1[c] = cascade.z[c][0][0];
            az2[c] = cascade.z[c][0][1];
            bz1[c] = cascade.z[c][1][0];
            bz2[c] = cascade.z[c][1][1];
        }
        for (int64_t i = 0; i < n; ++i) {
            for (int c = 0; c < Channels; ++c) {
                const double x = samples[c][base + i];
                const double y = A.b0 * x + az1[c];
                az1[c] = A.b1 * x - A.a1 * y + az2[c];
                az2[c] = A.b2 * x - A.a2 * y;
                const double w = B.b0 * y + bz1[c];
                bz1[c] = B.b1 * y - B.a1 * w + bz2[c];
                bz2[c] = B.b2 * y - B.a2 * w;
                sum[c] += w * w;
            }
        }
        for (int c = 0; c < Channels; ++c) {
            cascade.z[c][0][0] = az1[c];
            cascade.z[c][0][1] = az2[c];
            cascade.z[c][1][0] = bz1[c];
            cascade.z[c][1][1] = bz2[c];
        }
        double total = 0;
        for (int c = 0; c < Channels; ++c)
            total += sum[c] / double(n);
        power[firstBlock + blk] += total;
    }
}

// Runs one group of one or two channels over every sub-block, in chunks of 64 sub-blocks.
void measureGroup(const AudioData& audio, int first, int count, int64_t n, int64_t subBlocks,
                  std::vector<double>& power) {
    Cascade cascade;
    const auto sections = Loudness::kWeighting(audio.sampleRate);
    cascade.s[0] = sections[0];
    cascade.s[1] = sections[1];
    const float* channels[2] = {audio.samples(first),
                                count > 1 ? audio.samples(first + 1) : nullptr};
    constexpr int64_t chunkBlocks = 64;
    for (int64_t b = 0; b < subBlocks; b += chunkBlocks) {
        const int64_t blocks = std::min(chunkBlocks, subBlocks - b);
        if (count == 2)
            accumulateSubBlocks<2>(cascade, channels, b, blocks, n, power.data());
        else
            accumulateSubBlocks<1>(cascade, channels, b, blocks, n, power.data());
    }
}

double blockLoudness(double power) { return -0.691 + decibelsFromPower(power); }

} // namespace

std::optional<double> Loudness::integrated(const AudioData& audio) {
    const int64_t n = std::llround(audio.sampleRate * 0.1);
    if (n < 1 || audio.channelCount() == 0) return std::nullopt;
    const int64_t subBlocks = audio.frameCount / n;
    if (subBlocks < 4) return std::nullopt;

    // Channels in pairs; pairs on threads of their own when there are several.
    const int groups = (audio.channelCount() + 1) / 2;
    std::vector<std::vector<double>> powers(size_t(groups),
                                            std::vector<double>(size_t(subBlocks), 0.0));
    auto runGroup = [&](int g) {
        const int first = 2 * g;
        measureGroup(audio, first, std::min(2, audio.channelCount() - first), n, subBlocks,
                     powers[size_t(g)]);
    };
    parallelFor(size_t(groups), [&](size_t g) { runGroup(int(g)); });
    std::vector<double>& power = powers[0];
    for (int g = 1; g < groups; ++g)
        for (int64_t b = 0; b < subBlocks; ++b)
            power[size_t(b)] += powers[size_t(g)][size_t(b)];

    // 400 ms gating blocks with 75 % overlap: the mean of four consecutive sub-blocks.
    const int64_t blockCount = subBlocks - 3;
    auto gatingPower = [&](int64_t i) {
        return (power[size_t(i)] + power[size_t(i + 1)] + power[size_t(i + 2)] +
                power[size_t(i + 3)]) /
               4;
    };
    double absoluteSum = 0;
    int64_t absoluteCount = 0;
    for (int64_t i = 0; i < blockCount; ++i) {
        const double p = gatingPower(i);
        if (p > 0 && blockLoudness(p) > -70) {
            absoluteSum += p;
            ++absoluteCount;
        }
    }
    if (absoluteCount == 0) return std::nullopt;
    const double threshold = blockLoudness(absoluteSum / double(absoluteCount)) - 10;
    double relativeSum = 0;
    int64_t relativeCount = 0;
    for (int64_t i = 0; i < blockCount; ++i) {
        const double p = gatingPower(i);
        if (p > 0 && blockLoudness(p) > -70 && blockLoudness(p) > threshold) {
            relativeSum += p;
            ++relativeCount;
        }
    }
    if (relativeCount == 0) return std::nullopt;
    return blockLoudness(relativeSum / double(relativeCount));
}

std::vector<LoudnessTarget> loudnessTargets(std::optional<double> customTarget) {
    std::vector<LoudnessTarget> targets{
        {-14, "streaming"}, {-16, "podcasts"}, {-23, "EBU R128 broadcast"}};
    if (customTarget && *customTarget != -14 && *customTarget != -16 && *customTarget != -23)
        targets.push_back({*customTarget, "custom"});
    std::stable_sort(targets.begin(), targets.end(),
                     [](const auto& a, const auto& b) { return a.value > b.value; });
    return targets;
}

std::string loudnessMenuTitle(const LoudnessTarget& target) {
    char text[160];
    std::snprintf(text, sizeof text, "Loudness to %.0f LUFS (%s)", target.value,
                  target.name.c_str());
    return text;
}

std::optional<float> peakNormalizationGain(float peak) {
    if (!(peak > 0)) return std::nullopt;
    return std::clamp(float(-decibelsFromGain(double(peak))), -30.0f, 30.0f);
}

float loudnessNormalizationGain(double targetLUFS, double measuredLUFS) {
    return float(std::clamp(targetLUFS - measuredLUFS, -30.0, 30.0));
}

} // namespace sonvale
