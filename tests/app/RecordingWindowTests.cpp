// Recording from the window, through the private sound server's input (the monitor of its
// null sink, into which the test plays a tone).

#include "app/LevelMeterWidget.h"
#include "app/MultitrackHarness.h"
#include "support/SoundServer.h"

#include <QAction>
#include <QLabel>
#include <QTemporaryDir>
#include <QToolButton>
#include <QtTest>

using namespace sonvale;

class RecordingWindowTests : public QObject {
    Q_OBJECT
private Q_SLOTS:
    // Record, then stop, with the button and with Ctrl+R: the track grows while the clock
    // counts and the meter shows the input; then the file opens in its place.
    void recordsIntoANewTrackFromTheTransport() {
        if (auto reason = test::useSoundServer()) QSKIP(reason->c_str());
        PlaybackEngine tone;
        auto sine = test::makeSine(48000, 2, 48000, 1000, 0.5f);
        tone.prepare(AudioDataContent::make(sine), std::make_shared<GainBox>(1.0f))
            ->start({0, sine->frameCount}, 0, true);
        tone.start();

        test::MultitrackHarness h;
        QTemporaryDir folder;
        h.preferences.setRecordingsFolderPath(folder.path().toStdString());
        h.window.resize(1200, 720);
        h.window.show();
        auto* button = h.window.findChild<QToolButton*>("recordButton");
        QAction* action = h.window.action(ActionID::record);
        QVERIFY(button && action && button->isVisible());
        QCOMPARE(action->shortcut(), QKeySequence("Ctrl+R"));
        QCOMPARE(button->toolTip(), QString(EditorModel::recordToolTip));

        button->click();
        QVERIFY2(h.model.isRecording(),
                 h.model.alert() ? h.model.alert()->message.c_str() : "not recording");
        QCOMPARE(button->toolTip(), QString(EditorModel::stopRecordingToolTip));
        QCOMPARE(action->text(), QString("Stop Recording"));
        const auto track = h.model.activeTrack();
        QVERIFY(track && track->liveAudio());
        QVERIFY(QTest::qWaitFor([&] { return track->liveAudio()->duration() > 1.5; }, 10000));
        auto* clock = h.window.findChild<QLabel*>("timeDisplay");
        QVERIFY(clock->text().startsWith("0:01"));
        auto* meter = h.window.findChild<LevelMeterWidget*>("outputMeter");
        QCOMPARE(meter->toolTip().left(11), QString("Input level"));
        QVERIFY(meter->ballistics.levels.size() == 2 && meter->ballistics.levels[0].peakDB > -12);
        test::saveScreenshots(h.window, "recording");

        action->trigger();
        QVERIFY(!h.model.isRecording());
        QCOMPARE(button->toolTip(), QString(EditorModel::recordToolTip));
        QVERIFY(QTest::qWaitFor([&] { return track->isReady(); }, 10000));
        QVERIFY(track->audio()->duration() > 1.5);
        QVERIFY(!h.model.alert());
        tone.stop();
    }
};

QTEST_MAIN(RecordingWindowTests)
#include "RecordingWindowTests.moc"
