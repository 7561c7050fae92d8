#pragma once

#include "audio/AudioData.h"
#include "base/Uuid.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace sonvale {

// A stretch of a track's (or any) audio placed on a lane: it occupies timeline frames
// [start, start + length) and plays source frames [sourceStart, sourceStart + length).
struct TimelineClip {
    Uuid id = Uuid::random();
    std::string name;
    AudioDataPtr audio;
    int64_t sourceStart = 0;
    int64_t length = 0;
    int64_t start = 0;
    int64_t fadeIn = 0;
    int64_t fadeOut = 0;
    std::optional<Uuid> trackID;

    int64_t end() const { return start + length; }
    friend bool operator==(const TimelineClip&, const TimelineClip&) = default;
};

// One row of the arrangement. `output` names the bus the lane feeds; none (or a bus that is
// gone) feeds the master.
struct TimelineLane {
    Uuid id = Uuid::random();
    std::string name;
    std::vector<TimelineClip> clips;
    float gainDB = 0;
    float pan = 0; // -1 full left, 0 centre, +1 full right
    bool isMuted = false;
    std::optional<Uuid> output;
    int colorIndex = 0; // 0...7, into the eight lane colours

    friend bool operator==(const TimelineLane&, const TimelineLane&) = default;
};

struct TimelineBus {
    Uuid id = Uuid::random();
    std::string name;
    float gainDB = 0;
    bool isMuted = false;
    double hue = 0;

    friend bool operator==(const TimelineBus&, const TimelineBus&) = default;
};

// The master or one bus: the channels of the mixer that carry an effect chain.
struct MixerChannel {
    std::optional<Uuid> bus; // none: the master

    static MixerChannel master() { return {}; }
    static MixerChannel forBus(Uuid id) { return {id}; }
    bool isMaster() const { return !bus; }
    friend bool operator==(const MixerChannel&, const MixerChannel&) = default;
    friend auto operator<=>(const MixerChannel&, const MixerChannel&) = default;
};

// The horizontal zoom: the first visible frame and how many frames one point shows.
struct TimelineScale {
    double start = 0;
    double framesPerPoint = 1;
    friend bool operator==(const TimelineScale&, const TimelineScale&) = default;
};

// Which end of a clip a trim or fade handle works on.
enum class ClipEdge { start, end };

} // namespace sonvale
