#include "engine/AudioInput.h"
#include "engine/AudioInputDevice.h"
#include "engine/PortAudioStream.h"

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

// A failure to open or start the device named `name`.
RecordingError inputError(PaError error, const std::string& name, const char* what) {
    if (accessRefused(error))
        return RecordingError(RecordingFailure::permissionDenied, PortAudioStream::describe(error));
    return RecordingError("The audio input “" + name + "” " + what + ".",
                          PortAudioStream::describe(error));
}

// The PortAudio input stream.
class PortAudioInput final : public AudioInput {
public:
    ~PortAudioInput() override { close(); }

    Format open(const std::optional<std::string>& uid, int maxChannels) override {
        close();
        if (pa.initialisation() != paNoError)
            throw RecordingError("The audio system could not start.",
                                 PortAudioStream::describe(pa.initialisation()));
        const PaDeviceIndex device = findInput(uid);
        const PaDeviceInfo* info = device == paNoDevice ? nullptr : Pa_GetDeviceInfo(device);
        if (!info || info->maxInputChannels < 1 || !(info->defaultSampleRate > 0))
            throw RecordingError(RecordingFailure::noInput);
        PaStreamParameters parameters{};
        parameters.device = device;
        parameters.channelCount = std::clamp(info->maxInputChannels, 1, std::max(1, maxChannels));
        parameters.sampleFormat = paFloat32 | paNonInterleaved;
        parameters.suggestedLatency = info->defaultHighInputLatency;
        PaStream* stream = nullptr;
        const PaError error =
            Pa_OpenStream(&stream, &parameters, nullptr, info->defaultSampleRate, framesPerBuffer,
                          paClipOff, &PortAudioInput::callback, this);
        if (error != paNoError) throw inputError(error, info->name, "could not be opened");
        pa.adopt(stream, &PortAudioInput::finished);
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
        if (!pa.get()) throw RecordingError("The audio input is not open.");
        client.store(newClient);
        if (const PaError error = pa.start(); error != paNoError)
            throw inputError(error, name, "could not start");
    }

    void stop() override { pa.stop(); }

    void close() override {
        pa.close();
        client.store(nullptr);
        streamFormat = {};
        name.clear();
    }

    bool hasFailed() const override { return pa.hasFailed(); }
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
        static_cast<PortAudioInput*>(context)->pa.noteFinished();
    }

    PortAudioStream pa;
    std::atomic<Client*> client{nullptr};
    Format streamFormat;
    std::string name;
    double latency = 0;
    std::atomic<int64_t> overflows{0};
};

} // namespace

std::unique_ptr<AudioInput> makePortAudioInput() { return std::make_unique<PortAudioInput>(); }

} // namespace sonvale
