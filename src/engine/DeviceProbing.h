#pragma once

namespace sonvale {

// PortAudio opens every ALSA device and tries a JACK server while it looks for devices; the
// libraries report each one that is not there on stderr. None of that concerns the user (real
// failures reach them as errors of their own), so those reports are dropped. Call before
// Pa_Initialize.
void silenceDeviceProbing();

} // namespace sonvale
