#pragma once

#include <unistd.h>
#include <utility>

namespace sonvale {

// Owns a POSIX file descriptor and closes it when it goes (errors on that close are
// ignored; writers that care call close() themselves).
class FileHandle {
public:
    FileHandle() = default;
    explicit FileHandle(int fd)
        : descriptor(fd) {}
    ~FileHandle() { reset(); }
    FileHandle(FileHandle&& other) noexcept
        : descriptor(std::exchange(other.descriptor, -1)) {}
    FileHandle& operator=(FileHandle&& other) noexcept {
        if (this != &other) {
            reset();
            descriptor = std::exchange(other.descriptor, -1);
        }
        return *this;
    }
    FileHandle(const FileHandle&) = delete;
    FileHandle& operator=(const FileHandle&) = delete;

    int get() const { return descriptor; }
    bool isOpen() const { return descriptor >= 0; }
    // Closes now and returns close(2)'s result (0, or -1 with errno set).
    int close() { return ::close(std::exchange(descriptor, -1)); }
    void reset() {
        if (descriptor >= 0) ::close(std::exchange(descriptor, -1));
    }

private:
    int descriptor = -1;
};

} // namespace sonvale
