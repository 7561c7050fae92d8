#include "audio/AudioData.h"

#include "base/ParallelFor.h"

#include "audio/AudioErrors.h"
#include "audio/AudioLoader.h"
#include "base/CpuDispatch.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fstream>
#include <limits>
#include <soxr.h>
#include <unistd.h>

namespace sonvale {

// ---- level pyramid -------------------------------------------------------------------

namespace {

// 8-float vectors are passed between always-inlined helpers only, so the ABI note GCC
// gives for them in the non-AVX clone does not apply.
#pragma GCC diagnostic ignored "-Wpsabi"
typedef float v8f __attribute__((vector_size(32)));

template <typename V> SONVALE_ALWAYS_INLINE V vmin(V a, V b) { return a < b ? a : b; }
template <typename V> SONVALE_ALWAYS_INLINE V vmax(V a, V b) { return a > b ? a : b; }

// Reduces eight vectors to one whose lane k holds the reduction of vector k, using only
// in-lane shuffles and one cross-lane step (the classic 8x8 transpose-and-reduce).
template <typename Op> SONVALE_ALWAYS_INLINE v8f reduceEight(const v8f (&m)[8], Op op) {
    v8f pairs[4];
    for (int i = 0; i < 4; ++i)
        pairs[i] = op(__builtin_shufflevector(m[2 * i], m[2 * i + 1], 0, 2, 8, 10, 4, 6, 12, 14),
                      __builtin_shufflevector(m[2 * i], m[2 * i + 1], 1, 3, 9, 11, 5, 7, 13, 15));
    v8f quads[2];
    for (int i = 0; i < 2; ++i)
        quads[i] =
            op(__builtin_shufflevector(pairs[2 * i], pairs[2 * i + 1], 0, 2, 8, 10, 4, 6, 12, 14),
               __builtin_shufflevector(pairs[2 * i], pairs[2 * i + 1], 1, 3, 9, 11, 5, 7, 13, 15));
    return op(__builtin_shufflevector(quads[0], quads[1], 0, 1, 2, 3, 8, 9, 10, 11),
              __builtin_shufflevector(quads[0], quads[1], 4, 5, 6, 7, 12, 13, 14, 15));
}

// The first two pyramid levels over groups of eight whole 16-sample blocks: level 0 (min and
// max pairs, sums of squares) and, since four blocks make one level-1 entry, two level-1
// entries per group, so level 0 is never read back. Level 1 is skipped when its buffers are
// null. Built for AVX2 where the processor has it.
SONVALE_AVX2_CLONES void summariseBlockGroups(const float* samples, int64_t groups, float* minMax0,
                                              float* energy0, float* minMax1, float* energy1) {
    for (int64_t g = 0; g < groups; ++g) {
        const float* in = samples + 128 * g;
        v8f mn[8], mx[8], sq[8];
        for (int k = 0; k < 8; ++k) {
            v8f lo, hi;
            std::memcpy(&lo, in + 16 * k, sizeof lo);
            std::memcpy(&hi, in + 16 * k + 8, sizeof hi);
            mn[k] = vmin(lo, hi);
            mx[k] = vmax(lo, hi);
            sq[k] = lo * lo + hi * hi;
        }
        const v8f mins = reduceEight(
            mn, [](v8f x, v8f y) __attribute__((always_inline)) { return vmin(x, y); });
        const v8f maxs = reduceEight(
            mx, [](v8f x, v8f y) __attribute__((always_inline)) { return vmax(x, y); });
        const v8f sums = reduceEight(
            sq, [](v8f x, v8f y) __attribute__((always_inline)) { return x + y; });
        const v8f pairsLow = __builtin_shufflevector(mins, maxs, 0, 8, 1, 9, 2, 10, 3, 11);
        const v8f pairsHigh = __builtin_shufflevector(mins, maxs, 4, 12, 5, 13, 6, 14, 7, 15);
        std::memcpy(minMax0 + 16 * g, &pairsLow, sizeof pairsLow);
        std::memcpy(minMax0 + 16 * g + 8, &pairsHigh, sizeof pairsHigh);
        std::memcpy(energy0 + 8 * g, &sums, sizeof sums);

        if (!minMax1) continue;
        // Lanes 0-3 and 4-7 each reduce to one level-1 entry.
        const v8f mn2 = vmin(mins, __builtin_shufflevector(mins, mins, 2, 3, 0, 1, 6, 7, 4, 5));
        const v8f mn1 = vmin(mn2, __builtin_shufflevector(mn2, mn2, 1, 0, 3, 2, 5, 4, 7, 6));
        const v8f mx2 = vmax(maxs, __builtin_shufflevector(maxs, maxs, 2, 3, 0, 1, 6, 7, 4, 5));
        const v8f mx1 = vmax(mx2, __builtin_shufflevector(mx2, mx2, 1, 0, 3, 2, 5, 4, 7, 6));
        minMax1[4 * g] = mn1[0];
        minMax1[4 * g + 1] = mx1[0];
        minMax1[4 * g + 2] = mn1[4];
        minMax1[4 * g + 3] = mx1[4];
        // Summed in the order mergeEntries uses, so both ways of building agree to the bit.
        energy1[2 * g] = ((sums[0] + sums[1]) + sums[2]) + sums[3];
        energy1[2 * g + 1] = ((sums[4] + sums[5]) + sums[6]) + sums[7];
    }
}

void summariseBlock(const float* samples, int64_t n, float& mn, float& mx, float& sumSq) {
    mn = std::numeric_limits<float>::infinity();
    mx = -std::numeric_limits<float>::infinity();
    sumSq = 0;
    for (int64_t i = 0; i < n; ++i) {
        mn = std::min(mn, samples[i]);
        mx = std::max(mx, samples[i]);
        sumSq += samples[i] * samples[i];
    }
}

// Level 0 from block `from` to the end of `count` samples, one block at a time.
void summariseRemainingBlocks(const float* samples, int64_t count, int64_t from, float* minMax,
                              float* energy) {
    for (int64_t b = from; 16 * b < count; ++b)
        summariseBlock(samples + 16 * b, std::min<int64_t>(16, count - 16 * b), minMax[2 * b],
                       minMax[2 * b + 1], energy[b]);
}

// Fills `next` from entry `from` on: each entry merges four entries of `previous`.
void mergeEntries(const PeakLevel& previous, PeakLevel& next, int64_t from) {
    const float* pairs = previous.buffer.data();
    const float* energy = previous.energy.data();
    for (int64_t i = from; i < next.count; ++i) {
        const int64_t first = 4 * i, last = std::min(first + 4, previous.count);
        float mn = pairs[2 * first], mx = pairs[2 * first + 1], e = energy[first];
        for (int64_t j = first + 1; j < last; ++j) {
            mn = std::min(mn, pairs[2 * j]);
            mx = std::max(mx, pairs[2 * j + 1]);
            e += energy[j];
        }
        next.buffer[2 * i] = mn;
        next.buffer[2 * i + 1] = mx;
        next.energy[i] = e;
    }
}

PeakLevel allocateLevel(int64_t blockSize, int64_t entries, bool faultOnWrite = false) {
    PeakLevel level;
    level.blockSize = blockSize;
    level.count = entries;
    if (faultOnWrite) {
        level.buffer = FloatBuffer(2 * entries, FloatBuffer::FaultOnWrite{});
        level.energy = FloatBuffer(entries, FloatBuffer::FaultOnWrite{});
    } else {
        level.buffer = FloatBuffer(2 * entries);
        level.energy = FloatBuffer(entries);
    }
    return level;
}

// Adds coarser levels, four entries to one, until a level has a single entry.
std::vector<PeakLevel> buildUpperLevels(std::vector<PeakLevel> levels) {
    while (levels.back().count > 1) {
        PeakLevel next = allocateLevel(levels.back().blockSize * 4, (levels.back().count + 3) / 4);
        mergeEntries(levels.back(), next, 0);
        levels.push_back(std::move(next));
    }
    return levels;
}

} // namespace

void AudioLoader::summariseLevelZero(const float* samples, int64_t count, float* minMax,
                                     float* energy) {
    const int64_t groups = count / 128;
    summariseBlockGroups(samples, groups, minMax, energy, nullptr, nullptr);
    summariseRemainingBlocks(samples, count, 8 * groups, minMax, energy);
}

namespace {

// Completes levels 0 and 1, whose whole groups of 128 samples are summarised, with the short
// blocks at the end, and adds the levels above.
std::vector<PeakLevel> finishLevels(const float* samples, int64_t count, PeakLevel first,
                                    PeakLevel second) {
    const int64_t groups = count / 128;
    summariseRemainingBlocks(samples, count, 8 * groups, first.buffer.data(), first.energy.data());
    mergeEntries(first, second, 2 * groups);
    std::vector<PeakLevel> levels;
    levels.push_back(std::move(first));
    levels.push_back(std::move(second));
    return buildUpperLevels(std::move(levels));
}

// Samples per thread below which splitting one channel's summary does not pay.
constexpr int64_t splitLevelThreshold = int64_t(1) << 22;

// Levels 0 and 1 in `threads` contiguous parts at once, then the levels above.
std::vector<PeakLevel> buildLevelsOn(const float* samples, int64_t count, unsigned threads) {
    if (count < 17) return {};
    // 17 or more samples make at least two level-0 entries, so level 1 always exists.
    const int64_t parts =
        std::clamp<int64_t>(count / splitLevelThreshold, 1, std::max(1u, threads));
    // Split, each part faults in its own share of the two levels.
    PeakLevel first = allocateLevel(16, (count + 15) / 16, parts > 1);
    PeakLevel second = allocateLevel(64, (first.count + 3) / 4, parts > 1);
    const int64_t groups = count / 128;
    auto summarise = [&](int64_t from, int64_t to) {
        summariseBlockGroups(samples + 128 * from, to - from, first.buffer.data() + 16 * from,
                             first.energy.data() + 8 * from, second.buffer.data() + 4 * from,
                             second.energy.data() + 2 * from);
    };
    parallelFor(size_t(parts), [&](size_t k) {
        summarise(groups * int64_t(k) / parts, groups * int64_t(k + 1) / parts);
    });
    return finishLevels(samples, count, std::move(first), std::move(second));
}

unsigned hardwareThreads() { return unsigned(parallelWidth()); }

// Samples filled and summarised together, small enough to be summarised from the cache.
constexpr int64_t fillChunk = 32768;

// Levels of `count` samples that `fill(from, to)` writes into `out` chunk by chunk, each chunk
// summarised while it is still in the cache. The first `headGroups` groups of 128 samples are
// the same as in the audio `head` summarises (its levels 0 and 1 are copied, not rebuilt);
// `fill` is asked only for what follows them.
template <typename Fill>
std::vector<PeakLevel> fillAndSummarise(float* out, int64_t count,
                                        const std::vector<PeakLevel>& head, int64_t headGroups,
                                        Fill&& fill) {
    if (count < 17) {
        fill(0, count);
        return {};
    }
    PeakLevel first = allocateLevel(16, (count + 15) / 16);
    PeakLevel second = allocateLevel(64, (first.count + 3) / 4);
    const int64_t groups = count / 128;
    if (head.size() < 2) headGroups = 0;
    headGroups = std::clamp<int64_t>(headGroups, 0, groups);
    if (headGroups > 0) {
        std::memcpy(first.buffer.data(), head[0].buffer.data(),
                    size_t(16 * headGroups) * sizeof(float));
        std::memcpy(first.energy.data(), head[0].energy.data(),
                    size_t(8 * headGroups) * sizeof(float));
        std::memcpy(second.buffer.data(), head[1].buffer.data(),
                    size_t(4 * headGroups) * sizeof(float));
        std::memcpy(second.energy.data(), head[1].energy.data(),
                    size_t(2 * headGroups) * sizeof(float));
    }
    for (int64_t from = 128 * headGroups; from < count; from += fillChunk) {
        const int64_t to = std::min(from + fillChunk, count);
        fill(from, to);
        const int64_t g0 = from / 128, g1 = to / 128;
        summariseBlockGroups(out + 128 * g0, g1 - g0, first.buffer.data() + 16 * g0,
                             first.energy.data() + 8 * g0, second.buffer.data() + 4 * g0,
                             second.energy.data() + 2 * g0);
    }
    return finishLevels(out, count, std::move(first), std::move(second));
}

} // namespace

std::vector<PeakLevel> AudioLoader::buildLevels(const float* samples, int64_t count) {
    return buildLevelsOn(samples, count, hardwareThreads());
}

std::vector<PeakLevel> AudioLoader::buildLevels(PeakLevel levelZero) {
    std::vector<PeakLevel> levels;
    levels.push_back(std::move(levelZero));
    return buildUpperLevels(std::move(levels));
}

namespace {

float channelPeak(const float* samples, int64_t count, const std::vector<PeakLevel>& levels) {
    float peak = 0;
    if (!levels.empty()) {
        const PeakLevel& top = levels.back();
        for (int64_t i = 0; i < top.count; ++i)
            peak = std::max({peak, std::fabs(top.minimum(i)), std::fabs(top.maximum(i))});
        return peak;
    }
    for (int64_t i = 0; i < count; ++i)
        peak = std::max(peak, std::fabs(samples[i]));
    return peak;
}

// Enough samples per channel that a thread of its own pays off.
constexpr int64_t parallelChannelThreshold = 1 << 20;

// Runs `work(c)` for every channel, spread over the cores when the channels are long.
template <typename Work> void forEachChannel(size_t n, int64_t frameCount, Work&& work) {
    if (frameCount >= parallelChannelThreshold) {
        parallelFor(n, [&](size_t c) { work(c); });
    } else {
        for (size_t c = 0; c < n; ++c)
            work(c);
    }
}

} // namespace

AudioDataPtr AudioLoader::makeAudioData(double sampleRate, std::vector<FloatBuffer> buffers,
                                        int64_t frameCount) {
    frameCount = std::max<int64_t>(frameCount, 0);
    for (auto& buffer : buffers)
        if (buffer.size() != frameCount) buffer.resize(frameCount);

    const size_t n = buffers.size();
    std::vector<std::vector<PeakLevel>> levels(n);
    std::vector<std::exception_ptr> failures(n);
    auto build = [&](size_t c) {
        try {
            // The threads left over when every channel has one split its summary.
            levels[c] = buildLevelsOn(buffers[c].data(), frameCount,
                                      std::max<unsigned>(1, hardwareThreads() / unsigned(n)));
        } catch (...) {
            failures[c] = std::current_exception();
        }
    };
    forEachChannel(n, frameCount, build);
    for (auto& failure : failures)
        if (failure) std::rethrow_exception(failure);
    return makeAudioData(sampleRate, std::move(buffers), frameCount, std::move(levels));
}

AudioDataPtr AudioLoader::makeAudioData(double sampleRate, std::vector<FloatBuffer> buffers,
                                        int64_t frameCount,
                                        std::vector<std::vector<PeakLevel>> levels) {
    frameCount = std::max<int64_t>(frameCount, 0);
    for (auto& buffer : buffers)
        if (buffer.size() != frameCount) buffer.resize(frameCount);
    const size_t n = buffers.size();
    levels.resize(n);
    std::vector<ChannelDataPtr> channels;
    channels.reserve(n);
    float peak = 0;
    for (size_t c = 0; c < n; ++c) {
        peak = std::max(peak, channelPeak(buffers[c].data(), frameCount, levels[c]));
        channels.push_back(
            std::make_shared<ChannelData>(std::move(buffers[c]), std::move(levels[c])));
    }
    return AudioDataPtr(new AudioData(sampleRate, frameCount, std::move(channels), peak));
}

AudioDataPtr AudioLoader::makeAudioDataForPlaying(double sampleRate,
                                                  std::vector<FloatBuffer> buffers,
                                                  int64_t frameCount) {
    frameCount = std::max<int64_t>(frameCount, 0);
    std::vector<ChannelDataPtr> channels;
    channels.reserve(buffers.size());
    for (auto& buffer : buffers) {
        if (buffer.size() != frameCount) buffer.resize(frameCount);
        channels.push_back(
            std::make_shared<ChannelData>(std::move(buffer), std::vector<PeakLevel>{}));
    }
    return AudioDataPtr(new AudioData(sampleRate, frameCount, std::move(channels), 0));
}

// ---- reading columns -----------------------------------------------------------------

std::vector<WaveColumn> AudioData::waveColumns(FrameRange range, int columns) const {
    std::vector<WaveSource> sources;
    for (size_t ch = 0; ch < std::min<size_t>(2, channels.size()); ++ch)
        sources.push_back({channels[ch]->data(), &channels[ch]->levels()});
    return sonvale::waveColumns(sources, frameCount, range, columns);
}

std::vector<WaveColumn> waveColumns(std::span<const WaveSource> channels, int64_t frameCount,
                                    FrameRange range, int columns) {
    const int64_t lo = std::max<int64_t>(0, range.lower);
    const int64_t hi = std::min(frameCount, range.upper);
    if (columns < 1 || hi <= lo) return {};
    const double samplesPerColumn = double(hi - lo) / columns;

    struct Accumulator {
        float mn = std::numeric_limits<float>::infinity();
        float mx = -std::numeric_limits<float>::infinity();
        double sumSq = 0;
        int64_t count = 0;
        void addSamples(const float* samples, int64_t from, int64_t to) {
            for (int64_t i = from; i < to; ++i) {
                mn = std::min(mn, samples[i]);
                mx = std::max(mx, samples[i]);
                sumSq += double(samples[i]) * samples[i];
            }
            count += std::max<int64_t>(0, to - from);
        }
    };
    std::vector<Accumulator> acc(static_cast<size_t>(columns));

    for (const WaveSource& channel : channels) {
        const PeakLevel* level = nullptr;
        for (auto it = channel.levels->rbegin(); it != channel.levels->rend(); ++it)
            if (double(it->blockSize) <= samplesPerColumn && it->count > 0) {
                level = &*it;
                break;
            }
        for (int c = 0; c < columns; ++c) {
            const int64_t start = lo + int64_t(samplesPerColumn * c);
            const int64_t end = std::max(lo + int64_t(samplesPerColumn * (c + 1)), start + 1);
            Accumulator& a = acc[size_t(c)];
            if (!level) {
                a.addSamples(channel.samples, start, std::min(frameCount, end));
                continue;
            }
            const int64_t B = level->blockSize;
            const int64_t first = start / B;
            const int64_t last = std::min(level->count - 1, (end - 1) / B);
            if (last >= first) {
                const float* pairs = level->buffer.data();
                const float* energy = level->energy.data();
                double e = 0;
                for (int64_t b = first; b <= last; ++b) {
                    a.mn = std::min(a.mn, pairs[2 * b]);
                    a.mx = std::max(a.mx, pairs[2 * b + 1]);
                    e += energy[b];
                }
                a.sumSq += e;
                a.count += std::min(frameCount, (last + 1) * B) - first * B;
            }
            // Audio still growing has samples past the level's last whole block.
            const int64_t covered = level->count * B;
            if (end > covered)
                a.addSamples(channel.samples, std::max(start, covered), std::min(frameCount, end));
        }
    }

    std::vector<WaveColumn> result(static_cast<size_t>(columns));
    for (size_t c = 0; c < result.size(); ++c) {
        const Accumulator& a = acc[c];
        if (a.mn <= a.mx)
            result[c] = {a.mn, a.mx,
                         a.count > 0 ? float(std::sqrt(a.sumSq / double(a.count))) : 0.0f};
    }
    return result;
}

// ---- clips and edits -----------------------------------------------------------------

AudioClip AudioData::clip(FrameRange range) const {
    AudioClip result;
    result.sampleRate = sampleRate;
    const int64_t lo = std::clamp<int64_t>(range.lower, 0, frameCount);
    const int64_t hi = std::clamp<int64_t>(range.upper, lo, frameCount);
    result.channels.reserve(channels.size());
    for (const auto& channel : channels)
        result.channels.emplace_back(channel->data() + lo, channel->data() + hi);
    return result;
}

AudioClip AudioClip::matching(int channelCount) const {
    const int have = int(channels.size());
    if (have == channelCount || have == 0 || channelCount < 1) return *this;
    AudioClip result;
    result.sampleRate = sampleRate;
    if (channelCount == 1) {
        const size_t n = channels[0].size();
        const float scale = 1.0f / float(have);
        std::vector<float> mono(n, 0.0f);
        for (const auto& channel : channels)
            for (size_t i = 0; i < std::min(n, channel.size()); ++i)
                mono[i] += channel[i];
        for (float& s : mono)
            s *= scale;
        result.channels.push_back(std::move(mono));
        return result;
    }
    for (int i = 0; i < channelCount; ++i)
        result.channels.push_back(channels[size_t(std::min(i, have - 1))]);
    return result;
}

AudioDataPtr AudioData::replacing(FrameRange range, const AudioClip& clip) const {
    const AudioClip matched = clip.matching(channelCount());
    const int64_t lower = std::clamp<int64_t>(range.lower, 0, frameCount);
    const int64_t upper = std::clamp<int64_t>(range.upper, lower, frameCount);
    const int64_t inserted = matched.channels.empty() ? 0 : matched.length();
    const int64_t newLength = frameCount - (upper - lower) + inserted;
    if (newLength < 1) throw EditError::wouldRemoveEverything();

    const size_t n = channels.size();
    std::vector<FloatBuffer> buffers(n);
    std::vector<std::vector<PeakLevel>> levels(n);
    std::vector<std::exception_ptr> failures(n);
    // The head before the range is the old audio's, and so are its summaries: whole groups of
    // it are copied with their levels; the rest is copied and summarised in one pass.
    const int64_t headGroups = lower / 128;
    auto build = [&](size_t c) {
        try {
            FloatBuffer buffer(newLength);
            const float* old = channels[c]->data();
            float* out = buffer.data();
            const float* clipSamples = inserted > 0 ? matched.channels[c].data() : nullptr;
            const int64_t clipAvailable =
                inserted > 0 ? std::min<int64_t>(int64_t(matched.channels[c].size()), inserted) : 0;
            // Writes new frames [from, to) from the head, the clip (zeros past its end) and
            // the tail.
            auto fill = [&](int64_t from, int64_t to) {
                const int64_t headEnd = std::min(to, lower);
                if (from < headEnd) std::memcpy(out + from, old + from, size_t(headEnd - from) * 4);
                from = std::max(from, lower);
                const int64_t clipEnd = std::min(to, lower + inserted);
                const int64_t copiedEnd = std::min(clipEnd, lower + clipAvailable);
                if (from < copiedEnd) {
                    std::memcpy(out + from, clipSamples + (from - lower),
                                size_t(copiedEnd - from) * 4);
                    from = copiedEnd;
                }
                if (from < clipEnd) std::fill(out + from, out + clipEnd, 0.0f);
                from = std::max(from, lower + inserted);
                if (from < to)
                    std::memcpy(out + from, old + (from - lower - inserted + upper),
                                size_t(to - from) * 4);
            };
            std::memcpy(out, old, size_t(128 * std::min(headGroups, newLength / 128)) * 4);
            levels[c] = fillAndSummarise(out, newLength, channels[c]->levels(), headGroups, fill);
            buffers[c] = std::move(buffer);
        } catch (...) {
            failures[c] = std::current_exception();
        }
    };
    // Most of the time goes into the kernel's zeroing of the new pages and into copying, so
    // long channels are made on threads of their own.
    forEachChannel(n, newLength, build);
    for (auto& failure : failures)
        if (failure) std::rethrow_exception(failure);
    return AudioLoader::makeAudioData(sampleRate, std::move(buffers), newLength, std::move(levels));
}

namespace {

// The level sizes of `count` samples: level 0 summarises 16 samples an entry, each level
// above four entries of the one below, up to a single entry.
std::vector<int64_t> levelEntries(int64_t count) {
    std::vector<int64_t> entries;
    if (count < 17) return entries;
    entries.push_back((count + 15) / 16);
    while (entries.back() > 1)
        entries.push_back((entries.back() + 3) / 4);
    return entries;
}

// Frames after which an in-place edit pays for its checks.
constexpr int64_t inPlaceThreshold = 1 << 20;

} // namespace

AudioDataPtr AudioData::replacingOwned(AudioDataPtr& audio, FrameRange range,
                                       const AudioClip& clip) {
    bool owned = audio && audio.use_count() == 1 && audio->frameCount >= inPlaceThreshold;
    if (owned)
        for (const auto& channel : audio->channels)
            owned = owned && channel.use_count() == 1 && channel->levels().size() >= 2;
    if (!owned) return audio->replacing(range, clip);

    const AudioClip matched = clip.matching(audio->channelCount());
    const int64_t oldLength = audio->frameCount;
    const int64_t lower = std::clamp<int64_t>(range.lower, 0, oldLength);
    const int64_t upper = std::clamp<int64_t>(range.upper, lower, oldLength);
    const int64_t inserted = matched.channels.empty() ? 0 : matched.length();
    const int64_t newLength = oldLength - (upper - lower) + inserted;
    if (newLength < 1) throw EditError::wouldRemoveEverything();
    if (newLength < 17) return audio->replacing(range, clip);

    // Everything that can fail comes first, while the audio is still untouched: growing the
    // buffers and making the upper levels. A failure shrinks what grew and leaves.
    const size_t n = audio->channels.size();
    std::vector<ChannelData*> edited(n);
    for (size_t c = 0; c < n; ++c)
        edited[c] = const_cast<ChannelData*>(audio->channels[c].get());
    const std::vector<int64_t> entries = levelEntries(newLength);
    std::vector<std::vector<PeakLevel>> upperLevels(n);
    auto sizeLowerLevels = [&](ChannelData& channel, int64_t first, int64_t second, bool grow) {
        auto size = [grow](FloatBuffer& buffer, int64_t count) {
            if (grow)
                buffer.resize(count);
            else
                buffer.truncate(count);
        };
        size(channel.buffer,
             grow ? std::max(newLength, oldLength) : std::min(newLength, oldLength));
        size(channel.pyramid[0].buffer, 2 * first);
        size(channel.pyramid[0].energy, first);
        size(channel.pyramid[1].buffer, 2 * second);
        size(channel.pyramid[1].energy, second);
    };
    const std::vector<int64_t> oldEntries = levelEntries(oldLength);
    std::vector<FloatBuffer> buffers;
    std::vector<std::vector<PeakLevel>> levels;
    try {
        buffers.reserve(n);
        levels.reserve(n);
        for (size_t c = 0; c < n; ++c) {
            edited[c]->pyramid.reserve(entries.size());
            for (size_t k = 2; k < entries.size(); ++k)
                upperLevels[c].push_back(
                    allocateLevel(edited[c]->pyramid[1].blockSize << (2 * (k - 1)), entries[k]));
        }
        if (newLength > oldLength)
            for (size_t c = 0; c < n; ++c)
                sizeLowerLevels(*edited[c], entries[0], entries[1], true);
    } catch (...) {
        // Shrinking what did not grow changes nothing, so every channel is put back.
        for (size_t c = 0; c < n; ++c)
            sizeLowerLevels(*edited[c], oldEntries[0], oldEntries[1], false);
        throw;
    }

    // From here on nothing fails but the few small allocations of the new audio's handles:
    // move the tail, write the clip, summarise from the edit on.
    const int64_t headGroups = lower / 128;
    const int64_t groups = newLength / 128;
    auto edit = [&](size_t c) {
        ChannelData& channel = *edited[c];
        float* samples = channel.buffer.data();
        std::memmove(samples + lower + inserted, samples + upper, size_t(oldLength - upper) * 4);
        const int64_t available =
            inserted > 0 ? std::min<int64_t>(int64_t(matched.channels[c].size()), inserted) : 0;
        if (available > 0)
            std::memcpy(samples + lower, matched.channels[c].data(), size_t(available) * 4);
        std::fill(samples + lower + available, samples + lower + inserted, 0.0f);
        if (newLength < oldLength) sizeLowerLevels(channel, entries[0], entries[1], false);
        PeakLevel& first = channel.pyramid[0];
        PeakLevel& second = channel.pyramid[1];
        first.count = entries[0];
        second.count = entries[1];
        for (int64_t g = headGroups; g < groups; g += fillChunk / 128) {
            const int64_t to = std::min(groups, g + fillChunk / 128);
            summariseBlockGroups(samples + 128 * g, to - g, first.buffer.data() + 16 * g,
                                 first.energy.data() + 8 * g, second.buffer.data() + 4 * g,
                                 second.energy.data() + 2 * g);
        }
        summariseRemainingBlocks(samples, newLength, 8 * groups, first.buffer.data(),
                                 first.energy.data());
        mergeEntries(first, second, 2 * groups);
        channel.pyramid.resize(2); // destroys the old upper levels; no allocation
        const PeakLevel* below = &second;
        for (PeakLevel& level : upperLevels[c]) {
            mergeEntries(*below, level, 0);
            below = &level;
        }
    };
    forEachChannel(n, newLength, edit);

    for (size_t c = 0; c < n; ++c) {
        buffers.push_back(std::move(edited[c]->buffer));
        std::vector<PeakLevel> pyramid = std::move(edited[c]->pyramid);
        for (PeakLevel& level : upperLevels[c])
            pyramid.push_back(std::move(level));
        levels.push_back(std::move(pyramid));
    }
    const double rate = audio->sampleRate;
    audio.reset();
    return AudioLoader::makeAudioData(rate, std::move(buffers), newLength, std::move(levels));
}

int64_t AudioData::nearestZeroCrossing(int64_t f, int64_t radius) const {
    if (radius < 1 || f < 1 || f >= frameCount) return f;
    auto mono = [this](int64_t i) {
        float s = 0;
        for (const auto& channel : channels)
            s += channel->data()[i];
        return s;
    };
    auto crossingAt = [&](int64_t i, int64_t& found) {
        const float a = mono(i - 1), b = mono(i);
        if ((a <= 0 && 0 <= b) || (a >= 0 && 0 >= b)) {
            found = std::fabs(a) <= std::fabs(b) ? i - 1 : i;
            return true;
        }
        return false;
    };
    int64_t found = f;
    for (int64_t d = 0; d <= radius; ++d) {
        const int64_t forward = f + d;
        if (forward >= 1 && forward < frameCount && crossingAt(forward, found)) return found;
        const int64_t backward = f - d;
        if (d > 0 && backward >= 1 && crossingAt(backward, found)) return found;
        if (forward >= frameCount && backward < 1) break;
    }
    return f;
}

// ---- sample-rate conversion ----------------------------------------------------------

AudioDataPtr AudioData::resampled(double newRate) const {
    if (!(newRate > 0) || !(sampleRate > 0)) throw AudioLoaderError::outOfMemory();
    const unsigned n = unsigned(channels.size());
    const int64_t capacity = int64_t(std::ceil(double(frameCount) * newRate / sampleRate));
    std::vector<FloatBuffer> out;
    for (unsigned c = 0; c < n; ++c)
        out.emplace_back(std::max<int64_t>(capacity, 1));
    if (n == 0 || frameCount == 0) return AudioLoader::makeAudioData(newRate, std::move(out), 0);

    soxr_error_t error = nullptr;
    const soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT32_S, SOXR_FLOAT32_S);
    const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_VHQ, 0);
    soxr_t converter = soxr_create(sampleRate, newRate, n, &error, &io, &quality, nullptr);
    if (!converter || error) throw AudioLoaderError::outOfMemory();
    struct Closer {
        soxr_t s;
        ~Closer() { soxr_delete(s); }
    } closer{converter};

    constexpr int64_t chunk = 32768;
    std::vector<const float*> in(n);
    std::vector<float*> dst(n);
    int64_t consumed = 0, produced = 0;
    for (;;) {
        const int64_t feed = std::min(chunk, frameCount - consumed);
        for (unsigned c = 0; c < n; ++c) {
            in[c] = channels[c]->data() + consumed;
            dst[c] = out[c].data() + produced;
        }
        size_t used = 0, made = 0;
        const bool flushing = feed == 0;
        error = soxr_process(converter, flushing ? nullptr : in.data(), size_t(feed), &used,
                             dst.data(), size_t(capacity - produced), &made);
        if (error) throw AudioLoaderError::outOfMemory();
        consumed += int64_t(used);
        produced += int64_t(made);
        if (produced >= capacity) break;
        if (flushing && made == 0) break;
    }
    return AudioLoader::makeAudioData(newRate, std::move(out), produced);
}

// ---- memory --------------------------------------------------------------------------

void AudioMemory::Accumulator::addAudio(const AudioDataPtr& audio) {
    if (!audio) return;
    for (const auto& channel : audio->channels) {
        const void* identity = channel.get();
        if (std::find(seen.begin(), seen.end(), identity) != seen.end()) continue;
        seen.push_back(identity);
        result.samples += int64_t(channel->sampleBuffer().allocatedBytes());
        for (const auto& level : channel->levels())
            result.levels += int64_t(level.buffer.allocatedBytes() + level.energy.allocatedBytes());
    }
}

void AudioMemory::Accumulator::setClipboard(const AudioClip* clip) {
    result.clipboard = 0;
    if (!clip) return;
    for (const auto& channel : clip->channels)
        result.clipboard += int64_t(channel.size()) * 4;
}

int64_t AudioMemory::processFootprint() {
    std::ifstream statm("/proc/self/statm");
    int64_t size = 0, resident = 0;
    if (!(statm >> size >> resident)) return 0;
    return resident * int64_t(::sysconf(_SC_PAGESIZE));
}

} // namespace sonvale
