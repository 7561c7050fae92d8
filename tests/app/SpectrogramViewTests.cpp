// The spectrogram view in the whole window: switching with the menu, the keys and the canvas's
// toggle, a sweep drawn as a rising line, its settings popover, and the memory it takes.

#include "app/MultitrackHarness.h"
#include "app/canvas/WaveformCanvas.h"
#include "support/AudioFiles.h"

#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QFrame>
#include <QLabel>
#include <QStatusBar>
#include <QToolButton>
#include <QtTest>

using namespace sonvale;

class SpectrogramViewTests : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void aSweepShowsAsARisingLineAndTheViewSwitchesBack() {
        test::TemporaryFolder folder;
        const auto sweep = folder / "sweep.wav";
        QCOMPARE(std::system(("sox -n -r 48000 -c 2 '" + sweep.string() +
                              "' synth 6 sine 100-15000 gain -6")
                                 .c_str()),
                 0);
        test::MultitrackHarness h;
        h.window.resize(1366, 720);
        h.window.show();
        auto opened = h.model.open({sweep});
        QVERIFY(opened.size() == 1 && QTest::qWaitFor([&] { return opened[0]->isReady(); }, 10000));
        const auto track = opened[0];
        h.model.setSelectedTrackIDs({track->id()});
        track->setSelection(FrameRange{2 * 48000, 3 * 48000});

        auto* canvas = h.window.findChild<WaveformCanvas*>("waveformCanvas");
        auto* toggle = canvas->findChild<QToolButton*>("trackViewToggle");
        auto* settingsButton = canvas->findChild<QToolButton*>("spectrogramSettingsButton");
        QAction* waveform = h.window.action(ActionID::showWaveform);
        QAction* spectrogram = h.window.action(ActionID::showSpectrogram);
        QCOMPARE(waveform->shortcut(), QKeySequence("Ctrl+1"));
        QCOMPARE(spectrogram->shortcut(), QKeySequence("Ctrl+2"));
        QVERIFY(waveform->isChecked() && !toggle->isChecked() && !settingsButton->isVisible());

        spectrogram->trigger();
        QVERIFY(spectrogram->isChecked() && toggle->isChecked() && settingsButton->isVisible());
        QVERIFY(QTest::qWaitFor([&] { return h.model.hasCurrentSpectrogram(*track); }, 10000));
        // The memory account counts it.
        h.window.findChild<QToolButton*>("memoryButton")->click();
        auto* details = h.window.findChild<QFrame*>("memoryDetails");
        QVERIFY(details);
        QStringList labels;
        for (auto* label : details->findChildren<QLabel*>())
            labels << label->text();
        QVERIFY2(labels.contains("Spectrograms"), qPrintable(labels.join(", ")));
        details->close();

        // The picture: along the wave area, the brightest row climbs (the sweep rises on the
        // logarithmic axis as a straight line), and the selection brightens its frames.
        const QImage shot = test::saveScreenshots(h.window, "spectrogram");
        QVERIFY(!shot.isNull());
        // Rows of the brightest pixel in columns of a picture of the canvas drawn at `scale`
        // from `origin` (the canvas's top left in the picture), in canvas points.
        auto brightestRows = [&](const QImage& picture, QPoint origin, int scale) {
            const QRect area = canvas->waveArea();
            const double end = canvas->xOfFrame(6 * 48000.0);
            std::vector<int> rows;
            for (double t : {0.1, 0.3, 0.7, 0.9}) {
                const int x = scale * (origin.x() + int(area.left() + t * (end - area.left())));
                int best = 0, bestValue = -1;
                for (int y = scale * (origin.y() + area.top());
                     y < scale * (origin.y() + area.bottom() + 1); ++y) {
                    const QColor c = picture.pixelColor(x, y);
                    if (c.red() + c.green() + c.blue() > bestValue)
                        bestValue = c.red() + c.green() + c.blue(), best = y;
                }
                rows.push_back(best / scale - origin.y());
            }
            return rows;
        };
        const QPoint inWindow = canvas->mapTo(&h.window, QPoint(0, 0));
        const std::vector<int> rows = brightestRows(shot, inWindow, 1);
        for (size_t i = 1; i < rows.size(); ++i)
            QVERIFY2(rows[i] < rows[i - 1] - 10,
                     qPrintable(QString("rows %1 then %2").arg(rows[i - 1]).arg(rows[i])));
        // A straight line: equal steps in time climb equal steps in height.
        QVERIFY(std::abs((rows[0] - rows[1]) - (rows[2] - rows[3])) < 8);
        // At 2x the picture is drawn at device resolution: the same line.
        QImage sharp(canvas->size() * 2, QImage::Format_ARGB32);
        sharp.setDevicePixelRatio(2);
        canvas->render(&sharp);
        const std::vector<int> sharpRows = brightestRows(sharp, QPoint(), 2);
        for (size_t i = 0; i < rows.size(); ++i)
            QVERIFY2(std::abs(sharpRows[i] - rows[i]) <= 1,
                     qPrintable(QString("2x row %1, 1x row %2").arg(sharpRows[i]).arg(rows[i])));

        // The popover changes the colours and the axis for every view of it.
        settingsButton->click();
        auto* popover = canvas->findChild<QFrame*>("spectrogramPopover");
        QVERIFY(popover && popover->isVisible());
        auto* map = popover->findChild<QComboBox*>("spectrogramColorMap");
        map->setCurrentIndex(map->findData(int(SpectrogramColorMap::grayscale)));
        popover->findChild<QCheckBox*>("spectrogramLogFrequency")->setChecked(false);
        QCOMPARE(h.preferences.spectrogramSettings().colorMap, SpectrogramColorMap::grayscale);
        QVERIFY(!h.preferences.spectrogramSettings().logFrequency);
        popover->hide();
        const QImage gray = test::saveScreenshots(h.window, "spectrogram-linear-grayscale");
        const std::vector<int> grayRows = brightestRows(gray, inWindow, 1);
        const QColor tone =
            gray.pixelColor(inWindow + QPoint(canvas->waveArea().left() + 100, grayRows[1]));
        QCOMPARE(tone.red(), tone.blue());
        // At a tenth of the way the sweep is still low: near the bottom of a linear 24 kHz axis.
        QVERIFY(grayRows[0] > canvas->waveArea().bottom() - 20);

        // Ctrl+1 and the toggle go back and forth.
        QTest::keyClick(&h.window, Qt::Key_1, Qt::ControlModifier);
        QVERIFY(waveform->isChecked() && !toggle->isChecked() && !settingsButton->isVisible());
        toggle->click();
        QVERIFY(spectrogram->isChecked());
        QTest::keyClick(&h.window, Qt::Key_1, Qt::ControlModifier);
        QCOMPARE(h.model.trackView(), EditorModel::TrackView::waveform);
    }
};

QTEST_MAIN(SpectrogramViewTests)
#include "SpectrogramViewTests.moc"
