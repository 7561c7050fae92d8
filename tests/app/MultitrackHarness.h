#pragma once

#include "app/MainWindow.h"
#include "app/QtExecutor.h"
#include "editor/EditorModel.h"
#include "engine/PlaybackEngine.h"
#include "persistence/Preferences.h"
#include "support/PlaybackTestAudio.h"

#include <QImage>
#include <QString>
#include <initializer_list>

namespace sonvale::test {

// An engine that plays into a hand-driven output; `output` is set to it.
std::unique_ptr<PlaybackEngine> manualEngine(ManualOutput*& output);

// The whole window over a fresh model, for tests of the multitrack page. What plays goes to
// `output`, which renders a buffer whenever the test pulls one.
struct MultitrackHarness {
    QtExecutor executor;
    Preferences preferences;
    ManualOutput* output = nullptr;
    EditorModel model{executor, preferences, manualEngine(output)};
    MainWindow window{model};
    Timeline& timeline = *model.timeline();

    ~MultitrackHarness() { executor.waitForBackground(); }

    // Opens each fixture and places it on the timeline with Add to Timeline.
    bool addTracks(std::initializer_list<const char*> names);
};

// Saves the window as build/dev/screenshots/NAME-1x.png and NAME-2x.png, for a person to look
// at; returns the 1x picture, or a null image when a file couldn't be written.
QImage saveScreenshots(QWidget& window, const QString& name);

} // namespace sonvale::test
