#include "cli/Progress.h"

#include "cli/Options.h"

#include <cstdio>
#include <unistd.h>

namespace sonvale::cli {

ProgressLine::ProgressLine(std::string label)
    : label(std::move(label))
    , shown(::isatty(STDERR_FILENO) == 1) {}

ProgressLine::~ProgressLine() { clear(); }

std::function<void(double)> ProgressLine::callback() {
    if (!shown) return {};
    return [this](double fraction) {
        const int percent = int(fraction * 100 + 0.5);
        if (percent == lastPercent) return;
        lastPercent = percent;
        std::fprintf(stderr, "\r%s: %3d%%", label.c_str(), percent);
        std::fflush(stderr);
        drawn = true;
    };
}

void ProgressLine::clear() {
    if (!drawn) return;
    // Carriage return, then erase to the end of the line.
    std::fprintf(stderr, "\r\033[K");
    std::fflush(stderr);
    drawn = false;
    lastPercent = -1;
}

void warnAboutDamage(const std::string& file, const DecodeReport& report, double sampleRate) {
    if (report.isClean()) return;
    std::fflush(stdout);
    std::fprintf(stderr, "sonvale-cli: %s\n", report.summary(file, sampleRate).c_str());
    for (const std::string& line : report.details(sampleRate))
        std::fprintf(stderr, "    %s\n", line.c_str());
}

AudioDataPtr loadWithProgress(const std::string& file) {
    ProgressLine progress("Reading " + file);
    DecodeReport report;
    AudioDataPtr audio;
    try {
        audio = AudioLoader::load(file, progress.callback(), &report);
    } catch (...) {
        rethrowNamingInput(file);
    }
    progress.clear();
    warnAboutDamage(file, report, audio->sampleRate);
    return audio;
}

} // namespace sonvale::cli
