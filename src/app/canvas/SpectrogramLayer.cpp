#include "app/canvas/SpectrogramLayer.h"

#include <QPainter>
#include <cmath>

namespace sonvale {

namespace {

QColor floorColour(const SpectrogramSettings& settings) {
    const SpectrogramColor c = color(settings.colorMap, 0);
    return QColor::fromRgbF(c.red, c.green, c.blue);
}

} // namespace

void SpectrogramLayer::drawEmpty(QPainter& painter, QRect area,
                                 const SpectrogramSettings& settings) {
    painter.fillRect(area, floorColour(settings));
}

void SpectrogramLayer::draw(QPainter& painter, QRect area, const Viewport& view,
                            const Spectrogram& spectrogram, int64_t frameCount,
                            const SpectrogramSettings& settings, double dpr) {
    const QSize pixels(int(std::ceil(area.width() * dpr)), int(std::ceil(area.height() * dpr)));
    if (pixels.isEmpty()) return;
    const Key key{&spectrogram, view, frameCount, settings, pixels};
    if (!drawn || !(*drawn == key)) {
        if (image.size() != pixels) image = QImage(pixels, QImage::Format_RGB32);
        SpectrogramPicture picture;
        picture.startFrame = view.start;
        picture.framesPerColumn = view.samplesPerPoint / dpr;
        picture.frameCount = frameCount;
        picture.colorMap = settings.colorMap;
        picture.logFrequency = settings.logFrequency;
        picture.outside = floorColour(settings).rgb();
        drawSpectrogram(spectrogram, picture, reinterpret_cast<uint32_t*>(image.bits()),
                        pixels.width(), pixels.height(), image.bytesPerLine() / 4);
        drawn = key;
    }
    image.setDevicePixelRatio(dpr);
    painter.drawImage(area.topLeft(), image);
}

std::vector<SpectrogramLayer::Tick> SpectrogramLayer::scaleTicks(const FrequencyAxis& axis,
                                                                 double height, double spacing) {
    std::vector<double> candidates;
    if (axis.logarithmic) {
        for (double decade = 10; decade <= axis.nyquist; decade *= 10)
            for (double step : {1.0, 2.0, 5.0})
                candidates.push_back(decade * step);
    } else {
        // The smallest round step that keeps labels `spacing` apart.
        const double perPoint = axis.nyquist / std::max(height, 1.0);
        double step = 100;
        for (double decade = 100;; decade *= 10) {
            auto fits = [&](double s) { return s / perPoint >= spacing; };
            if (fits(decade)) {
                step = decade;
                break;
            }
            if (fits(2 * decade)) {
                step = 2 * decade;
                break;
            }
            if (fits(5 * decade)) {
                step = 5 * decade;
                break;
            }
        }
        for (double f = step; f < axis.nyquist; f += step)
            candidates.push_back(f);
    }
    std::vector<Tick> ticks;
    double lastY = std::numeric_limits<double>::infinity();
    for (double frequency : candidates) {
        const double fraction = axis.fractionOf(frequency);
        if (!(fraction > 0) || fraction >= 1) continue;
        const double y = (1 - fraction) * height;
        // Too close to the one below, or to the top edge where the label would be cut.
        if (lastY - y < spacing || y < spacing / 2) continue;
        QString label;
        if (frequency >= 1000)
            label = QString::number(frequency / 1000, 'g', 3) + "k";
        else
            label = QString::number(frequency, 'g', 3);
        ticks.push_back({frequency, y, label});
        lastY = y;
    }
    return ticks;
}

} // namespace sonvale
