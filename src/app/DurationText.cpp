#include "app/DurationText.h"

#include "audio/AudioLoader.h"

#include <QLocale>
#include <QRegularExpression>
#include <cmath>

namespace sonvale {

QString durationText(double seconds) { return QString::fromStdString(durationString(seconds)); }

QString preciseTimeText(double seconds) {
    const auto millis = int64_t(std::llround(std::max(0.0, seconds) * 1000));
    const int64_t hours = millis / 3'600'000;
    const int64_t minutes = millis / 60'000 % 60;
    const QString rest = QString("%1.%2")
                             .arg(millis / 1000 % 60, 2, 10, QChar('0'))
                             .arg(millis % 1000, 3, 10, QChar('0'));
    if (hours > 0) return QString("%1:%2:%3").arg(hours).arg(minutes, 2, 10, QChar('0')).arg(rest);
    return QString("%1:%2").arg(minutes).arg(rest);
}

std::optional<double> parseTimeText(const QString& text) {
    // Hours and minutes are whole numbers; seconds after a colon stay below 60.
    static const QRegularExpression form(
        R"(^\s*(?:(?:(\d+):)?(\d+):(?=\d{1,2}(?:[.,]\d*)?\s*$))?(\d+(?:[.,]\d*)?|[.,]\d+)\s*$)");
    const auto match = form.match(text);
    if (!match.hasMatch()) return std::nullopt;
    QString secondsText = match.captured(3);
    secondsText.replace(',', '.');
    if (secondsText.startsWith('.')) secondsText.prepend('0');
    if (secondsText.endsWith('.')) secondsText.append('0');
    bool ok = false;
    const double seconds = QLocale::c().toDouble(secondsText, &ok);
    if (!ok || !std::isfinite(seconds)) return std::nullopt;
    const bool withMinutes = match.hasCaptured(2) && !match.captured(2).isEmpty();
    if (withMinutes && seconds >= 60) return std::nullopt;
    const double hours = match.captured(1).isEmpty() ? 0 : match.captured(1).toDouble();
    const double minutes = withMinutes ? match.captured(2).toDouble() : 0;
    return hours * 3600 + minutes * 60 + seconds;
}

} // namespace sonvale
