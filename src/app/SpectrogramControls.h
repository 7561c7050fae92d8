#pragma once

#include "app/SignalConnections.h"

#include <QObject>

class QCheckBox;
class QComboBox;

namespace sonvale {

class Preferences;

// The spectrogram's settings as controls that write the preferences and follow them: the
// settings window and the view's own popover both show them. The widgets have no parent
// until a layout takes them.
class SpectrogramControls : public QObject {
    Q_OBJECT
public:
    SpectrogramControls(Preferences& preferences, QObject* parent);

    QComboBox* fftSize = nullptr;      // "spectrogramFFTSize"
    QComboBox* colorMap = nullptr;     // "spectrogramColorMap"
    QCheckBox* logFrequency = nullptr; // "spectrogramLogFrequency"

    // Shows the preferences' values without writing anything back.
    void refresh();

private:
    Preferences& preferences;
    SignalConnections connections;
};

} // namespace sonvale
