#pragma once

#include <string>

extern "C" {
#include <libavformat/avio.h>
}

namespace sonvale {

// FFmpeg's description of an error code ("Invalid data found when processing input").
std::string ffmpegErrorText(int error);

// Keeps FFmpeg's own log off stderr: its failures reach the user through our errors.
void silenceFFmpegLog();

// An AVIOContext over a file descriptor Sonvale opened itself, so that file names never
// pass through FFmpeg's protocol parsing and system errors keep their errno.
class FFmpegFileIO {
public:
    FFmpegFileIO(int fd, bool writable);
    ~FFmpegFileIO();
    FFmpegFileIO(const FFmpegFileIO&) = delete;
    FFmpegFileIO& operator=(const FFmpegFileIO&) = delete;

    AVIOContext* context() const { return io; }
    // errno of the first failed read, write or seek; 0 when none failed.
    int systemError() const { return failure; }

private:
    static int readPacket(void* opaque, uint8_t* buffer, int size);
    static int writePacket(void* opaque, uint8_t* buffer, int size);
    static int64_t seek(void* opaque, int64_t offset, int whence);
    int fd;
    int failure = 0;
    AVIOContext* io = nullptr;
};

} // namespace sonvale
