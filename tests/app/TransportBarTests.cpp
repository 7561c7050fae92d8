#include "app/Appearance.h"
#include "app/DurationText.h"
#include "app/LevelMeterWidget.h"
#include "app/MultitrackHarness.h"
#include "app/TrackList.h"

#include <QAction>
#include <QApplication>
#include <QLineEdit>
#include <QListWidget>
#include <QPalette>
#include <QStyleFactory>
#include <QToolButton>
#include <QToolTip>
#include <QtTest>

using namespace sonvale;

namespace {

struct Harness : test::MultitrackHarness {
    AudioTrackPtr open(const char* name) {
        auto opened = model.open({(QString(SONVALE_FIXTURE_DIR) + "/" + name).toStdString()});
        if (opened.size() != 1 || !QTest::qWaitFor([&] { return opened[0]->isReady(); }, 10000))
            return nullptr;
        return opened[0];
    }
    template <typename Widget = QToolButton> Widget* find(const char* name) {
        auto* found = window.findChild<Widget*>(name);
        if (!found) qFatal("no child named %s", name);
        return found;
    }
    // Lets playback run on by `seconds` of output.
    void hear(double seconds) {
        for (double t = 0.1; t <= seconds + 1e-9; t += 0.1) {
            output->clock = hostTimeFromSeconds(clock += 0.1);
            output->pull(4800, output->clock);
        }
    }
    // The cursor of what the transport acts on: the timeline while it shows, else the track.
    int64_t cursor(const AudioTrackPtr& track) {
        return model.isShowingTimeline() ? timeline.cursor() : track->cursor();
    }
    double clock = 1;
};

} // namespace

class TransportBarTests : public QObject {
    Q_OBJECT
private Q_SLOTS:
    // Stop puts the cursor back where play started; Pause leaves it where playback got to and
    // play carries on from there. On a track and on the timeline alike.
    void stopGoesBackAndPauseStays() {
        for (const bool onTimeline : {false, true}) {
            Harness h;
            auto track = h.open("stereo-s16.wav");
            QVERIFY(track);
            if (onTimeline) {
                h.window.action(ActionID::addToTimeline)->trigger();
                QVERIFY(h.model.isShowingTimeline());
            }
            const int64_t start = int64_t(track->sampleRate() / 2);
            if (onTimeline)
                h.timeline.setCursor(start);
            else
                track->setCursor(start);
            auto* play = h.find("playButton");
            play->click();
            QVERIFY(h.model.isPlaying());
            h.hear(0.8);
            h.find("stopButton")->click();
            QVERIFY(!h.model.isPlaying());
            QCOMPARE(h.cursor(track), start);

            play->click();
            h.hear(0.8);
            const int64_t heard =
                onTimeline ? *h.model.timelinePlayhead() : h.model.playheadPosition();
            QVERIFY2(heard > start, qPrintable(QString::number(heard)));
            QCOMPARE(play->toolTip(), QString("Pause (P)"));
            play->click();
            QVERIFY(!h.model.isPlaying());
            QCOMPARE(h.cursor(track), heard);
            QCOMPARE(play->toolTip(), QString("Play (Space)"));

            h.find("goToEndButton")->click();
            QVERIFY(h.cursor(track) > heard);
            h.find("goToStartButton")->click();
            QCOMPARE(h.cursor(track), int64_t(0));
        }
    }

    // Pausing inside a playing selection resumes there rather than at the selection's start.
    void pauseInsideASelectionResumesThere() {
        Harness h;
        auto track = h.open("stereo-s16.wav");
        QVERIFY(track);
        track->setSelection(FrameRange{1000, track->frameCount() - 1000});
        h.window.action(ActionID::play)->trigger();
        h.hear(0.5);
        h.window.action(ActionID::pause)->trigger();
        const int64_t paused = track->cursor();
        QVERIFY(paused > 1000);
        h.window.action(ActionID::play)->trigger();
        QCOMPARE(h.model.playheadPosition(), paused);
        h.window.action(ActionID::stopAndReturn)->trigger();
        QCOMPARE(track->cursor(), paused);
    }

    void timesAreReadInTheRulersForm() {
        const std::pair<const char*, std::optional<double>> cases[] = {
            {"1:02.500", 62.5}, {"62.5", 62.5},  {" 0:00:03 ", 3.0}, {"1:00:00.25", 3600.25},
            {".5", 0.5},        {"2,5", 2.5},    {"1:75", {}},       {"-1", {}},
            {"", {}},           {"1:2:3:4", {}}, {"abc", {}},        {"1:02.5x", {}}};
        for (const auto& [text, seconds] : cases)
            QVERIFY2(parseTimeText(text) == seconds, text);
        QCOMPARE(preciseTimeText(62.5), QString("1:02.500"));
        QCOMPARE(preciseTimeText(3723.0004), QString("1:02:03.000"));
    }

    // Typing into the fields sets the selection as a drag would; times beyond the track are
    // kept to it, and text that isn't a time is refused with a hint.
    void typingSetsTheSelection() {
        Harness h;
        auto track = h.open("stereo-s16.wav");
        QVERIFY(track);
        h.window.show();
        h.window.activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&h.window));
        const double rate = track->sampleRate();
        auto* start = h.find<QLineEdit>("selectionStart");
        auto* end = h.find<QLineEdit>("selectionEnd");
        auto* length = h.find<QLineEdit>("selectionLength");
        auto type = [](QLineEdit* field, const QString& text, Qt::Key key = Qt::Key_Return) {
            field->setFocus();
            field->selectAll();
            QTest::keyClicks(field, text);
            QTest::keyClick(field, key);
        };
        QCOMPARE(start->text(), QString("0:00.000")); // the cursor, with no selection
        type(end, "0:01.250");
        QCOMPARE(track->selection(), (FrameRange{0, int64_t(1.25 * rate)}));
        type(start, "0.5");
        QCOMPARE(track->selection(), (FrameRange{int64_t(0.5 * rate), int64_t(1.25 * rate)}));
        QCOMPARE(track->cursor(), int64_t(0.5 * rate));
        QCOMPARE(length->text(), QString("0:00.750"));
        type(length, "99");
        QCOMPARE(track->selection(), (FrameRange{int64_t(0.5 * rate), track->frameCount()}));
        QCOMPARE(end->text(), preciseTimeText(double(track->frameCount()) / rate));

        const auto before = track->selection();
        type(start, "1:75");
        QCOMPARE(track->selection(), before);
        QCOMPARE(start->text(), QString("1:75"));
        QCOMPARE(QToolTip::text(), QString("Type a time like 1:02.500 or 62.5"));
        QTest::keyClick(start, Qt::Key_Escape);
        QCOMPARE(start->text(), QString("0:00.500"));
    }

    // The scale runs from the floor at the bars' left edge to 0 dBFS at their right; a level at
    // the floor leaves the trough empty, a full-scale one fills it to the red end and lights
    // the clip light, and the channels are named.
    void theMeterDrawsItsScale() {
        LevelMeterWidget meter;
        meter.setShowsScale(true);
        meter.resize(180, 34);
        meter.setChannelCount(2);
        const QImage empty = meter.grab().toImage();
        const QRect light = meter.clipLightRect();
        const int row = 6;
        const QRgb trough = empty.pixel(int(meter.positionOf(-1)), row);
        QCOMPARE(empty.pixel(int(meter.positionOf(-59)), row), trough);
        QVERIFY(qGray(trough) != qGray(meter.palette().color(QPalette::Window).rgb()));
        QVERIFY(meter.positionOf(MeterBallistics::floorDB) < meter.positionOf(-6));
        QVERIFY(meter.positionOf(0) < light.left());

        const float full[] = {1.5f, 1.5f}; // over full scale: clipped
        meter.ballistics.update(std::span<const float>(full), 10.0);
        const QImage loud = meter.grab().toImage();
        const QColor top = loud.pixelColor(int(meter.positionOf(0)) - 2, row);
        QVERIFY2(top.red() > 180 && top.green() < 120, qPrintable(top.name()));
        const QColor bottom = loud.pixelColor(int(meter.positionOf(-58)), row);
        QVERIFY2(bottom.green() > bottom.red(), qPrintable(bottom.name()));
        QCOMPARE(loud.pixelColor(light.center()), QColor(230, 40, 30));
        // The scale's numbers are drawn under the floor and the top ends of the bars.
        auto inked = [&](int x0, int x1) {
            for (int x = x0; x <= x1; ++x)
                for (int y = meter.height() - 9; y < meter.height(); ++y)
                    if (loud.pixel(x, y) != empty.pixel(0, meter.height() - 1)) return true;
            return false;
        };
        QVERIFY(inked(int(meter.positionOf(-60)), int(meter.positionOf(-58))));
        QVERIFY(inked(int(meter.positionOf(0)) - 4, int(meter.positionOf(0))));

        for (auto [channel, count, name] :
             {std::tuple{0, 1, "M"}, {0, 2, "L"}, {1, 2, "R"}, {4, 6, "5"}})
            QCOMPARE(LevelMeterWidget::channelName(channel, count), QString(name));
    }

    // Rows name the file with its extension over its length, rate and channels; sorting
    // changes the rows' order but not the tracks'; the track the editor shows is marked.
    void theTrackListSortsAndShowsTwoLines() {
        Harness h;
        for (const char* name : {"speech.wav", "stereo.flac", "mono.wav"})
            QVERIFY(h.open(name));
        auto* list = qobject_cast<TrackList*>(h.window.trackList());
        QVERIFY(list);
        auto rows = [&] {
            QStringList names;
            for (int i = 0; i < list->count(); ++i)
                names << list->item(i)->text().section('\n', 0, 0);
            return names;
        };
        QCOMPARE(rows(), (QStringList{"speech.wav", "stereo.flac", "mono.wav"}));
        const QString detail = list->item(1)->text().section('\n', 1);
        QVERIFY2(detail.startsWith(durationText(h.model.tracks()[1]->audio()->duration())) &&
                     detail.endsWith(QString::fromUtf8(" kHz \u00b7 Stereo")),
                 qPrintable(detail));

        h.window.findChild<QAction*>("sortByName")->trigger();
        QCOMPARE(rows(), (QStringList{"mono.wav", "speech.wav", "stereo.flac"}));
        h.window.findChild<QAction*>("sortByDuration")->trigger();
        auto seconds = [&](const QString& file) {
            for (const auto& t : h.model.tracks())
                if (QString::fromStdString(t->url().filename().string()) == file)
                    return t->audio()->duration();
            return -1.0;
        };
        const QStringList byLength = rows();
        for (int i = 1; i < byLength.size(); ++i)
            QVERIFY(seconds(byLength[i - 1]) <= seconds(byLength[i]));
        QCOMPARE(byLength.size(), 3);
        QCOMPARE(h.model.tracks()[0]->name(), std::string("speech"));
        h.window.findChild<QAction*>("sortByOpened")->trigger();
        QCOMPARE(rows(), (QStringList{"speech.wav", "stereo.flac", "mono.wav"}));

        // Opening selects what was opened; the row the editor shows is the marked one.
        int marked = 0;
        for (int i = 0; i < list->count(); ++i)
            if (list->item(i)->data(TrackList::activeRole).toBool()) {
                ++marked;
                QCOMPARE(list->item(i)->text().section('\n', 0, 0),
                         QString::fromStdString(h.model.activeTrack()->url().filename().string()));
                QVERIFY(list->item(i)->font().bold());
            }
        QCOMPARE(marked, 1);
    }

    // The whole window at a laptop's size, light and dark, for a person to look at.
    void screenshotsOfTheWindow() {
        for (const bool dark : {false, true}) {
            const QPalette original = QApplication::palette();
            if (dark) QApplication::setPalette(appearance::darkPalette());
            {
                Harness h;
                auto track = h.open("stereo-s16.wav");
                QVERIFY(track);
                track->setSelection(FrameRange{track->frameCount() / 4, track->frameCount() / 2});
                track->addMarker(0, FrameRange{track->frameCount() / 4, track->frameCount() / 2});
                h.window.resize(1366, 768);
                h.window.show();
                QVERIFY(QTest::qWaitForWindowExposed(&h.window));
                h.window.outputMeter()->setChannelCount(2);
                const float peaks[] = {0.5f, 0.9f};
                h.window.outputMeter()->ballistics.update(std::span<const float>(peaks), 1.0);
                QApplication::processEvents();
                const QImage image =
                    test::saveScreenshots(h.window, dark ? "transport-dark" : "transport-light");
                QCOMPARE(image.size(), QSize(1366, 768));
                // Everything in the transport bar fits inside the window.
                for (const char* name : {"exportButton", "outputMeter", "selectionLength"}) {
                    auto* w = h.window.findChild<QWidget*>(name);
                    QVERIFY2(w->mapTo(&h.window, QPoint(w->width(), 0)).x() <= 1366, name);
                }
            }
            QApplication::setPalette(original);
        }
    }
};

QTEST_MAIN(TransportBarTests)
#include "TransportBarTests.moc"
