#pragma once

#include "audio/AudioLoader.h"

#include <functional>
#include <string>

namespace sonvale::cli {

// A percentage shown on stderr while work runs, only when stderr is a terminal, so that
// scripts and pipes see nothing but results and errors.
class ProgressLine {
public:
    explicit ProgressLine(std::string label);
    ~ProgressLine();
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;

    // A callback that redraws the line for a fraction from 0 to 1; empty when not shown.
    std::function<void(double)> callback();
    // Removes the line from the terminal.
    void clear();

private:
    std::string label;
    bool shown;
    bool drawn = false;
    int lastPercent = -1;
};

// Says on stderr what a file lost in decoding (its damaged stretches, an early end, replaced
// samples), once, with the details indented below; nothing for an undamaged file. The
// command goes on: the file did open.
void warnAboutDamage(const std::string& file, const DecodeReport& report, double sampleRate);

// Loads a whole file with a progress line, warning about damage; an error names the file.
AudioDataPtr loadWithProgress(const std::string& file);

} // namespace sonvale::cli
