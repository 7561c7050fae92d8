#pragma once

#include "audio/AudioData.h"
#include "base/Errors.h"
#include "effects/EffectInsert.h"
#include "engine/LevelMeters.h"
#include "timeline/TimelineTypes.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace sonvale {

// Turns the arrangement into a stereo signal, block by block, for live playback (on the
// output thread) and for mixdowns (on a background thread). It reads only an immutable
// Snapshot, never the Timeline, and neither allocates, locks nor waits while it renders: the
// effect inserts are tried, never waited for, and the meters are lock-free.
struct TimelineMixer {
    struct Snapshot {
        struct Lane {
            std::vector<TimelineClip> clips;
            float gainDB = 0;
            float pan = 0;
            std::optional<int> bus;   // position in `buses`; none: straight to the master
            std::optional<int> meter; // the lane's position among all lanes of the timeline
        };
        struct Bus {
            float gainDB = 0;
            bool isMuted = false;
            std::shared_ptr<EffectInsert> effects;
        };

        double sampleRate = 48000;
        int64_t frameCount = 0;
        std::vector<Lane> lanes; // the audible lanes, in lane order
        std::vector<Bus> buses;  // every bus, in bus order
        float masterGainDB = 0;
        std::shared_ptr<EffectInsert> master;
        std::shared_ptr<LevelMeters> meters; // none during a mixdown
        int64_t origin = 0;                  // the timeline frame of output frame 0
        std::optional<int64_t> cutoff;       // every clip stops here
    };
    using SnapshotPtr = std::shared_ptr<const Snapshot>;

    // The buffers one renderer sums into, allocated once at their full size.
    class Scratch {
    public:
        explicit Scratch(int64_t capacity);
        int64_t capacity() const { return frames; }
        float* left() { return buffers[0].data(); }
        float* right() { return buffers[1].data(); }
        float* laneLeft() { return buffers[2].data(); }
        float* laneRight() { return buffers[3].data(); }

    private:
        int64_t frames;
        std::vector<float> buffers[4];
    };

    static constexpr int64_t mixdownScratchFrames = 16384;
    static constexpr int64_t mixdownChunkFrames = 65536;

    // The left and right factors of the linear balance pan law: the centre leaves both sides
    // at full level, and panning only lowers the other side.
    static std::pair<float, float> panGains(float pan) noexcept;

    // Sums one lane's clips over timeline frames [from, to) into left/right (frame `from` at
    // index 0), stopping every clip at `cutoff`.
    static void add(const std::vector<TimelineClip>& clips, int64_t from, int64_t to, float* left,
                    float* right, int64_t cutoff, float gainDB, float pan) noexcept;

    // Renders timeline frames [from, to) of the whole mix into left/right; to - from must not
    // exceed the scratch's capacity.
    static void renderBlock(const Snapshot& snapshot, int64_t from, int64_t to, float* left,
                            float* right, Scratch& scratch) noexcept;

    // The frames of one file in order from its start, decoded as a mixdown reaches them rather
    // than held whole.
    class Stream {
    public:
        virtual ~Stream() = default;
        virtual int channelCount() const = 0;
        // Decodes up to `maxFrames` next frames into channels[c][0...]; returns how many, 0 at
        // the end.
        virtual int64_t read(float* const* channels, int64_t maxFrames) = 0;
    };
    // The stream to play the audio a clip holds from, or null to play that audio as it is.
    // The audio of a streamed clip only stands for its file: none of its samples are read.
    using StreamOpener = std::function<std::unique_ptr<Stream>(const AudioDataPtr& audio)>;

    using Progress = std::function<void(double)>;
    // Writes the snapshot's frames from its origin as a stereo 32-bit float WAV. Clips whose
    // audio `streams` opens a stream for are decoded as the mix advances, each file once, and
    // hold in memory only the stretch still to be played (the whole file only when a clip
    // plays an earlier part of it after a later one); the result is the same to the bit as
    // from decoded audio. Throws AudioLoaderError::empty for a snapshot without frames,
    // FileError when writing fails, and what a stream throws (the file at `path` is then as it
    // was).
    static void writeMixdown(const Snapshot& snapshot, const std::filesystem::path& path,
                             const Progress& progress = {}, const StreamOpener& streams = {});
};

} // namespace sonvale
