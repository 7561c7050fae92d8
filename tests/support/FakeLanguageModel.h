#pragma once

#include "base/Errors.h"
#include "transcription/LanguageModel.h"

#include <deque>
#include <string>
#include <vector>

namespace sonvale::test {

// A language model that gives the answers it is handed, in turn, and keeps each request.
struct FakeLanguageModel final : LanguageModel {
    struct Request {
        std::string instructions, prompt, grammar;
    };
    std::optional<int64_t> context;
    mutable std::deque<std::string> answers;
    mutable std::vector<Request> requests;
    std::string failure; // respond() throws it when set

    std::optional<int64_t> contextTokens() const override { return context; }
    std::string respond(const std::string& instructions, const std::string& prompt,
                        const ResponseFormat& format, const std::atomic<bool>*) const override {
        requests.push_back({instructions, prompt, format.grammar});
        if (!failure.empty()) throw UserError(failure);
        if (answers.empty()) return "{}";
        auto answer = answers.front();
        answers.pop_front();
        return answer;
    }
};

} // namespace sonvale::test
