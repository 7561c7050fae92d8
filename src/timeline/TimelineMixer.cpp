#include "timeline/TimelineMixer.h"

#include "audio/AudioErrors.h"
#include "audio/AudioExporter.h"
#include "audio/AudioFileWriter.h"
#include "audio/AudioLoader.h"
#include "base/CpuDispatch.h"
#include "base/ParallelFor.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <optional>

namespace sonvale {

namespace {

// Half of the single-precision pi just below pi: the fades use exactly this value, so a fade
// sounds the same in a mixdown as in every earlier render.
const float halfPi = std::bit_cast<float>(0x3FC90FDAu);

float linearGain(float decibels) noexcept { return std::pow(10.0f, decibels / 20.0f); }

void clear(float* left, float* right, int64_t count) noexcept {
    std::memset(left, 0, size_t(count) * sizeof(float));
    std::memset(right, 0, size_t(count) * sizeof(float));
}

bool overlaps(const std::vector<TimelineClip>& clips, int64_t from, int64_t to) noexcept {
    return std::any_of(clips.begin(), clips.end(), [&](const TimelineClip& clip) {
        return clip.start < to && from < clip.end();
    });
}

// Sums one lane into left/right: straight in when it isn't metered, else through the lane
// buffers so that its meter sees the lane alone.
void mixLane(const TimelineMixer::Snapshot& snapshot, const TimelineMixer::Snapshot::Lane& lane,
             int64_t from, int64_t to, float* left, float* right, int64_t cutoff,
             TimelineMixer::Scratch& scratch) noexcept {
    const int64_t count = to - from;
    if (!snapshot.meters || !lane.meter) {
        TimelineMixer::add(lane.clips, from, to, left, right, cutoff, lane.gainDB, lane.pan);
        return;
    }
    if (!overlaps(lane.clips, from, to)) return;
    float* laneLeft = scratch.laneLeft();
    float* laneRight = scratch.laneRight();
    clear(laneLeft, laneRight, count);
    TimelineMixer::add(lane.clips, from, to, laneLeft, laneRight, cutoff, lane.gainDB, lane.pan);
    snapshot.meters->record(LevelMeters::Slot::lane(*lane.meter), laneLeft, laneRight, count);
    for (int64_t i = 0; i < count; ++i) {
        left[i] += laneLeft[i];
        right[i] += laneRight[i];
    }
}

// Frames a stream decodes at once when the mix needs more of it: few enough that sixteen
// streams hold little, enough that each round of decoding keeps every core busy for a while
// and that new windows are made seldom.
constexpr int64_t streamBatchFrames = 8 * TimelineMixer::mixdownChunkFrames;

// The sample buffers of a window back once nothing else holds it nor its channels (the chunks
// that played from it are gone), to be filled anew: `window` is then released. None otherwise.
// Windows are made only by makeAudioDataForPlaying, whose channels are never const objects.
std::vector<FloatBuffer> reclaimBuffers(AudioDataPtr& window) {
    std::vector<FloatBuffer> buffers;
    if (!window || window.use_count() != 1) return buffers;
    for (const auto& channel : window->channels)
        if (channel.use_count() != 1) return buffers;
    for (const auto& channel : window->channels)
        buffers.push_back(std::move(const_cast<FloatBuffer&>(channel->sampleBuffer())));
    window.reset();
    return buffers;
}

// The clips of a mixdown whose audio is streamed. Each stream keeps a window of decoded frames
// from the first frame any clip has still to play to as far as it has decoded; every chunk of
// the mix gets a snapshot of its own whose streamed clips play from the windows.
class StreamedClips {
public:
    StreamedClips(const TimelineMixer::Snapshot& snapshot, const TimelineMixer::StreamOpener& open)
        : base(snapshot)
        , cutoff(snapshot.cutoff.value_or(std::numeric_limits<int64_t>::max())) {
        std::vector<std::pair<const AudioData*, size_t>> opened;
        for (const auto& lane : snapshot.lanes) {
            auto& sourceOfClip = sourceOf.emplace_back();
            for (const auto& clip : lane.clips) {
                std::optional<size_t> index;
                if (clip.audio) {
                    auto known = std::find_if(opened.begin(), opened.end(), [&](const auto& o) {
                        return o.first == clip.audio.get();
                    });
                    if (known != opened.end()) {
                        index = known->second;
                    } else if (auto stream = open(clip.audio)) {
                        index = sources.size();
                        opened.emplace_back(clip.audio.get(), *index);
                        Source source;
                        source.rate = clip.audio->sampleRate;
                        source.channels = std::max(stream->channelCount(), 0);
                        source.stream = std::move(stream);
                        sources.push_back(std::move(source));
                    }
                }
                sourceOfClip.push_back(index);
            }
        }
    }

    bool isEmpty() const { return sources.empty(); }

    // The snapshot that renders timeline frames [from, to) as the whole one does: the clips
    // that sound there, the streamed ones playing from their windows.
    TimelineMixer::SnapshotPtr chunk(int64_t from, int64_t to) {
        for (auto& source : sources) {
            source.keepFrom = std::numeric_limits<int64_t>::max();
            source.needTo = source.end;
        }
        forEachStreamed([&](const TimelineClip& clip, Source& source) {
            const int64_t end = std::min(clip.end(), cutoff);
            if (end <= from) return; // played out
            const int64_t s = std::max(clip.start, from);
            source.keepFrom = std::min(source.keepFrom, clip.sourceStart + (s - clip.start));
            const int64_t e = std::min(end, to);
            if (s < e) source.needTo = std::max(source.needTo, clip.sourceStart + (e - clip.start));
        });
        std::vector<size_t> decoding;
        for (size_t i = 0; i < sources.size(); ++i) {
            Source& source = sources[i];
            if (source.keepFrom == std::numeric_limits<int64_t>::max()) {
                // Nothing plays from it any more.
                source.window.reset();
                source.start = source.end;
            } else if (source.needTo > source.end && !source.ended) {
                decoding.push_back(i);
            }
        }
        if (decoding.size() == 1)
            advance(sources[decoding[0]]);
        else if (!decoding.empty())
            parallelFor(decoding.size(), [&](size_t i) { advance(sources[decoding[i]]); });

        auto snapshot = std::make_shared<TimelineMixer::Snapshot>();
        snapshot->sampleRate = base.sampleRate;
        snapshot->frameCount = base.frameCount;
        snapshot->buses = base.buses;
        snapshot->masterGainDB = base.masterGainDB;
        snapshot->master = base.master;
        snapshot->meters = base.meters;
        snapshot->origin = base.origin;
        snapshot->cutoff = base.cutoff;
        for (size_t l = 0; l < base.lanes.size(); ++l) {
            const auto& lane = base.lanes[l];
            // Every lane stays, also without a clip here: a bus is rendered (and its effects
            // run on) only while a lane feeds it.
            auto& entry = snapshot->lanes.emplace_back();
            entry.gainDB = lane.gainDB;
            entry.pan = lane.pan;
            entry.bus = lane.bus;
            entry.meter = lane.meter;
            for (size_t c = 0; c < lane.clips.size(); ++c) {
                const TimelineClip& clip = lane.clips[c];
                if (std::max(clip.start, from) >= std::min({cutoff, to, clip.end()})) continue;
                TimelineClip& copy = entry.clips.emplace_back(clip);
                if (const auto index = sourceOf[l][c]) {
                    const Source& source = sources[*index];
                    copy.audio = source.window;
                    copy.sourceStart -= source.start;
                }
            }
        }
        return snapshot;
    }

private:
    struct Source {
        std::unique_ptr<TimelineMixer::Stream> stream;
        double rate = 48000;
        int channels = 0;
        AudioDataPtr window; // the decoded frames [start, end)
        int64_t start = 0, end = 0;
        bool ended = false;
        // This chunk's: the first frame a clip still plays, and the end of what it plays.
        int64_t keepFrom = 0, needTo = 0;
    };

    template <typename Body> void forEachStreamed(Body&& body) {
        for (size_t l = 0; l < base.lanes.size(); ++l)
            for (size_t c = 0; c < base.lanes[l].clips.size(); ++c)
                if (const auto index = sourceOf[l][c])
                    body(base.lanes[l].clips[c], sources[*index]);
    }

    // Decodes up to the frame this chunk needs (a batch further at least) into a new window
    // that keeps what later chunks still play of the old one.
    static void advance(Source& source) {
        const size_t channels = size_t(source.channels);
        if (channels == 0) {
            source.ended = true;
            return;
        }
        std::vector<float*> at(channels);
        // Frames between the old window and the first one still played are decoded and
        // dropped: streams are read in order only.
        if (source.keepFrom > source.end) {
            std::vector<FloatBuffer> dropped;
            for (size_t c = 0; c < channels; ++c)
                dropped.emplace_back(std::min(source.keepFrom - source.end, streamBatchFrames));
            while (source.end < source.keepFrom) {
                for (size_t c = 0; c < channels; ++c)
                    at[c] = dropped[c].data();
                const int64_t got = source.stream->read(
                    at.data(), std::min(source.keepFrom - source.end, dropped[0].size()));
                if (got <= 0) {
                    source.ended = true;
                    break;
                }
                source.end += got;
            }
        }
        const int64_t start = std::min(source.keepFrom, source.end);
        const int64_t target = std::max(source.needTo, source.end + streamBatchFrames);
        const int64_t kept = source.end - start, offset = start - source.start;
        // The old window's buffers make the new one once the chunks that played from it are
        // gone: no fresh pages to clear and map every batch.
        std::vector<FloatBuffer> buffers = reclaimBuffers(source.window);
        if (buffers.size() == channels) {
            for (auto& buffer : buffers) {
                if (kept > 0)
                    std::memmove(buffer.data(), buffer.data() + offset,
                                 size_t(kept) * sizeof(float));
                if (buffer.size() < target - start) buffer.resize(target - start);
            }
        } else {
            buffers.clear();
            for (size_t c = 0; c < channels; ++c) {
                buffers.emplace_back(target - start);
                if (kept > 0)
                    std::memcpy(buffers[c].data(), source.window->samples(int(c)) + offset,
                                size_t(kept) * sizeof(float));
            }
        }
        int64_t end = source.end;
        while (!source.ended && end < target) {
            for (size_t c = 0; c < channels; ++c)
                at[c] = buffers[c].data() + (end - start);
            const int64_t got = source.stream->read(at.data(), target - end);
            if (got <= 0)
                source.ended = true;
            else
                end += got;
        }
        source.window =
            AudioLoader::makeAudioDataForPlaying(source.rate, std::move(buffers), end - start);
        source.start = start;
        source.end = end;
    }

    const TimelineMixer::Snapshot& base;
    const int64_t cutoff;
    std::vector<Source> sources;
    std::vector<std::vector<std::optional<size_t>>> sourceOf; // per lane and clip
};

} // namespace

TimelineMixer::Scratch::Scratch(int64_t capacity)
    : frames(std::max<int64_t>(capacity, 0)) {
    for (auto& buffer : buffers)
        buffer.assign(size_t(frames), 0.0f);
}

std::pair<float, float> TimelineMixer::panGains(float pan) noexcept {
    if (pan <= -1) return {1, 0};
    if (pan < 0) return {1, 1 + pan};
    if (pan > 1) return {0, 1};
    if (pan > 0) return {1 - pan, 1};
    return {1, 1}; // the centre, and a pan that is not a number
}

// AVX2 where there is, without fused multiply-adds: every sum rounds as in the baseline build.
SONVALE_AVX2_CLONES
void TimelineMixer::add(const std::vector<TimelineClip>& clips, int64_t from, int64_t to,
                        float* left, float* right, int64_t cutoff, float gainDB,
                        float pan) noexcept {
    const auto [panLeft, panRight] = panGains(pan);
    const float gain = linearGain(gainDB);
    const float leftGain = gain * panLeft, rightGain = gain * panRight;
    for (const TimelineClip& clip : clips) {
        if (!clip.audio || clip.audio->channelCount() == 0) continue;
        const int64_t s = std::max(clip.start, from);
        const int64_t e = std::min({cutoff, to, clip.end()});
        if (s >= e) continue;
        const float* sourceLeft = clip.audio->samples(0);
        const float* sourceRight = clip.audio->samples(clip.audio->channelCount() > 1 ? 1 : 0);
        const int64_t offset = s - clip.start;
        const int64_t source = clip.sourceStart + offset;
        const int64_t count = e - s;
        // The clip's audio may be shorter than the clip says (a file that changed since the
        // session was saved): play what there is.
        const int64_t playable = std::min(count, clip.audio->frameCount - source);
        if (source < 0 || playable <= 0) continue;
        float* outLeft = left + (s - from);
        float* outRight = right + (s - from);
        const float* inLeft = sourceLeft + source;
        const float* inRight = sourceRight + source;
        const bool fades = offset < clip.fadeIn || clip.length - clip.fadeOut < offset + playable;
        if (!fades) {
            for (int64_t k = 0; k < playable; ++k) {
                outLeft[k] += leftGain * inLeft[k];
                outRight[k] += rightGain * inRight[k];
            }
            continue;
        }
        const float fadeIn = float(clip.fadeIn), fadeOut = float(clip.fadeOut);
        for (int64_t k = 0; k < playable; ++k) {
            const int64_t q = offset + k;
            float g = 1;
            if (q < clip.fadeIn) g = std::sin(float(q) * halfPi / fadeIn);
            const int64_t r = clip.length - q;
            if (r < clip.fadeOut) g *= std::sin(float(r) * halfPi / fadeOut);
            outLeft[k] += g * (leftGain * inLeft[k]);
            outRight[k] += g * (rightGain * inRight[k]);
        }
    }
}

void TimelineMixer::renderBlock(const Snapshot& snapshot, int64_t from, int64_t to, float* left,
                                float* right, Scratch& scratch) noexcept {
    const int64_t count = std::clamp<int64_t>(to - from, 0, scratch.capacity());
    to = from + count;
    if (count > 0) clear(left, right, count);
    const int64_t cutoff = snapshot.cutoff.value_or(std::numeric_limits<int64_t>::max());

    for (const auto& lane : snapshot.lanes)
        if (!lane.bus) mixLane(snapshot, lane, from, to, left, right, cutoff, scratch);

    for (int i = 0; i < int(snapshot.buses.size()); ++i) {
        const auto& bus = snapshot.buses[size_t(i)];
        if (bus.isMuted || std::none_of(snapshot.lanes.begin(), snapshot.lanes.end(),
                                        [&](const Snapshot::Lane& lane) { return lane.bus == i; }))
            continue;
        float* busLeft = scratch.left();
        float* busRight = scratch.right();
        clear(busLeft, busRight, count);
        for (const auto& lane : snapshot.lanes)
            if (lane.bus == i)
                mixLane(snapshot, lane, from, to, busLeft, busRight, cutoff, scratch);
        if (bus.effects) bus.effects->process(busLeft, busRight, count);
        const float gain = linearGain(bus.gainDB);
        for (int64_t k = 0; k < count; ++k) {
            busLeft[k] *= gain;
            busRight[k] *= gain;
            left[k] += busLeft[k];
            right[k] += busRight[k];
        }
        if (snapshot.meters)
            snapshot.meters->record(LevelMeters::Slot::bus(i), busLeft, busRight, count);
    }

    if (snapshot.master) snapshot.master->process(left, right, count);
    if (snapshot.masterGainDB != 0) {
        const float gain = linearGain(snapshot.masterGainDB);
        for (int64_t k = 0; k < count; ++k) {
            left[k] *= gain;
            right[k] *= gain;
        }
    }
    if (snapshot.meters) {
        snapshot.meters->record(LevelMeters::Slot::master(), left, right, count);
        snapshot.meters->advanceMixed(count);
    }
}

void TimelineMixer::writeMixdown(const Snapshot& snapshot, const std::filesystem::path& path,
                                 const Progress& progress, const StreamOpener& streams) {
    if (snapshot.frameCount < 1) throw AudioLoaderError::empty();
    std::optional<StreamedClips> streamed;
    if (streams) {
        streamed.emplace(snapshot, streams);
        if (streamed->isEmpty()) streamed.reset();
    }
    auto writer = AudioExporter::openLosslessWriter(path, snapshot.sampleRate, 2);
    Scratch scratch(mixdownScratchFrames);
    std::vector<float> left(static_cast<size_t>(mixdownChunkFrames));
    std::vector<float> right(static_cast<size_t>(mixdownChunkFrames));
    for (int64_t written = 0; written < snapshot.frameCount;) {
        const int64_t chunk = std::min(mixdownChunkFrames, snapshot.frameCount - written);
        SnapshotPtr part;
        if (streamed)
            part = streamed->chunk(snapshot.origin + written, snapshot.origin + written + chunk);
        const Snapshot& rendered = part ? *part : snapshot;
        for (int64_t done = 0; done < chunk; done += mixdownScratchFrames) {
            const int64_t block = std::min(mixdownScratchFrames, chunk - done);
            const int64_t at = snapshot.origin + written + done;
            renderBlock(rendered, at, at + block, left.data() + done, right.data() + done, scratch);
        }
        const float* channels[2] = {left.data(), right.data()};
        writer->write(channels, chunk);
        written += chunk;
        if (progress) progress(double(written) / double(snapshot.frameCount));
    }
    writer->finish();
}

} // namespace sonvale
