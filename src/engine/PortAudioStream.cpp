#include "engine/PortAudioStream.h"

#include "engine/DeviceProbing.h"

namespace sonvale {

PortAudioStream::PortAudioStream()
    : initialised((silenceDeviceProbing(), Pa_Initialize())) {}

PortAudioStream::~PortAudioStream() {
    close();
    if (initialised == paNoError) Pa_Terminate();
}

void PortAudioStream::adopt(PaStream* opened, PaStreamFinishedCallback* finished) {
    close();
    stream = opened;
    Pa_SetStreamFinishedCallback(stream, finished);
}

PaError PortAudioStream::start() {
    if (running) return paNoError;
    stopping.store(false);
    failed.store(false);
    const PaError error = Pa_StartStream(stream);
    running = error == paNoError;
    return error;
}

void PortAudioStream::stop() {
    if (!stream || !running) return;
    stopping.store(true);
    if (Pa_IsStreamStopped(stream) == 0) Pa_StopStream(stream);
    running = false;
}

void PortAudioStream::close() {
    if (!stream) return;
    stop();
    Pa_CloseStream(stream);
    stream = nullptr;
}

bool PortAudioStream::hasFailed() const {
    if (!stream || !running) return false;
    return failed.load() || Pa_IsStreamActive(stream) != 1;
}

void PortAudioStream::noteFinished() {
    if (!stopping.load()) failed.store(true);
}

std::string PortAudioStream::describe(PaError error) {
    if (error == paUnanticipatedHostError) {
        const PaHostErrorInfo* info = Pa_GetLastHostErrorInfo();
        if (info && info->errorText && *info->errorText) return info->errorText;
    }
    return Pa_GetErrorText(error);
}

} // namespace sonvale
