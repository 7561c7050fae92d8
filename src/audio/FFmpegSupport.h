#pragma once

#include <string>

extern "C" {
#include <libavformat/avio.h>
struct AVFormatContext;
struct AVCodecContext;
struct AVPacket;
struct AVFrame;
struct SwrContext;
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

// The FFmpeg objects one decoder or encoder works with, freed together. Declared after the
// FFmpegFileIO the format context reads or writes through, so that they go first, also
// when a constructor throws.
struct FFmpegContexts {
    enum class Direction { reading, writing };
    explicit FFmpegContexts(Direction direction);
    ~FFmpegContexts();
    FFmpegContexts(const FFmpegContexts&) = delete;
    FFmpegContexts& operator=(const FFmpegContexts&) = delete;

    AVFormatContext* format = nullptr; // closed as an input, or freed as an output
    AVCodecContext* codec = nullptr;
    AVPacket* packet = nullptr; // allocated here; throws outOfMemory when it can't be
    AVFrame* frame = nullptr;   // likewise
    SwrContext* converter = nullptr;

private:
    Direction direction;
};

} // namespace sonvale
