#include "audio/AudioExporter.h"

#include "audio/AudioErrors.h"
#include "audio/AudioFileWriter.h"
#include "base/Errors.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace sonvale {

namespace {

constexpr int64_t exportChunkFrames = 65536;

// NaN becomes silence rather than an undefined integer code.
void gainAndClip(const float* __restrict in, float* __restrict out, int64_t n, float gain) {
    for (int64_t i = 0; i < n; ++i) {
        float x = in[i] * gain;
        x = x < -1.0f ? -1.0f : x;
        x = x > 1.0f ? 1.0f : x;
        out[i] = x == x ? x : 0.0f;
    }
}

// The permissions a new file gets: 0666 less the process's umask (read from /proc, since
// umask() can only be read by setting it, which other threads would see).
mode_t newFileMode() {
    mode_t mask = 022;
    if (FILE* status = std::fopen("/proc/self/status", "r")) {
        char line[128];
        while (std::fgets(line, sizeof line, status))
            if (std::sscanf(line, "Umask: %o", &mask) == 1) break;
        std::fclose(status);
    }
    return 0666 & ~mask;
}

// Writes into a temporary file beside the destination and renames it over the destination
// only when complete and on disk, so that a failure, a full disk or a killed process leaves
// whatever was there as it was. Without finish() the temporary file is removed.
class ReplacingWriter final : public AudioFileWriter {
public:
    ReplacingWriter(const EncoderSettings& settings, std::filesystem::path destination)
        : destination(std::move(destination)) {
        std::filesystem::path folder = this->destination.parent_path();
        if (folder.empty()) folder = ".";
        std::string pattern =
            (folder / ("." + this->destination.filename().string() + ".XXXXXX")).string();
        const int fd = ::mkostemp(pattern.data(), O_CLOEXEC);
        if (fd < 0) throw fileErrorFromErrno("Couldn't write", this->destination.string(), errno);
        temporary = pattern;
        struct stat existing {};
        ::fchmod(fd, ::stat(this->destination.c_str(), &existing) == 0 ? existing.st_mode & 07777
                                                                       : newFileMode());
        try {
            inner = settings.codec == EncoderSettings::Codec::aac
                        ? openAACWriter(fd, settings, this->destination)
                        : openSndfileWriter(fd, settings, this->destination);
        } catch (...) {
            ::unlink(temporary.c_str());
            throw;
        }
    }
    ~ReplacingWriter() override {
        inner.reset();
        if (!temporary.empty()) ::unlink(temporary.c_str());
    }

    void write(const float* const* channels, int64_t frames) override {
        inner->write(channels, frames);
    }

    void finish() override {
        inner->finish();
        inner.reset();
        const int fd = ::open(temporary.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd < 0) throw fileErrorFromErrno("Couldn't write", destination.string(), errno);
        const int synced = ::fsync(fd);
        const int error = errno;
        ::close(fd);
        if (synced != 0) throw fileErrorFromErrno("Couldn't write", destination.string(), error);
        if (::rename(temporary.c_str(), destination.c_str()) != 0)
            throw fileErrorFromErrno("Couldn't write", destination.string(), errno);
        temporary.clear();
        std::filesystem::path folder = destination.parent_path();
        if (folder.empty()) folder = ".";
        if (const int dir = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); dir >= 0) {
            ::fsync(dir);
            ::close(dir);
        }
    }

private:
    std::filesystem::path destination;
    std::filesystem::path temporary;
    std::unique_ptr<AudioFileWriter> inner;
};

} // namespace

std::unique_ptr<AudioFileWriter> openAudioFileWriter(const EncoderSettings& settings,
                                                     const std::filesystem::path& path) {
    struct stat status {};
    // A device or pipe at the path (/dev/stdout, a FIFO) is written to as it is; anything
    // else is replaced whole once the new file is complete.
    if (::stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode) &&
        !S_ISDIR(status.st_mode)) {
        const int fd = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
        if (fd < 0) throw fileErrorFromErrno("Couldn't write", path.string(), errno);
        if (settings.codec == EncoderSettings::Codec::aac) return openAACWriter(fd, settings, path);
        return openSndfileWriter(fd, settings, path);
    }
    return std::make_unique<ReplacingWriter>(settings, path);
}

void AudioExporter::applyGainAndClip(const float* in, float* out, int64_t count, float gain) {
    gainAndClip(in, out, count, gain);
}

void AudioExporter::exportAudio(const AudioData& audio, FrameRange range, float gain,
                                ExportFormat format, const std::filesystem::path& url,
                                const Progress& progress) {
    const int channels = audio.channelCount();
    if (channels < 1 || !(audio.sampleRate > 0)) throw AudioLoaderError::outOfMemory();
    const int64_t lower = std::clamp<int64_t>(range.lower, 0, audio.frameCount);
    const int64_t upper = std::clamp<int64_t>(range.upper, lower, audio.frameCount);

    auto writer = openAudioFileWriter(settings(format, audio.sampleRate, channels), url);
    FloatBuffer chunk(exportChunkFrames * channels);
    std::vector<const float*> planes(static_cast<size_t>(channels));
    for (int c = 0; c < channels; ++c)
        planes[size_t(c)] = chunk.data() + c * exportChunkFrames;

    double reported = 0;
    for (int64_t at = lower; at < upper;) {
        const int64_t n = std::min(upper - at, exportChunkFrames);
        for (int c = 0; c < channels; ++c)
            gainAndClip(audio.samples(c) + at, chunk.data() + c * exportChunkFrames, n, gain);
        writer->write(planes.data(), n);
        at += n;
        const double fraction = double(at - lower) / double(upper - lower);
        if (progress && fraction - reported >= 0.02 && at < upper) {
            reported = fraction;
            progress(fraction);
        }
    }
    writer->finish();
    if (progress) progress(1.0);
}

std::unique_ptr<AudioFileWriter> AudioExporter::openLosslessWriter(const std::filesystem::path& url,
                                                                   double sampleRate,
                                                                   int channels) {
    if (channels < 1)
        throw FileError(
            describeFileError("Couldn't write", url.string(), "There is no audio to write."));
    if (url.has_parent_path()) {
        std::error_code error;
        std::filesystem::create_directories(url.parent_path(), error);
        if (error)
            throw FileError(describeFileError("Couldn't create the folder",
                                              url.parent_path().string(), error.message()));
    }
    EncoderSettings s;
    s.container = EncoderSettings::Container::wav;
    s.codec = EncoderSettings::Codec::linearPCM;
    s.sampleRate = sampleRate;
    s.channels = channels;
    s.bitDepth = 32;
    s.isFloat = true;
    s.isBigEndian = false;
    s.isNonInterleaved = false;
    return openAudioFileWriter(s, url);
}

void AudioExporter::writeLossless(const AudioClip& clip, const std::filesystem::path& url) {
    const int channels = int(clip.channels.size());
    auto writer = openLosslessWriter(url, clip.sampleRate, channels);
    const int64_t length = clip.length();
    std::vector<const float*> planes(static_cast<size_t>(channels));
    for (int64_t at = 0; at < length;) {
        const int64_t n = std::min(length - at, exportChunkFrames);
        for (int c = 0; c < channels; ++c) {
            // A channel shorter than the first would be a broken clip; never read past it.
            if (int64_t(clip.channels[size_t(c)].size()) < at + n)
                throw FileError(describeFileError("Couldn't write", url.string(),
                                                  "The clip's channels differ in length."));
            planes[size_t(c)] = clip.channels[size_t(c)].data() + at;
        }
        writer->write(planes.data(), n);
        at += n;
    }
    writer->finish();
}

void AudioExporter::writeLossless(const AudioData& audio, const std::filesystem::path& url,
                                  const Progress& progress) {
    const int channels = audio.channelCount();
    auto writer = openLosslessWriter(url, audio.sampleRate, channels);
    std::vector<const float*> planes(static_cast<size_t>(channels));
    for (int64_t at = 0; at < audio.frameCount;) {
        const int64_t n = std::min(audio.frameCount - at, exportChunkFrames);
        for (int c = 0; c < channels; ++c)
            planes[size_t(c)] = audio.samples(c) + at;
        writer->write(planes.data(), n);
        at += n;
        if (progress) progress(double(at) / double(audio.frameCount));
    }
    writer->finish();
}

} // namespace sonvale
