#pragma once

#include "engine/AudioInput.h"
#include "engine/RecordingFormat.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

struct sf_private_tag; // libsndfile's SNDFILE

namespace sonvale {

// Writes a recording into a new WAV file while it is made.
//
// The capture thread hands each input buffer to write(), which copies it into a lock-free ring
// of fixed slots and returns: it never allocates, locks or waits. A writer thread of its own
// empties the ring into the file, so a slow disk costs nothing while the ring has room; a
// buffer that finds the ring full is counted (droppedFrames) and written as silence of the
// same length, so what follows keeps its time. The header is rewritten and the file flushed to
// the disk about twice a second: a file cut off by a crash or a power cut opens with what was
// recorded up to then. After the first failed write (a full disk), the rest is dropped and
// writeError() says why; the file keeps what was written before.
//
// Input channel min(i, inputs - 1) goes to file channel i: a mono input fills every channel.
// peaksDB(), takePending(), the counters and finish() are for the main thread.
class RecordingWriter final : public AudioInput::Client {
public:
    struct Options {
        double ringSeconds = 20; // how long a stalled disk can fall behind before input is lost
        // Keep what is written for takePending() (the live waveform); off for the command line.
        bool keepsPending = true;
        std::chrono::milliseconds headerInterval{500};
        // Input beyond this many seconds is left out (0: no limit): a recording of a set length.
        double secondsLimit = 0;
        // Runs on the writer thread before each write to the file (a test slows the disk).
        std::function<void()> beforeWrite;
    };

    // Creates `url`, which must not exist yet (a recording never overwrites a file), and
    // starts the writer thread. Throws RecordingError.
    RecordingWriter(std::filesystem::path url, double sampleRate, int channelCount,
                    RecordingFormat format, Options options);
    RecordingWriter(std::filesystem::path url, double sampleRate, int channelCount,
                    RecordingFormat format)
        : RecordingWriter(std::move(url), sampleRate, channelCount, format, Options{}) {}
    ~RecordingWriter() override;
    RecordingWriter(const RecordingWriter&) = delete;
    RecordingWriter& operator=(const RecordingWriter&) = delete;

    // Capture thread.
    void write(const float* const* channels, int inputChannels, int64_t frameCount) noexcept;
    void capture(const float* const* channels, int inputChannels,
                 int64_t frameCount) noexcept override {
        write(channels, inputChannels, frameCount);
    }

    // Per file channel, the largest level since the last call, in dB with a floor of -120;
    // empty when no input arrived since, so a meter holds its reading between coarse callbacks.
    std::vector<float> peaksDB();
    // The samples written since the last call, one array per file channel.
    std::vector<std::vector<float>> takePending();
    // Frames in the file so far (silence for lost input included).
    int64_t frames() const { return written.load(std::memory_order_acquire); }
    // The recording has all the frames its secondsLimit allows.
    bool isComplete() const { return complete.load(std::memory_order_acquire); }
    // Frames of input that found the ring full.
    int64_t droppedFrames() const { return dropped.load(std::memory_order_relaxed); }
    // The first failed write's description; none while all went well.
    std::optional<std::string> writeError() const;
    // Once the input has stopped: writes what the ring still holds, rewrites the header and
    // closes the file. Later calls do nothing.
    void finish();

    const std::filesystem::path url;
    const double sampleRate;
    const int channelCount;

    static constexpr int64_t slotFrames = 4096;

private:
    struct Slot {
        int64_t frames = 0;
        int64_t gapBefore = 0; // frames lost to a full ring just before this slot
    };
    void run();
    void drain();
    // Writer thread: appends planar `channels` (or silence when null) to the file.
    void writeFrames(const float* planar, int64_t stride, int64_t count);
    void failWrite(int errnum);
    void updateHeader();

    Options options;
    int fd = -1;
    struct SndfileCloser {
        void operator()(::sf_private_tag* file) const;
    };
    std::unique_ptr<::sf_private_tag, SndfileCloser> file;

    // The ring: slots x channelCount x slotFrames planar floats, with their headers.
    std::vector<Slot> slots;
    std::vector<float> slotData;
    std::atomic<uint64_t> head{0}; // next slot the capture thread fills
    std::atomic<uint64_t> tail{0}; // next slot the writer takes
    int64_t gapFrames = 0;         // capture thread only
    int64_t accepted = 0;          // capture thread only: frames taken in, lost ones included
    int64_t frameLimit = 0;
    std::unique_ptr<std::atomic<uint32_t>[]> peakBits;
    std::atomic<bool> inputSinceReading{false};

    std::vector<float> scratch; // writer thread: one slot interleaved
    std::atomic<int64_t> written{0};
    std::atomic<int64_t> dropped{0};
    std::atomic<bool> failed{false};
    std::atomic<bool> complete{false};
    std::chrono::steady_clock::time_point lastHeader;
    int64_t framesAtLastHeader = 0;

    mutable std::mutex lock; // guards pending and error
    std::vector<std::vector<float>> pending;
    std::optional<std::string> error;

    std::atomic<bool> finishing{false};
    std::thread writer;
    bool finished = false;
};

} // namespace sonvale
