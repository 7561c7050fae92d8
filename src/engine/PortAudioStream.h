#pragma once

#include <portaudio.h>

#include <atomic>
#include <string>

namespace sonvale {

// What the PortAudio input and output streams share: the library kept initialised for the
// object's lifetime (Pa_Initialize is reference-counted), one stream's start, stop and close,
// and the notice that it stopped by itself (a device error or a device that went away).
// Main thread only, but for the finished notice, which PortAudio gives on its own thread.
class PortAudioStream {
public:
    PortAudioStream();
    ~PortAudioStream();
    PortAudioStream(const PortAudioStream&) = delete;
    PortAudioStream& operator=(const PortAudioStream&) = delete;

    // Pa_Initialize's result: paNoError when the library is usable.
    PaError initialisation() const { return initialised; }
    // Takes a stream Pa_OpenStream opened (closing any other first). PortAudio hands the
    // stream's own user data to `finished`, which is to call noteFinished() on this object.
    void adopt(PaStream* opened, PaStreamFinishedCallback* finished);
    // PortAudio's thread: the stream has stopped (by stop(), or by itself).
    void noteFinished();
    PaStream* get() const { return stream; }
    // paNoError once running (or when it already ran).
    PaError start();
    // Stops after what the device holds has played; nothing is called back afterwards.
    void stop();
    void close();
    bool isRunning() const { return running; }
    bool hasFailed() const;

    // PortAudio's description of `error`, or the host API's own when it has one.
    static std::string describe(PaError error);

private:
    PaError initialised;
    PaStream* stream = nullptr;
    bool running = false;
    std::atomic<bool> stopping{false};
    std::atomic<bool> failed{false};
};

} // namespace sonvale
