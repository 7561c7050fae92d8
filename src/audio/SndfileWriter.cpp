// PCM WAV and AIFF through libsndfile, over Sonvale's own file descriptor so that a
// failed write keeps its errno.

#include "audio/AudioFileWriter.h"

#include "audio/AudioErrors.h"
#include "audio/FileHandle.h"
#include "audio/FloatBuffer.h"
#include "audio/SndfileSupport.h"
#include "base/Errors.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <new>
#include <sndfile.h>
#include <sys/stat.h>
#include <utility>
#include <vector>

namespace sonvale {

namespace {

constexpr int64_t writeChunkFrames = 65536;

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
        format |= depth == 24   ? SF_FORMAT_PCM_24
                  : depth == 32 ? SF_FORMAT_PCM_32
                                : SF_FORMAT_PCM_16;
    // AIFF is big-endian and WAV little-endian by nature; naming the order explicitly would
    // make libsndfile write AIFF-C, which fewer programs read. Only the unusual order is named.
    const bool nativelyBig = s.container == EncoderSettings::Container::aiff;
    if (s.isBigEndian && *s.isBigEndian != nativelyBig)
        format |= *s.isBigEndian ? SF_ENDIAN_BIG : SF_ENDIAN_LITTLE;
    return format;
}

class SndfileWriter final : public AudioFileWriter {
public:
    SndfileWriter(int fd, const EncoderSettings& settings, std::filesystem::path path)
        : file(fd)
        , path(std::move(path)) {
        SF_INFO info{};
        info.samplerate = int(std::lround(settings.sampleRate));
        info.channels = settings.channels;
        info.format = sndfileFormat(settings);
        if (!sf_format_check(&info))
            throw FileError(describeFileError("Couldn't write", this->path.string(),
                                              "libsndfile can't write this format"));
        channels = settings.channels;
        if (settings.isFloat.value_or(false)) {
            floats = FloatBuffer(writeChunkFrames * channels);
        } else {
            integerBits = std::clamp(settings.bitDepth.value_or(16), 8, 32);
            integers.reset(new (std::nothrow) int32_t[size_t(writeChunkFrames * channels)]);
            if (!integers) throw AudioLoaderError::outOfMemory();
        }
        gathered.reserve(gatherBytes);
        SF_VIRTUAL_IO io{&fileLength, &seek, &read, &write, &tell};
        std::string openFailure;
        {
            std::lock_guard lock(sndfileOpenMutex());
            sndfile = sf_open_virtual(&io, SFM_WRITE, &info, this);
            if (!sndfile) openFailure = sf_strerror(nullptr);
        }
        if (!sndfile) fail(openFailure.c_str());
        if ((info.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_RF64)
            sf_command(sndfile, SFC_RF64_AUTO_DOWNGRADE, nullptr, SF_TRUE);
    }

    ~SndfileWriter() override {
        if (sndfile) sf_close(sndfile);
    }

    void write(const float* const* input, int64_t frames) override {
        for (int64_t done = 0; done < frames;) {
            const int64_t n = std::min(frames - done, writeChunkFrames);
            if (integerBits > 0) {
                // Rounded to the nearest code at 2^(bits-1) per full scale, +1.0 clipped to
                // the largest code: what FFmpeg does, and exact for samples that were read
                // from a file of that depth. (libsndfile's own conversion floors instead.)
                const float scale = std::ldexp(1.0f, integerBits - 1);
                // (At 32 bits, the largest float below 2^31.)
                const float largest = integerBits > 24 ? 2147483520.0f : scale - 1;
                const int shift = 32 - integerBits;
                int32_t* out = integers.get();
                for (int c = 0; c < channels; ++c) {
                    const float* in = input[c] + done;
                    for (int64_t i = 0; i < n; ++i) {
                        float x = in[i] * scale;
                        x = x == x ? std::clamp(x, -scale, largest) : 0.0f; // NaN: silence
                        const float code = std::nearbyint(x);
                        out[i * channels + c] = int32_t(code) * (int32_t(1) << shift);
                    }
                }
                if (sf_writef_int(sndfile, out, n) != n) fail(sf_strerror(sndfile));
            } else {
                float* out = floats.data();
                for (int c = 0; c < channels; ++c) {
                    const float* in = input[c] + done;
                    for (int64_t i = 0; i < n; ++i)
                        out[i * channels + c] = in[i];
                }
                if (sf_writef_float(sndfile, out, n) != n) fail(sf_strerror(sndfile));
            }
            done += n;
        }
    }

    void finish() override {
        const int closed = sf_close(std::exchange(sndfile, nullptr));
        flushGathered();
        if (closed != 0 || failure) fail(sf_error_number(closed));
        if (file.close() != 0) fail(std::strerror(errno));
    }

private:
    [[noreturn]] void fail(const char* reason) const {
        if (failure) throw fileErrorFromErrno("Couldn't write", path.string(), failure);
        throw FileError(describeFileError("Couldn't write", path.string(), reason));
    }

    // libsndfile hands over its output a few kilobytes at a time; it is gathered here into
    // large writes (one system call per megabyte instead of per 8 KB). Anything that moves
    // or asks about the file position writes what is gathered first.
    static constexpr size_t gatherBytes = size_t(1) << 20;

    bool flushGathered() {
        const char* data = gathered.data();
        size_t left = gathered.size();
        while (left > 0) {
            const ssize_t put = ::write(file.get(), data, left);
            if (put > 0) {
                data += put;
                left -= size_t(put);
                continue;
            }
            if (put < 0 && errno == EINTR) continue;
            if (!failure) failure = put < 0 ? errno : EIO;
            gathered.clear();
            return false;
        }
        gathered.clear();
        return true;
    }

    static sf_count_t fileLength(void* self) {
        auto* writer = static_cast<SndfileWriter*>(self);
        writer->flushGathered();
        struct stat status {};
        if (::fstat(writer->file.get(), &status) != 0) return -1;
        return status.st_size;
    }
    static sf_count_t seek(sf_count_t offset, int whence, void* self) {
        auto* writer = static_cast<SndfileWriter*>(self);
        writer->flushGathered();
        const off_t position = ::lseek(writer->file.get(), off_t(offset), whence);
        if (position < 0 && !writer->failure) writer->failure = errno;
        return position;
    }
    static sf_count_t read(void* to, sf_count_t count, void* self) {
        auto* writer = static_cast<SndfileWriter*>(self);
        writer->flushGathered();
        const ssize_t got = ::read(writer->file.get(), to, size_t(count));
        return got < 0 ? 0 : got;
    }
    static sf_count_t write(const void* from, sf_count_t count, void* self) {
        auto* writer = static_cast<SndfileWriter*>(self);
        if (writer->gathered.size() + size_t(count) > gatherBytes && !writer->flushGathered())
            return 0;
        const auto* bytes = static_cast<const char*>(from);
        writer->gathered.insert(writer->gathered.end(), bytes, bytes + count);
        if (writer->gathered.size() >= gatherBytes && !writer->flushGathered()) return 0;
        return count;
    }
    static sf_count_t tell(void* self) {
        auto* writer = static_cast<SndfileWriter*>(self);
        writer->flushGathered();
        return ::lseek(writer->file.get(), 0, SEEK_CUR);
    }

    FileHandle file;
    std::filesystem::path path;
    SNDFILE* sndfile = nullptr;
    int channels = 0;
    int failure = 0;                     // errno of the first failed system call
    int integerBits = 0;                 // 0 for float files
    std::vector<char> gathered;          // written bytes not yet handed to the system
    FloatBuffer floats;                  // one interleaved chunk, for float files
    std::unique_ptr<int32_t[]> integers; // one interleaved chunk of left-aligned codes
};

} // namespace

std::unique_ptr<AudioFileWriter> openSndfileWriter(int fd, const EncoderSettings& settings,
                                                   const std::filesystem::path& path) {
    return std::make_unique<SndfileWriter>(fd, settings, path);
}

} // namespace sonvale
