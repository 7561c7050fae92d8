#pragma once

#include <string>
#include <vector>

namespace sonvale {

// An audio input the user can record from. `uid` is what the preferences keep: the host API's
// name and the device's name ("ALSA: USB Audio CODEC: Audio (hw:1,0)"), which stays the same
// across restarts as long as the device keeps its name.
struct AudioInputDevice {
    std::string uid;
    std::string name;
    friend bool operator==(const AudioInputDevice&, const AudioInputDevice&) = default;
};

std::string audioInputDeviceUID(const std::string& hostAPIName, const std::string& deviceName);

// The devices PortAudio finds now, in its order (empty when it cannot start), and the uids of
// the default ones. Main thread; it probes the hardware, which can take a moment.
struct AudioDeviceList {
    std::vector<AudioInputDevice> inputs;
    std::vector<AudioInputDevice> outputs; // named alike
    std::string defaultInput;
    std::string defaultOutput;
};
AudioDeviceList audioDevices();
std::vector<AudioInputDevice> audioInputDevices();

} // namespace sonvale
