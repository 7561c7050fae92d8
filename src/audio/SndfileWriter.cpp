// PCM WAV and AIFF through libsndfile, over Sonvale's own file descriptor so that a
// failed write keeps its errno.

#include "audio/AudioFileWriter.h"

#include "audio/AudioErrors.h"
#include "audio/FileHandle.h"
#include "audio/FloatBuffer.h"
#include "base/Errors.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <sndfile.h>
#include <sys/stat.h>
#include <utility>

namespace sonvale {

namespace {

constexpr int64_t chunkFrames = 65536;

int sndfileFormat(const EncoderSettings& s) {
    int format = 0;
    switch (s.container) {
    // Float WAVs (new tracks, session audio) can be hours long: they are written as RF64,
    // which turns itself back into a plain (extensible) WAV on closing when the data fits
    // in WAV's 4 GiB. Exports stay classic WAV for every reader.
    case EncoderSettings::Container::wav:
        format = s.isFloat.value_or(false) ? SF_FORMAT_RF64 : SF_FORMAT_WAV;
        break;
    case EncoderSettings::Container::aiff: format = SF_FORMAT_AIFF; break;
    case EncoderSettings::Container::mp4: return 0;
    }
    const int depth = s.bitDepth.value_or(16);
    if (s.isFloat.value_or(false))
        format |= depth == 64 ? SF_FORMAT_DOUBLE : SF_FORMAT_FLOAT;
    else
        format |= depth == 24 ? SF_FORMAT_PCM_24 : depth == 32 ? SF_FORMAT_PCM_32 : SF_FORMAT_PCM_16;
    if (s.isBigEndian) format |= *s.isBigEndian ? SF_ENDIAN_BIG : SF_ENDIAN_LITTLE;
    return format;
}

class SndfileWriter final : public AudioFileWriter {
public:
    SndfileWriter(int fd, const EncoderSettings& settings, std::filesystem::path path)
        : file(fd), path(std::move(path)) {
        SF_INFO info{};
        info.samplerate = int(std::lround(settings.sampleRate));
        info.channels = settings.channels;
        info.format = sndfileFormat(settings);
        if (!sf_format_check(&info))
            throw FileError(describeFileError("Couldn't write", this->path.string(),
                                              "libsndfile can't write this format"));
        channels = settings.channels;
        interleaved = FloatBuffer(chunkFrames * channels);
        SF_VIRTUAL_IO io{&fileLength, &seek, &read, &write, &tell};
        sndfile = sf_open_virtual(&io, SFM_WRITE, &info, this);
        if (!sndfile) fail(sf_strerror(nullptr));
        // Floats scale by 2^15 (or 2^23) with +1.0 clipped to the largest code, matching
        // how they are read back; without this libsndfile scales by 2^15 - 1.
        sf_command(sndfile, SFC_SET_CLIPPING, nullptr, SF_TRUE);
        if ((info.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_RF64)
            sf_command(sndfile, SFC_RF64_AUTO_DOWNGRADE, nullptr, SF_TRUE);
    }

    ~SndfileWriter() override {
        if (sndfile) sf_close(sndfile);
    }

    void write(const float* const* input, int64_t frames) override {
        for (int64_t done = 0; done < frames;) {
            const int64_t n = std::min(frames - done, chunkFrames);
            float* out = interleaved.data();
            for (int c = 0; c < channels; ++c) {
                const float* in = input[c] + done;
                for (int64_t i = 0; i < n; ++i) out[i * channels + c] = in[i];
            }
            if (sf_writef_float(sndfile, out, n) != n) fail(sf_strerror(sndfile));
            done += n;
        }
    }

    void finish() override {
        const int closed = sf_close(std::exchange(sndfile, nullptr));
        if (closed != 0 || failure) fail(sf_error_number(closed));
        if (file.close() != 0) fail(std::strerror(errno));
    }

private:
    [[noreturn]] void fail(const char* reason) const {
        if (failure) throw fileErrorFromErrno("Couldn't write", path.string(), failure);
        throw FileError(describeFileError("Couldn't write", path.string(), reason));
    }

    static sf_count_t fileLength(void* self) {
        struct stat status{};
        if (::fstat(static_cast<SndfileWriter*>(self)->file.get(), &status) != 0) return -1;
        return status.st_size;
    }
    static sf_count_t seek(sf_count_t offset, int whence, void* self) {
        auto* writer = static_cast<SndfileWriter*>(self);
        const off_t position = ::lseek(writer->file.get(), off_t(offset), whence);
        if (position < 0 && !writer->failure) writer->failure = errno;
        return position;
    }
    static sf_count_t read(void* to, sf_count_t count, void* self) {
        const ssize_t got = ::read(static_cast<SndfileWriter*>(self)->file.get(), to, size_t(count));
        return got < 0 ? 0 : got;
    }
    static sf_count_t write(const void* from, sf_count_t count, void* self) {
        auto* writer = static_cast<SndfileWriter*>(self);
        sf_count_t written = 0;
        while (written < count) {
            const ssize_t put = ::write(writer->file.get(), static_cast<const char*>(from) + written,
                                        size_t(count - written));
            if (put > 0) {
                written += put;
                continue;
            }
            if (put < 0 && errno == EINTR) continue;
            if (!writer->failure) writer->failure = put < 0 ? errno : EIO;
            break;
        }
        return written;
    }
    static sf_count_t tell(void* self) {
        return ::lseek(static_cast<SndfileWriter*>(self)->file.get(), 0, SEEK_CUR);
    }

    FileHandle file;
    std::filesystem::path path;
    SNDFILE* sndfile = nullptr;
    int channels = 0;
    int failure = 0; // errno of the first failed system call
    FloatBuffer interleaved;
};

} // namespace

std::unique_ptr<AudioFileWriter> openSndfileWriter(int fd, const EncoderSettings& settings,
                                                   const std::filesystem::path& path) {
    return std::make_unique<SndfileWriter>(fd, settings, path);
}

} // namespace sonvale
