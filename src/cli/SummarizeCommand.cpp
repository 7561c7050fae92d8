// sonvale-cli summarize and topics: a file transcribed on this computer, then a title and
// summary, or the regions its topics span, from a language model on this computer too.

#include "base/Errors.h"
#include "cli/Commands.h"
#include "cli/Options.h"
#include "transcription/LlamaLanguageModel.h"
#include "transcription/TranscriptAI.h"

#include <nlohmann/json.hpp>

#include <cstdio>
#include <memory>
#include <optional>

namespace sonvale::cli {

namespace {

// The file given with --model, else the one installed in the models folder. Throws a
// UserError naming the file when it can't be loaded, or saying why there is none.
std::shared_ptr<const LanguageModel> loadModel(const std::optional<std::string>& file) {
    if (file) {
        checkModelFileExists(*file);
        return std::make_shared<LlamaLanguageModel>(*file);
    }
    if (const auto reason = TranscriptAI::unavailableReason(true, ModelFolder{}))
        throw UserError(*reason);
    return TranscriptAI::installedModel(ModelFolder{});
}

// The file's speech and a model to ask about it, loaded before the slow transcription so
// that a missing or broken model is reported at once; none when no speech was heard.
struct Subject {
    RecognisedSpeech speech;
    std::shared_ptr<const LanguageModel> model;
};

std::optional<Subject> transcribeForModel(const std::string& command,
                                          const SpeechOptions& options) {
    std::shared_ptr<const LanguageModel> model;
    auto speech = recogniseSpeech(command, options.input, options.language,
                                  [&] { model = loadModel(options.model); });
    if (!speech) return std::nullopt;
    return Subject{std::move(*speech), std::move(model)};
}

} // namespace

int summarize(const Arguments& args) {
    const SpeechOptions options =
        parseSpeechOptions(args, "usage: summarize FILE [--model PATH] [--json] [--language ID]");
    const auto subject = transcribeForModel("summarize", options);
    if (!subject) return 1;
    const auto overview = TranscriptAI(subject->model).overview(subject->speech.transcript);
    if (options.json) {
        const nlohmann::ordered_json object{{"title", overview.title},
                                            {"summary", overview.summary}};
        std::printf("%s\n", object.dump(2).c_str());
    } else {
        std::printf("Title: %s\nSummary: %s\n", overview.title.c_str(), overview.summary.c_str());
    }
    return 0;
}

int topics(const Arguments& args) {
    const SpeechOptions options =
        parseSpeechOptions(args, "usage: topics FILE [--model PATH] [--json] [--language ID]");
    const auto subject = transcribeForModel("topics", options);
    if (!subject) return 1;
    const RecognisedSpeech& speech = subject->speech;
    const auto found = TranscriptAI(subject->model).topics(speech.transcript);
    const auto regions = speech.transcript.regions(found, speech.sampleRate, speech.frameCount);
    if (regions.empty()) {
        std::fprintf(stderr, "sonvale-cli topics: The model didn't find distinct topics in this "
                             "transcript.\n");
        return 1;
    }
    auto seconds = [&](int64_t frame) { return double(frame) / speech.sampleRate; };
    if (options.json) {
        auto array = nlohmann::ordered_json::array();
        for (const Marker& region : regions)
            array.push_back({{"name", region.name},
                             {"start", region.start},
                             {"end", *region.end},
                             {"startSeconds", seconds(region.start)},
                             {"endSeconds", seconds(*region.end)}});
        std::printf("%s\n", array.dump(2).c_str());
    } else {
        for (const Marker& region : regions)
            std::printf("%s-%s  %s  (frames %lld-%lld)\n",
                        Transcript::clock(seconds(region.start)).c_str(),
                        Transcript::clock(seconds(*region.end)).c_str(), region.name.c_str(),
                        (long long)region.start, (long long)*region.end);
    }
    return 0;
}

} // namespace sonvale::cli
