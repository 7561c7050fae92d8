// Decoding FLAC through libFLAC. A damaged frame does not end the stream: libFLAC finds the
// next frame header, and every frame is placed by the sample number in its header, so what
// could not be decoded becomes silence at its place. A stream that ends before the length
// its STREAMINFO states is filled to that length with silence.

#include "audio/AudioDecoder.h"

#include "audio/AudioErrors.h"
#include "base/Errors.h"

#include <FLAC/stream_decoder.h>
#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <optional>
#include <unistd.h>

namespace sonvale {

namespace {

class FlacDecoder final : public AudioDecoder {
public:
    explicit FlacDecoder(std::filesystem::path path)
        : AudioDecoder(std::move(path)) {}
    ~FlacDecoder() override {
        if (decoder) FLAC__stream_decoder_delete(decoder);
    }
    FlacDecoder(const FlacDecoder&) = delete;
    FlacDecoder& operator=(const FlacDecoder&) = delete;

    // Reads the header from `own` (a descriptor the decoder takes over). Returns false, with
    // the reason in `failure`, when this is not a FLAC stream libFLAC can decode.
    bool open(int own, std::string& failure) {
        FILE* stream = ::fdopen(own, "rb");
        if (!stream) {
            ::close(own);
            failure = std::strerror(errno);
            return false;
        }
        decoder = FLAC__stream_decoder_new();
        if (!decoder) {
            std::fclose(stream);
            throw AudioLoaderError::outOfMemory();
        }
        // libFLAC closes `stream` from here on, also when initialising fails.
        const auto status =
            FLAC__stream_decoder_init_FILE(decoder, stream, &FlacDecoder::write,
                                           &FlacDecoder::metadata, &FlacDecoder::error, this);
        if (status != FLAC__STREAM_DECODER_INIT_STATUS_OK) {
            failure = FLAC__StreamDecoderInitStatusString[status];
            return false;
        }
        const bool read = FLAC__stream_decoder_process_until_end_of_metadata(decoder);
        if (!read || !haveStreamInfo) {
            // libFLAC's own words: the error it reported, else the state it stopped in.
            failure = !badStreamInfo.empty() ? badStreamInfo
                      : firstError
                          ? FLAC__StreamDecoderErrorStatusString[*firstError]
                          : FLAC__StreamDecoderStateString[FLAC__stream_decoder_get_state(decoder)];
            return false;
        }
        return true;
    }

    void keepForSecondReader(FileHandle file) { source = std::move(file); }

    // libFLAC seeks to the frame holding `frame` and hands over that frame from `frame` on.
    std::unique_ptr<AudioDecoder> startingAt(int64_t frame) override {
        if (!source.isOpen() || statedFrames <= 0) return nullptr;
        const int own = reopenDescriptor(source.get());
        if (own < 0) return nullptr;
        auto decoder = std::make_unique<FlacDecoder>(path);
        std::string failure;
        if (!decoder->open(own, failure) || decoder->fileInfo.channels != fileInfo.channels ||
            decoder->statedFrames != statedFrames)
            return nullptr;
        decoder->next = frame;
        if (!FLAC__stream_decoder_seek_absolute(decoder->decoder, FLAC__uint64(frame)))
            return nullptr;
        decoder->beginAt(frame);
        return decoder;
    }

    int64_t decode(float* const* channels, int64_t maxFrames) override {
        const int n = fileInfo.channels;
        int64_t total = 0;
        while (total < maxFrames) {
            if (runs.empty()) {
                if (ended || !decodeFrame()) break;
                continue;
            }
            Run& run = runs.front();
            const int64_t count = std::min(run.frames, maxFrames - total);
            for (int c = 0; c < n; ++c) {
                if (run.silent)
                    std::fill(channels[c] + total, channels[c] + total + count, 0.0f);
                else
                    std::memcpy(channels[c] + total, block.data() + c * blockCapacity + blockOffset,
                                size_t(count) * sizeof(float));
            }
            if (!run.silent) blockOffset += count;
            total += count;
            if ((run.frames -= count) == 0) runs.pop_front();
        }
        return total;
    }

private:
    // Decodes frames until there is something to deliver; false at the end.
    bool decodeFrame() {
        while (runs.empty()) {
            errorsInFrame = 0;
            const bool ok = FLAC__stream_decoder_process_single(decoder);
            if (!runs.empty()) return true;
            const auto state = FLAC__stream_decoder_get_state(decoder);
            if (state == FLAC__STREAM_DECODER_MEMORY_ALLOCATION_ERROR)
                throw AudioLoaderError::outOfMemory();
            if (!ok || state == FLAC__STREAM_DECODER_END_OF_STREAM ||
                state == FLAC__STREAM_DECODER_ABORTED) {
                finish();
                return !runs.empty();
            }
        }
        return true;
    }

    // The stream is over: audio missing before its stated end is silent.
    void finish() {
        ended = true;
        if (statedFrames > 0 && next < statedFrames) {
            damage.endsEarly = true;
            damage.framesRead = next;
            damage.statedFrames = statedFrames;
            addSilence(statedFrames - next);
        }
    }

    void addSilence(int64_t frames) {
        damage.addDamage(next, frames);
        runs.push_back({frames, true});
        next += frames;
    }

    static FLAC__StreamDecoderWriteStatus write(const FLAC__StreamDecoder*,
                                                const FLAC__Frame* frame,
                                                const FLAC__int32* const buffer[], void* data) {
        auto* self = static_cast<FlacDecoder*>(data);
        self->take(*frame, buffer);
        return FLAC__STREAM_DECODER_WRITE_STATUS_CONTINUE;
    }

    void take(const FLAC__Frame& frame, const FLAC__int32* const buffer[]) {
        const auto& header = frame.header;
        const int64_t frames = header.blocksize;
        // libFLAC turns frame numbers into sample numbers for fixed-size blocks.
        const int64_t start = header.number_type == FLAC__FRAME_NUMBER_TYPE_SAMPLE_NUMBER
                                  ? int64_t(header.number.sample_number)
                                  : next;
        // A header that passed its checksum by chance in a damaged stretch: nothing sensible.
        if (int(header.channels) != fileInfo.channels || frames > FLAC__MAX_BLOCK_SIZE ||
            (statedFrames > 0 && start >= statedFrames) || start + frames <= next)
            return;
        if (start > next) addSilence(start - next);
        // Frames overlapping what was already delivered lose their first samples.
        const int64_t skip = next - start > 0 ? next - start : 0;
        int64_t count = frames - skip;
        if (statedFrames > 0) count = std::min(count, statedFrames - next);
        // A frame that failed to decode is handed over as silence in its place.
        if (errorsInFrame > 0 && isSilent(buffer, skip, count)) {
            addSilence(count);
            return;
        }
        makeRoom(count);
        const float scale = float(std::ldexp(1.0, 1 - int(header.bits_per_sample)));
        for (int c = 0; c < fileInfo.channels; ++c) {
            const FLAC__int32* from = buffer[c] + skip;
            float* __restrict to = block.data() + c * blockCapacity + blockFrames;
            for (int64_t i = 0; i < count; ++i)
                to[i] = float(from[i]) * scale;
        }
        blockFrames += count;
        runs.push_back({count, false});
        next += count;
    }

    bool isSilent(const FLAC__int32* const buffer[], int64_t from, int64_t count) const {
        for (int c = 0; c < fileInfo.channels; ++c)
            for (int64_t i = from; i < from + count; ++i)
                if (buffer[c][i] != 0) return false;
        return true;
    }

    // Space for `count` more frames after the undelivered ones in `block`.
    void makeRoom(int64_t count) {
        const int n = fileInfo.channels;
        if (blockOffset == blockFrames) blockOffset = blockFrames = 0;
        if (blockFrames + count <= blockCapacity) return;
        const int64_t kept = blockFrames - blockOffset;
        const int64_t capacity = std::max(blockCapacity, kept + count);
        FloatBuffer grown(capacity * n);
        for (int c = 0; c < n; ++c)
            std::memcpy(grown.data() + c * capacity, block.data() + c * blockCapacity + blockOffset,
                        size_t(kept) * sizeof(float));
        block = std::move(grown);
        blockCapacity = capacity;
        blockOffset = 0;
        blockFrames = kept;
    }

    static void metadata(const FLAC__StreamDecoder*, const FLAC__StreamMetadata* metadata,
                         void* data) {
        if (metadata->type != FLAC__METADATA_TYPE_STREAMINFO) return;
        auto* self = static_cast<FlacDecoder*>(data);
        const auto& info = metadata->data.stream_info;
        // Values no encoder writes: the block is damaged, and nothing after it can be trusted.
        if (info.min_blocksize < 16 || info.max_blocksize < info.min_blocksize ||
            info.sample_rate > 655350) {
            self->badStreamInfo = "STREAMINFO gives blocks of " +
                                  std::to_string(info.min_blocksize) + " to " +
                                  std::to_string(info.max_blocksize) + " samples at " +
                                  std::to_string(info.sample_rate) + " Hz";
            return;
        }
        self->haveStreamInfo = true;
        self->fileInfo.container = "flac";
        self->fileInfo.codec = "flac";
        self->fileInfo.sampleRate = info.sample_rate;
        self->fileInfo.channels = int(info.channels);
        self->statedFrames = int64_t(info.total_samples);
        self->fileInfo.frames = self->statedFrames;
        self->exactLength = self->statedFrames > 0;
        self->blockCapacity = 2 * int64_t(info.max_blocksize);
        self->block = FloatBuffer(self->blockCapacity * info.channels);
    }

    static void error(const FLAC__StreamDecoder*, FLAC__StreamDecoderErrorStatus status,
                      void* data) {
        auto* self = static_cast<FlacDecoder*>(data);
        if (!self->firstError) self->firstError = status;
        ++self->errorsInFrame;
    }

    FLAC__StreamDecoder* decoder = nullptr;
    FileHandle source; // the file, for startingAt()
    // What is still to be delivered, in order: decoded frames (their samples in `block`)
    // and silence.
    struct Run {
        int64_t frames;
        bool silent;
    };
    std::deque<Run> runs;
    FloatBuffer block; // decoded samples, a run of blockCapacity floats per channel
    int64_t blockCapacity = 0;
    int64_t blockFrames = 0;  // filled frames of each channel's run
    int64_t blockOffset = 0;  // of which those before this one are delivered
    int64_t next = 0;         // the frame after everything scheduled so far
    int64_t statedFrames = 0; // STREAMINFO's total; 0 when the encoder didn't know it
    int errorsInFrame = 0;    // reported by libFLAC while decoding the current frame
    std::optional<FLAC__StreamDecoderErrorStatus> firstError; // reported while reading the header
    std::string badStreamInfo;                                // why STREAMINFO was refused
    bool haveStreamInfo = false;
    bool ended = false;
};

} // namespace

std::unique_ptr<AudioDecoder> openFlacDecoder(FileHandle& file, const std::filesystem::path& path,
                                              std::string& failure) {
    failure.clear();
    const int own =
        ::lseek(file.get(), 0, SEEK_SET) == 0 ? ::fcntl(file.get(), F_DUPFD_CLOEXEC, 0) : -1;
    if (own < 0) {
        failure = std::strerror(errno);
        return nullptr;
    }
    auto decoder = std::make_unique<FlacDecoder>(path);
    if (!decoder->open(own, failure)) return nullptr;
    decoder->keepForSecondReader(std::move(file));
    return decoder;
}

} // namespace sonvale
