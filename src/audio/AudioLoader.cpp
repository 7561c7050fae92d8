#include "audio/AudioLoader.h"

#include "audio/AudioDecoder.h"
#include "audio/AudioErrors.h"
#include "base/Errors.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace sonvale {

namespace {

// Frames decoded per read; progress is looked at after each.
constexpr int64_t chunkFrames = 65536;

// Whether the file begins with the signature of a container libsndfile should read: RIFF
// and RF64 WAV, AIFF, FLAC, CAF, Sony Wave64, Sun AU. Anything else goes straight to
// FFmpeg: libsndfile would hand MP3 to mpg123, which prints its complaints on stderr.
bool startsLikeSndfileFormat(int fd) {
    char head[4] = {};
    if (::pread(fd, head, sizeof head, 0) != ssize_t(sizeof head)) return false;
    const std::string_view magic(head, sizeof head);
    for (std::string_view known : {"RIFF", "RIFX", "RF64", "BW64", "FORM", "fLaC", "caff", "riff", ".snd"})
        if (magic == known) return true;
    return false;
}

} // namespace

std::unique_ptr<AudioDecoder> openAudioDecoder(const std::filesystem::path& path) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) throw fileErrorFromErrno("Couldn't open", path.string(), errno);
    FileHandle file(fd);
    struct stat status{};
    if (::fstat(fd, &status) != 0) throw fileErrorFromErrno("Couldn't open", path.string(), errno);
    if (S_ISDIR(status.st_mode)) throw fileErrorFromErrno("Couldn't open", path.string(), EISDIR);

    std::string sndfileFailure;
    if (startsLikeSndfileFormat(fd))
        if (auto decoder = openSndfileDecoder(file, path, sndfileFailure)) return decoder;
    try {
        return openFFmpegDecoder(file, path);
    } catch (const FileError&) {
        // libsndfile knew the format but found the file broken, and FFmpeg could make
        // nothing of it either: libsndfile's reason is the more specific one.
        if (!sndfileFailure.empty())
            throw FileError(describeFileError("Couldn't open", path.string(), sndfileFailure));
        throw;
    }
}

AudioDataPtr AudioLoader::load(const std::filesystem::path& path, const Progress& progress) {
    auto decoder = openAudioDecoder(path);
    const FileInfo info = decoder->info();
    const bool exact = decoder->lengthIsExact();
    if (info.channels < 1 || (exact && info.frames < 1)) throw AudioLoaderError::empty();

    // Each channel is allocated once at the length the file announces. Where that is only
    // an estimate, the buffers get headroom (untouched pages cost nothing) and grow or
    // shrink in place at the end.
    int64_t capacity = exact ? info.frames : info.frames + info.frames / 16 + chunkFrames;
    std::vector<FloatBuffer> buffers;
    buffers.reserve(size_t(info.channels));
    for (int c = 0; c < info.channels; ++c) buffers.emplace_back(capacity);

    std::vector<float*> destinations(size_t(info.channels));
    const double expected = double(std::max<int64_t>(info.frames, 1));
    double reported = 0;
    int64_t filled = 0;
    for (;;) {
        if (filled == capacity) {
            if (exact) break;
            const int64_t grown = capacity + std::max(capacity / 2, 16 * chunkFrames);
            for (auto& buffer : buffers) buffer.resize(grown);
            capacity = grown;
        }
        for (int c = 0; c < info.channels; ++c)
            destinations[size_t(c)] = buffers[size_t(c)].data() + filled;
        const int64_t got = decoder->read(destinations.data(), std::min(capacity - filled, chunkFrames));
        if (got <= 0) break; // the file ends before its header said it would
        filled += got;
        // Reading fills the first 90 % of the bar.
        const double fraction = std::min(double(filled) / expected, 1.0) * 0.9;
        if (progress && fraction - reported >= 0.02) {
            reported = fraction;
            progress(fraction);
        }
    }
    decoder.reset();
    if (filled == 0) throw AudioLoaderError::empty();

    AudioDataPtr audio = makeAudioData(info.sampleRate, std::move(buffers), filled);
    if (progress) progress(1.0);
    return audio;
}

AudioLoader::FileInfo AudioLoader::probe(const std::filesystem::path& path) {
    return openAudioDecoder(path)->info();
}

const std::vector<std::string>& AudioLoader::audioExtensions() {
    // Audio types only: video containers still open, but a folder of films dropped on the
    // window doesn't turn into tracks.
    static const std::vector<std::string> extensions{
        "wav", "wave", "bwf",  "aif",  "aiff", "aifc", "flac", "mp3", "mp2", "m4a", "m4b",
        "aac", "adts", "ogg",  "oga",  "opus", "caf",  "w64",  "rf64", "au", "snd", "wma",
        "mka", "ac3",  "eac3", "dts",  "wv",   "ape",  "tta",  "amr",  "mpc", "spx"};
    return extensions;
}

bool AudioLoader::isAudioFile(const std::filesystem::path& path) {
    std::string extension = path.extension().string();
    if (extension.size() < 2) return false;
    extension.erase(0, 1);
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return char(std::tolower(c)); });
    const auto& known = audioExtensions();
    return std::find(known.begin(), known.end(), extension) != known.end();
}

} // namespace sonvale
