#include "engine/DeviceProbing.h"

#include <alsa/asoundlib.h>

// JACK's message hooks, present when PortAudio brought libjack in.
extern "C" {
void jack_set_error_function(void (*function)(const char*)) __attribute__((weak));
void jack_set_info_function(void (*function)(const char*)) __attribute__((weak));
}

namespace sonvale {

namespace {
void quietAlsa(const char*, int, const char*, int, const char*, ...) {}
void quietJack(const char*) {}
} // namespace

void silenceDeviceProbing() {
    snd_lib_error_set_handler(quietAlsa);
    if (jack_set_error_function) jack_set_error_function(quietJack);
    if (jack_set_info_function) jack_set_info_function(quietJack);
}

} // namespace sonvale
