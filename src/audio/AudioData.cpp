#include "audio/AudioData.h"

#include "audio/AudioErrors.h"
#include "audio/AudioLoader.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fstream>
#include <limits>
#include <soxr.h>
#include <thread>
#include <unistd.h>

namespace sonvale {

// ---- level pyramid -------------------------------------------------------------------

namespace {

typedef float v8f __attribute__((vector_size(32)));
typedef float v4f __attribute__((vector_size(16)));

// target_clones picks a version at load time through an ifunc resolver; a sanitizer
// instruments that resolver, which then runs before the sanitizer is set up and crashes
// the program at start-up. Sanitized builds get the one portable version.
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
#define SONVALE_AVX2_CLONES
#else
#define SONVALE_AVX2_CLONES __attribute__((target_clones("avx2", "default")))
#endif

// Level 0 over whole 16-sample blocks: min and max into `minMax` (pairs), sum of squares
// into `energy`. Built for AVX2 where the processor has it.
SONVALE_AVX2_CLONES void
summariseWholeBlocks(const float* samples, int64_t blocks, float* minMax, float* energy) {
    for (int64_t b = 0; b < blocks; ++b) {
        v8f lo, hi;
        std::memcpy(&lo, samples + 16 * b, sizeof lo);
        std::memcpy(&hi, samples + 16 * b + 8, sizeof hi);
        v8f mn8 = lo < hi ? lo : hi;
        v8f mx8 = lo > hi ? lo : hi;
        v8f sq8 = lo * lo + hi * hi;
        v4f mn = __builtin_shufflevector(mn8, mn8, 0, 1, 2, 3);
        v4f mnHigh = __builtin_shufflevector(mn8, mn8, 4, 5, 6, 7);
        mn = mn < mnHigh ? mn : mnHigh;
        v4f mx = __builtin_shufflevector(mx8, mx8, 0, 1, 2, 3);
        v4f mxHigh = __builtin_shufflevector(mx8, mx8, 4, 5, 6, 7);
        mx = mx > mxHigh ? mx : mxHigh;
        v4f sq = __builtin_shufflevector(sq8, sq8, 0, 1, 2, 3) +
                 __builtin_shufflevector(sq8, sq8, 4, 5, 6, 7);
        v4f mnSwap = __builtin_shufflevector(mn, mn, 2, 3, 0, 1);
        mn = mn < mnSwap ? mn : mnSwap;
        v4f mxSwap = __builtin_shufflevector(mx, mx, 2, 3, 0, 1);
        mx = mx > mxSwap ? mx : mxSwap;
        sq = sq + __builtin_shufflevector(sq, sq, 2, 3, 0, 1);
        minMax[2 * b] = std::min(mn[0], mn[1]);
        minMax[2 * b + 1] = std::max(mx[0], mx[1]);
        energy[b] = sq[0] + sq[1];
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

} // namespace

void AudioLoader::summariseLevelZero(const float* samples, int64_t count, float* minMax,
                                     float* energy) {
    const int64_t whole = count / 16;
    summariseWholeBlocks(samples, whole, minMax, energy);
    if (16 * whole < count)
        summariseBlock(samples + 16 * whole, count - 16 * whole, minMax[2 * whole],
                       minMax[2 * whole + 1], energy[whole]);
}

std::vector<PeakLevel> AudioLoader::buildLevels(const float* samples, int64_t count) {
    if (count < 17) return {};
    PeakLevel first;
    first.blockSize = 16;
    first.count = (count + 15) / 16;
    first.buffer = FloatBuffer(2 * first.count);
    first.energy = FloatBuffer(first.count);
    summariseLevelZero(samples, count, first.buffer.data(), first.energy.data());
    return buildLevels(std::move(first));
}

std::vector<PeakLevel> AudioLoader::buildLevels(PeakLevel levelZero) {
    std::vector<PeakLevel> levels;
    levels.push_back(std::move(levelZero));
    while (levels.back().count > 1) {
        const PeakLevel& previous = levels.back();
        PeakLevel next;
        next.blockSize = previous.blockSize * 4;
        next.count = (previous.count + 3) / 4;
        next.buffer = FloatBuffer(2 * next.count);
        next.energy = FloatBuffer(next.count);
        const float* pairs = previous.buffer.data();
        const float* energy = previous.energy.data();
        for (int64_t i = 0; i < next.count; ++i) {
            const int64_t from = 4 * i, to = std::min(from + 4, previous.count);
            float mn = pairs[2 * from], mx = pairs[2 * from + 1], e = energy[from];
            for (int64_t j = from + 1; j < to; ++j) {
                mn = std::min(mn, pairs[2 * j]);
                mx = std::max(mx, pairs[2 * j + 1]);
                e += energy[j];
            }
            next.buffer[2 * i] = mn;
            next.buffer[2 * i + 1] = mx;
            next.energy[i] = e;
        }
        levels.push_back(std::move(next));
    }
    return levels;
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
    for (int64_t i = 0; i < count; ++i) peak = std::max(peak, std::fabs(samples[i]));
    return peak;
}

// Enough samples per channel that a thread of its own pays off.
constexpr int64_t parallelLevelThreshold = 1 << 20;

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
            levels[c] = buildLevels(buffers[c].data(), frameCount);
        } catch (...) {
            failures[c] = std::current_exception();
        }
    };
    if (n > 1 && frameCount >= parallelLevelThreshold) {
        std::vector<std::thread> threads;
        const size_t workers = std::min<size_t>(n, std::max(1u, std::thread::hardware_concurrency()));
        for (size_t w = 1; w < workers; ++w)
            threads.emplace_back([&, w] {
                for (size_t c = w; c < n; c += workers) build(c);
            });
        for (size_t c = 0; c < n; c += workers) build(c);
        for (auto& thread : threads) thread.join();
    } else {
        for (size_t c = 0; c < n; ++c) build(c);
    }
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
        channels.push_back(std::make_shared<ChannelData>(std::move(buffers[c]), std::move(levels[c])));
    }
    return AudioDataPtr(new AudioData(sampleRate, frameCount, std::move(channels), peak));
}

// ---- reading columns -----------------------------------------------------------------

std::vector<WaveColumn> AudioData::waveColumns(FrameRange range, int columns) const {
    const int64_t lo = std::max<int64_t>(0, range.lower);
    const int64_t hi = std::min(frameCount, range.upper);
    if (columns < 1 || hi <= lo) return {};
    const double samplesPerColumn = double(hi - lo) / columns;

    struct Accumulator {
        float mn = std::numeric_limits<float>::infinity();
        float mx = -std::numeric_limits<float>::infinity();
        double sumSq = 0;
        int64_t count = 0;
    };
    std::vector<Accumulator> acc(static_cast<size_t>(columns));

    const size_t shown = std::min<size_t>(2, channels.size());
    for (size_t ch = 0; ch < shown; ++ch) {
        const ChannelData& channel = *channels[ch];
        const PeakLevel* level = nullptr;
        for (auto it = channel.levels().rbegin(); it != channel.levels().rend(); ++it)
            if (double(it->blockSize) <= samplesPerColumn) {
                level = &*it;
                break;
            }
        const float* samples = channel.data();
        for (int c = 0; c < columns; ++c) {
            const int64_t start = lo + int64_t(samplesPerColumn * c);
            const int64_t end = std::max(lo + int64_t(samplesPerColumn * (c + 1)), start + 1);
            Accumulator& a = acc[size_t(c)];
            if (level) {
                const int64_t B = level->blockSize;
                const int64_t first = start / B;
                const int64_t last = std::min(level->count - 1, (end - 1) / B);
                if (last < first) continue;
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
            } else {
                const int64_t stop = std::min(frameCount, end);
                for (int64_t i = start; i < stop; ++i) {
                    a.mn = std::min(a.mn, samples[i]);
                    a.mx = std::max(a.mx, samples[i]);
                    a.sumSq += double(samples[i]) * samples[i];
                }
                a.count += std::max<int64_t>(0, stop - start);
            }
        }
    }

    std::vector<WaveColumn> result(static_cast<size_t>(columns));
    for (size_t c = 0; c < result.size(); ++c) {
        const Accumulator& a = acc[c];
        if (a.mn <= a.mx)
            result[c] = {a.mn, a.mx, a.count > 0 ? float(std::sqrt(a.sumSq / double(a.count))) : 0.0f};
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
            for (size_t i = 0; i < std::min(n, channel.size()); ++i) mono[i] += channel[i];
        for (float& s : mono) s *= scale;
        result.channels.push_back(std::move(mono));
        return result;
    }
    for (int i = 0; i < channelCount; ++i) result.channels.push_back(channels[size_t(std::min(i, have - 1))]);
    return result;
}

AudioDataPtr AudioData::replacing(FrameRange range, const AudioClip& clip) const {
    const AudioClip matched = clip.matching(channelCount());
    const int64_t lower = std::clamp<int64_t>(range.lower, 0, frameCount);
    const int64_t upper = std::clamp<int64_t>(range.upper, lower, frameCount);
    const int64_t inserted = matched.channels.empty() ? 0 : matched.length();
    const int64_t newLength = frameCount - (upper - lower) + inserted;
    if (newLength < 1) throw EditError::wouldRemoveEverything();

    std::vector<FloatBuffer> buffers;
    buffers.reserve(channels.size());
    for (size_t c = 0; c < channels.size(); ++c) {
        FloatBuffer buffer(newLength);
        const float* old = channels[c]->data();
        float* out = buffer.data();
        std::memcpy(out, old, size_t(lower) * sizeof(float));
        if (inserted > 0) {
            const auto& source = matched.channels[c];
            const size_t available = std::min<size_t>(source.size(), size_t(inserted));
            std::memcpy(out + lower, source.data(), available * sizeof(float));
            std::fill(out + lower + available, out + lower + inserted, 0.0f);
        }
        std::memcpy(out + lower + inserted, old + upper, size_t(frameCount - upper) * sizeof(float));
        buffers.push_back(std::move(buffer));
    }
    return AudioLoader::makeAudioData(sampleRate, std::move(buffers), newLength);
}

int64_t AudioData::nearestZeroCrossing(int64_t f, int64_t radius) const {
    if (radius < 1 || f < 1 || f >= frameCount) return f;
    auto mono = [this](int64_t i) {
        float s = 0;
        for (const auto& channel : channels) s += channel->data()[i];
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
    for (unsigned c = 0; c < n; ++c) out.emplace_back(std::max<int64_t>(capacity, 1));
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
    for (const auto& channel : clip->channels) result.clipboard += int64_t(channel.size()) * 4;
}

int64_t AudioMemory::processFootprint() {
    std::ifstream statm("/proc/self/statm");
    int64_t size = 0, resident = 0;
    if (!(statm >> size >> resident)) return 0;
    return resident * int64_t(::sysconf(_SC_PAGESIZE));
}

} // namespace sonvale
