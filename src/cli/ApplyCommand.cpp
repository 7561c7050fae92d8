// sonvale-cli apply IN -o OUT [--range START:END] --effect KIND[@PRESET][,NAME=VALUE...] ...
// Renders an effect chain into a file as "Apply to Selection" does and writes the whole
// result as a 32-bit float WAV.

#include "cli/Commands.h"
#include "cli/Options.h"

#include "audio/AudioExporter.h"
#include "audio/AudioLoader.h"
#include "base/Errors.h"
#include "effects/EffectChain.h"
#include "effects/EffectRenderer.h"
#include "effects/EffectSetup.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <optional>

namespace sonvale::cli {

namespace {

// One end of a range: frames ("48000") or seconds ("1.5s"); empty for the file's own end.
std::optional<int64_t> position(const std::string& text, double sampleRate) {
    if (text.empty()) return std::nullopt;
    bool seconds = text.back() == 's';
    std::string digits = seconds ? text.substr(0, text.size() - 1) : text;
    double value = 0;
    auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    bool whole = seconds || value == std::floor(value);
    if (digits.empty() || error != std::errc() || end != digits.data() + digits.size() ||
        value < 0 || !whole || !std::isfinite(value))
        throw UsageError{curlyQuoted(text) + " in --range is neither a frame number nor "
                         "seconds such as 1.5s"};
    return int64_t(seconds ? std::llround(value * sampleRate) : value);
}

// START:END in frames or seconds; an empty side is the file's start or end.
FrameRange parseRange(const std::string& text, const AudioData& audio, const std::string& file) {
    auto colon = text.find(':');
    if (colon == std::string::npos)
        throw UsageError{"--range needs START:END in frames or seconds (1.5s:3s), not " +
                         curlyQuoted(text)};
    FrameRange range{position(text.substr(0, colon), audio.sampleRate).value_or(0),
                     position(text.substr(colon + 1), audio.sampleRate).value_or(audio.frameCount)};
    if (range.isEmpty())
        throw UsageError{"the range " + text + " is empty: END must be after START"};
    checkRangeWithin(range, audio, file);
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

    auto audio = AudioLoader::load(*input);
    FrameRange range{0, audio->frameCount};
    if (rangeText) range = parseRange(*rangeText, *audio, *input);
    if (range.isEmpty()) throw UsageError{"\"" + *input + "\" has no audio to process"};

    EffectChain chain;
    for (auto& setup : setups) {
        if (!makeProcessor(setup.kind, audio->sampleRate, audio->channelCount(),
                           std::make_shared<ParameterBank>(parameters(setup.kind))))
            throw UsageError{std::string(title(setup.kind)) +
                             " can't be applied yet: its processor isn't built"};
        chain.append(EffectSession::make(setup.kind, setup.values));
    }
    auto render = chain.renderProcessor(audio->sampleRate, audio->channelCount());
    auto tail = EffectRenderer::tailFrames(render.tailSeconds, audio->sampleRate);
    auto rendered = EffectRenderer::render(*audio, range, tail, *render.processor);
    AudioExporter::writeLossless(spliced(*audio, range, std::move(rendered)), *output);
    return 0;
}

} // namespace sonvale::cli
