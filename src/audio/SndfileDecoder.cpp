// Decoding through libsndfile: WAV, AIFF and the other PCM containers it reads
// (CAF, W64, RF64, AU ...). It yields exactly what FFmpeg's decoders yield for these, and
// faster.

#include "audio/AudioDecoder.h"

#include "audio/AudioErrors.h"
#include "audio/SndfileSupport.h"
#include "base/Errors.h"
#include "base/Text.h"

#include <algorithm>
#include <cctype>
#include <fcntl.h>
#include <optional>
#include <sndfile.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace sonvale {

namespace {

// libsndfile's 65,536-frame read buffer for files with more than one channel.
constexpr int64_t readChunk = 65536;

std::string containerName(int format) {
    switch (format & SF_FORMAT_TYPEMASK) {
    case SF_FORMAT_WAV: return "wav";
    case SF_FORMAT_WAVEX: return "wav";
    case SF_FORMAT_AIFF: return "aiff";
    case SF_FORMAT_AU: return "au";
    case SF_FORMAT_W64: return "w64";
    case SF_FORMAT_RF64: return "rf64";
    case SF_FORMAT_CAF: return "caf";
    case SF_FORMAT_FLAC: return "flac";
    case SF_FORMAT_OGG: return "ogg";
    case SF_FORMAT_MPEG: return "mp3";
    default: break;
    }
    SF_FORMAT_INFO formatInfo{};
    formatInfo.format = format & SF_FORMAT_TYPEMASK;
    if (sf_command(nullptr, SFC_GET_FORMAT_INFO, &formatInfo, sizeof formatInfo) == 0 &&
        formatInfo.extension)
        return formatInfo.extension;
    return "unknown";
}

// FFmpeg's codec names, so that every file is described the same way whoever decodes it.
std::string codecName(int format) {
    const int type = format & SF_FORMAT_TYPEMASK;
    const int endian = format & SF_FORMAT_ENDMASK;
    const bool bigEndian =
        endian == SF_ENDIAN_BIG ||
        (endian == SF_ENDIAN_FILE && (type == SF_FORMAT_AIFF || type == SF_FORMAT_AU));
    const std::string e = bigEndian ? "be" : "le";
    if (type == SF_FORMAT_FLAC) return "flac";
    switch (format & SF_FORMAT_SUBMASK) {
    case SF_FORMAT_PCM_S8: return "pcm_s8";
    case SF_FORMAT_PCM_U8: return "pcm_u8";
    case SF_FORMAT_PCM_16: return "pcm_s16" + e;
    case SF_FORMAT_PCM_24: return "pcm_s24" + e;
    case SF_FORMAT_PCM_32: return "pcm_s32" + e;
    case SF_FORMAT_FLOAT: return "pcm_f32" + e;
    case SF_FORMAT_DOUBLE: return "pcm_f64" + e;
    case SF_FORMAT_ULAW: return "pcm_mulaw";
    case SF_FORMAT_ALAW: return "pcm_alaw";
    case SF_FORMAT_IMA_ADPCM: return "adpcm_ima_wav";
    case SF_FORMAT_MS_ADPCM: return "adpcm_ms";
    case SF_FORMAT_GSM610: return "gsm_ms";
    case SF_FORMAT_VORBIS: return "vorbis";
    case SF_FORMAT_OPUS: return "opus";
    case SF_FORMAT_ALAC_16:
    case SF_FORMAT_ALAC_20:
    case SF_FORMAT_ALAC_24:
    case SF_FORMAT_ALAC_32: return "alac";
    case SF_FORMAT_MPEG_LAYER_I: return "mp1";
    case SF_FORMAT_MPEG_LAYER_II: return "mp2";
    case SF_FORMAT_MPEG_LAYER_III: return "mp3";
    default: break;
    }
    SF_FORMAT_INFO formatInfo{};
    formatInfo.format = format & SF_FORMAT_SUBMASK;
    if (sf_command(nullptr, SFC_GET_FORMAT_INFO, &formatInfo, sizeof formatInfo) == 0 &&
        formatInfo.name) {
        return lowercased(formatInfo.name);
    }
    return "unknown";
}

uint32_t readWord(const unsigned char* at, bool bigEndian) {
    return bigEndian ? uint32_t(at[0]) << 24 | uint32_t(at[1]) << 16 | uint32_t(at[2]) << 8 | at[3]
                     : uint32_t(at[3]) << 24 | uint32_t(at[2]) << 16 | uint32_t(at[1]) << 8 | at[0];
}

// The size in bytes that a WAV or AIFF file's header gives its sample data, when that is
// more than the file holds after the header (a cut file, or a header written before the
// data and never completed); 0 when the data fits or the file is of another kind.
int64_t overstatedDataSize(int fd) {
    struct stat status {};
    if (::fstat(fd, &status) != 0) return 0;
    unsigned char head[12];
    if (::pread(fd, head, sizeof head, 0) != ssize_t(sizeof head)) return 0;
    const std::string_view form(reinterpret_cast<const char*>(head), 4);
    const std::string_view kind(reinterpret_cast<const char*>(head) + 8, 4);
    const bool wav = (form == "RIFF" || form == "RIFX") && kind == "WAVE";
    const bool aiff = form == "FORM" && (kind == "AIFF" || kind == "AIFC");
    if (!wav && !aiff) return 0;
    const bool bigEndian = form != "RIFF";
    const std::string_view dataID = wav ? "data" : "SSND";
    int64_t offset = 12;
    // A few dozen chunks at most come before the data.
    for (int chunk = 0; chunk < 64 && offset + 8 <= int64_t(status.st_size); ++chunk) {
        unsigned char header[16];
        if (::pread(fd, header, sizeof header, offset) < 8) return 0;
        const int64_t size = readWord(header + 4, bigEndian);
        if (std::string_view(reinterpret_cast<const char*>(header), 4) == dataID) {
            // An AIFF sound chunk begins with its offset and block size.
            const int64_t start = offset + 8 + (aiff ? 8 + readWord(header + 8, true) : 0);
            const int64_t bytes = size - (aiff ? 8 + readWord(header + 8, true) : 0);
            return start + bytes > int64_t(status.st_size) ? bytes : 0;
        }
        offset += 8 + size + (size & 1);
    }
    return 0;
}

// The channel count and sample rate a WAV's "fmt " or an AIFF's "COMM" chunk gives (a rate
// of 0 stands for any AIFF rate that isn't 0); none when the file is of another kind or
// has no such chunk.
struct HeaderFormat {
    int channels = 0;
    double sampleRate = 0;
};

std::optional<HeaderFormat> headerFormat(int fd) {
    unsigned char head[12];
    if (::pread(fd, head, sizeof head, 0) != ssize_t(sizeof head)) return std::nullopt;
    const std::string_view form(reinterpret_cast<const char*>(head), 4);
    const std::string_view kind(reinterpret_cast<const char*>(head) + 8, 4);
    const bool wav = (form == "RIFF" || form == "RIFX") && kind == "WAVE";
    const bool aiff = form == "FORM" && (kind == "AIFF" || kind == "AIFC");
    if (!wav && !aiff) return std::nullopt;
    const bool bigEndian = form != "RIFF";
    int64_t offset = 12;
    for (int chunk = 0; chunk < 64; ++chunk) {
        unsigned char header[26];
        const ssize_t got = ::pread(fd, header, sizeof header, offset);
        if (got < 8) return std::nullopt;
        const std::string_view id(reinterpret_cast<const char*>(header), 4);
        if ((wav && id == "fmt " && got < 16) || (aiff && id == "COMM" && got < 26))
            return std::nullopt;
        if (wav && id == "fmt ") {
            const int channels =
                bigEndian ? header[10] << 8 | header[11] : header[11] << 8 | header[10];
            return HeaderFormat{channels, double(readWord(header + 12, bigEndian))};
        }
        if (aiff && id == "COMM") {
            // The rate is an 80-bit float: it is 0 when its exponent and mantissa are.
            bool zero = true;
            for (int i = 16; i < 26; ++i)
                zero = zero && (header[i] & (i == 16 ? 0x7f : 0xff)) == 0;
            return HeaderFormat{header[8] << 8 | header[9], zero ? 0.0 : 1.0};
        }
        const int64_t size = readWord(header + 4, bigEndian);
        offset += 8 + size + (size & 1);
    }
    return std::nullopt;
}

// Bytes per sample of the uncompressed codecs, whose frame count follows from a data size.
int bytesPerSample(int format) {
    switch (format & SF_FORMAT_SUBMASK) {
    case SF_FORMAT_PCM_S8:
    case SF_FORMAT_PCM_U8:
    case SF_FORMAT_ULAW:
    case SF_FORMAT_ALAW: return 1;
    case SF_FORMAT_PCM_16: return 2;
    case SF_FORMAT_PCM_24: return 3;
    case SF_FORMAT_PCM_32:
    case SF_FORMAT_FLOAT: return 4;
    case SF_FORMAT_DOUBLE: return 8;
    default: return 0;
    }
}

class SndfileDecoder final : public AudioDecoder {
public:
    SndfileDecoder(SNDFILE* sndfile, const SF_INFO& sfInfo, std::filesystem::path path)
        : AudioDecoder(std::move(path))
        , sndfile(sndfile) {
        fileInfo.container = containerName(sfInfo.format);
        fileInfo.codec = codecName(sfInfo.format);
        fileInfo.sampleRate = sfInfo.samplerate;
        fileInfo.channels = sfInfo.channels;
        // libsndfile reports SF_COUNT_MAX when it can't tell the length.
        const bool known = sfInfo.frames >= 0 && sfInfo.frames < SF_COUNT_MAX;
        fileInfo.frames = known ? sfInfo.frames : 0;
        exactLength = known;
        const int codec = sfInfo.format & SF_FORMAT_SUBMASK;
        floatingPoint = codec == SF_FORMAT_FLOAT || codec == SF_FORMAT_DOUBLE;
        if (fileInfo.channels > 1) interleaved = FloatBuffer(readChunk * fileInfo.channels);
    }
    ~SndfileDecoder() override { sf_close(sndfile); }

    // Uncompressed samples sit at a fixed place per frame, so libsndfile can start anywhere.
    void keepForSecondReader(FileHandle file, int format) {
        if (bytesPerSample(format) > 0) source = std::move(file);
    }

    std::unique_ptr<AudioDecoder> startingAt(int64_t frame) override {
        if (!source.isOpen()) return nullptr;
        const int own = reopenDescriptor(source.get());
        if (own < 0) return nullptr;
        SF_INFO info{};
        SNDFILE* second = nullptr;
        {
            std::lock_guard lock(sndfileOpenMutex());
            second = sf_open_fd(own, SFM_READ, &info, SF_TRUE);
        }
        if (!second) return nullptr;
        auto decoder = std::make_unique<SndfileDecoder>(second, info, path);
        if (info.channels != fileInfo.channels || info.frames != fileInfo.frames ||
            sf_seek(second, frame, SEEK_SET) != frame)
            return nullptr;
        decoder->beginAt(frame);
        return decoder;
    }

    int64_t decode(float* const* channels, int64_t maxFrames) override {
        const int64_t got = readSamples(channels, maxFrames);
        if (floatingPoint)
            for (int c = 0; c < fileInfo.channels; ++c)
                damage.nonFiniteSamples += silenceNonFinite(channels[c], got);
        return got;
    }

    // The header gives the data more bytes than the file holds: libsndfile reads what is
    // there, and the report says how much the header promised.
    void noteOverstatedData(int64_t bytes, int format) {
        damage.endsEarly = true;
        damage.framesRead = fileInfo.frames;
        const int perFrame = bytesPerSample(format) * fileInfo.channels;
        damage.statedFrames = perFrame > 0 ? bytes / perFrame : 0;
    }

private:
    int64_t readSamples(float* const* channels, int64_t maxFrames) {
        const int n = fileInfo.channels;
        if (n == 1) return checked(sf_readf_float(sndfile, channels[0], maxFrames), maxFrames);
        int64_t total = 0;
        while (total < maxFrames) {
            const int64_t want = std::min(maxFrames - total, readChunk);
            const int64_t got = checked(sf_readf_float(sndfile, interleaved.data(), want), want);
            deinterleave(interleaved.data(), channels, total, got, n);
            total += got;
            if (got < want) break;
        }
        return total;
    }

    // A short read is the end of the audio, unless the system failed to read the file.
    int64_t checked(sf_count_t got, int64_t wanted) {
        if (got < wanted && sf_error(sndfile) == SF_ERR_SYSTEM)
            throw AudioFileError::unreadable(path, sf_strerror(sndfile));
        return std::max<int64_t>(got, 0);
    }

    static void deinterleave(const float* from, float* const* to, int64_t offset, int64_t frames,
                             int n) {
        if (n == 2) {
            float* __restrict left = to[0] + offset;
            float* __restrict right = to[1] + offset;
            for (int64_t i = 0; i < frames; ++i) {
                left[i] = from[2 * i];
                right[i] = from[2 * i + 1];
            }
            return;
        }
        for (int c = 0; c < n; ++c) {
            float* __restrict out = to[c] + offset;
            for (int64_t i = 0; i < frames; ++i)
                out[i] = from[i * n + c];
        }
    }

    SNDFILE* sndfile;
    FileHandle source; // the file, for startingAt(); closed when there can be none
    FloatBuffer interleaved;
    bool floatingPoint = false; // samples stored as floats may be NaN or infinite
};

} // namespace

std::mutex& sndfileOpenMutex() {
    static std::mutex mutex;
    return mutex;
}

std::unique_ptr<AudioDecoder>
openSndfileDecoder(FileHandle& file, const std::filesystem::path& path, std::string& failure) {
    failure.clear();
    if (::lseek(file.get(), 0, SEEK_SET) != 0) return nullptr;
    // libsndfile gets a descriptor of its own: it closes the one it was given when it
    // fails to open the file, even when told not to, and FFmpeg may need the file next.
    const int own = ::fcntl(file.get(), F_DUPFD_CLOEXEC, 0);
    if (own < 0) return nullptr;
    SF_INFO info{};
    SNDFILE* sndfile = nullptr;
    {
        std::lock_guard lock(sndfileOpenMutex());
        sndfile = sf_open_fd(own, SFM_READ, &info, SF_TRUE);
        if (!sndfile) {
            if (sf_error(nullptr) != SF_ERR_UNRECOGNISED_FORMAT) failure = sf_strerror(nullptr);
        }
    }
    if (!sndfile) {
        // A header that gives no rate or no channels can't be decoded by anything.
        if (const auto format = headerFormat(file.get()); format && !failure.empty()) {
            if (format->sampleRate == 0)
                throw AudioFileError(AudioFileError::Kind::noSampleRate, path, failure);
            if (format->channels == 0) throw AudioLoaderError::empty(failure);
        }
        return nullptr;
    }
    // Lossy codecs go to FFmpeg. libsndfile decodes Opus at the rate the encoder was fed
    // (FFmpeg, like every player, at Opus's own 48 kHz); stops an MP3 without a length
    // header at a size-based estimate, disagrees with FFmpeg on damaged MP3 and Vorbis
    // streams, and lets mpg123 print to stderr. FFmpeg is as fast or faster on these.
    const int codec = info.format & SF_FORMAT_SUBMASK;
    if (codec == SF_FORMAT_OPUS || codec == SF_FORMAT_VORBIS ||
        (info.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_MPEG) {
        sf_close(sndfile);
        return nullptr;
    }
    try {
        auto decoder = std::make_unique<SndfileDecoder>(sndfile, info, path);
        if (const int64_t bytes = overstatedDataSize(file.get()))
            decoder->noteOverstatedData(bytes, info.format);
        decoder->keepForSecondReader(std::move(file), info.format);
        return decoder;
    } catch (...) {
        sf_close(sndfile);
        throw;
    }
}

} // namespace sonvale
