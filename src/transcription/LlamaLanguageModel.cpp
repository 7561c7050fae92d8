#include "transcription/LlamaLanguageModel.h"

#include "base/Errors.h"
#include "transcription/EngineLog.h"

#include <llama.h>

#include <algorithm>
#include <memory>
#include <thread>
#include <vector>

namespace fs = std::filesystem;

namespace sonvale {

namespace {

int threadCount() { return int(std::clamp(std::thread::hardware_concurrency(), 1u, 8u)); }

struct ContextDeleter {
    void operator()(llama_context* context) const { llama_free(context); }
};
struct SamplerDeleter {
    void operator()(llama_sampler* sampler) const { llama_sampler_free(sampler); }
};

UserError modelFailure(const std::string& what) {
    return UserError("The on-device language model " + what, takeEngineError());
}

} // namespace

bool LlamaLanguageModel::isSupported() {
    return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
}

LlamaLanguageModel::LlamaLanguageModel(const fs::path& file)
    : path(file) {
    if (!isSupported()) throw UserError(unsupportedMessage);
    startEngines();
    auto params = llama_model_default_params();
    model = llama_model_load_from_file(file.c_str(), params);
    if (!model)
        throw UserError("The model file “" + file.filename().string() +
                            "” couldn't be loaded. It may be damaged or of a kind this "
                            "version can't run.",
                        takeEngineError());
}

LlamaLanguageModel::~LlamaLanguageModel() { llama_model_free(model); }

std::optional<int64_t> LlamaLanguageModel::contextTokens() const {
    const int64_t trained = llama_model_n_ctx_train(model);
    if (trained <= 0) return std::nullopt;
    return std::min(trained, largestContext);
}

std::string LlamaLanguageModel::chatText(const std::string& instructions,
                                         const std::string& prompt) const {
    const llama_chat_message messages[] = {{"system", instructions.c_str()},
                                           {"user", prompt.c_str()}};
    // The model's own template where llama.cpp knows it, else the common ChatML form.
    const char* own = llama_model_chat_template(model, nullptr);
    std::vector<char> text(2 * (instructions.size() + prompt.size()) + 256);
    for (const char* form : {own, "chatml"}) {
        if (!form) continue;
        int32_t length =
            llama_chat_apply_template(form, messages, 2, true, text.data(), int32_t(text.size()));
        if (length > int32_t(text.size())) {
            text.resize(size_t(length));
            length = llama_chat_apply_template(form, messages, 2, true, text.data(),
                                               int32_t(text.size()));
        }
        if (length >= 0) return std::string(text.data(), size_t(length));
    }
    throw modelFailure("couldn't format its prompt.");
}

std::string LlamaLanguageModel::respond(const std::string& instructions, const std::string& prompt,
                                        const ResponseFormat& format,
                                        const std::atomic<bool>* cancelled) const {
    const llama_vocab* vocab = llama_model_get_vocab(model);
    const std::string chat = chatText(instructions, prompt + "\n\n" + format.description);

    int32_t count =
        -llama_tokenize(vocab, chat.data(), int32_t(chat.size()), nullptr, 0, true, true);
    std::vector<llama_token> tokens(size_t(std::max(count, 1)));
    count = llama_tokenize(vocab, chat.data(), int32_t(chat.size()), tokens.data(),
                           int32_t(tokens.size()), true, true);
    if (count < 0) throw modelFailure("couldn't read its prompt.");
    tokens.resize(size_t(count));

    auto params = llama_context_default_params();
    params.n_ctx = uint32_t(tokens.size() + size_t(format.maxTokens) + 8);
    params.n_batch = 512;
    params.n_ubatch = 512;
    params.n_threads = params.n_threads_batch = threadCount();
    params.no_perf = true;
    std::unique_ptr<llama_context, ContextDeleter> context(llama_init_from_model(model, params));
    if (!context) throw modelFailure("couldn't start (not enough memory?).");

    std::unique_ptr<llama_sampler, SamplerDeleter> sampler(
        llama_sampler_chain_init(llama_sampler_chain_default_params()));
    llama_sampler* grammar = llama_sampler_init_grammar(vocab, format.grammar.c_str(), "root");
    if (!grammar) throw modelFailure("couldn't take the answer's form.");
    llama_sampler_chain_add(sampler.get(), grammar);
    llama_sampler_chain_add(sampler.get(), llama_sampler_init_greedy());

    auto checkCancelled = [&] {
        if (cancelled && cancelled->load(std::memory_order_relaxed)) throw ResponseCancelled();
    };
    // A prompt longer than a batch goes in batch by batch.
    for (size_t at = 0; at < tokens.size(); at += params.n_batch) {
        checkCancelled();
        const auto n = int32_t(std::min<size_t>(params.n_batch, tokens.size() - at));
        if (llama_decode(context.get(), llama_batch_get_one(tokens.data() + at, n)) != 0)
            throw modelFailure("failed while reading the transcript.");
    }

    std::string answer;
    char piece[256];
    for (int produced = 0; produced < format.maxTokens; ++produced) {
        checkCancelled();
        llama_token token = llama_sampler_sample(sampler.get(), context.get(), -1);
        if (llama_vocab_is_eog(vocab, token)) return answer;
        const int32_t length = llama_token_to_piece(vocab, token, piece, sizeof piece, 0, false);
        if (length > 0) answer.append(piece, size_t(length));
        if (llama_decode(context.get(), llama_batch_get_one(&token, 1)) != 0)
            throw modelFailure("failed while answering.");
    }
    throw UserError("The on-device language model's answer ran too long.", answer);
}

} // namespace sonvale
