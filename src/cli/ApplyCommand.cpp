// sonvale-cli apply IN -o OUT [--range START:END] --effect KIND[@PRESET][,NAME=VALUE...] ...
// Renders an effect chain into a file as "Apply to Selection" does and writes the whole
// result as a 32-bit float WAV.

#include "audio/AudioDecoder.h"
#include "audio/AudioErrors.h"
#include "audio/AudioExporter.h"
#include "audio/AudioFileWriter.h"
#include "audio/AudioLoader.h"
#include "base/Errors.h"
#include "cli/Commands.h"
#include "cli/Options.h"
#include "cli/Progress.h"
#include "effects/EffectChain.h"
#include "effects/EffectRenderer.h"
#include "effects/EffectSetup.h"

#include <charconv>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <optional>
#include <system_error>

namespace sonvale::cli {

namespace {

// START:END in frames or seconds; an empty side is the file's start or end.
FrameRange rangeIn(const std::string& text, const AudioData& audio, const std::string& file) {
    const FrameRange range = cli::parseRange(text).resolve(audio.sampleRate, audio.frameCount);
    checkRangeWithin(range, audio.frameCount, file);
    return range;
}

// The file with `range` replaced by the rendered clip (which is longer by the tail), as
// plain samples: the whole result is written, so no level pyramid is built for it.
AudioClip spliced(const AudioData& audio, FrameRange range, AudioClip rendered) {
    if (range.lower == 0 && range.upper == audio.frameCount) return rendered;
    AudioClip result;
    result.sampleRate = audio.sampleRate;
    for (int c = 0; c < audio.channelCount(); ++c) {
        const float* source = audio.samples(c);
        auto& middle = rendered.channels[size_t(c)];
        std::vector<float> channel;
        channel.reserve(size_t(audio.frameCount - range.length()) + middle.size());
        channel.insert(channel.end(), source, source + range.lower);
        channel.insert(channel.end(), middle.begin(), middle.end());
        channel.insert(channel.end(), source + range.upper, source + audio.frameCount);
        result.channels.push_back(std::move(channel));
        std::vector<float>().swap(middle);
    }
    return result;
}

EffectChain makeChain(const std::vector<EffectSetup>& setups) {
    EffectChain chain;
    for (auto& setup : setups)
        chain.append(EffectSession::make(setup.kind, setup.values));
    return chain;
}

// The whole file, streamed: decoded, processed and written a block at a time, the tail after
// it, in the same 4,096-frame blocks as the renderer, so the result is the same to the bit
// without ever holding the file in memory. A failure part-way removes what was written.
void applyToWholeFile(const std::string& input, const std::string& output,
                      const std::vector<EffectSetup>& setups) {
    auto decoder = openAudioDecoder(input);
    const double rate = decoder->info().sampleRate;
    const int channels = decoder->info().channels;
    // As when loading: a file that says exactly how long it is is read no further.
    const int64_t limit = decoder->lengthIsExact() ? decoder->info().frames : INT64_MAX;
    if (channels < 1 || limit < 1) throw AudioLoaderError::empty();
    auto chain = makeChain(setups);
    auto render = chain.renderProcessor(rate, channels);
    const int64_t tail = EffectRenderer::tailFrames(render.tailSeconds, rate);

    constexpr int64_t block = EffectRenderer::blockFrames;
    std::vector<std::vector<float>> buffers(static_cast<size_t>(channels),
                                            std::vector<float>(static_cast<size_t>(block)));
    std::vector<float*> planes;
    for (auto& buffer : buffers)
        planes.push_back(buffer.data());
    std::vector<float*> at(planes.size());

    std::unique_ptr<AudioFileWriter> writer;
    try {
        bool ended = false;
        int64_t tailLeft = tail, frames = 0;
        while (!ended || tailLeft > 0) {
            int64_t filled = 0;
            while (!ended && filled < block) {
                for (size_t c = 0; c < planes.size(); ++c)
                    at[c] = planes[c] + filled;
                const int64_t wanted = std::min(block - filled, limit - frames - filled);
                const int64_t n = wanted > 0 ? decoder->read(at.data(), wanted) : 0;
                if (n <= 0) {
                    ended = true;
                    break;
                }
                filled += n;
            }
            frames += filled;
            if (ended && frames == 0) throw AudioLoaderError::empty();
            // After the audio, silence runs the tail out.
            const int64_t silent = std::min(block - filled, tailLeft);
            for (auto* plane : planes)
                std::fill(plane + filled, plane + filled + silent, 0.0f);
            tailLeft -= silent;
            const int64_t count = filled + silent;
            if (count == 0) break;
            render.processor->process(planes.data(), count);
            if (!writer) writer = AudioExporter::openLosslessWriter(output, rate, channels);
            writer->write(planes.data(), count);
        }
        writer->finish();
        warnAboutDamage(input, decoder->report(), rate);
    } catch (...) {
        writer.reset(); // takes its unfinished file away; the output stays as it was
        throw;
    }
}

// Only `rangeText` of the file is processed; the rest is copied around it.
void applyToRange(const std::string& input, const std::string& output, const std::string& rangeText,
                  const std::vector<EffectSetup>& setups) {
    DecodeReport report;
    auto audio = AudioLoader::load(input, {}, &report);
    warnAboutDamage(input, report, audio->sampleRate);
    FrameRange range = rangeIn(rangeText, *audio, input);
    if (range.isEmpty()) throw UsageError{"\"" + input + "\" has no audio to process"};

    auto chain = makeChain(setups);
    auto render = chain.renderProcessor(audio->sampleRate, audio->channelCount());
    auto tail = EffectRenderer::tailFrames(render.tailSeconds, audio->sampleRate);
    auto rendered = EffectRenderer::render(*audio, range, tail, *render.processor);
    AudioExporter::writeLossless(spliced(*audio, range, std::move(rendered)), output);
}

} // namespace

int apply(const Arguments& args) {
    std::optional<std::string> input, output, rangeText;
    std::vector<EffectSetup> setups;
    for (size_t i = 0; i < args.size(); ++i) {
        auto& arg = args[i];
        auto next = [&]() -> const std::string& {
            if (i + 1 >= args.size()) throw UsageError{arg + " needs a value"};
            return args[++i];
        };
        if (arg == "-o" || arg == "--output") {
            output = next();
        } else if (arg == "--range") {
            rangeText = next();
        } else if (arg == "--effect" || arg == "-e") {
            try {
                setups.push_back(EffectSetup::parse(next()));
            } catch (const UserError& error) {
                throw UsageError{error.what()};
            }
        } else if (!arg.empty() && arg[0] == '-') {
            throw UsageError{"unknown option \"" + arg + "\""};
        } else if (input) {
            throw UsageError{"give one input file"};
        } else {
            input = arg;
        }
    }
    if (!input || !output || setups.empty())
        throw UsageError{"usage: apply IN -o OUT [--range START:END] --effect "
                         "KIND[@PRESET][,NAME=VALUE...] [--effect ...]"};

    try {
        if (!rangeText) {
            applyToWholeFile(*input, *output, setups);
            return 0;
        }
        applyToRange(*input, *output, *rangeText, setups);
    } catch (...) {
        rethrowNamingInput(*input);
    }
    return 0;
}

} // namespace sonvale::cli
