#pragma once

#include "base/Errors.h"
#include "engine/HostTime.h"

#include <cstdint>
#include <memory>
#include <string>

namespace sonvale {

// A failure of the audio output; its text is the platform's description. The editor shows it
// in the alert titled playbackFailedTitle.
class PlaybackError : public UserError {
public:
    using UserError::UserError;
};

inline constexpr const char* playbackFailedTitle = "Playback failed";

// The device layer under the playback engine: one output stream that pulls non-interleaved
// float buffers on a real-time thread. PortAudio implements it (makePortAudioOutput); another
// backend only has to implement this.
//
// Main thread: open, start, stop, close and the queries. The client's render() is called on
// the real-time thread between start() and stop().
class AudioOutput {
public:
    struct Format {
        double sampleRate = 0;
        int channelCount = 0;
        friend bool operator==(const Format&, const Format&) = default;
    };

    class Client {
    public:
        virtual ~Client() = default;
        // Real-time thread: fill `channelCount` buffers of `frameCount` frames. `hostTime` is
        // the time on the stream clock at which the buffer's first frame is due to be heard,
        // less the stream's outputLatency() (so that adding the latency back gives the time it
        // is heard); 0 when the device reports no time.
        virtual void render(float* const* buffers, int channelCount, int64_t frameCount,
                            HostTime hostTime) noexcept = 0;
    };

    virtual ~AudioOutput() = default;

    // Opens a stream in `format` on the default output device. Throws PlaybackError.
    virtual void open(Format format, Client* client) = 0;
    virtual void start() = 0; // throws PlaybackError
    // Stops after the buffers already handed to the device have played; no render() afterwards.
    virtual void stop() = 0;
    virtual void close() = 0;
    virtual bool isOpen() const = 0;
    virtual bool isRunning() const = 0;
    // The stream stopped by itself (a device error or a device that went away) since start().
    virtual bool hasFailed() const = 0;

    virtual Format format() const = 0;
    // Seconds from a buffer's render() call until its first frame is heard. Valid once open.
    virtual double outputLatency() const = 0;
    // The stream clock now; 0 while no stream is open.
    virtual HostTime now() const = 0;
    // Buffers the device reported as having underflowed since open().
    virtual int64_t underflowCount() const = 0;
    // The default output device's sample rate, 0 when there is none.
    virtual double deviceSampleRate() const = 0;
};

std::unique_ptr<AudioOutput> makePortAudioOutput();

} // namespace sonvale
