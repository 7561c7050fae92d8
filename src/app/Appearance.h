#pragma once

class QPalette;

namespace sonvale {

class Preferences;

// The whole program's colours follow the waveform's theme: a dark theme gives every window the
// dark palette and a light one the light palette, so the canvas never sits in a frame of the
// other brightness. Following the system's appearance keeps the desktop's own palette (and the
// canvas takes the theme chosen for it). Main thread only.
namespace appearance {

// Sets the application palette the preferences ask for.
void apply(const Preferences& preferences);
// The palettes used for a theme that is not the system's brightness.
QPalette lightPalette();
QPalette darkPalette();

} // namespace appearance

} // namespace sonvale
