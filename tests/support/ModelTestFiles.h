#pragma once

#include "support/AudioFiles.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>

#include <sys/mount.h>
#include <unistd.h>

namespace sonvale::test {

using TempFolder = TemporaryFolder;

inline void writeText(const std::filesystem::path& path, const std::string& text) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << text;
}

inline std::string readText(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

// Sets an environment variable for its own lifetime and restores the old value.
class ScopedEnvironment {
public:
    ScopedEnvironment(const char* name, const std::optional<std::string>& value)
        : name(name) {
        if (const char* old = std::getenv(name)) previous = old;
        if (value)
            setenv(name, value->c_str(), 1);
        else
            unsetenv(name);
    }
    ~ScopedEnvironment() {
        if (previous)
            setenv(name, previous->c_str(), 1);
        else
            unsetenv(name);
    }
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

private:
    const char* name;
    std::optional<std::string> previous;
};

// A small tmpfs of its own, where the test may fill the disk or make it read-only; none
// where mounting is not allowed.
class TmpfsMount {
public:
    explicit TmpfsMount(const std::filesystem::path& at, const char* size)
        : point(at) {
        std::filesystem::create_directories(at);
        mounted =
            ::mount("tmpfs", at.c_str(), "tmpfs", 0, (std::string("size=") + size).c_str()) == 0;
    }
    ~TmpfsMount() {
        if (mounted) ::umount2(point.c_str(), MNT_DETACH);
    }
    bool isMounted() const { return mounted; }
    bool makeReadOnly() {
        return ::mount("tmpfs", point.c_str(), "tmpfs", MS_REMOUNT | MS_RDONLY, nullptr) == 0;
    }

private:
    std::filesystem::path point;
    bool mounted = false;
};

} // namespace sonvale::test
