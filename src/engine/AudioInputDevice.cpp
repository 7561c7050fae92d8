#include "engine/AudioInputDevice.h"

#include <alsa/asoundlib.h>
#include <portaudio.h>

extern "C" {
void jack_set_error_function(void (*function)(const char*)) __attribute__((weak));
void jack_set_info_function(void (*function)(const char*)) __attribute__((weak));
}

namespace sonvale {

namespace {

void quietAlsa(const char*, int, const char*, int, const char*, ...) {}
void quietJack(const char*) {}

// Probing reports every absent ALSA device and JACK server on stderr; none of it is an error.
void silenceDeviceProbing() {
    snd_lib_error_set_handler(quietAlsa);
    if (jack_set_error_function) jack_set_error_function(quietJack);
    if (jack_set_info_function) jack_set_info_function(quietJack);
}

} // namespace

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
