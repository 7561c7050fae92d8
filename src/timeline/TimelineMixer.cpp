#include "timeline/TimelineMixer.h"

#include "audio/AudioErrors.h"
#include "audio/AudioExporter.h"
#include "audio/AudioFileWriter.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>

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
                                 const Progress& progress) {
    if (snapshot.frameCount < 1) throw AudioLoaderError::empty();
    auto writer = AudioExporter::openLosslessWriter(path, snapshot.sampleRate, 2);
    Scratch scratch(mixdownScratchFrames);
    std::vector<float> left(static_cast<size_t>(mixdownChunkFrames));
    std::vector<float> right(static_cast<size_t>(mixdownChunkFrames));
    for (int64_t written = 0; written < snapshot.frameCount;) {
        const int64_t chunk = std::min(mixdownChunkFrames, snapshot.frameCount - written);
        for (int64_t done = 0; done < chunk; done += mixdownScratchFrames) {
            const int64_t block = std::min(mixdownScratchFrames, chunk - done);
            const int64_t at = snapshot.origin + written + done;
            renderBlock(snapshot, at, at + block, left.data() + done, right.data() + done, scratch);
        }
        const float* channels[2] = {left.data(), right.data()};
        writer->write(channels, chunk);
        written += chunk;
        if (progress) progress(double(written) / double(snapshot.frameCount));
    }
    writer->finish();
}

} // namespace sonvale
