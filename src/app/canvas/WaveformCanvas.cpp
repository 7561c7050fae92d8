#include "app/canvas/WaveformCanvas.h"

#include "editor/EditorModel.h"

#include <QPainter>

namespace sonvale {

WaveformCanvas::WaveformCanvas(EditorModel& model, QWidget* parent)
    : QWidget(parent), model(model) {
    setMinimumSize(320, 160);
}

WaveformCanvas::~WaveformCanvas() = default;

void WaveformCanvas::zoomIn() {}
void WaveformCanvas::zoomOut() {}
void WaveformCanvas::zoomToSelection() {}
void WaveformCanvas::zoomToFit() {}
void WaveformCanvas::verticalZoomIn() {}
void WaveformCanvas::verticalZoomOut() {}

void WaveformCanvas::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.fillRect(rect(), palette().base());
}

} // namespace sonvale
