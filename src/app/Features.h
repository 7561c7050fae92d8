#pragma once

// The parts of the program still being built. Their settings and commands stay out of the
// window until they work, so nobody is offered something that does nothing.
namespace sonvale::features {

inline constexpr bool recording = true;
inline constexpr bool spectrogram = true;
inline constexpr bool transcription = true;

} // namespace sonvale::features
