#include "engine/AudioOutput.h"
#include "engine/PortAudioStream.h"

#include <pa_linux_alsa.h>

#include <algorithm>
#include <atomic>
#include <string>

namespace sonvale {

namespace {

constexpr unsigned long framesPerBuffer = 512;
constexpr double minimumLatency = 0.1; // seconds: headroom for a sound server on a busy machine

std::string describe(const char* what, PaError error) {
    return std::string(what) + ": " + PortAudioStream::describe(error);
}

// The PortAudio output stream on the default output device.
class PortAudioOutput final : public AudioOutput {
public:
    ~PortAudioOutput() override { close(); }

    void open(Format wanted, Client* newClient) override {
        close();
        if (pa.initialisation() != paNoError)
            throw PlaybackError(describe("The audio system could not start", pa.initialisation()));
        PaDeviceIndex device = Pa_GetDefaultOutputDevice();
        if (device == paNoDevice) throw PlaybackError("There's no audio output device.");
        const PaDeviceInfo* info = Pa_GetDeviceInfo(device);
        PaStreamParameters parameters{};
        parameters.device = device;
        parameters.channelCount = wanted.channelCount;
        parameters.sampleFormat = paFloat32 | paNonInterleaved;
        parameters.suggestedLatency =
            std::max(info ? info->defaultLowOutputLatency : 0.0, minimumLatency);
        client = newClient;
        PaStream* stream = nullptr;
        PaError error = Pa_OpenStream(&stream, nullptr, &parameters, wanted.sampleRate,
                                      framesPerBuffer, paNoFlag, &PortAudioOutput::callback, this);
        if (error != paNoError) {
            client = nullptr;
            throw PlaybackError(describe("The audio output could not be opened", error));
        }
        pa.adopt(stream, &PortAudioOutput::finished);
        // Ask for a real-time callback thread where the system grants one (it falls back to
        // normal scheduling when it does not).
        if (const PaHostApiInfo* api = Pa_GetHostApiInfo(info ? info->hostApi : -1);
            api && api->type == paALSA)
            PaAlsa_EnableRealtimeScheduling(stream, 1);
        streamFormat = wanted;
        underflows.store(0);
        const PaStreamInfo* streamInfo = Pa_GetStreamInfo(stream);
        latency = streamInfo ? streamInfo->outputLatency : 0;
    }

    void start() override {
        if (!pa.get()) throw PlaybackError("The audio output is not open.");
        if (const PaError error = pa.start(); error != paNoError)
            throw PlaybackError(describe("The audio output could not start", error));
    }

    void stop() override { pa.stop(); }

    void close() override {
        pa.close();
        client = nullptr;
        streamFormat = {};
    }

    bool isOpen() const override { return pa.get() != nullptr; }
    bool isRunning() const override { return pa.isRunning(); }
    bool hasFailed() const override { return pa.hasFailed(); }
    Format format() const override { return streamFormat; }
    double outputLatency() const override { return latency; }
    HostTime now() const override {
        return pa.get() ? hostTimeFromSeconds(Pa_GetStreamTime(pa.get())) : 0;
    }
    int64_t underflowCount() const override { return underflows.load(); }
    double deviceSampleRate() const override {
        if (pa.initialisation() != paNoError) return 0;
        PaDeviceIndex device = Pa_GetDefaultOutputDevice();
        const PaDeviceInfo* info = device == paNoDevice ? nullptr : Pa_GetDeviceInfo(device);
        return info ? info->defaultSampleRate : 0;
    }

private:
    static int callback(const void*, void* output, unsigned long frameCount,
                        const PaStreamCallbackTimeInfo* time, PaStreamCallbackFlags flags,
                        void* context) {
        auto* self = static_cast<PortAudioOutput*>(context);
        if (flags & paOutputUnderflow) self->underflows.fetch_add(1, std::memory_order_relaxed);
        HostTime hostTime = 0;
        if (time && time->outputBufferDacTime > 0)
            hostTime = hostTimeFromSeconds(time->outputBufferDacTime - self->latency);
        else if (time)
            hostTime = hostTimeFromSeconds(time->currentTime);
        self->client->render(static_cast<float* const*>(output), self->streamFormat.channelCount,
                             int64_t(frameCount), hostTime);
        return paContinue;
    }

    static void finished(void* context) {
        static_cast<PortAudioOutput*>(context)->pa.noteFinished();
    }

    PortAudioStream pa;
    Client* client = nullptr;
    Format streamFormat;
    double latency = 0; // written only while no callback runs
    std::atomic<int64_t> underflows{0};
};

} // namespace

std::unique_ptr<AudioOutput> makePortAudioOutput() { return std::make_unique<PortAudioOutput>(); }

} // namespace sonvale
