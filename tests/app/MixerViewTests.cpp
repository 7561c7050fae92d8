#include "app/ChannelControls.h"
#include "app/LevelMeterWidget.h"
#include "app/MultitrackHarness.h"
#include "app/effects/EffectsPanel.h"
#include "app/timeline/MixerView.h"

#include <QAction>
#include <QComboBox>
#include <QDockWidget>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QSlider>
#include <QStyleOptionSlider>
#include <QtTest>
#include <cmath>

using namespace sonvale;
using Kind = MixerStrip::Kind;

namespace {

struct Harness : test::MultitrackHarness {
    MixerView& mixer = *window.mixerView();

    explicit Harness(std::initializer_list<const char*> tracks) {
        if (!addTracks(tracks)) qFatal("the fixtures did not open");
        window.resize(1366, 768);
        window.show();
        if (!QTest::qWaitForWindowExposed(&window)) qFatal("the window did not show");
    }
    MixerStrip& lane(int index) const {
        return *mixer.strip(Kind::lane, timeline.lanes().at(size_t(index)).id);
    }
    MixerStrip& bus(int index) const {
        return *mixer.strip(Kind::bus, timeline.buses().at(size_t(index)).id);
    }
    QString undoText() const { return window.action(ActionID::undo)->text(); }
    void undo() const { window.action(ActionID::undo)->trigger(); }
};

// The loudest sample of the whole mixdown of the timeline.
float mixdownPeak(const Timeline& timeline) {
    const auto snapshot = timeline.mixdownSnapshot();
    TimelineMixer::Scratch scratch(TimelineMixer::mixdownScratchFrames);
    std::vector<float> left(size_t(scratch.capacity())), right(left.size());
    float peak = 0;
    for (int64_t from = 0; from < snapshot->frameCount; from += scratch.capacity()) {
        const int64_t to = std::min(from + scratch.capacity(), snapshot->frameCount);
        TimelineMixer::renderBlock(*snapshot, from, to, left.data(), right.data(), scratch);
        for (int64_t i = 0; i < to - from; ++i)
            peak = std::max({peak, std::fabs(left[size_t(i)]), std::fabs(right[size_t(i)])});
    }
    return peak;
}

// Drags a slider's handle by `offset`, through several moves, and lets go.
void drag(QSlider* slider, QPoint offset) {
    // As QSlider describes itself to its style.
    QStyleOptionSlider option;
    option.initFrom(slider);
    option.subControls = QStyle::SC_None;
    option.orientation = slider->orientation();
    option.minimum = slider->minimum();
    option.maximum = slider->maximum();
    option.tickPosition = slider->tickPosition();
    option.tickInterval = slider->tickInterval();
    option.upsideDown = slider->orientation() == Qt::Vertical;
    option.sliderPosition = option.sliderValue = slider->value();
    const QPoint from =
        slider->style()
            ->subControlRect(QStyle::CC_Slider, &option, QStyle::SC_SliderHandle, slider)
            .center();
    QTest::mousePress(slider, Qt::LeftButton, {}, from);
    for (int step = 1; step <= 4; ++step) {
        const QPoint to = from + offset * step / 4;
        QMouseEvent move(QEvent::MouseMove, to, slider->mapToGlobal(to), Qt::NoButton,
                         Qt::LeftButton, {});
        QCoreApplication::sendEvent(slider, &move);
    }
    QTest::mouseRelease(slider, Qt::LeftButton, {}, from + offset);
}

} // namespace

class MixerViewTests : public QObject {
    Q_OBJECT
private Q_SLOTS:
    // A drag of a lane's fader or pan writes the lane's gain or pan as one undo step, and
    // Undo puts it back.
    void dragsAreOneUndoStepEach() {
        Harness h({"speech.wav"});
        struct Case {
            QSlider* slider;
            QPoint offset;
            const char* action;
            std::function<float()> value;
        } cases[] = {
            {h.lane(0).fader(),
             {0, -40},
             "Lane Gain",
             [&] { return h.timeline.lanes()[0].gainDB; }},
            {h.lane(0).panSlider(),
             {-30, 0},
             "Lane Pan",
             [&] { return h.timeline.lanes()[0].pan; }},
        };
        for (const Case& c : cases) {
            const size_t steps = h.timeline.undoStack().undoCount();
            drag(c.slider, c.offset);
            QVERIFY2(c.value() != 0, c.action);
            QCOMPARE(h.timeline.undoStack().undoCount(), steps + 1);
            QCOMPARE(h.undoText(), QString("Undo ") + c.action);
            h.undo();
            QCOMPARE(c.value(), 0.0f);
        }
        QCOMPARE(h.lane(0).fader()->value(), 0);
    }

    // Alt-click on a lane's switch hears only that lane; a second Alt-click turns all on.
    void altClickHearsOnlyThisLane() {
        Harness h({"speech.wav", "mono.wav", "stereo.flac"});
        struct Step {
            Qt::KeyboardModifiers keys;
            const char* action;
            std::vector<bool> muted;
        } steps[] = {
            {Qt::AltModifier, "Only This Lane", {true, false, true}},
            {Qt::AltModifier, "All Lanes On", {false, false, false}},
            {Qt::NoModifier, "Turn Lane Off", {false, true, false}},
        };
        for (const Step& step : steps) {
            QTest::mouseClick(h.lane(1).onSwitch(), Qt::LeftButton, step.keys);
            QCOMPARE(h.undoText(), QString("Undo ") + step.action);
            for (size_t i = 0; i < step.muted.size(); ++i) {
                QCOMPARE(h.timeline.lanes()[i].isMuted, step.muted[i]);
                QCOMPARE(h.lane(int(i)).onSwitch()->toolTip(),
                         QString(step.muted[i]
                                     ? "Turn this lane on (Alt-click: hear only this lane)"
                                     : "Turn this lane off (Alt-click: hear only this lane)"));
            }
        }
    }

    // New Bus, then the lane's output choice routes it to the bus: the mixdown follows the
    // bus's switch until the lane goes back to the master.
    void routingThroughABusIsHeard() {
        Harness h({"speech.wav"});
        QTest::mouseClick(h.mixer.newBusButton(), Qt::LeftButton);
        QCOMPARE(h.timeline.buses().size(), size_t(1));
        QCOMPARE(h.undoText(), QString("Undo New Bus"));
        h.window.action(ActionID::newBus)->trigger(); // the Multitrack menu's
        QCOMPARE(h.timeline.buses().at(1).name, std::string("Bus 2"));

        QComboBox* output = h.lane(0).outputBox();
        QCOMPARE(output->count(), 3);
        QTest::keyClick(output, Qt::Key_Down);
        QCOMPARE(h.timeline.lanes()[0].output, h.timeline.buses()[0].id);
        QCOMPARE(h.undoText(), QString("Undo Lane Output"));
        const float heard = mixdownPeak(h.timeline);
        QVERIFY(heard > 0.1f);

        QTest::mouseClick(h.bus(0).onSwitch(), Qt::LeftButton);
        QVERIFY(h.timeline.buses()[0].isMuted);
        QCOMPARE(mixdownPeak(h.timeline), 0.0f);
        QTest::keyClick(output, Qt::Key_Up);
        QVERIFY(!h.timeline.lanes()[0].output);
        QCOMPARE(mixdownPeak(h.timeline), heard);
    }

    // A bus's Effects… opens its chain in the effects panel, titled after the bus; effects
    // added there are the bus's, play live in the mix, and Apply is not offered. Closing it
    // brings back the editor's own chain.
    void busEffectsOpenInThePanel() {
        Harness h({"speech.wav"});
        h.model.addEffect(EffectKind::reverb);
        const EffectChainPtr editorChain = h.model.effectChain();
        QTest::mouseClick(h.mixer.newBusButton(), Qt::LeftButton);
        const MixerChannel channel = MixerChannel::forBus(h.timeline.buses()[0].id);
        QTest::mouseClick(h.bus(0).effectsButton(), Qt::LeftButton);
        QCOMPARE(h.model.effectChain(), h.timeline.chain(channel));
        QVERIFY(h.window.effectsPanelDock()->isVisible());
        QCOMPARE(h.window.effectsPanelDock()->windowTitle(), QString("Effects: Bus 1"));
        QVERIFY(!h.window.effectsPanel()->applyButton()->isVisible());

        for (QAction* kind : h.window.effectsPanel()->addMenu()->actions())
            if (kind->data().toString() == "equalizer") kind->trigger();
        QCOMPARE(h.timeline.chain(channel)->effects().size(), size_t(1));
        QVERIFY(h.timeline.snapshot()->buses.at(0).effects != nullptr);

        QLineEdit* name = h.bus(0).nameEdit();
        name->setText("Drums");
        Q_EMIT name->editingFinished();
        QCOMPARE(h.timeline.buses()[0].name, std::string("Drums"));
        QCOMPARE(h.window.effectsPanelDock()->windowTitle(), QString("Effects: Drums"));

        QTest::mouseClick(h.mixer.strip(Kind::master)->effectsButton(), Qt::LeftButton);
        QCOMPARE(h.window.effectsPanelDock()->windowTitle(), QString("Effects: Master"));
        QTest::mouseClick(h.window.effectsPanel()->closeButton(), Qt::LeftButton);
        QCOMPARE(h.model.effectChain(), editorChain);
        QCOMPARE(h.window.effectsPanelDock()->windowTitle(), QString("Effects"));
        QVERIFY(h.window.effectsPanel()->applyButton()->isVisible());
        QCOMPARE(h.timeline.chain(channel)->effects().size(), size_t(1));
    }

    // A minimised bus strip is a narrow column; its button brings the full strip back.
    void busStripsMinimise() {
        Harness h({"speech.wav"});
        QTest::mouseClick(h.mixer.newBusButton(), Qt::LeftButton);
        QTest::mouseClick(h.bus(0).minimizeButton(), Qt::LeftButton);
        QVERIFY(h.timeline.minimizedChannels().contains(
            MixerChannel::forBus(h.timeline.buses()[0].id)));
        QVERIFY(QTest::qWaitFor([&] { return h.bus(0).width() == MixerStrip::minimizedWidth; }));
        QVERIFY(!h.bus(0).fader());
        QTest::mouseClick(h.bus(0).minimizeButton(), Qt::LeftButton);
        QVERIFY(h.timeline.minimizedChannels().empty());
        QVERIFY(h.bus(0).fader());
    }

    // Meters show what the mix metered for their own lane, light the clip light until
    // clicked, and come to rest once nothing more is heard.
    void metersFollowTheirSlots() {
        Harness h({"speech.wav", "mono.wav"});
        QTRY_VERIFY(!h.mixer.isMetering()); // nothing plays, nothing is showing
        LevelMeters& meters = *h.timeline.meters();
        const float loud[] = {1.2f, 0.5f};
        meters.record(LevelMeters::Slot::lane(1), loud, loud, 2);
        meters.advanceMixed(2);
        QVERIFY(h.mixer.refreshMeters(10.0));
        LevelMeterWidget* meter = h.lane(1).meter();
        QVERIFY(meter->ballistics.clipped);
        QVERIFY(meter->ballistics.levels.at(0).peakDB > -1);
        QVERIFY(h.lane(0).meter()->ballistics.isResting());
        QTest::mouseClick(meter, Qt::LeftButton);
        QVERIFY(!meter->ballistics.clipped);
        for (double t = 10.25; t < 16; t += 0.25)
            h.mixer.refreshMeters(t);
        QVERIFY(!h.mixer.refreshMeters(16.0));
    }

    // While the timeline plays, each strip's meter shows what its lane or the master plays;
    // a lane that is off shows nothing.
    void metersFollowPlayback() {
        Harness h({"stereo.flac", "mono.wav"});
        h.timeline.toggleLane(h.timeline.lanes()[1].id, false);
        QTRY_VERIFY(!h.mixer.isMetering());
        h.window.action(ActionID::play)->trigger();
        QVERIFY(h.model.isPlayingTimeline());
        QVERIFY(h.mixer.isMetering());
        for (int i = 1; i <= 4; ++i)
            h.output->pull(4096, hostTimeFromSeconds(i * 0.1));
        QTRY_VERIFY(h.lane(0).meter()->ballistics.levels.size() == 2 &&
                    h.lane(0).meter()->ballistics.levels[0].peakDB > -12);
        QVERIFY(!h.mixer.strip(Kind::master)->meter()->ballistics.isResting());
        QVERIFY(h.lane(1).meter()->ballistics.isResting());
    }

    // Three lanes and a bus, at 1x and 2x, for a person to look at.
    void screenshotOfThreeLanesAndABus() {
        Harness h({"speech.wav", "mono.wav", "stereo.flac"});
        QTest::mouseClick(h.mixer.newBusButton(), Qt::LeftButton);
        const auto& lanes = h.timeline.lanes();
        h.timeline.setOutput(lanes[2].id, h.timeline.buses()[0].id);
        h.timeline.setLaneGain(lanes[0].id, -6);
        h.timeline.setLanePan(lanes[1].id, -0.4f);
        h.timeline.toggleLane(lanes[1].id, false);
        const float peaks[][2] = {{0.5f, 0.4f}, {0.1f, 0.1f}, {0.9f, 0.7f}};
        for (int i = 0; i < 3; ++i)
            h.timeline.meters()->record(LevelMeters::Slot::lane(i), &peaks[i][0], &peaks[i][1], 1);
        h.timeline.meters()->record(LevelMeters::Slot::bus(0), &peaks[2][0], &peaks[2][1], 1);
        h.timeline.meters()->record(LevelMeters::Slot::master(), &peaks[0][0], &peaks[2][1], 1);
        h.timeline.meters()->advanceMixed(1);
        h.mixer.refreshMeters(1.0);
        QApplication::processEvents();

        const QImage normal = test::saveScreenshots(h.window, "mixer");
        QVERIFY(!normal.isNull());
        // The bus strip's band is drawn in the bus's colour.
        const QPoint band = h.bus(0).mapTo(&h.window, QPoint(20, 2));
        QCOMPARE(normal.pixel(band), MixerStrip::busColor(h.timeline.buses()[0].hue).rgb());
    }
};

QTEST_MAIN(MixerViewTests)
#include "MixerViewTests.moc"
