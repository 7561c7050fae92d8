#pragma once

#include <string>
#include <vector>

namespace sonvale::cli {

using Arguments = std::vector<std::string>;

// A command-line error: the one-line message is printed and the tool exits with status 1.
struct UsageError {
    std::string message;
};

// Each command takes the arguments after its name and returns the exit status.
int info(const Arguments& args);
int exportCommand(const Arguments& args);
int effects(const Arguments& args);
int apply(const Arguments& args);
int loudness(const Arguments& args);
int normalize(const Arguments& args);
int trimSilence(const Arguments& args);
int play(const Arguments& args);
// Reports its own wrong arguments with status 2; a bundle that can't be read gives 1.
int session(const Arguments& args);
// Reports its own wrong arguments with status 2; other failures give 1.
int mixdown(const Arguments& args);
int record(const Arguments& args);
int devices(const Arguments& args);
int spectrogram(const Arguments& args);
int transcribe(const Arguments& args);

} // namespace sonvale::cli
