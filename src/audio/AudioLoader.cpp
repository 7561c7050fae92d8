#include "audio/AudioLoader.h"

#include "audio/AudioDecoder.h"
#include "audio/AudioErrors.h"
#include "base/Errors.h"
#include "base/Text.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <fcntl.h>
#include <mutex>
#include <optional>
#include <string_view>
#include <sys/mman.h>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace sonvale {

namespace {

// Frames decoded per read; progress is looked at after each.
constexpr int64_t loadChunkFrames = 65536;
// Files at least this long are summarised on a second thread while they decode.
constexpr int64_t backgroundSummaryThreshold = int64_t(1) << 20;
// How far ahead of the decoder the summariser faults in pages (2 MB of each channel).
constexpr int64_t prefaultFrames = 8 * loadChunkFrames;

// Builds level 0 of every channel's pyramid on a thread of its own, behind the decoder,
// and faults in the pages the decoder will write next, ahead of it: the summary then
// costs the decoding thread nothing, and zeroing fresh pages little. The decoder never
// waits for it. Buffers may be grown (moved) only between pause() and resume().
class BackgroundSummariser {
public:
    BackgroundSummariser(std::vector<FloatBuffer>& samples, std::vector<FloatBuffer>& minMax,
                         std::vector<FloatBuffer>& energy)
        : samples(samples)
        , minMax(minMax)
        , energy(energy)
        , worker([this] { run(); }) {}
    ~BackgroundSummariser() { stop(); }
    BackgroundSummariser(const BackgroundSummariser&) = delete;
    BackgroundSummariser& operator=(const BackgroundSummariser&) = delete;

    // The decoder has filled this many frames.
    void publish(int64_t frames) {
        {
            std::lock_guard lock(mutex);
            published = frames;
        }
        wake.notify_one();
    }
    // Returns once the worker is between batches; it stays there until resume().
    void pause() {
        std::unique_lock lock(mutex);
        paused = true;
        idle.wait(lock, [this] { return !busy; });
    }
    void resume() {
        {
            std::lock_guard lock(mutex);
            paused = false;
        }
        wake.notify_one();
    }
    // Ends the worker and returns how many frames it summarised (a multiple of 16).
    int64_t stop() {
        {
            std::lock_guard lock(mutex);
            stopping = true;
        }
        wake.notify_one();
        if (worker.joinable()) worker.join();
        return summarised;
    }

private:
    void run() {
        std::unique_lock lock(mutex);
        for (;;) {
            wake.wait(lock, [this] {
                return stopping || (!paused && published - summarised >= loadChunkFrames);
            });
            if (stopping) return;
            const int64_t from = summarised;
            const int64_t to = published / 16 * 16;
            busy = true;
            lock.unlock();
            for (size_t c = 0; c < samples.size(); ++c)
                AudioLoader::summariseLevelZero(samples[c].data() + from, to - from,
                                                minMax[c].data() + 2 * (from / 16),
                                                energy[c].data() + from / 16);
            prefault(to + loadChunkFrames, to + loadChunkFrames + prefaultFrames);
            lock.lock();
            busy = false;
            summarised = to;
            idle.notify_all();
        }
    }

    // Faults in whole pages of frames [from, to) of every channel that aren't yet.
    void prefault(int64_t from, int64_t to) {
        if (!prefaulting) return;
        from = std::max(from, prefaulted);
        for (auto& buffer : samples) {
            const int64_t end = std::min(to, buffer.size());
            if (end <= from) return;
            const auto first = (reinterpret_cast<uintptr_t>(buffer.data() + from) + pageSize - 1) /
                               pageSize * pageSize;
            const auto last =
                reinterpret_cast<uintptr_t>(buffer.data() + end) / pageSize * pageSize;
            // Unsupported before Linux 5.14: then the decoder faults pages in itself.
            if (last > first &&
                ::madvise(reinterpret_cast<void*>(first), last - first, MADV_POPULATE_WRITE) != 0 &&
                errno == EINVAL)
                prefaulting = false;
        }
        prefaulted = std::max(prefaulted, to);
    }

    static constexpr uintptr_t pageSize = 4096;
    std::vector<FloatBuffer>& samples;
    std::vector<FloatBuffer>& minMax;
    std::vector<FloatBuffer>& energy;
    std::mutex mutex;
    std::condition_variable wake; // the worker waits here for work
    std::condition_variable idle; // pause() waits here for the worker to finish a batch
    int64_t published = 0;
    int64_t summarised = 0;
    int64_t prefaulted = 0;  // worker only
    bool prefaulting = true; // worker only
    bool busy = false;
    bool paused = false;
    bool stopping = false;
    std::thread worker; // last: starts once everything above exists
};

// Every channel's pyramid from level 0 summarised up to frame `summarised` by the
// background summariser: the rest of level 0 is summarised here, then the levels above.
std::vector<std::vector<PeakLevel>> completeLevels(const std::vector<FloatBuffer>& samples,
                                                   std::vector<FloatBuffer>& minMax,
                                                   std::vector<FloatBuffer>& energy,
                                                   int64_t summarised, int64_t frames) {
    const int64_t blocks = (frames + 15) / 16;
    std::vector<std::vector<PeakLevel>> levels(samples.size());
    for (size_t c = 0; c < samples.size(); ++c) {
        AudioLoader::summariseLevelZero(samples[c].data() + summarised, frames - summarised,
                                        minMax[c].data() + 2 * (summarised / 16),
                                        energy[c].data() + summarised / 16);
        minMax[c].resize(2 * blocks);
        energy[c].resize(blocks);
        PeakLevel levelZero;
        levelZero.blockSize = 16;
        levelZero.count = blocks;
        levelZero.buffer = std::move(minMax[c]);
        levelZero.energy = std::move(energy[c]);
        levels[c] = AudioLoader::buildLevels(std::move(levelZero));
    }
    return levels;
}

// Decodes a file of known length in two parts at once, [0, split) here and [split, end) on a
// thread of its own: a load already runs on one of the pool's workers, and on two cores the
// pool has no other. Each thread builds level 0 of what it has just decoded, while it is
// still in cache. When the first part ends early, the audio ends there, as it would decoded
// from start to end.
AudioDataPtr loadInTwoParts(std::unique_ptr<AudioDecoder> first,
                            std::unique_ptr<AudioDecoder> second, int64_t split,
                            const AudioLoader::Progress& progress, DecodeReport* report) {
    const AudioLoader::FileInfo info = first->info();
    const int64_t frames = info.frames;
    const size_t channels = size_t(info.channels);
    const int64_t blocks = (frames + 15) / 16;
    std::vector<FloatBuffer> buffers, minMax, energy;
    for (size_t c = 0; c < channels; ++c) {
        buffers.emplace_back(frames, FloatBuffer::FaultOnWrite{});
        minMax.emplace_back(2 * blocks);
        energy.emplace_back(blocks);
    }

    struct Part {
        AudioDecoder* decoder;
        int64_t from, to;
        int64_t filled = 0;     // frames decoded after `from`
        int64_t summarised = 0; // of which level 0 is built (whole groups of 128)
        std::exception_ptr failure;
    };
    std::array<Part, 2> parts{Part{first.get(), 0, split, 0, 0, {}},
                              Part{second.get(), split, frames, 0, 0, {}}};
    std::atomic<int64_t> decoded{0};
    std::atomic<bool> stopping{false};
    std::mutex progressMutex;
    double reported = 0;
    auto run = [&](Part& part) {
        try {
            std::vector<float*> destinations(channels);
            while (!stopping.load(std::memory_order_relaxed) && part.from + part.filled < part.to) {
                const int64_t at = part.from + part.filled;
                for (size_t c = 0; c < channels; ++c)
                    destinations[c] = buffers[c].data() + at;
                const int64_t got = part.decoder->read(destinations.data(),
                                                       std::min(part.to - at, loadChunkFrames));
                if (got <= 0) break;
                part.filled += got;
                // Level 0 is summarised 128 frames at a time, as buildLevels does, so that
                // energies summed in the same order come out the same.
                const int64_t whole = part.filled / 128 * 128;
                const int64_t block = (part.from + part.summarised) / 16;
                for (size_t c = 0; c < channels; ++c)
                    AudioLoader::summariseLevelZero(
                        buffers[c].data() + part.from + part.summarised, whole - part.summarised,
                        minMax[c].data() + 2 * block, energy[c].data() + block);
                part.summarised = whole;
                const int64_t total = decoded.fetch_add(got, std::memory_order_relaxed) + got;
                if (progress) {
                    // Reading fills the first 90 % of the bar.
                    std::lock_guard lock(progressMutex);
                    const double fraction = std::min(double(total) / double(frames), 1.0) * 0.9;
                    if (fraction - reported >= 0.02) {
                        reported = fraction;
                        progress(fraction);
                    }
                }
            }
        } catch (...) {
            part.failure = std::current_exception();
            stopping = true;
        }
    };
    {
        std::thread worker;
        try {
            worker = std::thread(run, std::ref(parts[1]));
        } catch (const std::system_error&) {
            // No thread to be had: the parts are decoded one after the other.
        }
        run(parts[0]);
        if (worker.joinable())
            worker.join();
        else
            run(parts[1]);
    }
    // The failure nearest the start is the one decoding from the start would have met.
    for (const Part& part : parts)
        if (part.failure) std::rethrow_exception(part.failure);

    const bool whole = parts[0].filled == split;
    const int64_t filled = whole ? split + parts[1].filled : parts[0].filled;
    const int64_t summarised = whole ? split + parts[1].summarised : parts[0].summarised;
    if (report) {
        // The first decoder may have decoded a little past the split: what it found there
        // is the second's to report.
        *report = first->report();
        std::erase_if(report->damaged,
                      [&](const FrameRange& range) { return range.lower >= split; });
        if (!report->damaged.empty())
            report->damaged.back().upper = std::min(report->damaged.back().upper, split);
        if (whole) {
            const DecodeReport& rest = second->report();
            for (const FrameRange& range : rest.damaged)
                report->addDamage(range.lower, range.length());
            report->nonFiniteSamples += rest.nonFiniteSamples;
            if (rest.endsEarly) {
                report->endsEarly = true;
                report->framesRead = rest.framesRead;
                report->statedFrames = rest.statedFrames;
            }
        }
        if (filled < frames && !report->endsEarly) {
            report->endsEarly = true;
            report->framesRead = filled;
            report->statedFrames = frames;
        }
    }
    first.reset();
    second.reset();
    if (filled == 0) throw AudioLoaderError::empty();
    auto levels = completeLevels(buffers, minMax, energy, summarised, filled);
    return AudioLoader::makeAudioData(info.sampleRate, std::move(buffers), filled,
                                      std::move(levels));
}

enum class Signature { flac, sndfile, other };

// Which decoder the file's first bytes call for: libFLAC for FLAC; libsndfile for RIFF and
// RF64 WAV, AIFF, CAF, Sony Wave64 and Sun AU; FFmpeg for anything else (libsndfile would
// hand MP3 to mpg123, which prints its complaints on stderr).
Signature signatureOf(int fd) {
    char head[4] = {};
    if (::pread(fd, head, sizeof head, 0) != ssize_t(sizeof head)) return Signature::other;
    const std::string_view magic(head, sizeof head);
    if (magic == "fLaC") return Signature::flac;
    for (std::string_view known : {"RIFF", "RIFX", "RF64", "BW64", "FORM", "caff", "riff", ".snd"})
        if (magic == known) return Signature::sndfile;
    return Signature::other;
}

} // namespace

int64_t AudioDecoder::read(float* const* channels, int64_t maxFrames) {
    try {
        const int64_t got = decode(channels, maxFrames);
        delivered += std::max<int64_t>(got, 0);
        return got;
    } catch (const AudioLoaderError&) {
        throw;
    } catch (const UserError& failure) {
        // Audio came before the failure: the file is damaged from there on.
        if (delivered > 0 && fileInfo.sampleRate > 0)
            throw AudioFileError::damagedAfter(path, double(delivered) / fileInfo.sampleRate,
                                               failure);
        throw;
    }
}

int reopenDescriptor(int fd) {
    // The link in /proc opens the file itself, also when it was renamed or deleted since.
    const std::string link = "/proc/self/fd/" + std::to_string(fd);
    return ::open(link.c_str(), O_RDONLY | O_CLOEXEC);
}

std::unique_ptr<AudioDecoder> openAudioDecoder(const std::filesystem::path& path) {
    using Kind = AudioFileError::Kind;
    // Opened without waiting: a pipe named like an audio file would otherwise block until
    // something writes to it.
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) throw AudioFileError::fromErrno(path, errno);
    FileHandle file(fd);
    struct stat status {};
    if (::fstat(fd, &status) != 0) throw AudioFileError::fromErrno(path, errno);
    if (S_ISDIR(status.st_mode)) throw AudioFileError::fromErrno(path, EISDIR);
    if (!S_ISREG(status.st_mode))
        throw AudioFileError(Kind::notAFile, path,
                             S_ISFIFO(status.st_mode) ? "A named pipe (FIFO)" : "A device file");
    if (status.st_size == 0) throw AudioFileError(Kind::emptyFile, path, "0 bytes");
    ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK);

    std::string failure;
    const Signature signature = signatureOf(fd);
    std::unique_ptr<AudioDecoder> decoder;
    if (signature == Signature::flac) {
        // libFLAC is the reference: a header it can't read is damaged, and FFmpeg would only
        // guess at it.
        decoder = openFlacDecoder(file, path, failure);
        if (!decoder) throw AudioFileError(Kind::damagedHeader, path, failure);
    } else if (signature == Signature::sndfile) {
        decoder = openSndfileDecoder(file, path, failure);
    }
    if (!decoder) {
        try {
            decoder = openFFmpegDecoder(file, path);
        } catch (const AudioFileError& error) {
            // libFLAC or libsndfile knew the format but found the file broken, and FFmpeg
            // could make nothing of it either: the header is damaged, and their reason is the
            // more specific one.
            if (!failure.empty() && error.kind() == Kind::notAudio)
                throw AudioFileError(Kind::damagedHeader, path, failure);
            throw;
        }
    }
    const auto& info = decoder->info();
    if (!(info.sampleRate > 0))
        throw AudioFileError(Kind::noSampleRate, path,
                             "The " + info.container + " header gives a sample rate of 0 Hz");
    if (info.channels < 1)
        throw AudioLoaderError::empty("The " + info.container + " header gives 0 channels");
    return decoder;
}

AudioDataPtr AudioLoader::load(const std::filesystem::path& path, const Progress& progress,
                               DecodeReport* report) {
    auto decoder = openAudioDecoder(path);
    const FileInfo info = decoder->info();
    const bool exact = decoder->lengthIsExact();
    if (exact && info.frames < 1) throw AudioLoaderError::empty();
    if (exact && info.frames >= backgroundSummaryThreshold &&
        std::thread::hardware_concurrency() > 1) {
        // Halfway, where a group of level 0's summary begins.
        const int64_t split = info.frames / 256 * 128;
        if (auto second = decoder->startingAt(split))
            return loadInTwoParts(std::move(decoder), std::move(second), split, progress, report);
    }

    // Each channel is allocated once at the length the file announces. Where that is only
    // an estimate, the buffers get headroom (untouched pages cost nothing) and grow or
    // shrink in place at the end.
    int64_t capacity = exact ? info.frames : info.frames + info.frames / 16 + loadChunkFrames;
    const size_t channels = size_t(info.channels);
    // Long files get their level 0 built while they decode, by a thread that also faults in
    // the pages just ahead of the decoder: their buffers are not populated up front, so the
    // headroom past the end is never touched. Short ones are populated at once.
    const bool summarised =
        capacity >= backgroundSummaryThreshold && std::thread::hardware_concurrency() > 1;
    std::vector<FloatBuffer> buffers, minMax, energy;
    for (size_t c = 0; c < channels; ++c) {
        if (summarised)
            buffers.emplace_back(capacity, FloatBuffer::FaultOnWrite{});
        else
            buffers.emplace_back(capacity);
    }

    std::optional<BackgroundSummariser> summariser;
    if (summarised) {
        const int64_t blocks = (capacity + 15) / 16;
        for (size_t c = 0; c < channels; ++c) {
            minMax.emplace_back(2 * blocks);
            energy.emplace_back(blocks);
        }
        try {
            summariser.emplace(buffers, minMax, energy);
        } catch (const std::system_error&) {
            // No thread to be had: the levels are built after decoding instead.
        }
    }

    std::vector<float*> destinations(channels);
    const double expected = double(std::max<int64_t>(info.frames, 1));
    double reported = 0;
    int64_t filled = 0;
    for (;;) {
        if (filled == capacity) {
            if (exact) break;
            const int64_t grown = capacity + std::max(capacity / 2, 16 * loadChunkFrames);
            if (summariser) summariser->pause();
            for (auto& buffer : buffers)
                buffer.resize(grown);
            for (auto& buffer : minMax)
                buffer.resize(2 * ((grown + 15) / 16));
            for (auto& buffer : energy)
                buffer.resize((grown + 15) / 16);
            if (summariser) summariser->resume();
            capacity = grown;
        }
        for (size_t c = 0; c < channels; ++c)
            destinations[c] = buffers[c].data() + filled;
        const int64_t got =
            decoder->read(destinations.data(), std::min(capacity - filled, loadChunkFrames));
        if (got <= 0) break; // the end, also of a file shorter than its header says
        filled += got;
        if (summariser) summariser->publish(filled);
        // Reading fills the first 90 % of the bar.
        const double fraction = std::min(double(filled) / expected, 1.0) * 0.9;
        if (progress && fraction - reported >= 0.02) {
            reported = fraction;
            progress(fraction);
        }
    }
    if (report) {
        *report = decoder->report();
        if (exact && filled < info.frames && !report->endsEarly) {
            report->endsEarly = true;
            report->framesRead = filled;
            report->statedFrames = info.frames;
        }
    }
    decoder.reset();
    if (filled == 0) throw AudioLoaderError::empty();

    AudioDataPtr audio;
    if (summariser && filled >= 17) {
        auto levels = completeLevels(buffers, minMax, energy, summariser->stop(), filled);
        audio = makeAudioData(info.sampleRate, std::move(buffers), filled, std::move(levels));
    } else {
        summariser.reset();
        audio = makeAudioData(info.sampleRate, std::move(buffers), filled);
    }
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
        "wav", "wave", "bwf",  "aif", "aiff", "aifc", "flac", "mp3",  "mp2", "m4a", "m4b",
        "aac", "adts", "ogg",  "oga", "opus", "caf",  "w64",  "rf64", "au",  "snd", "wma",
        "mka", "ac3",  "eac3", "dts", "wv",   "ape",  "tta",  "amr",  "mpc", "spx"};
    return extensions;
}

bool AudioLoader::isAudioFile(const std::filesystem::path& path) {
    const std::string dotted = path.extension().string();
    if (dotted.size() < 2) return false;
    const std::string extension = lowercased(dotted.substr(1));
    const auto& known = audioExtensions();
    return std::find(known.begin(), known.end(), extension) != known.end();
}

} // namespace sonvale
