#include "audio/FFmpegSupport.h"

#include "audio/AudioErrors.h"

#include <cerrno>
#include <mutex>
#include <sys/stat.h>
#include <unistd.h>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/error.h>
#include <libavutil/log.h>
#include <libavutil/mem.h>
#include <libswresample/swresample.h>
}

namespace sonvale {

std::string ffmpegErrorText(int error) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    if (av_strerror(error, text, sizeof text) < 0) return "Unknown error " + std::to_string(error);
    return text;
}

void silenceFFmpegLog() {
    static std::once_flag once;
    std::call_once(once, [] { av_log_set_level(AV_LOG_QUIET); });
}

namespace {
constexpr int ioBufferSize = 256 * 1024;
}

FFmpegFileIO::FFmpegFileIO(int fd, bool writable)
    : fd(fd) {
    auto* buffer = static_cast<unsigned char*>(av_malloc(ioBufferSize));
    if (!buffer) throw AudioLoaderError::outOfMemory();
    io = avio_alloc_context(buffer, ioBufferSize, writable ? 1 : 0, this,
                            writable ? nullptr : &FFmpegFileIO::readPacket,
                            writable ? &FFmpegFileIO::writePacket : nullptr, &FFmpegFileIO::seek);
    if (!io) {
        av_free(buffer);
        throw AudioLoaderError::outOfMemory();
    }
}

FFmpegFileIO::~FFmpegFileIO() {
    if (io) av_freep(&io->buffer);
    avio_context_free(&io);
}

int FFmpegFileIO::readPacket(void* opaque, uint8_t* buffer, int size) {
    auto* self = static_cast<FFmpegFileIO*>(opaque);
    for (;;) {
        const ssize_t got = ::read(self->fd, buffer, size_t(size));
        if (got > 0) return int(got);
        if (got == 0) return AVERROR_EOF;
        if (errno == EINTR) continue;
        if (!self->failure) self->failure = errno;
        return AVERROR(errno);
    }
}

int FFmpegFileIO::writePacket(void* opaque, uint8_t* buffer, int size) {
    auto* self = static_cast<FFmpegFileIO*>(opaque);
    int written = 0;
    while (written < size) {
        const ssize_t put = ::write(self->fd, buffer + written, size_t(size - written));
        if (put > 0) {
            written += int(put);
            continue;
        }
        if (put < 0 && errno == EINTR) continue;
        const int error = put < 0 ? errno : EIO;
        if (!self->failure) self->failure = error;
        return AVERROR(error);
    }
    return written;
}

int64_t FFmpegFileIO::seek(void* opaque, int64_t offset, int whence) {
    auto* self = static_cast<FFmpegFileIO*>(opaque);
    if (whence & AVSEEK_SIZE) {
        struct stat status {};
        if (::fstat(self->fd, &status) != 0) return AVERROR(errno);
        return S_ISREG(status.st_mode) ? int64_t(status.st_size) : AVERROR(ENOSYS);
    }
    const off_t position = ::lseek(self->fd, off_t(offset), whence & ~AVSEEK_FORCE);
    if (position < 0) return AVERROR(errno);
    return int64_t(position);
}

FFmpegContexts::FFmpegContexts(Direction direction)
    : packet(av_packet_alloc())
    , frame(av_frame_alloc())
    , direction(direction) {
    if (!packet || !frame) {
        av_frame_free(&frame);
        av_packet_free(&packet);
        throw AudioLoaderError::outOfMemory();
    }
}

FFmpegContexts::~FFmpegContexts() {
    swr_free(&converter);
    av_frame_free(&frame);
    av_packet_free(&packet);
    avcodec_free_context(&codec);
    if (direction == Direction::reading)
        avformat_close_input(&format);
    else
        avformat_free_context(format);
}

} // namespace sonvale
