#pragma once

#include "base/Errors.h"
#include "engine/AudioOutput.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace sonvale {

// The two ways the input can be missing altogether, each with its text for the person
// recording (recordingFailureText).
enum class RecordingFailure { permissionDenied, noInput };
const char* recordingFailureText(RecordingFailure failure);

// A failure to open, start or write a recording; its text is written for the person recording.
class RecordingError : public UserError {
public:
    using UserError::UserError;
    explicit RecordingError(RecordingFailure failure)
        : UserError(recordingFailureText(failure)) {}
    RecordingError(RecordingFailure failure, std::string details)
        : UserError(recordingFailureText(failure), std::move(details)) {}
};

// The device layer under the recorder: one input stream that hands non-interleaved float
// buffers to a client on a real-time capture thread. PortAudio implements it
// (makePortAudioInput); tests and other backends only have to implement this.
//
// Main thread: open, start, stop, close and the queries. The client's capture() is called on
// the capture thread between start() and stop().
class AudioInput {
public:
    using Format = AudioOutput::Format;

    class Client {
    public:
        virtual ~Client() = default;
        // Capture thread: `channelCount` buffers of `frameCount` frames. Must not wait.
        virtual void capture(const float* const* channels, int channelCount,
                             int64_t frameCount) noexcept = 0;
    };

    virtual ~AudioInput() = default;

    // Opens the device whose uid (audioInputDeviceUID) is `deviceUID`, or the default input
    // when it is not given or not there, at the device's own rate with its channels (at most
    // `maxChannels`). Throws RecordingError: noInput when there is no input at all.
    virtual Format open(const std::optional<std::string>& deviceUID, int maxChannels) = 0;
    // Starts delivering buffers to `client`. Throws RecordingError.
    virtual void start(Client* client) = 0;
    virtual void stop() = 0;
    virtual void close() = 0;
    // The stream stopped by itself (a device error, a device that went away) since start().
    virtual bool hasFailed() const = 0;
    // Seconds from a sound reaching the input until its buffer is captured. Valid once open.
    virtual double inputLatency() const = 0;
    // The name of the device open now, empty when none is.
    virtual std::string deviceName() const = 0;
    // Buffers the device reported as overflowed (input it had to throw away) since open().
    virtual int64_t overflowCount() const = 0;
};

std::unique_ptr<AudioInput> makePortAudioInput();

} // namespace sonvale
