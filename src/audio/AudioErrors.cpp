#include "audio/AudioErrors.h"

#include <cstdio>

namespace sonvale {

AudioLoaderError::AudioLoaderError(Code code)
    : UserError(description(code))
    , errorCode(code) {}

const char* AudioLoaderError::description(Code code) {
    switch (code) {
    case Code::empty: return "The file contains no audio.";
    case Code::outOfMemory: return "Not enough memory to decode the file.";
    }
    return "";
}

namespace {
// printf's %g, as the message shows rates: 44.1, 48, 96.
std::string formatG(double value) {
    char text[64];
    std::snprintf(text, sizeof text, "%g", value);
    return text;
}
} // namespace

EditError EditError::sampleRateMismatch(double copiedRate, double trackRate) {
    return EditError(Code::sampleRateMismatch, "The copied audio is " + formatG(copiedRate / 1000) +
                                                   " kHz but this track is " +
                                                   formatG(trackRate / 1000) + " kHz.");
}

EditError EditError::wouldRemoveEverything() {
    return EditError(Code::wouldRemoveEverything,
                     "A track can't be left empty. Remove it from the list instead.");
}

} // namespace sonvale
