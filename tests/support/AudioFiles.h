#pragma once

#include "audio/AudioData.h"

#include <filesystem>
#include <string>
#include <vector>

namespace sonvale::test {

// A file made by scripts/make-fixtures.sh.
std::filesystem::path fixture(const std::string& name);

// ffmpeg's decode of fixture `name` (interleaved 32-bit float, NAME.f32).
std::vector<float> ffmpegDecode(const std::string& name);

// The output of a shell command (run through popen), for tools such as ffprobe.
std::string commandOutput(const std::string& command);

// Audio from per-channel sample arrays, built the way the loader builds it.
AudioDataPtr makeAudio(double sampleRate, const std::vector<std::vector<float>>& channels);

// A new empty folder under the system's temporary folder, removed with its contents.
class TemporaryFolder {
public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    const std::filesystem::path& path() const { return folder; }
    std::filesystem::path operator/(const std::string& name) const { return folder / name; }

private:
    std::filesystem::path folder;
};

} // namespace sonvale::test
