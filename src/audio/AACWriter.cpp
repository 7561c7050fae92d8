// AAC in an M4A file through FFmpeg's native encoder and its MPEG-4 muxer. The encoder
// takes 1,024-frame packets, so input is gathered into a frame of that size; the muxer
// records the encoder's priming in an edit list and the true length in the track's
// duration, so a decoder that honours both returns exactly the frames written (the
// movie's timescale is the sample rate, so that length needn't be whole milliseconds).

#include "audio/AudioFileWriter.h"

#include "audio/AudioErrors.h"
#include "audio/FFmpegSupport.h"
#include "audio/FileHandle.h"
#include "base/Errors.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/dict.h>
}

namespace sonvale {

namespace {

class AACWriter final : public AudioFileWriter {
public:
    AACWriter(int fd, const EncoderSettings& settings, std::filesystem::path path)
        : file(fd)
        , path(std::move(path))
        , io(fd, true) {
        silenceFFmpegLog();
        const int rate = int(std::lround(settings.sampleRate));
        const AVCodec* encoder = avcodec_find_encoder_by_name("aac");
        if (!encoder) fail("FFmpeg has no AAC encoder");
        if (!supportsRate(encoder, rate))
            fail("AAC can't be encoded at " + std::to_string(rate) + " Hz");
        if (settings.channels < 1 || settings.channels > 8)
            fail("AAC can't hold " + std::to_string(settings.channels) + " channels");

        // The "ipod" muxer is the MPEG-4 muxer writing the M4A brand.
        int error = avformat_alloc_output_context2(&format, nullptr, "ipod", nullptr);
        if (error < 0 || !format) fail(error);
        format->pb = io.context();
        format->flags |= AVFMT_FLAG_CUSTOM_IO;
        stream = avformat_new_stream(format, nullptr);
        codec = avcodec_alloc_context3(encoder);
        if (!stream || !codec) throw AudioLoaderError::outOfMemory();

        codec->sample_fmt = AV_SAMPLE_FMT_FLTP;
        codec->sample_rate = rate;
        av_channel_layout_default(&codec->ch_layout, settings.channels);
        codec->bit_rate = settings.bitRate.value_or(256000);
        codec->time_base = AVRational{1, rate};
        if (format->oformat->flags & AVFMT_GLOBALHEADER)
            codec->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        if ((error = avcodec_open2(codec, encoder, nullptr)) < 0) fail(error);
        if ((error = avcodec_parameters_from_context(stream->codecpar, codec)) < 0) fail(error);
        stream->time_base = codec->time_base;
        // The edit list's duration is counted in the movie's timescale, 1/1000 s unless
        // told otherwise: at the sample rate it can end on any frame.
        AVDictionary* options = nullptr;
        av_dict_set_int(&options, "movie_timescale", rate, 0);
        error = avformat_write_header(format, &options);
        av_dict_free(&options);
        if (error < 0) fail(error);

        frame->format = AV_SAMPLE_FMT_FLTP;
        frame->sample_rate = rate;
        frame->nb_samples = codec->frame_size;
        if ((error = av_channel_layout_copy(&frame->ch_layout, &codec->ch_layout)) < 0) fail(error);
        if ((error = av_frame_get_buffer(frame, 0)) < 0) throw AudioLoaderError::outOfMemory();
    }

    void write(const float* const* channels, int64_t frames) override {
        const int n = codec->ch_layout.nb_channels;
        for (int64_t done = 0; done < frames;) {
            if (filled == 0) {
                // The encoder may still hold the previous frame's buffer.
                const int error = av_frame_make_writable(frame);
                if (error < 0) fail(error);
            }
            const int take = int(std::min<int64_t>(codec->frame_size - filled, frames - done));
            for (int c = 0; c < n; ++c)
                std::memcpy(reinterpret_cast<float*>(frame->data[c]) + filled, channels[c] + done,
                            size_t(take) * sizeof(float));
            filled += take;
            done += take;
            if (filled == codec->frame_size) sendFilledFrame();
        }
    }

    void finish() override {
        if (filled > 0) sendFilledFrame(); // the last, shorter frame
        encode(nullptr);
        int error = av_write_trailer(format);
        if (error < 0) fail(error);
        if (format->pb->error < 0) fail(format->pb->error);
        if (file.close() != 0) throw fileErrorFromErrno("Couldn't write", path.string(), errno);
    }

private:
    static bool supportsRate(const AVCodec* encoder, int rate) {
        if (!encoder->supported_samplerates) return true;
        for (const int* r = encoder->supported_samplerates; *r; ++r)
            if (*r == rate) return true;
        return false;
    }

    void sendFilledFrame() {
        frame->nb_samples = filled;
        frame->pts = nextPts;
        nextPts += filled;
        encode(frame);
        filled = 0;
        frame->nb_samples = codec->frame_size;
    }

    void encode(AVFrame* input) {
        int error = avcodec_send_frame(codec, input);
        if (error < 0) fail(error);
        for (;;) {
            error = avcodec_receive_packet(codec, packet);
            if (error == AVERROR(EAGAIN) || error == AVERROR_EOF) return;
            if (error < 0) fail(error);
            // The encoder rounds the last packet's duration up (to whole blocks of 16 frames);
            // the track must end where the input did, so no packet reaches past it.
            if (packet->pts != AV_NOPTS_VALUE && packet->pts + packet->duration > nextPts)
                packet->duration = std::max<int64_t>(0, nextPts - packet->pts);
            av_packet_rescale_ts(packet, codec->time_base, stream->time_base);
            packet->stream_index = stream->index;
            error = av_write_frame(format, packet);
            av_packet_unref(packet);
            if (error < 0) fail(error);
        }
    }

    [[noreturn]] void fail(int error) const {
        if (io.systemError())
            throw fileErrorFromErrno("Couldn't write", path.string(), io.systemError());
        fail(ffmpegErrorText(error));
    }
    [[noreturn]] void fail(const std::string& reason) const {
        throw FileError(describeFileError("Couldn't write", path.string(), reason));
    }

    FileHandle file;
    std::filesystem::path path;
    FFmpegFileIO io;
    FFmpegContexts contexts{FFmpegContexts::Direction::writing}; // after `io`
    AVFormatContext*& format = contexts.format;
    AVCodecContext*& codec = contexts.codec;
    AVFrame*& frame = contexts.frame;
    AVPacket*& packet = contexts.packet;
    AVStream* stream = nullptr;
    int filled = 0;      // frames gathered in `frame`
    int64_t nextPts = 0; // in frames
};

} // namespace

std::unique_ptr<AudioFileWriter> openAACWriter(int fd, const EncoderSettings& settings,
                                               const std::filesystem::path& path) {
    return std::make_unique<AACWriter>(fd, settings, path);
}

} // namespace sonvale
