// Decoding through libsndfile: WAV, AIFF, FLAC and the other PCM containers it reads
// (CAF, W64, RF64, AU ...). It yields exactly what FFmpeg's decoders yield for these, and
// faster.

#include "audio/AudioDecoder.h"

#include "audio/AudioErrors.h"
#include "audio/SndfileSupport.h"
#include "base/Errors.h"

#include <algorithm>
#include <cctype>
#include <fcntl.h>
#include <sndfile.h>
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
        std::string name = formatInfo.name;
        std::transform(name.begin(), name.end(), name.begin(),
                       [](unsigned char c) { return char(std::tolower(c)); });
        return name;
    }
    return "unknown";
}

class SndfileDecoder final : public AudioDecoder {
public:
    SndfileDecoder(SNDFILE* sndfile, const SF_INFO& sfInfo, std::filesystem::path path)
        : sndfile(sndfile)
        , path(std::move(path)) {
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

    int64_t read(float* const* channels, int64_t maxFrames) override {
        const int64_t got = readSamples(channels, maxFrames);
        if (floatingPoint)
            for (int c = 0; c < fileInfo.channels; ++c)
                silenceNonFinite(channels[c], got);
        return got;
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
            throw FileError(
                describeFileError("Couldn't read", path.string(), sf_strerror(sndfile)));
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
    std::filesystem::path path;
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
            return nullptr;
        }
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
        file.reset();
        return decoder;
    } catch (...) {
        sf_close(sndfile);
        throw;
    }
}

} // namespace sonvale
