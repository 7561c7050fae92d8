#pragma once

#include <QString>

namespace sonvale {

// A duration as the track list, the time display, the inspector and the marker list show it:
// "m:ss.t", or "h:mm:ss.t" from an hour on. Tenths are cut, not rounded.
QString durationText(double seconds);

} // namespace sonvale
