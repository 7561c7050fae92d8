#include "app/MultitrackHarness.h"
#include "app/timeline/TimelineView.h"

#include <QAction>
#include <QStackedWidget>
#include <QtTest>

using namespace sonvale;

namespace {

struct Harness : test::MultitrackHarness {
    TimelineView& view = *window.multitrackView();

    QPoint pointAt(int64_t frame, int lane) const {
        return QPoint(int(std::lround(view.xOfFrame(double(frame)))),
                      TimelineView::rulerHeight + lane * TimelineView::laneHeight +
                          TimelineView::laneHeight / 2);
    }
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
        h.window.resize(1200, 600);
        h.window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&h.window));
        const double rate = h.timeline.sampleRate();
        const int64_t cursor = int64_t(rate);
        const QPoint ruler(int(std::lround(h.view.xOfFrame(double(cursor)))), 5);
        QTest::mouseClick(&h.view, Qt::LeftButton, {}, ruler);
        QVERIFY(std::llabs(h.timeline.cursor() - cursor) <=
                int64_t(h.timeline.scale().framesPerPoint));
        const int64_t snapped = h.timeline.cursor();

        const Uuid moved = h.timeline.lanes()[1].clips.at(0).id;
        for (bool shift : {true, false}) {
            // Grab the clip 1000 frames in and let go 3 points after the cursor.
            const QPoint from = h.pointAt(1000, 1);
            const QPoint to = h.pointAt(snapped + 1000, 0) + QPoint(3, 0);
            const Qt::KeyboardModifiers keys = shift ? Qt::ShiftModifier : Qt::NoModifier;
            QTest::mousePress(&h.view, Qt::LeftButton, keys, from);
            QTest::mouseMove(&h.view, from + QPoint(10, 0));
            QMouseEvent move(QEvent::MouseMove, to, h.view.mapToGlobal(to), Qt::NoButton,
                             Qt::LeftButton, keys);
            QCoreApplication::sendEvent(&h.view, &move);
            QTest::mouseRelease(&h.view, Qt::LeftButton, keys, to);
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
