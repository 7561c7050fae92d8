#pragma once

#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace sonvale::test {

// Points this process at the private sound server that scripts/sound-server.sh started for
// the build tree (its variables are read from the server's env file) and checks that it
// answers. Returns the reason when there is none, for GTEST_SKIP.
std::optional<std::string> useSoundServer();

// Records what the test sink plays, from its monitor, with parec: 48 kHz stereo float.
class MonitorRecorder {
public:
    static constexpr double sampleRate = 48000;
    MonitorRecorder() = default;
    ~MonitorRecorder();
    MonitorRecorder(const MonitorRecorder&) = delete;
    MonitorRecorder& operator=(const MonitorRecorder&) = delete;

    // Starts recording and returns once the recorder has delivered its first samples.
    // Throws std::runtime_error when parec cannot run.
    void start();
    void stop();

    std::vector<float> left;
    std::vector<float> right;

private:
    int pid = -1;
    int pipeRead = -1;
    std::thread reader;
    std::vector<float> interleaved;
};

} // namespace sonvale::test
