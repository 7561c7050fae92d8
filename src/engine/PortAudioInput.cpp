#include "engine/AudioInput.h"
#include "engine/AudioInputDevice.h"
#include "engine/DeviceProbing.h"

#include <portaudio.h>

#include <algorithm>
#include <atomic>
#include <cerrno>

namespace sonvale {

const char* recordingFailureText(RecordingFailure failure) {
    switch (failure) {
    case RecordingFailure::permissionDenied:
        return "Sonvale doesn't have access to the microphone. Allow it in your system's sound "
               "settings.";
    case RecordingFailure::noInput:
        return "There's no audio input. Connect a microphone or choose an input in your "
               "system's sound settings.";
    }
    return "";
}

namespace {

constexpr unsigned long framesPerBuffer = 4096;

std::string hostText(PaError error) {
    if (error == paUnanticipatedHostError) {
        const PaHostErrorInfo* info = Pa_GetLastHostErrorInfo();
        if (info && info->errorText && *info->errorText) return info->errorText;
    }
    return Pa_GetErrorText(error);
}

// The device refused for want of access (ALSA reports a negative errno).
bool accessRefused(PaError error) {
    if (error != paUnanticipatedHostError) return false;
    const PaHostErrorInfo* info = Pa_GetLastHostErrorInfo();
    return info && (info->errorCode == -EACCES || info->errorCode == -EPERM);
}

PaDeviceIndex findInput(const std::optional<std::string>& uid) {
    if (uid) {
        const PaDeviceIndex count = Pa_GetDeviceCount();
        for (PaDeviceIndex index = 0; index < count; ++index) {
            const PaDeviceInfo* info = Pa_GetDeviceInfo(index);
            if (!info || info->maxInputChannels < 1 || !info->name) continue;
            const PaHostApiInfo* host = Pa_GetHostApiInfo(info->hostApi);
            if (audioInputDeviceUID(host && host->name ? host->name : "", info->name) == *uid)
                return index;
        }
    }
    return Pa_GetDefaultInputDevice();
}

// The PortAudio input stream. Pa_Initialize is reference-counted, so every instance keeps
// the library initialised for its own lifetime.
class PortAudioInput final : public AudioInput {
public:
    PortAudioInput()
        : initialised((silenceDeviceProbing(), Pa_Initialize())) {}
    ~PortAudioInput() override {
        close();
        if (initialised == paNoError) Pa_Terminate();
    }

    Format open(const std::optional<std::string>& uid, int maxChannels) override {
        close();
        if (initialised != paNoError)
            throw RecordingError("The audio system could not start: " + hostText(initialised));
        const PaDeviceIndex device = findInput(uid);
        const PaDeviceInfo* info = device == paNoDevice ? nullptr : Pa_GetDeviceInfo(device);
        if (!info || info->maxInputChannels < 1 || !(info->defaultSampleRate > 0))
            throw RecordingError(RecordingFailure::noInput);
        PaStreamParameters parameters{};
        parameters.device = device;
        parameters.channelCount = std::clamp(info->maxInputChannels, 1, std::max(1, maxChannels));
        parameters.sampleFormat = paFloat32 | paNonInterleaved;
        parameters.suggestedLatency = info->defaultHighInputLatency;
        const PaError error =
            Pa_OpenStream(&stream, &parameters, nullptr, info->defaultSampleRate, framesPerBuffer,
                          paClipOff, &PortAudioInput::callback, this);
        if (error != paNoError) {
            stream = nullptr;
            if (accessRefused(error))
                throw RecordingError(RecordingFailure::permissionDenied, hostText(error));
            throw RecordingError("The audio input “" + std::string(info->name) +
                                     "” could not be opened.",
                                 hostText(error));
        }
        Pa_SetStreamFinishedCallback(stream, &PortAudioInput::finished);
        const PaStreamInfo* streamInfo = Pa_GetStreamInfo(stream);
        latency = streamInfo ? streamInfo->inputLatency : 0;
        streamFormat = {streamInfo && streamInfo->sampleRate > 0 ? streamInfo->sampleRate
                                                                 : info->defaultSampleRate,
                        parameters.channelCount};
        name = info->name;
        overflows.store(0);
        return streamFormat;
    }

    void start(Client* newClient) override {
        if (!stream) throw RecordingError("The audio input is not open.");
        if (running) return;
        client.store(newClient);
        stopping.store(false);
        failed.store(false);
        const PaError error = Pa_StartStream(stream);
        if (error != paNoError) {
            if (accessRefused(error))
                throw RecordingError(RecordingFailure::permissionDenied, hostText(error));
            throw RecordingError("The audio input “" + name + "” could not start.",
                                 hostText(error));
        }
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
        client.store(nullptr);
        streamFormat = {};
        name.clear();
    }

    bool hasFailed() const override {
        if (!stream || !running) return false;
        return failed.load() || Pa_IsStreamActive(stream) != 1;
    }
    double inputLatency() const override { return latency; }
    std::string deviceName() const override { return name; }
    int64_t overflowCount() const override { return overflows.load(); }

private:
    static int callback(const void* input, void*, unsigned long frameCount,
                        const PaStreamCallbackTimeInfo*, PaStreamCallbackFlags flags,
                        void* context) {
        auto* self = static_cast<PortAudioInput*>(context);
        if (flags & paInputOverflow) self->overflows.fetch_add(1, std::memory_order_relaxed);
        Client* client = self->client.load(std::memory_order_acquire);
        if (input && client)
            client->capture(static_cast<const float* const*>(input),
                            self->streamFormat.channelCount, int64_t(frameCount));
        return paContinue;
    }

    static void finished(void* context) {
        auto* self = static_cast<PortAudioInput*>(context);
        if (!self->stopping.load()) self->failed.store(true);
    }

    PaError initialised;
    PaStream* stream = nullptr;
    std::atomic<Client*> client{nullptr};
    Format streamFormat;
    std::string name;
    double latency = 0;
    bool running = false;
    std::atomic<bool> stopping{false};
    std::atomic<bool> failed{false};
    std::atomic<int64_t> overflows{0};
};

} // namespace

std::unique_ptr<AudioInput> makePortAudioInput() { return std::make_unique<PortAudioInput>(); }

} // namespace sonvale
