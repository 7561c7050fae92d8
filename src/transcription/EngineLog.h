#pragma once

#include <string>

namespace sonvale {

// llama.cpp, whisper.cpp and their shared ggml print to stderr by default. startEngines()
// silences them once for the process, keeping the last error they report so that a failure
// can show it in its details.
void startEngines();
// The last error an engine reported since the previous call, or "".
std::string takeEngineError();

} // namespace sonvale
