#include "engine/AudioOutput.h"
#include "engine/DeviceProbing.h"

#include <pa_linux_alsa.h>
#include <portaudio.h>

#include <algorithm>
#include <atomic>
#include <string>

namespace sonvale {

namespace {

constexpr unsigned long framesPerBuffer = 512;
constexpr double minimumLatency = 0.1; // seconds: headroom for a sound server on a busy machine

std::string describe(const char* what, PaError error) {
    std::string text = what;
    text += ": ";
    if (error == paUnanticipatedHostError) {
        const PaHostErrorInfo* info = Pa_GetLastHostErrorInfo();
        text +=
            info && info->errorText && *info->errorText ? info->errorText : Pa_GetErrorText(error);
    } else {
        text += Pa_GetErrorText(error);
    }
    return text;
}

// The PortAudio output stream. Pa_Initialize is reference-counted, so every instance keeps
// the library initialised for its own lifetime.
class PortAudioOutput final : public AudioOutput {
public:
    PortAudioOutput()
        : initialised((silenceDeviceProbing(), Pa_Initialize())) {}
    ~PortAudioOutput() override {
        close();
        if (initialised == paNoError) Pa_Terminate();
    }

    void open(Format wanted, Client* newClient) override {
        close();
        if (initialised != paNoError)
            throw PlaybackError(describe("The audio system could not start", initialised));
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
        PaError error = Pa_OpenStream(&stream, nullptr, &parameters, wanted.sampleRate,
                                      framesPerBuffer, paNoFlag, &PortAudioOutput::callback, this);
        if (error != paNoError) {
            stream = nullptr;
            client = nullptr;
            throw PlaybackError(describe("The audio output could not be opened", error));
        }
        Pa_SetStreamFinishedCallback(stream, &PortAudioOutput::finished);
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
        if (!stream) throw PlaybackError("The audio output is not open.");
        if (running) return;
        stopping.store(false);
        failed.store(false);
        PaError error = Pa_StartStream(stream);
        if (error != paNoError)
            throw PlaybackError(describe("The audio output could not start", error));
        running = true;
    }

    void stop() override {
        if (!stream || !running) return;
        stopping.store(true);
        if (Pa_IsStreamStopped(stream) == 0) Pa_StopStream(stream);
        running = false;
    }

    void close() override {
        if (!stream) return;
        stop();
        Pa_CloseStream(stream);
        stream = nullptr;
        client = nullptr;
        streamFormat = {};
    }

    bool isOpen() const override { return stream != nullptr; }
    bool isRunning() const override { return running; }
    bool hasFailed() const override {
        if (!stream || !running) return false;
        return failed.load() || Pa_IsStreamActive(stream) != 1;
    }
    Format format() const override { return streamFormat; }
    double outputLatency() const override { return latency; }
    HostTime now() const override {
        return stream ? hostTimeFromSeconds(Pa_GetStreamTime(stream)) : 0;
    }
    int64_t underflowCount() const override { return underflows.load(); }
    double deviceSampleRate() const override {
        if (initialised != paNoError) return 0;
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
        auto* self = static_cast<PortAudioOutput*>(context);
        if (!self->stopping.load()) self->failed.store(true);
    }

    PaError initialised;
    PaStream* stream = nullptr;
    Client* client = nullptr;
    Format streamFormat;
    double latency = 0; // written only while no callback runs
    bool running = false;
    std::atomic<bool> stopping{false};
    std::atomic<bool> failed{false};
    std::atomic<int64_t> underflows{0};
};

} // namespace

std::unique_ptr<AudioOutput> makePortAudioOutput() { return std::make_unique<PortAudioOutput>(); }

} // namespace sonvale
