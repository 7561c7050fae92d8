#pragma once

#include <QWidget>

namespace sonvale {

class EditorModel;

// Draws the active track of the editor and turns mouse, wheel and keys on it into calls on
// the model (selection, cursor, markers, zoom and scroll of the track's viewport).
// Main thread only.
class WaveformCanvas : public QWidget {
    Q_OBJECT
public:
    explicit WaveformCanvas(EditorModel& model, QWidget* parent = nullptr);
    ~WaveformCanvas() override;

public Q_SLOTS:
    void zoomIn();
    void zoomOut();
    void zoomToSelection();
    void zoomToFit();
    void verticalZoomIn();
    void verticalZoomOut();

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    EditorModel& model;
};

} // namespace sonvale
