#pragma once

#include <QString>
#include <optional>

namespace sonvale {

// A duration as the track list, the time display, the inspector and the marker list show it:
// "m:ss.t", or "h:mm:ss.t" from an hour on. Tenths are cut, not rounded.
QString durationText(double seconds);

// A time to the millisecond as the selection fields show it, in the ruler's form: "m:ss.mmm",
// or "h:mm:ss.mmm" from an hour on. Rounded to the nearest millisecond.
QString preciseTimeText(double seconds);
// Reads a typed time: "h:mm:ss.mmm", "m:ss.mmm" or plain seconds ("62.5"), a fraction
// optional; nothing for anything else, negative times included.
std::optional<double> parseTimeText(const QString& text);

} // namespace sonvale
