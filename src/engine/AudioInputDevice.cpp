#include "engine/AudioInputDevice.h"

#include "engine/DeviceProbing.h"

#include <portaudio.h>

namespace sonvale {

std::string audioInputDeviceUID(const std::string& hostAPIName, const std::string& deviceName) {
    return hostAPIName + ": " + deviceName;
}

AudioDeviceList audioDevices() {
    silenceDeviceProbing();
    if (Pa_Initialize() != paNoError) return {};
    AudioDeviceList list;
    const PaDeviceIndex count = Pa_GetDeviceCount();
    const PaDeviceIndex defaultInput = Pa_GetDefaultInputDevice();
    const PaDeviceIndex defaultOutput = Pa_GetDefaultOutputDevice();
    for (PaDeviceIndex index = 0; index < count; ++index) {
        const PaDeviceInfo* info = Pa_GetDeviceInfo(index);
        if (!info || !info->name) continue;
        const PaHostApiInfo* host = Pa_GetHostApiInfo(info->hostApi);
        const AudioInputDevice device{
            audioInputDeviceUID(host && host->name ? host->name : "", info->name), info->name};
        if (info->maxInputChannels > 0) list.inputs.push_back(device);
        if (info->maxOutputChannels > 0) list.outputs.push_back(device);
        if (index == defaultInput) list.defaultInput = device.uid;
        if (index == defaultOutput) list.defaultOutput = device.uid;
    }
    Pa_Terminate();
    return list;
}

std::vector<AudioInputDevice> audioInputDevices() { return audioDevices().inputs; }

} // namespace sonvale
