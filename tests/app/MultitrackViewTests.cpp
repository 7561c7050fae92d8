#include "app/ChannelControls.h"
#include "app/MultitrackHarness.h"
#include "app/timeline/LaneHeader.h"
#include "app/timeline/TimelineView.h"

#include <QAction>
#include <QComboBox>
#include <QLineEdit>
#include <QMimeData>
#include <QSlider>
#include <QStackedWidget>
#include <QTemporaryDir>
#include <QToolButton>
#include <QtTest>

using namespace sonvale;

namespace {

struct Harness : test::MultitrackHarness {
    TimelineView& view = *window.multitrackView();

    QPoint pointAt(int64_t frame, int lane) const {
        return QPoint(int(std::lround(view.xOfFrame(double(frame)))),
                      view.laneTop(lane) + TimelineView::laneHeight / 2);
    }
    void showWindow() {
        window.resize(1200, 700);
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
    }
    // Presses at `from`, moves past the drag threshold, then to `to`, and lets go.
    void dragMouse(QPoint from, QPoint to, Qt::KeyboardModifiers keys = {}) {
        QTest::mousePress(&view, Qt::LeftButton, keys, from);
        QTest::mouseMove(&view, from + QPoint(to.x() > from.x() ? 5 : -5, 0));
        QMouseEvent move(QEvent::MouseMove, to, view.mapToGlobal(to), Qt::NoButton, Qt::LeftButton,
                         keys);
        QCoreApplication::sendEvent(&view, &move);
        QTest::mouseRelease(&view, Qt::LeftButton, keys, to);
    }
    QString undoTitle() { return window.action(ActionID::undo)->text(); }
    void trigger(ActionID id) { window.action(id)->trigger(); }
};

} // namespace

class MultitrackViewTests : public QObject {
    Q_OBJECT
private Q_SLOTS:
    // Add to Timeline places each track on a lane of its own at the cursor, as one undo step,
    // and brings the multitrack view to the front; Ctrl+M switches back.
    void addToTimelineMakesALaneAndShowsTheView() {
        Harness h;
        QVERIFY(!h.window.action(ActionID::addToTimeline)->isEnabled());
        QVERIFY(h.addTracks({"speech.wav"}));
        auto* views = h.window.findChild<QStackedWidget*>("views");
        QVERIFY(views->currentWidget()->isAncestorOf(&h.view));
        QVERIFY(h.window.action(ActionID::showMultitrack)->isChecked());
        QCOMPARE(h.timeline.lanes().size(), size_t(1));
        QCOMPARE(h.timeline.lanes()[0].name, std::string("speech"));
        QCOMPARE(h.timeline.lanes()[0].clips.at(0).length, h.model.tracks()[0]->frameCount());
        QCOMPARE(h.window.action(ActionID::undo)->text(), QString("Undo Add to Timeline"));
        h.window.action(ActionID::undo)->trigger();
        QVERIFY(h.timeline.lanes().empty());
        h.window.action(ActionID::showMultitrack)->trigger();
        QVERIFY(!views->currentWidget()->isAncestorOf(&h.view));
        // No two commands of the window share a shortcut.
        QStringList shortcuts;
        for (const QAction* action : h.window.actions()) {
            const QString keys = action->shortcut().toString();
            QVERIFY2(keys.isEmpty() || !shortcuts.contains(keys), qPrintable(keys));
            shortcuts << keys;
        }
    }

    // A click on the ruler puts the cursor there; dragging a clip moves it onto another lane,
    // snapping to the cursor unless Shift is held, as one undoable step.
    void dragsMoveClipsBetweenLanesAndSnap() {
        Harness h;
        QVERIFY(h.addTracks({"speech.wav", "mono.wav"}));
        h.showWindow();
        const double rate = h.timeline.sampleRate();
        const int64_t cursor = int64_t(rate);
        const QPoint ruler(int(std::lround(h.view.xOfFrame(double(cursor)))), 5);
        QTest::mouseClick(&h.view, Qt::LeftButton, {}, ruler);
        QVERIFY(std::llabs(h.timeline.cursor() - cursor) <=
                int64_t(h.timeline.scale().framesPerPoint));
        const int64_t snapped = h.timeline.cursor();

        const Uuid moved = h.timeline.lanes()[1].clips.at(0).id;
        const int64_t grab = h.timeline.lanes()[1].clips.at(0).length / 2;
        for (bool shift : {true, false}) {
            // Grab the clip in its middle and let go 3 points after the cursor.
            const QPoint from = h.pointAt(grab, 1);
            const QPoint to = h.pointAt(snapped + grab, 0) + QPoint(3, 0);
            const Qt::KeyboardModifiers keys = shift ? Qt::ShiftModifier : Qt::NoModifier;
            h.dragMouse(from, to, keys);
            const auto clip = h.timeline.clip(moved);
            QCOMPARE(clip->second, h.timeline.lanes()[0].id);
            if (shift)
                QVERIFY(clip->first.start > snapped);
            else
                QCOMPARE(clip->first.start, snapped);
            QCOMPARE(h.window.action(ActionID::undo)->text(), QString("Undo Move Clip"));
            h.window.action(ActionID::undo)->trigger();
            QCOMPARE(h.timeline.clip(moved)->second, h.timeline.lanes()[1].id);
        }
    }

    // Dragging a clip's edges trims it and dragging the handles at its top corners sets its
    // fades, by the frames the pointer moved; each drag is one undo step under its name.
    void edgesAndHandlesTrimAndFade() {
        Harness h;
        QVERIFY(h.addTracks({"speech.wav"}));
        h.model.setSnapsClips(false);
        h.showWindow();
        const TimelineClip original = h.timeline.lanes()[0].clips.at(0);
        const int x0 = int(std::lround(h.view.xOfFrame(0)));
        const int x1 = int(std::lround(h.view.xOfFrame(double(original.length))));
        const int middle = h.view.laneTop(0) + TimelineView::laneHeight / 2;
        const int handles = h.view.laneTop(0) + 3 + TimelineView::handleSize / 2;
        const int dx = 40;
        const double perPoint = h.timeline.scale().framesPerPoint;
        struct Case {
            QPoint press;
            int move;
            int64_t TimelineClip::*field;
            int64_t change; // in points
            const char* undo;
        } cases[] = {
            {{x0 + 1, middle}, dx, &TimelineClip::sourceStart, dx, "Undo Trim Clip"},
            {{x1 - 1, middle}, -dx, &TimelineClip::length, -dx, "Undo Trim Clip"},
            {{x0 + 4, handles}, dx, &TimelineClip::fadeIn, dx, "Undo Fade In"},
            {{x1 - 4, handles}, -dx, &TimelineClip::fadeOut, dx, "Undo Fade Out"},
        };
        for (const Case& c : cases) {
            h.dragMouse(c.press, c.press + QPoint(c.move, 0));
            const TimelineClip clip = h.timeline.lanes()[0].clips.at(0);
            const double expected = double(original.*c.field) + double(c.change) * perPoint;
            QVERIFY2(std::fabs(double(clip.*c.field) - expected) <= 1.5 * perPoint, c.undo);
            QCOMPARE(h.undoTitle(), QString(c.undo));
            h.trigger(ActionID::undo);
            QCOMPARE(h.timeline.lanes()[0].clips.at(0), original);
        }
    }

    // While the timeline shows, the Edit menu's commands act on clips, and Split and Duplicate
    // sit in the Multitrack menu; each is one undo step.
    void editMenuActsOnClips() {
        Harness h;
        QVERIFY(h.addTracks({"speech.wav"}));
        h.showWindow();
        const auto clips = [&] { return h.timeline.lanes()[0].clips; };
        const TimelineClip first = clips().at(0);
        QCOMPARE(h.window.action(ActionID::copy)->text(), QString("Copy Clip"));
        QVERIFY(!h.window.action(ActionID::paste)->isEnabled());
        h.timeline.selectClip(first.id);
        h.trigger(ActionID::copy);
        h.timeline.setCursor(first.end() + 1000);
        h.trigger(ActionID::paste);
        QCOMPARE(clips().size(), size_t(2));
        QCOMPARE(clips()[1].start, first.end() + 1000);
        QCOMPARE(h.timeline.cursor(), clips()[1].end());
        QCOMPARE(h.undoTitle(), QString("Undo Paste Clip"));

        h.timeline.selectClip(first.id);
        h.trigger(ActionID::duplicateClip);
        QCOMPARE(clips().size(), size_t(3));
        QCOMPARE(clips()[2].start, first.end());
        QCOMPARE(h.undoTitle(), QString("Undo Duplicate Clip"));

        h.timeline.selectClip(first.id);
        h.timeline.setCursor(first.length / 2);
        QVERIFY(h.window.action(ActionID::splitClip)->isEnabled());
        h.trigger(ActionID::splitClip);
        QCOMPARE(clips().size(), size_t(4));
        QCOMPARE(clips()[0].length, first.length / 2);
        QCOMPARE(h.undoTitle(), QString("Undo Split Clip"));

        h.timeline.selectClip(first.id);
        h.trigger(ActionID::cut);
        QCOMPARE(clips().size(), size_t(3));
        QCOMPARE(h.undoTitle(), QString("Undo Cut Clip"));
        QCOMPARE(h.model.clipClipboard()->id, first.id);
        h.timeline.selectClip(clips()[0].id);
        h.trigger(ActionID::deleteSelection);
        QCOMPARE(clips().size(), size_t(2));
        for (int step = 0; step < 5; ++step)
            h.trigger(ActionID::undo);
        QCOMPARE(clips(), std::vector{first});
    }

    // The lane header's controls: Alt-click on the switch hears only the lane and again all,
    // a click turns it off; the name is edited in place; a gain slider drag is one step; the
    // output box routes the lane to a bus; the colour grip drags the lane down; lanes are
    // added and removed.
    void laneHeaderControls() {
        Harness h;
        QVERIFY(h.addTracks({"speech.wav", "mono.wav"}));
        h.showWindow();
        const Uuid first = h.timeline.lanes()[0].id;
        LaneHeader* header = h.view.header(first);
        auto muted = [&] {
            std::vector<bool> flags;
            for (const auto& lane : h.timeline.lanes())
                flags.push_back(lane.isMuted);
            return flags;
        };
        QCOMPARE(header->switchButton()->toolTip(),
                 QString("Turn this lane off (Alt-click: hear only this lane)"));
        QTest::mouseClick(header->switchButton(), Qt::LeftButton, Qt::AltModifier);
        QCOMPARE(muted(), (std::vector{false, true}));
        QCOMPARE(h.undoTitle(), QString("Undo Only This Lane"));
        QTest::mouseClick(header->switchButton(), Qt::LeftButton, Qt::AltModifier);
        QCOMPARE(muted(), (std::vector{false, false}));
        QCOMPARE(h.undoTitle(), QString("Undo All Lanes On"));
        QTest::mouseClick(header->switchButton(), Qt::LeftButton);
        QCOMPARE(muted(), (std::vector{true, false}));
        QCOMPARE(header->switchButton()->toolTip(),
                 QString("Turn this lane on (Alt-click: hear only this lane)"));

        header->nameField()->setFocus();
        header->nameField()->selectAll();
        QTest::keyClicks(header->nameField(), "Voice");
        QTest::keyClick(header->nameField(), Qt::Key_Return);
        QCOMPARE(h.timeline.lane(first)->name, std::string("Voice"));

        QSlider* gain = header->gainSlider();
        gain->setSliderDown(true);
        for (int value : {-10, -35, -60})
            gain->setValue(value);
        gain->setSliderDown(false);
        QCOMPARE(h.timeline.lane(first)->gainDB, -6.0f);
        QCOMPARE(h.undoTitle(), QString("Undo Lane Gain"));
        h.trigger(ActionID::undo);
        QCOMPARE(h.timeline.lane(first)->gainDB, 0.0f);

        const Uuid bus = h.timeline.addBus().id;
        header->outputBox()->setCurrentIndex(1);
        Q_EMIT header->outputBox()->activated(1);
        QCOMPARE(h.timeline.lane(first)->output, std::optional(bus));

        const QPoint grip(3, TimelineView::laneHeight / 2);
        QTest::mousePress(header, Qt::LeftButton, {}, grip);
        QTest::mouseMove(&h.view, h.pointAt(0, 1));
        QTest::mouseRelease(&h.view, Qt::LeftButton, {}, h.pointAt(0, 1));
        QCOMPARE(h.timeline.lanes()[1].id, first);
        QCOMPARE(h.undoTitle(), QString("Undo Move Lane"));

        // The button under the lanes adds one; Remove Lane removes the one last touched.
        QTest::mouseClick(h.view.addButton(), Qt::LeftButton);
        QCOMPARE(h.timeline.lanes().size(), size_t(3));
        QCOMPARE(h.timeline.lanes()[2].name, std::string("Lane 1"));
        h.trigger(ActionID::removeLane);
        QCOMPARE(h.timeline.lanes().size(), size_t(2));
        QCOMPARE(h.timeline.lanes()[1].id, first);
    }

    // A track dragged from the list lands on the lane under the pointer (or a new lane below
    // the last), and an audio file from the file manager opens and lands the same way.
    void dropsPlaceTracksAndFiles() {
        Harness h;
        QVERIFY(h.addTracks({"speech.wav"}));
        h.showWindow();
        const auto& speech = h.model.tracks()[0];
        auto drop = [&](QMimeData* data, QPoint at) {
            QDragEnterEvent enter(at, Qt::CopyAction, data, Qt::LeftButton, {});
            QCoreApplication::sendEvent(&h.view, &enter);
            QDragMoveEvent move(at, Qt::CopyAction, data, Qt::LeftButton, {});
            QCoreApplication::sendEvent(&h.view, &move);
            QDropEvent event(at, Qt::CopyAction, data, Qt::LeftButton, {});
            QCoreApplication::sendEvent(&h.view, &event);
            delete data;
        };
        auto* data = new QMimeData;
        data->setData(TimelineView::trackMimeType,
                      QByteArray::fromStdString(speech->id().text() + " 100 4100"));
        const int64_t at = int64_t(h.timeline.sampleRate() * 5);
        drop(data, h.pointAt(at, 0));
        const auto& clips = h.timeline.lanes()[0].clips;
        QCOMPARE(clips.size(), size_t(2));
        QVERIFY(std::llabs(clips[1].start - at) <= int64_t(h.timeline.scale().framesPerPoint));
        QCOMPARE(clips[1].length, int64_t(4000));
        QCOMPARE(clips[1].trackID, std::optional(speech->id()));

        data = new QMimeData;
        data->setUrls({QUrl::fromLocalFile(QString(SONVALE_FIXTURE_DIR) + "/mono.wav")});
        drop(data, h.pointAt(0, 0) + QPoint(0, 2 * TimelineView::laneHeight));
        QVERIFY(QTest::qWaitFor([&] { return h.timeline.lanes().size() == 2; }, 10000));
        QCOMPARE(h.timeline.lanes()[1].name, std::string("mono"));
        QCOMPARE(h.model.tracks().size(), size_t(2));
    }

    // Mixdown to New Track shows its progress in the status bar and opens the mix as a track.
    void mixdownShowsProgressAndOpensTheMix() {
        Harness h;
        QTemporaryDir folder;
        h.preferences.setRecordingsFolderPath(folder.path().toStdString());
        QVERIFY(h.addTracks({"speech.wav"}));
        h.showWindow();
        QAction* mixdown = h.window.action(ActionID::mixdown);
        mixdown->trigger();
        auto* progress = h.window.findChild<QWidget*>("statusProgress");
        QVERIFY(progress->isVisible());
        QVERIFY(!mixdown->isEnabled());
        QVERIFY(QTest::qWaitFor([&] { return h.model.tracks().size() == 2; }, 10000));
        QCOMPARE(h.model.tracks()[1]->name(), std::string("Multitrack mix"));
        QVERIFY(QTest::qWaitFor([&] { return !progress->isVisible(); }, 10000));
    }

    // Two lanes with fades and a crossfade, at 1x and 2x, for a person to look at.
    void screenshotOfThreeLanesWithFadesAndACrossfade() {
        Harness h;
        QVERIFY(h.addTracks({"speech.wav", "mono.wav", "stereo.flac"}));
        const auto& lanes = h.timeline.lanes();
        const TimelineClip speech = lanes[0].clips.at(0);
        h.timeline.setFade(speech.id, ClipEdge::start, speech.start + speech.length / 5);
        h.timeline.setFade(speech.id, ClipEdge::end, speech.end() - speech.length / 4);
        // The third lane's clip moved onto the second so that the two crossfade.
        const TimelineClip tone = lanes[1].clips.at(0);
        h.timeline.moveClip(lanes[2].clips.at(0).id, tone.end() - tone.length / 3, lanes[1].id);
        h.timeline.setCursor(tone.length / 2);
        h.window.resize(1366, 768);
        h.window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&h.window));
        QCOMPARE(h.timeline.lanes()[1].clips.size(), size_t(2));
        QVERIFY(h.timeline.lanes()[1].clips[1].fadeIn > 0); // the crossfade

        const QImage normal = test::saveScreenshots(h.window, "multitrack");
        QVERIFY(!normal.isNull());
        // The first lane's colour is drawn in its header strip.
        const QPoint strip = h.view.mapTo(&h.window, QPoint(2, TimelineView::rulerHeight + 10));
        QCOMPARE(normal.pixel(strip), TimelineView::laneColor(lanes[0].colorIndex).rgb());
    }
};

QTEST_MAIN(MultitrackViewTests)
#include "MultitrackViewTests.moc"
