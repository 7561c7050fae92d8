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

// A folder whose writes fail once about `bytes` are in it: a tmpfs of that size mounted for
// the test, or, where mounting is not allowed, a limit on the size of the files this process
// writes (then a write fails with EFBIG rather than ENOSPC). Unmounted or lifted on destruction.
class SmallDisk {
public:
    explicit SmallDisk(int64_t bytes);
    ~SmallDisk();
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;
    const std::filesystem::path& path() const { return root.path(); }
    std::filesystem::path operator/(const std::string& name) const { return root / name; }
    bool isFileSystem() const { return mounted; } // ENOSPC when full, else EFBIG

private:
    TemporaryFolder root;
    bool mounted = false;
    uint64_t previousLimit = 0;
};

} // namespace sonvale::test
