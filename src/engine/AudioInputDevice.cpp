#include "engine/AudioInputDevice.h"

#include "engine/DeviceProbing.h"

#include <portaudio.h>

namespace sonvale {

std::string audioInputDeviceUID(const std::string& hostAPIName, const std::string& deviceName) {
    return hostAPIName + ": " + deviceName;
}

std::vector<AudioInputDevice> audioInputDevices() {
    silenceDeviceProbing();
    if (Pa_Initialize() != paNoError) return {};
    std::vector<AudioInputDevice> devices;
    const PaDeviceIndex count = Pa_GetDeviceCount();
    for (PaDeviceIndex index = 0; index < count; ++index) {
        const PaDeviceInfo* info = Pa_GetDeviceInfo(index);
        if (!info || info->maxInputChannels < 1 || !info->name) continue;
        const PaHostApiInfo* host = Pa_GetHostApiInfo(info->hostApi);
        const std::string hostName = host && host->name ? host->name : "";
        devices.push_back({audioInputDeviceUID(hostName, info->name), info->name});
    }
    Pa_Terminate();
    return devices;
}

} // namespace sonvale
