#include "transcription/TranscriptAI.h"

#include "base/Errors.h"
#include "transcription/LlamaLanguageModel.h"

#include <nlohmann/json.hpp>

namespace sonvale {

namespace {

// Strings are bounded so that even a model that never closes one ends within a known
// number of tokens; control characters are left out, escapes allowed.
const char* const grammarStrings = R"(
char ::= [^"\\\x00-\x1f] | "\\" ["\\/bnrt]
ws ::= [ \t\n]{0,3}
)";

std::string joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const auto& line : lines) {
        if (!text.empty()) text += '\n';
        text += line;
    }
    return text;
}

nlohmann::json parsed(const std::string& answer) {
    try {
        auto json = nlohmann::json::parse(answer);
        if (json.is_object()) return json;
    } catch (const nlohmann::json::exception&) {
    }
    throw UserError("The model's answer wasn't in the expected form.", answer);
}

std::string stringMember(const nlohmann::json& object, const char* name,
                         const std::string& answer) {
    const auto it = object.find(name);
    if (it == object.end() || !it->is_string())
        throw UserError("The model's answer wasn't in the expected form.", answer);
    return it->get<std::string>();
}

} // namespace

const std::string TranscriptAI::instructions =
    "You help organise audio recordings using their transcripts. Transcript lines look like "
    "\"[number] (time) text\". Base everything only on what is said; don't invent details.";

const ResponseFormat TranscriptAI::overviewFormat{
    std::string(R"(root ::= "{" ws "\"title\":" ws title "," ws "\"summary\":" ws summary ws "}"
title ::= "\"" char{1,80} "\""
summary ::= "\"" char{1,400} "\"")") +
        grammarStrings,
    "Answer with JSON in this form:\n"
    "{\"title\": string, \"summary\": string}\n"
    "title: A short, specific title for the recording, 2 to 6 words, no quotes\n"
    "summary: One or two sentences summarising what is said",
    600};

const ResponseFormat TranscriptAI::topicsFormat{
    std::string(
        R"(root ::= "{" ws "\"topics\":" ws "[" ws (topic ("," ws topic){0,39})? ws "]" ws "}"
topic ::= "{" ws "\"title\":" ws title "," ws "\"line\":" ws line ws "}"
title ::= "\"" char{1,60} "\""
line ::= "0" | [1-9] [0-9]{0,5})") +
        grammarStrings,
    "Answer with JSON in this form:\n"
    "{\"topics\": [{\"title\": string, \"line\": integer}, ...]}\n"
    "topics: Where each topic starts, in order. Use few, meaningful topics.\n"
    "title: A short title for the topic, 1 to 5 words\n"
    "line: The [number] of the transcript line where the topic starts",
    3600};

TranscriptAI::TranscriptAI(std::shared_ptr<const LanguageModel> model)
    : model(std::move(model)) {}

std::optional<std::string> TranscriptAI::unavailableReason(bool showsAIFeatures,
                                                           const ModelFolder& folder) {
    if (!showsAIFeatures) return "Turn on AI features in Settings to use this.";
    if (!LlamaLanguageModel::isSupported()) return LlamaLanguageModel::unsupportedMessage;
    if (!folder.first(ModelFolder::Kind::language)) return "The on-device model isn't installed.";
    return std::nullopt;
}

std::shared_ptr<const LanguageModel> TranscriptAI::installedModel(const ModelFolder& folder) {
    const auto file = folder.first(ModelFolder::Kind::language);
    if (!file) throw UserError("The on-device model isn't installed.");
    return std::make_shared<LlamaLanguageModel>(*file);
}

std::string TranscriptAI::overviewPrompt(const std::vector<std::string>& lines) {
    return "Give this recording a title and a short summary.\n\nTranscript:\n" + joined(lines);
}

std::string TranscriptAI::topicsPrompt(size_t firstLine, const std::vector<std::string>& lines) {
    return "Split this part of the transcript into topics. For each topic give a short title "
           "and the [number] of the line where it starts. The first topic starts at line " +
           std::to_string(firstLine) + ".\n\nTranscript:\n" + joined(lines);
}

TranscriptAI::Overview TranscriptAI::parseOverview(const std::string& answer) {
    const auto json = parsed(answer);
    return {stringMember(json, "title", answer), stringMember(json, "summary", answer)};
}

std::vector<TopicStart> TranscriptAI::parseTopics(const std::string& answer) {
    const auto json = parsed(answer);
    const auto list = json.find("topics");
    if (list == json.end() || !list->is_array())
        throw UserError("The model's answer wasn't in the expected form.", answer);
    std::vector<TopicStart> topics;
    for (const auto& topic : *list) {
        const auto line = topic.is_object() ? topic.find("line") : topic.end();
        if (line == topic.end() || !line->is_number_integer())
            throw UserError("The model's answer wasn't in the expected form.", answer);
        topics.push_back({stringMember(topic, "title", answer), line->get<int64_t>()});
    }
    return topics;
}

TranscriptAI::Overview TranscriptAI::overview(const Transcript& transcript,
                                              const std::atomic<bool>* cancelled) const {
    const auto chunks = transcript.chunks(transcriptCharacterBudget(model->contextTokens()));
    if (chunks.empty()) throw UserError("The transcript has no lines.");
    const auto answer =
        model->respond(instructions, overviewPrompt(transcript.numberedLines(chunks.front())),
                       overviewFormat, cancelled);
    return parseOverview(answer);
}

std::vector<TopicStart> TranscriptAI::topics(const Transcript& transcript,
                                             const std::atomic<bool>* cancelled) const {
    std::vector<TopicStart> all;
    for (const auto& chunk : transcript.chunks(transcriptCharacterBudget(model->contextTokens()))) {
        const auto answer =
            model->respond(instructions, topicsPrompt(chunk.lower, transcript.numberedLines(chunk)),
                           topicsFormat, cancelled);
        for (auto& topic : parseTopics(answer))
            all.push_back(std::move(topic));
    }
    return all;
}

} // namespace sonvale
