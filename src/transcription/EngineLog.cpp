#include "transcription/EngineLog.h"

#include <llama.h>
#include <whisper.h>

#include <mutex>
#include <utility>

namespace sonvale {

namespace {

std::mutex logMutex;
std::string lastEngineError;

void quietLog(ggml_log_level level, const char* text, void*) {
    if (level != GGML_LOG_LEVEL_ERROR || !text) return;
    std::lock_guard lock(logMutex);
    lastEngineError = text;
    while (!lastEngineError.empty() && lastEngineError.back() == '\n')
        lastEngineError.pop_back();
}

} // namespace

void startEngines() {
    static std::once_flag once;
    std::call_once(once, [] {
        llama_log_set(quietLog, nullptr);
        whisper_log_set(quietLog, nullptr);
        llama_backend_init();
    });
}

std::string takeEngineError() {
    std::lock_guard lock(logMutex);
    return std::exchange(lastEngineError, {});
}

} // namespace sonvale
