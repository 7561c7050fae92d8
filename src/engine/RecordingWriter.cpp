#include "engine/RecordingWriter.h"

#include "audio/AudioLoader.h"

#include <sndfile.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cmath>
#include <cstring>

namespace sonvale {

namespace fs = std::filesystem;

namespace {

int sndfileFormat(RecordingFormat format) {
    switch (format) {
    case RecordingFormat::wav16: return SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    case RecordingFormat::wav24: return SF_FORMAT_WAV | SF_FORMAT_PCM_24;
    case RecordingFormat::wav32Float: return SF_FORMAT_WAV | SF_FORMAT_FLOAT;
    }
    return SF_FORMAT_WAV | SF_FORMAT_PCM_24;
}

std::string quoted(const fs::path& url) { return "“" + url.filename().string() + "”"; }

// What a failed write means, in plain words.
std::string writeProblem(int errnum) {
    switch (errnum) {
    case ENOSPC:
    case EDQUOT: return "the disk is full";
    case EFBIG: return "the file has grown larger than the disk allows";
    case EIO: return "the disk reported an error";
    case EROFS: return "the disk has become read-only";
    default: return errnum ? std::strerror(errnum) : "the file could not be written";
    }
}

} // namespace

void RecordingWriter::SndfileCloser::operator()(SNDFILE* handle) const { sf_close(handle); }

RecordingWriter::RecordingWriter(fs::path path, double rate, int channels, RecordingFormat format,
                                 Options chosen)
    : url(std::move(path))
    , sampleRate(rate)
    , channelCount(channels)
    , options(std::move(chosen)) {
    if (!(sampleRate > 0) || channelCount < 1) throw RecordingError(RecordingFailure::noInput);
    // The memory first: once the file exists, nothing but opening it can fail.
    const auto slotCount = size_t(std::max<int64_t>(
        4, int64_t(std::ceil(options.ringSeconds * sampleRate / double(slotFrames)))));
    slots.resize(slotCount);
    slotData.resize(slotCount * size_t(channelCount) * size_t(slotFrames));
    scratch.resize(size_t(channelCount) * size_t(slotFrames));
    peakBits = std::make_unique<std::atomic<uint32_t>[]>(size_t(channelCount));
    for (int c = 0; c < channelCount; ++c)
        peakBits[size_t(c)].store(0);
    pending.resize(size_t(channelCount));
    if (options.secondsLimit > 0)
        frameLimit = std::max<int64_t>(1, std::llround(options.secondsLimit * sampleRate));
    fd = ::open(url.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0) {
        const int errnum = errno;
        const char* reason = errnum == ENOENT   ? "its folder doesn't exist"
                             : errnum == EACCES ? "you may not write in its folder"
                             : errnum == EEXIST ? "a file of that name is already there"
                             : errnum == ENOSPC ? "the disk is full"
                                                : nullptr;
        throw FileError("Couldn't create the recording", url.string(),
                        reason ? reason : std::strerror(errnum), std::strerror(errnum));
    }
    SF_INFO info{};
    info.samplerate = int(std::lround(sampleRate));
    info.channels = channelCount;
    info.format = sndfileFormat(format);
    file.reset(sf_open_fd(fd, SFM_WRITE, &info, SF_FALSE));
    if (!file) {
        const std::string reason = sf_strerror(nullptr);
        ::close(fd);
        std::error_code ignored;
        fs::remove(url, ignored);
        throw RecordingError("Couldn't create the recording " + quoted(url) + ".", reason);
    }
    // Integer formats clip rather than wrap a sample beyond full scale.
    sf_command(file.get(), SFC_SET_CLIPPING, nullptr, SF_TRUE);
    sf_command(file.get(), SFC_UPDATE_HEADER_NOW, nullptr, 0);

    lastHeader = std::chrono::steady_clock::now();
    writer = std::thread([this] { run(); });
}

RecordingWriter::~RecordingWriter() { finish(); }

void RecordingWriter::write(const float* const* channels, int inputChannels,
                            int64_t frameCount) noexcept {
    if (inputChannels < 1 || frameCount < 1) return;
    if (frameLimit > 0) {
        frameCount = std::min(frameCount, frameLimit - accepted);
        if (frameCount < 1) return;
    }
    accepted += frameCount;
    const size_t n = slots.size();
    for (int64_t offset = 0; offset < frameCount; offset += slotFrames) {
        const int64_t count = std::min(slotFrames, frameCount - offset);
        const uint64_t at = head.load(std::memory_order_relaxed);
        const bool full = at - tail.load(std::memory_order_acquire) >= n;
        for (int c = 0; c < channelCount; ++c) {
            const float* source = channels[std::min(c, inputChannels - 1)] + offset;
            float peak = 0;
            for (int64_t i = 0; i < count; ++i)
                peak = std::max(peak, std::fabs(source[i]));
            std::atomic<uint32_t>& bits = peakBits[size_t(c)];
            uint32_t seen = bits.load(std::memory_order_relaxed);
            while (peak > std::bit_cast<float>(seen) &&
                   !bits.compare_exchange_weak(seen, std::bit_cast<uint32_t>(peak),
                                               std::memory_order_relaxed)) {
            }
            if (!full)
                std::memcpy(
                    &slotData[((at % n) * size_t(channelCount) + size_t(c)) * size_t(slotFrames)],
                    source, size_t(count) * sizeof(float));
        }
        inputSinceReading.store(true, std::memory_order_release);
        if (full) {
            gapFrames += count;
            dropped.fetch_add(count, std::memory_order_relaxed);
            continue;
        }
        slots[at % n] = {count, std::exchange(gapFrames, 0)};
        head.store(at + 1, std::memory_order_release);
    }
    if (frameLimit > 0 && accepted >= frameLimit) complete.store(true, std::memory_order_release);
}

void RecordingWriter::run() {
    for (;;) {
        // Read before draining: once the flag is seen, the capture thread has put its last slot.
        const bool last = finishing.load(std::memory_order_acquire);
        drain();
        if (last) break;
        if (std::chrono::steady_clock::now() - lastHeader >= options.headerInterval) updateHeader();
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    drain();
    // Input lost at the very end has no later buffer to carry its silence: write it now. The
    // capture thread has stopped for good (finish() comes after the input's stop).
    for (; gapFrames > 0; gapFrames -= std::min(gapFrames, slotFrames))
        writeFrames(nullptr, 0, std::min(gapFrames, slotFrames));
    updateHeader();
}

void RecordingWriter::drain() {
    const size_t n = slots.size();
    for (uint64_t at = tail.load(std::memory_order_relaxed);
         at != head.load(std::memory_order_acquire); ++at) {
        const Slot slot = slots[at % n];
        for (int64_t gap = slot.gapBefore; gap > 0; gap -= slotFrames)
            writeFrames(nullptr, 0, std::min(gap, slotFrames));
        writeFrames(&slotData[(at % n) * size_t(channelCount) * size_t(slotFrames)], slotFrames,
                    slot.frames);
        tail.store(at + 1, std::memory_order_release);
    }
}

void RecordingWriter::writeFrames(const float* planar, int64_t stride, int64_t count) {
    if (failed.load(std::memory_order_relaxed) || count < 1) return;
    for (int64_t i = 0; i < count; ++i)
        for (int c = 0; c < channelCount; ++c)
            scratch[size_t(i * channelCount + c)] = planar ? planar[c * stride + i] : 0.0f;
    if (options.beforeWrite) options.beforeWrite();
    errno = 0;
    const sf_count_t done = sf_writef_float(file.get(), scratch.data(), count);
    if (done != count) {
        failWrite(errno);
        return;
    }
    if (options.keepsPending) {
        std::lock_guard guard(lock);
        for (int c = 0; c < channelCount; ++c) {
            auto& samples = pending[size_t(c)];
            if (planar)
                samples.insert(samples.end(), planar + c * stride, planar + c * stride + count);
            else
                samples.insert(samples.end(), size_t(count), 0.0f);
        }
    }
    written.fetch_add(count, std::memory_order_release);
}

void RecordingWriter::failWrite(int errnum) {
    failed.store(true);
    std::lock_guard guard(lock);
    if (error) return;
    error = quoted(url) + " could not be written after " +
            durationString(double(written.load()) / sampleRate) + ": " + writeProblem(errnum) +
            ". The recording up to there is kept.";
}

void RecordingWriter::updateHeader() {
    lastHeader = std::chrono::steady_clock::now();
    const int64_t now = written.load(std::memory_order_relaxed);
    if (now == framesAtLastHeader || !file) return;
    framesAtLastHeader = now;
    sf_command(file.get(), SFC_UPDATE_HEADER_NOW, nullptr, 0);
    ::fdatasync(fd);
}

std::vector<float> RecordingWriter::peaksDB() {
    if (!inputSinceReading.exchange(false, std::memory_order_acquire)) return {};
    std::vector<float> levels(static_cast<size_t>(channelCount));
    for (int c = 0; c < channelCount; ++c) {
        const float peak =
            std::bit_cast<float>(peakBits[size_t(c)].exchange(0, std::memory_order_relaxed));
        levels[size_t(c)] = 20.0f * std::log10(std::max(peak, 0.000001f));
    }
    return levels;
}

std::vector<std::vector<float>> RecordingWriter::takePending() {
    std::vector<std::vector<float>> taken(static_cast<size_t>(channelCount));
    std::lock_guard guard(lock);
    taken.swap(pending);
    return taken;
}

std::optional<std::string> RecordingWriter::writeError() const {
    std::lock_guard guard(lock);
    return error;
}

void RecordingWriter::finish() {
    if (finished) return;
    finished = true;
    finishing.store(true, std::memory_order_release);
    if (writer.joinable()) writer.join();
    file.reset();
    ::fsync(fd);
    ::close(fd);
    fd = -1;
}

} // namespace sonvale
