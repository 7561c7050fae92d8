// Decoding through FFmpeg: MP3, AAC, ALAC, Vorbis, Opus, WMA, the audio of video
// containers, and whatever else libavformat recognises. Samples are only converted to planar float;
// the rate and channel layout stay as the file has them.

#include "audio/AudioDecoder.h"

#include "audio/AudioErrors.h"
#include "audio/FFmpegSupport.h"
#include "base/Errors.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libswresample/swresample.h>
}

namespace sonvale {

namespace {

using Kind = AudioFileError::Kind;

// Consecutive undecodable packets after which the file counts as damaged from there on.
constexpr int maxConsecutiveErrors = 100;

// The longest MPEG audio Layer III frame: 320 kbit/s at 32 kHz, with its padding byte.
constexpr int longestMP3Frame = 1441;

uint32_t bigEndian(const unsigned char* bytes, int count) {
    uint32_t value = 0;
    for (int i = 0; i < count; ++i)
        value = value << 8 | bytes[i];
    return value;
}

// What the four bytes of an MPEG-1, 2 or 2.5 Layer III frame header say about the frame:
// its length in bytes, padding included, and that of the side information after the header.
// A length of 0 when the bytes aren't such a header (or one of free format).
struct MP3FrameHeader {
    int length = 0;
    int sideInfo = 0;
};

MP3FrameHeader readMP3FrameHeader(const unsigned char* header) {
    if (header[0] != 0xff || (header[1] & 0xe0) != 0xe0) return {};
    const int version = (header[1] >> 3) & 3; // 3 MPEG-1, 2 MPEG-2, 0 MPEG-2.5
    const int layer = (header[1] >> 1) & 3;   // 1 Layer III
    const int bitRateIndex = header[2] >> 4;
    const int rateIndex = (header[2] >> 2) & 3;
    if (version == 1 || layer != 1 || bitRateIndex == 0 || bitRateIndex == 15 || rateIndex == 3)
        return {};
    static constexpr int mpeg1Rates[] = {0,   32,  40,  48,  56,  64,  80, 96,
                                         112, 128, 160, 192, 224, 256, 320};
    static constexpr int mpeg2Rates[] = {0,  8,  16, 24,  32,  40,  48, 56,
                                         64, 80, 96, 112, 128, 144, 160};
    static constexpr int sampleRates[] = {44100, 48000, 32000};
    const bool mpeg1 = version == 3;
    const int sampleRate = sampleRates[rateIndex] >> (mpeg1 ? 0 : version == 2 ? 1 : 2);
    const int kilobits = (mpeg1 ? mpeg1Rates : mpeg2Rates)[bitRateIndex];
    const bool mono = (header[3] >> 6) == 3;
    return {(mpeg1 ? 144000 : 72000) * kilobits / sampleRate + ((header[2] >> 1) & 1),
            mpeg1 ? (mono ? 17 : 32) : (mono ? 9 : 17)};
}

class FFmpegDecoder final : public AudioDecoder {
public:
    FFmpegDecoder(FileHandle handle, const std::filesystem::path& path)
        : AudioDecoder(path)
        , file(std::move(handle))
        , io(file.get(), false) {
        open();
    }

    int64_t decode(float* const* channels, int64_t maxFrames) override {
        int64_t total = 0;
        while (total < maxFrames) {
            int64_t room = maxFrames - total;
            // The container's duration ends the audio where the codec's padding begins.
            if (limit >= 0) room = std::min(room, limit - delivered);
            if (room <= 0) break;
            if (silenceDue > 0) {
                const int64_t count = std::min(silenceDue, room);
                for (int c = 0; c < fileInfo.channels; ++c)
                    std::fill(channels[c] + total, channels[c] + total + count, 0.0f);
                silenceDue -= count;
                total += count;
                delivered += count;
                continue;
            }
            if (frameOffset < frame->nb_samples) {
                const int64_t count = std::min<int64_t>(frame->nb_samples - frameOffset, room);
                convert(channels, total, count);
                frameOffset += int(count);
                total += count;
                delivered += count;
                continue;
            }
            if (ended) break;
            if (!receiveFrame()) finish();
        }
        return total;
    }

private:
    void open() {
        silenceFFmpegLog();
        const std::string name = path.string();
        format = avformat_alloc_context();
        if (!format) throw AudioLoaderError::outOfMemory();
        format->pb = io.context();
        // The name only helps format detection by extension; data comes through `io`.
        int error = avformat_open_input(&format, name.c_str(), nullptr, nullptr);
        if (error < 0) fail(Kind::notAudio, error);
        error = avformat_find_stream_info(format, nullptr);
        if (error < 0) fail(Kind::damagedHeader, error);

        const AVCodec* decoder = nullptr;
        const int index = av_find_best_stream(format, AVMEDIA_TYPE_AUDIO, -1, -1, &decoder, 0);
        if (index == AVERROR_STREAM_NOT_FOUND) {
            // An audio stream FFmpeg passes over lacks a rate or channels; with neither, the
            // reader only guessed at the file from its name.
            const std::string details = ffmpegErrorText(index) + ": " + streamList();
            if (const AVStream* audio = firstAudioStream()) {
                if (audio->codecpar->sample_rate <= 0)
                    throw AudioFileError(audio->codecpar->ch_layout.nb_channels > 0
                                             ? Kind::noSampleRate
                                             : Kind::notAudio,
                                         path, details);
            }
            throw AudioLoaderError::empty(details);
        }
        if (index < 0 || !decoder) {
            if (index >= 0 || index == AVERROR_DECODER_NOT_FOUND) {
                const AVStream* audio = index >= 0 ? format->streams[index] : firstAudioStream();
                throw AudioFileError(Kind::unsupportedCodec, path,
                                     ffmpegErrorText(AVERROR_DECODER_NOT_FOUND) + ": " +
                                         streamList(),
                                     audio ? codecName(*audio->codecpar) : "unknown");
            }
            fail(Kind::notAudio, index);
        }
        stream = format->streams[index];
        for (unsigned i = 0; i < format->nb_streams; ++i)
            if (int(i) != index) format->streams[i]->discard = AVDISCARD_ALL;

        codec = avcodec_alloc_context3(decoder);
        if (!codec) throw AudioLoaderError::outOfMemory();
        error = avcodec_parameters_to_context(codec, stream->codecpar);
        if (error < 0) fail(Kind::damagedHeader, error);
        codec->pkt_timebase = stream->time_base;
        codec->thread_count = 1;
        // A packet whose checksum fails (WavPack, FLAC, MP3 with CRCs) is dropped rather than
        // decoded to noise; its time then shows as a gap before the next.
        codec->err_recognition |= AV_EF_CRCCHECK;
        error = avcodec_open2(codec, decoder, nullptr);
        if (error < 0) fail(Kind::damagedHeader, error);

        fileInfo.container = format->iformat->name;
        fileInfo.codec = avcodec_get_name(stream->codecpar->codec_id);
        fileInfo.sampleRate = codec->sample_rate;
        fileInfo.channels = codec->ch_layout.nb_channels;
        // Without a rate nor channels FFmpeg has only guessed the format from the name.
        if (fileInfo.sampleRate <= 0 && fileInfo.channels <= 0)
            throw AudioFileError(Kind::notAudio, path,
                                 "No sample rate nor channels in the " + fileInfo.codec +
                                     " stream FFmpeg's " + fileInfo.container + " reader found");
        if (fileInfo.sampleRate <= 0)
            throw AudioFileError(Kind::noSampleRate, path,
                                 "The " + fileInfo.codec + " stream has a sample rate of 0 Hz");

        const AVRational perFrame{1, codec->sample_rate};
        int64_t frames = 0;
        if (stream->duration != AV_NOPTS_VALUE && stream->duration > 0)
            frames = av_rescale_q(stream->duration, stream->time_base, perFrame);
        else if (format->duration != AV_NOPTS_VALUE && format->duration > 0)
            frames = av_rescale_q(format->duration, AV_TIME_BASE_Q, perFrame);
        fileInfo.frames = frames;

        // An MPEG-4 track's duration (after its edit list) is exact, and AAC's decoder
        // overruns it by the encoder's padding. The decoder already drops the priming
        // samples the edit list skips; the end is cut here. Other containers carry their
        // own end trimming (Ogg granules, Matroska's discard padding, the LAME header) or
        // only an estimated duration.
        const bool isMPEG4 = std::strstr(format->iformat->name, "mp4") != nullptr;
        exactLength = isMPEG4 && stream->duration != AV_NOPTS_VALUE && stream->duration > 0;
        limit = exactLength ? frames : -1;
        // A duration guessed from the bit rate says nothing about where the audio should end.
        statedLength =
            format->duration_estimation_method != AVFMT_DURATION_FROM_BITRATE ? frames : 0;
        // Time stamps in milliseconds (Matroska) may be off by one in either direction.
        gapTolerance = std::max(codec->sample_rate / 500, 32);
        if (std::strcmp(format->iformat->name, "ogg") == 0) cutOgg = !endsWithLastOggPage();
        rawMP3 = std::strcmp(format->iformat->name, "mp3") == 0 &&
                 stream->codecpar->codec_id == AV_CODEC_ID_MP3;
        // As FFmpeg found them in the first frames; it changes them when it meets others.
        mp3BitRate = stream->codecpar->bit_rate;
        mp3FrameSamples = stream->codecpar->frame_size;
        byPosition = rawMP3 && mp3BitRate > 0 && mp3FrameSamples > 0;
    }

    // Raw MP3 has no time stamps: FFmpeg numbers the packets as it reads them, so frames lost
    // to damage leave no trace and all later audio arrives early. At a constant bit rate the
    // byte where a frame starts says where its audio belongs; the packet's time stamp is set
    // from it, and placeFrame() turns a jump into silence as it does any gap in time stamps.
    // A packet of damaged bytes starts where the frame before it ended and doesn't decode; the
    // next good frame's position shows how many were lost.
    void placeMP3Packet() {
        if (firstPosition < 0) {
            firstPosition = packet->pos;
            firstStamp = packet->pts;
            if (firstPosition < 0 || firstStamp == AV_NOPTS_VALUE) byPosition = false;
            if (firstPosition > 0) readMP3Tag();
        }
        if (!byPosition || packet->pos < firstPosition) {
            byPosition = false;
            return;
        }
        // A frame is frame_size * bit_rate / (8 * rate) bytes long, give or take its padding
        // byte; the nearest whole frame is the one at the position.
        const int64_t rate = codec->sample_rate;
        const int64_t perFrame = mp3FrameSamples * mp3BitRate;
        const int64_t index =
            ((packet->pos - firstPosition) * 16 * rate + perFrame) / (2 * perFrame);
        packet->pts =
            firstStamp + av_rescale_q(index * mp3FrameSamples, AVRational{1, codec->sample_rate},
                                      stream->time_base);
        packet->dts = packet->pts;
        sentSize = packet->size;
        sentIndex = index;
        // Frames were lost since the last one decoded. The decoder would take the start of
        // this one's data (its bit reservoir) and the overlap into it from what it decoded
        // before the damage, and make a burst of noise; emptied, it leaves that part silent.
        if (index > receivedIndex + 1) avcodec_flush_buffers(codec);
        if (paddingStart > 0)
            dropPadding(
                av_rescale_q(packet->pts, stream->time_base, AVRational{1, codec->sample_rate}));
    }

    // FFmpeg drops the encoder's padding from the packets its count puts past the point the
    // LAME header gives, but lost frames hold that count back and the padding would stay.
    // The samples to drop are worked out again here, the same way, from the packet's place
    // (`start`, in samples as FFmpeg counts them).
    void dropPadding(int64_t start) {
        const int64_t end = start + mp3FrameSamples;
        const int64_t drop = end >= paddingStart && start < paddedEnd
                                 ? std::min(end - paddingStart, mp3FrameSamples)
                                 : 0;
        size_t size = 0;
        uint8_t* skip = av_packet_get_side_data(packet, AV_PKT_DATA_SKIP_SAMPLES, &size);
        if (!skip && drop > 0) {
            size = 10; // samples to skip at the start, to drop at the end, and two reasons
            skip = av_packet_new_side_data(packet, AV_PKT_DATA_SKIP_SAMPLES, size);
            if (skip) std::memset(skip, 0, size);
        }
        if (!skip || size < 8) return;
        for (int i = 0; i < 4; ++i) // little-endian, after the samples to skip
            skip[4 + i] = uint8_t(drop >> (8 * i));
    }

    // Whether a packet of `size` bytes holds one frame at the stream's bit rate, padding byte
    // or not. A decoded frame of another size means the bit rate varies (or the frame is
    // noise that happened to look like one): positions then say nothing about time any more,
    // and the frames after it follow one another as FFmpeg numbers them.
    bool fitsBitRate(int64_t size) const {
        const int64_t rate = codec->sample_rate;
        const int64_t perFrame = mp3FrameSamples * mp3BitRate;
        return std::abs(size * 8 * rate - perFrame) <= 8 * rate;
    }

    // The Xing or Info frame in front of the audio, which FFmpeg's reader skips and which ends
    // where the first audio frame begins. Encoders write "Info" at a constant bit rate and
    // "Xing" at a variable one. LAME's extension of it (also written by FFmpeg) counts the
    // encoder's delay and padding, which FFmpeg trims: with the frame count it gives the
    // length of the audio and where the padding starts. FFmpeg reads them only from the
    // encoders named below, so the same ones are read here.
    void readMP3Tag() {
        std::vector<unsigned char> bytes(size_t(std::min<int64_t>(firstPosition, longestMP3Frame)));
        const int64_t size = int64_t(bytes.size());
        if (size < 4 ||
            ::pread(file.get(), bytes.data(), bytes.size(), firstPosition - size) != ssize_t(size))
            return;
        for (int64_t at = 0; at + 4 <= size; ++at) {
            const MP3FrameHeader header = readMP3FrameHeader(bytes.data() + at);
            if (header.length != size - at) continue;
            int64_t field = at + 4 + header.sideInfo;
            if (field + 8 > size) continue;
            const unsigned char* tag = bytes.data() + field;
            if (std::memcmp(tag, "Xing", 4) == 0) {
                byPosition = false;
                return;
            }
            if (std::memcmp(tag, "Info", 4) != 0) continue;
            const uint32_t flags = bigEndian(tag + 4, 4);
            field += 8;
            int64_t frames = 0;
            if ((flags & 1) && field + 4 <= size) frames = bigEndian(bytes.data() + field, 4);
            for (uint32_t flag : {1u, 2u, 4u, 8u})
                if (flags & flag) field += flag == 4 ? 100 : 4; // frames, bytes, TOC, quality
            if (frames == 0 || field + 24 > size) return;
            const unsigned char* encoder = bytes.data() + field;
            if (std::memcmp(encoder, "LAME", 4) != 0 && std::memcmp(encoder, "Lavf", 4) != 0 &&
                std::memcmp(encoder, "Lavc", 4) != 0)
                return;
            const uint32_t padding = bigEndian(encoder + 21, 3); // 12 bits at each end
            const int64_t delay = padding >> 12;
            paddedEnd = frames * mp3FrameSamples;
            // The decoder's own delay of 529 samples moves both ends, as FFmpeg counts them.
            paddingStart = paddedEnd - int64_t(padding & 0xfff) + 529;
            if (paddingStart - delay - 529 > 0) statedLength = paddingStart - delay - 529;
            return;
        }
    }

    // Whether the last Ogg page in the file is complete and marks the end of its stream. A
    // file cut short ends in the middle of a page, or after one that isn't the last.
    bool endsWithLastOggPage() const {
        struct stat status {};
        if (::fstat(file.get(), &status) != 0) return true;
        const int64_t size = status.st_size;
        std::vector<unsigned char> tail(size_t(std::min<int64_t>(size, 65536 + 282)));
        const int64_t from = size - int64_t(tail.size());
        if (::pread(file.get(), tail.data(), tail.size(), from) != ssize_t(tail.size()))
            return true;
        for (int64_t at = int64_t(tail.size()) - 27; at >= 0; --at) {
            if (std::memcmp(tail.data() + at, "OggS", 4) != 0) continue;
            const int64_t segments = tail[size_t(at) + 26];
            if (at + 27 + segments > int64_t(tail.size())) continue;
            int64_t body = 0;
            for (int64_t i = 0; i < segments; ++i)
                body += tail[size_t(at + 27 + i)];
            if (at + 27 + segments + body != int64_t(tail.size())) continue;
            return (tail[size_t(at) + 5] & 0x04) != 0; // the end-of-stream flag
        }
        return false;
    }

    // Places the frame just received by its time stamp: a start later than where the audio so
    // far reaches reveals packets that could not be read, which become silence.
    void placeFrame() {
        const int64_t stamp = frame->best_effort_timestamp != AV_NOPTS_VALUE
                                  ? frame->best_effort_timestamp
                                  : frame->pts;
        if (stamp != AV_NOPTS_VALUE) {
            const int64_t start =
                av_rescale_q(stamp, stream->time_base, AVRational{1, codec->sample_rate});
            if (!placed) origin = start;
            placed = true;
            const int64_t gap = start - origin - next;
            // A stamp far past the stated end (or, without one, minutes ahead) is itself damage.
            const int64_t furthest = statedLength > 0 ? statedLength + codec->sample_rate
                                                      : next + 600 * int64_t(codec->sample_rate);
            if (gap > gapTolerance && start - origin <= furthest) {
                damage.addDamage(next, gap);
                silenceDue += gap;
                next += gap;
            }
        }
        next += frame->nb_samples;
    }

    // The stream is over. A length the container states exactly is filled with silence;
    // a stated length the audio falls well short of is reported.
    void finish() {
        ended = true;
        if (limit >= 0 && next < limit) {
            damage.endsEarly = true;
            damage.framesRead = next;
            damage.statedFrames = limit;
            damage.addDamage(next, limit - next);
            silenceDue += limit - next;
            next = limit;
        } else if (limit < 0 && statedLength - next > std::max<int64_t>(codec->sample_rate / 10,
                                                                        statedLength / 100)) {
            damage.endsEarly = true;
            damage.framesRead = next;
            damage.statedFrames = statedLength;
        } else if (cutOgg) {
            damage.endsEarly = true;
            damage.framesRead = next;
        }
    }

    // Throws what FFmpeg's `error` means to the user: `kind`, unless the system failed to
    // read the file.
    [[noreturn]] void fail(Kind kind, int error) const {
        if (io.systemError()) throw AudioFileError::fromErrno(path, io.systemError());
        // A demuxer that took the file for its format on weak evidence (an extension) and
        // then failed reports "Invalid argument"; to the user the data is what's wrong.
        if (error == AVERROR(EINVAL)) error = AVERROR_INVALIDDATA;
        throw AudioFileError(kind, path, ffmpegErrorText(error));
    }

    // Every stream, as "video (mpeg4), audio (xyz)".
    std::string streamList() const {
        std::string list;
        for (unsigned i = 0; i < format->nb_streams; ++i) {
            const AVCodecParameters& parameters = *format->streams[i]->codecpar;
            const char* type = av_get_media_type_string(parameters.codec_type);
            list += (list.empty() ? "" : ", ") + std::string(type ? type : "unknown") + " (" +
                    codecName(parameters);
            if (parameters.codec_type == AVMEDIA_TYPE_AUDIO)
                list += ", " + std::to_string(parameters.sample_rate) + " Hz, " +
                        std::to_string(parameters.ch_layout.nb_channels) +
                        (parameters.ch_layout.nb_channels == 1 ? " channel" : " channels");
            list += ")";
        }
        return list.empty() ? "no streams" : list;
    }

    const AVStream* firstAudioStream() const {
        for (unsigned i = 0; i < format->nb_streams; ++i)
            if (format->streams[i]->codecpar->codec_type == AVMEDIA_TYPE_AUDIO)
                return format->streams[i];
        return nullptr;
    }

    // FFmpeg's name for the codec, or the container's tag for one FFmpeg doesn't know.
    static std::string codecName(const AVCodecParameters& parameters) {
        if (parameters.codec_id != AV_CODEC_ID_NONE) return avcodec_get_name(parameters.codec_id);
        char tag[32];
        std::snprintf(tag, sizeof tag, "format 0x%04X", parameters.codec_tag);
        return tag;
    }

    // Fetches the next decoded frame; false at the end of the stream.
    bool receiveFrame() {
        frameOffset = 0;
        av_frame_unref(frame);
        int errors = 0;
        for (;;) {
            const int received = avcodec_receive_frame(codec, frame);
            if (received == 0) {
                if (frame->ch_layout.nb_channels != fileInfo.channels) {
                    // A stream whose channel count changes midway ends where it changes.
                    av_frame_unref(frame);
                    return false;
                }
                // One packet makes one MP3 frame: the one just sent.
                if (byPosition && !fitsBitRate(sentSize)) byPosition = false;
                receivedIndex = sentIndex;
                placeFrame();
                return true;
            }
            if (received == AVERROR_EOF) return false;
            if (received != AVERROR(EAGAIN)) {
                // A damaged packet: skip it as players do, unless nothing decodes any more.
                if (++errors > maxConsecutiveErrors) fail(Kind::undecodable, received);
                continue;
            }
            sendPacket(errors);
        }
    }

    void sendPacket(int& errors) {
        for (;;) {
            if (flushing) {
                // Already flushing and the decoder wants more: it has nothing left.
                avcodec_send_packet(codec, nullptr);
                return;
            }
            const int got = av_read_frame(format, packet);
            if (got < 0) {
                if (io.systemError()) fail(Kind::unreadable, got);
                if (got != AVERROR_EOF && findNextWavPackBlock()) continue;
                // End of file, or the container breaks off: decode what the codec holds.
                flushing = true;
                avcodec_send_packet(codec, nullptr);
                return;
            }
            if (packet->stream_index != stream->index) {
                av_packet_unref(packet);
                continue;
            }
            if (rawMP3) placeMP3Packet();
            const int sent = avcodec_send_packet(codec, packet);
            av_packet_unref(packet);
            if (sent < 0 && sent != AVERROR(EAGAIN) && ++errors > maxConsecutiveErrors)
                fail(Kind::undecodable, sent);
            return;
        }
    }

    // FFmpeg's WavPack reader stops at a block whose header is damaged. Every block begins
    // with "wvpk" and says which sample it starts at, so reading goes on from the next one;
    // the frames between become a gap.
    bool findNextWavPackBlock() {
        if (std::strcmp(format->iformat->name, "wv") != 0 || ++resyncs > maxConsecutiveErrors)
            return false;
        int64_t from = std::max<int64_t>(avio_tell(format->pb) - 31, 0);
        std::vector<char> buffer(65536 + 3);
        for (;;) {
            const ssize_t got = ::pread(file.get(), buffer.data(), buffer.size(), from);
            if (got < 4) return false;
            const auto end = buffer.begin() + got;
            const auto found =
                std::search(buffer.begin() + 1, end, std::begin("wvpk"), std::begin("wvpk") + 4);
            if (found != end)
                return avio_seek(format->pb, from + (found - buffer.begin()), SEEK_SET) >= 0;
            from += got - 3;
        }
    }

    // Writes `count` samples from the current frame (from frameOffset on) to each channel
    // at `at`, converting the decoder's sample format to float.
    void convert(float* const* channels, int64_t at, int64_t count) {
        const int n = fileInfo.channels;
        const auto sampleFormat = AVSampleFormat(frame->format);
        if (sampleFormat == AV_SAMPLE_FMT_FLTP) {
            for (int c = 0; c < n; ++c) {
                std::memcpy(channels[c] + at,
                            reinterpret_cast<const float*>(frame->extended_data[c]) + frameOffset,
                            size_t(count) * sizeof(float));
                damage.nonFiniteSamples += silenceNonFinite(channels[c] + at, count);
            }
            return;
        }
        if (sampleFormat == AV_SAMPLE_FMT_FLT) {
            const float* from =
                reinterpret_cast<const float*>(frame->data[0]) + int64_t(frameOffset) * n;
            for (int c = 0; c < n; ++c) {
                float* out = channels[c] + at;
                for (int64_t i = 0; i < count; ++i)
                    out[i] = from[i * n + c];
                damage.nonFiniteSamples += silenceNonFinite(out, count);
            }
            return;
        }
        if (!converter || converterFormat != sampleFormat) {
            swr_free(&converter);
            int error = swr_alloc_set_opts2(&converter, &frame->ch_layout, AV_SAMPLE_FMT_FLTP,
                                            frame->sample_rate, &frame->ch_layout, sampleFormat,
                                            frame->sample_rate, 0, nullptr);
            if (error >= 0) error = swr_init(converter);
            if (error < 0) fail(Kind::undecodable, error);
            converterFormat = sampleFormat;
        }
        const int bytesPerSample = av_get_bytes_per_sample(sampleFormat);
        const bool planar = av_sample_fmt_is_planar(sampleFormat);
        inputs.resize(size_t(n));
        outputs.resize(size_t(n));
        for (int c = 0; c < n; ++c) {
            inputs[size_t(c)] =
                planar ? frame->extended_data[c] + int64_t(frameOffset) * bytesPerSample
                       : frame->extended_data[0] + int64_t(frameOffset) * bytesPerSample * n;
            outputs[size_t(c)] = reinterpret_cast<uint8_t*>(channels[c] + at);
        }
        const int converted =
            swr_convert(converter, outputs.data(), int(count), inputs.data(), int(count));
        if (converted < 0) fail(Kind::undecodable, converted);
        if (converted < count)
            for (int c = 0; c < n; ++c)
                std::fill(channels[c] + at + converted, channels[c] + at + count, 0.0f);
        if (sampleFormat == AV_SAMPLE_FMT_DBL || sampleFormat == AV_SAMPLE_FMT_DBLP)
            for (int c = 0; c < n; ++c)
                damage.nonFiniteSamples += silenceNonFinite(channels[c] + at, count);
    }

    FileHandle file;
    FFmpegFileIO io;
    FFmpegContexts contexts{FFmpegContexts::Direction::reading}; // after `io`
    AVFormatContext*& format = contexts.format;
    AVCodecContext*& codec = contexts.codec;
    AVPacket*& packet = contexts.packet;
    AVFrame*& frame = contexts.frame;
    SwrContext*& converter = contexts.converter;
    AVStream* stream = nullptr;
    AVSampleFormat converterFormat = AV_SAMPLE_FMT_NONE;
    std::vector<const uint8_t*> inputs;
    std::vector<uint8_t*> outputs;
    int frameOffset = 0;
    int64_t delivered = 0;
    int64_t limit = -1;         // frames the container says the stream holds; -1 when unknown
    int64_t statedLength = 0;   // the container's duration in frames, 0 when only a guess
    int64_t next = 0;           // the frame after everything received or scheduled so far
    int64_t origin = 0;         // the first frame's time stamp, in frames
    int64_t silenceDue = 0;     // silent frames to deliver before the rest of the frame
    int gapTolerance = 32;      // frames by which time stamps may disagree without a gap
    bool placed = false;        // `origin` is known
    bool cutOgg = false;        // an Ogg file that ends before its last page
    bool rawMP3 = false;        // MP3 frames without a container
    bool byPosition = false;    // rawMP3 at a constant bit rate: packets are placed by position
    int64_t firstPosition = -1; // rawMP3: the byte where the first audio frame starts
    int64_t firstStamp = AV_NOPTS_VALUE; // rawMP3: the first packet's time stamp
    int64_t sentSize = 0;                // rawMP3: the size of the packet sent last
    int64_t sentIndex = 0;       // rawMP3: the frame the packet sent last holds, by position
    int64_t receivedIndex = 0;   // rawMP3: the frame decoded last, by position
    int64_t mp3BitRate = 0;      // rawMP3: bits per second of the first frames
    int64_t mp3FrameSamples = 0; // rawMP3: samples per frame
    int64_t paddingStart = 0;    // rawMP3: where the LAME header's end padding starts, in samples
    int64_t paddedEnd = 0;       // rawMP3: where the LAME header's frames end, in samples
    int resyncs = 0;             // times reading went on past a damaged WavPack block
    bool flushing = false;
    bool ended = false; // the decoder has nothing more, and what the stream lacks is scheduled
};

} // namespace

std::unique_ptr<AudioDecoder> openFFmpegDecoder(FileHandle& file,
                                                const std::filesystem::path& path) {
    if (::lseek(file.get(), 0, SEEK_SET) != 0)
        throw fileErrorFromErrno("Couldn't open", path.string(), errno);
    return std::make_unique<FFmpegDecoder>(std::move(file), path);
}

} // namespace sonvale
