#include "app/ActionID.h"
#include "app/MainMenus.h"
#include "app/QtExecutor.h"
#include "app/canvas/CanvasTheme.h"
#include "app/canvas/WaveformCanvas.h"
#include "audio/AudioTrack.h"
#include "editor/EditorModel.h"
#include "persistence/Preferences.h"
#include "support/AudioFiles.h"

#include <QDir>
#include <QLineEdit>
#include <QMainWindow>
#include <QMenu>
#include <QMimeData>
#include <QMouseEvent>
#include <QNativeGestureEvent>
#include <QPointingDevice>
#include <QScrollBar>
#include <QTemporaryDir>
#include <QWheelEvent>
#include <QtTest>
#include <cmath>
#include <memory>
#include <sndfile.h>

using namespace sonvale;

namespace {

constexpr double rate = 48000;
constexpr int64_t frames = 48000; // one second: a loud first half and a silent second half
constexpr int canvasWidth = 800;  // the lanes' width: 60 frames per point for the whole track
constexpr int left = WaveformCanvas::scaleWidth;

// A 441 Hz sine at 0.8 in both channels for the first half, digital silence after it.
AudioDataPtr loudThenSilent() {
    std::vector<float> samples(size_t(frames), 0.0f);
    for (int64_t i = 0; i < frames / 2; ++i)
        samples[size_t(i)] = 0.8f * float(std::sin(2 * M_PI * 441.0 * double(i) / rate));
    return test::makeAudio(rate, {samples, samples});
}

// A model with one ready track shown by a canvas on screen.
struct Editor {
    QtExecutor executor;
    Preferences preferences;
    EditorModel model{executor, preferences};
    AudioTrackPtr track = AudioTrack::create("/nonexistent/loud-then-silent.wav");
    std::unique_ptr<WaveformCanvas> canvas;

    Editor() {
        preferences.setSnapToZeroCrossings(false);
        track->finishLoading(loudThenSilent());
        model.addTrack(track);
        model.setSelectedTrackIDs({track->id()});
        canvas = std::make_unique<WaveformCanvas>(model);
        canvas->resize(left + canvasWidth, 300);
        canvas->show();
        QVERIFY(QTest::qWaitForWindowExposed(canvas.get()));
    }
    int laneY() const { return canvas->waveArea().center().y(); }
    // A point `x` points into the lanes.
    QPointF at(double x) const { return QPointF(left + x, laneY()); }
};

void send(QWidget* widget, QEvent::Type type, QPointF position, Qt::MouseButtons buttons,
          Qt::KeyboardModifiers modifiers = {}) {
    const Qt::MouseButton button = type == QEvent::MouseMove ? Qt::NoButton : Qt::LeftButton;
    QMouseEvent event(type, position, widget->mapToGlobal(position), button, buttons, modifiers);
    QApplication::sendEvent(widget, &event);
}

void drag(QWidget* widget, QPointF from, QPointF to, Qt::KeyboardModifiers modifiers = {}) {
    send(widget, QEvent::MouseButtonPress, from, Qt::LeftButton, modifiers);
    const QPointF middle = (from + to) / 2;
    send(widget, QEvent::MouseMove, middle, Qt::LeftButton, modifiers);
    send(widget, QEvent::MouseMove, to, Qt::LeftButton, modifiers);
    send(widget, QEvent::MouseButtonRelease, to, Qt::NoButton, modifiers);
}

void click(QWidget* widget, QPointF at, Qt::KeyboardModifiers modifiers = {}) {
    send(widget, QEvent::MouseButtonPress, at, Qt::LeftButton, modifiers);
    send(widget, QEvent::MouseButtonRelease, at, Qt::NoButton, modifiers);
}

// Pixels of `colour` in the column at logical x (device columns x*dpr .. (x+1)*dpr).
int pixelsOf(const QImage& image, QColor colour, int x, int top, int bottom) {
    const double dpr = image.devicePixelRatio();
    int count = 0;
    for (int dx = int(x * dpr); dx < int((x + 1) * dpr); ++dx)
        for (int y = int(top * dpr); y < int(bottom * dpr); ++y)
            if (image.pixelColor(dx, y).rgb() == colour.rgb()) ++count;
    return count;
}

QString screenshotFolder() {
    const QString folder = QCoreApplication::applicationDirPath() + "/../screenshots";
    QDir().mkpath(folder);
    return QDir(folder).absolutePath();
}

// Gives the test a temporary folder of its own, to see what a drag writes.
struct OwnTemporaryFolder {
    QTemporaryDir folder;
    QByteArray previous = qgetenv("TMPDIR");
    OwnTemporaryFolder() { qputenv("TMPDIR", folder.path().toLocal8Bit()); }
    ~OwnTemporaryFolder() { qputenv("TMPDIR", previous); }
    int entries() const {
        return int(QDir(folder.path()).entryList(QDir::NoDotAndDotDot | QDir::AllEntries).size());
    }
};

} // namespace

Q_DECLARE_METATYPE(std::optional<FrameRange>)

class CanvasTests : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void draggingSelectsTheFramesUnderThePointerForTheViewport() {
        Editor editor;
        editor.track->show(12000, 24000); // 15 frames per point from frame 12000
        drag(editor.canvas.get(), editor.at(100), editor.at(300));
        QCOMPARE(editor.track->selection(), std::optional(FrameRange{13500, 16500}));
        QCOMPARE(editor.track->cursor(), int64_t(13500));
        // Dragging leftwards selects the same way.
        drag(editor.canvas.get(), editor.at(500), editor.at(400));
        QCOMPARE(editor.track->selection(), std::optional(FrameRange{18000, 19500}));
    }

    void aClickPlacesTheCursorAndClearsTheSelection() {
        Editor editor;
        editor.track->setSelection(FrameRange{600, 1200});
        click(editor.canvas.get(), editor.at(250));
        QCOMPARE(editor.track->selection(), std::nullopt);
        QCOMPARE(editor.track->cursor(), int64_t(15000));
    }

    void shiftClickExtendsTheSelectionFromItsFartherEdge() {
        Editor editor;
        editor.track->setSelection(FrameRange{6000, 12000});
        click(editor.canvas.get(), editor.at(300), Qt::ShiftModifier); // frame 18000
        QCOMPARE(editor.track->selection(), std::optional(FrameRange{6000, 18000}));
        click(editor.canvas.get(), editor.at(50), Qt::ShiftModifier); // frame 3000
        QCOMPARE(editor.track->selection(), std::optional(FrameRange{3000, 18000}));
    }

    void selectionEdgesSnapToZeroCrossingsOnlyWhenThePreferenceIsOn() {
        Editor editor;
        editor.track->show(0, 8000); // 10 frames per point: six points reach 60 frames
        const QPointF from = editor.at(101.7), to = editor.at(402.3);
        drag(editor.canvas.get(), from, to);
        QCOMPARE(editor.track->selection(), std::optional(FrameRange{1017, 4023}));

        editor.preferences.setSnapToZeroCrossings(true); // over the selection just made
        drag(editor.canvas.get(), from, to);
        const AudioData& audio = *editor.track->audio();
        const auto selection = editor.track->selection();
        QVERIFY(selection.has_value());
        QCOMPARE(selection->lower, audio.nearestZeroCrossing(1017, 60));
        QCOMPARE(selection->upper, audio.nearestZeroCrossing(4023, 60));
        QVERIFY(selection->lower != 1017 || selection->upper != 4023);
        for (const int64_t edge : {selection->lower, selection->upper}) {
            const float* s = audio.samples(0);
            QVERIFY2(s[edge - 1] * s[edge] <= 0 || s[edge] * s[edge + 1] <= 0,
                     qPrintable(QString::number(edge)));
        }
    }

    void ctrlWheelZoomsAroundThePointer() {
        Editor editor;
        const QPointF pointer = editor.at(300);
        const double frameUnder = editor.canvas->frameAt(pointer.x());
        const double before = editor.track->viewport().samplesPerPoint;
        QWheelEvent wheel(pointer, editor.canvas->mapToGlobal(pointer), QPoint(), QPoint(0, 240),
                          Qt::NoButton, Qt::ControlModifier, Qt::NoScrollPhase, false);
        QApplication::sendEvent(editor.canvas.get(), &wheel);
        QVERIFY(editor.track->viewport().samplesPerPoint < before * 0.7);
        QVERIFY(std::abs(editor.canvas->frameAt(pointer.x()) - frameUnder) < 1e-6);
        // A plain wheel then scrolls without zooming, and the scroll bar follows.
        const double zoomed = editor.track->viewport().samplesPerPoint;
        const double start = editor.track->viewport().start;
        QWheelEvent scroll(pointer, editor.canvas->mapToGlobal(pointer), QPoint(), QPoint(0, -120),
                           Qt::NoButton, Qt::NoModifier, Qt::NoScrollPhase, false);
        QApplication::sendEvent(editor.canvas.get(), &scroll);
        QCOMPARE(editor.track->viewport().samplesPerPoint, zoomed);
        QVERIFY(editor.track->viewport().start > start);
        auto* bar = editor.canvas->findChild<QScrollBar*>("canvasScrollBar");
        QVERIFY(bar && bar->isEnabled());
        QCOMPARE(bar->value(), int(std::lround(editor.track->viewport().start)));
    }

    void pinchingZoomsAroundTheFingers() {
        Editor editor;
        const QPointF fingers = editor.at(600);
        const double frameUnder = editor.canvas->frameAt(fingers.x());
        const double before = editor.track->viewport().samplesPerPoint;
        QNativeGestureEvent pinch(Qt::ZoomNativeGesture, QPointingDevice::primaryPointingDevice(),
                                  2, fingers, fingers, editor.canvas->mapToGlobal(fingers), 1.0,
                                  QPointF());
        QApplication::sendEvent(editor.canvas.get(), &pinch);
        QCOMPARE(editor.track->viewport().samplesPerPoint, before / 2); // magnified twice
        QVERIFY(std::abs(editor.canvas->frameAt(fingers.x()) - frameUnder) < 1e-6);
    }

    void zoomCommandsShowTheSelectionAndTheWholeTrack() {
        Editor editor;
        editor.track->setSelection(FrameRange{8000, 16000});
        editor.canvas->zoomToSelection();
        QCOMPARE(editor.track->viewport().start, 8000.0);
        QCOMPARE(editor.track->viewport().visibleSpan(), 8000.0);
        editor.canvas->zoomToFit();
        QCOMPARE(editor.track->viewport().start, 0.0);
        QCOMPARE(editor.track->viewport().visibleSpan(), double(frames));
        editor.canvas->verticalZoomIn();
        QVERIFY(editor.track->verticalZoom() > 1);
        for (int i = 0; i < 40; ++i)
            editor.canvas->verticalZoomOut();
        QCOMPARE(editor.track->verticalZoom(), WaveformCanvas::minVerticalZoom);
    }

    void draggingAMarkerOnTheRulerMovesItAsOneUndoStep() {
        Editor editor;
        const auto id = editor.track->addMarker(12000, std::nullopt); // x = 200
        QVERIFY(id);
        const int y = WaveformCanvas::rulerHeight - 4;
        drag(editor.canvas.get(), QPointF(left + 201, y), QPointF(left + 301, y));
        QCOMPARE(editor.track->markers().front().start, int64_t(18000));
        QCOMPARE(editor.track->undoStack().undoActionName(), std::string("Move Marker"));
        editor.track->undoStack().undo();
        QCOMPARE(editor.track->markers().front().start, int64_t(12000));
        QCOMPARE(editor.track->selection(), std::nullopt); // the drag selected nothing
    }

    void draggingARegionsEndChangesOnlyItsEnd() {
        Editor editor;
        editor.track->addMarker(0, FrameRange{6000, 12000}); // x 100 .. 200
        const int y = WaveformCanvas::rulerHeight - 4;
        drag(editor.canvas.get(), QPointF(left + 200, y), QPointF(left + 250, y));
        QCOMPARE(editor.track->markers().front().start, int64_t(6000));
        QCOMPARE(editor.track->markers().front().end, std::optional<int64_t>(15000));
        // Grabbing the bar moves the whole region.
        drag(editor.canvas.get(), QPointF(left + 150, y), QPointF(left + 170, y));
        QCOMPARE(editor.track->markers().front().start, int64_t(7200));
        QCOMPARE(editor.track->markers().front().end, std::optional<int64_t>(16200));
    }

    void doubleClickOnAMarkerRenamesItInPlace() {
        Editor editor;
        const auto id = editor.track->addMarker(12000, std::nullopt);
        const QPointF at(left + 200, WaveformCanvas::rulerHeight - 4);
        send(editor.canvas.get(), QEvent::MouseButtonDblClick, at, Qt::LeftButton);
        QCOMPARE(editor.track->renamingMarker(), id);
        QLineEdit* editorField = editor.canvas->markerNameEditor();
        QVERIFY(editorField->isVisible());
        QCOMPARE(editorField->text(), QString("Marker 1"));
        editorField->setText("Intro");
        QTest::keyClick(editorField, Qt::Key_Return);
        QCOMPARE(editor.track->markers().front().name, std::string("Intro"));
        QCOMPARE(editor.track->renamingMarker(), std::nullopt);
        QVERIFY(!editorField->isVisible());

        // Escape keeps the old name.
        send(editor.canvas.get(), QEvent::MouseButtonDblClick, at, Qt::LeftButton);
        editorField->setText("Verse");
        QTest::keyClick(editorField, Qt::Key_Escape);
        QCOMPARE(editor.track->markers().front().name, std::string("Intro"));
        QCOMPARE(editor.track->renamingMarker(), std::nullopt);
    }

    void switchingThemesChangesTheDrawnBackground() {
        Editor editor;
        const QPoint empty(left + 700,
                           editor.canvas->waveArea().top() + 3); // silent half, off the zero line
        for (const CanvasThemeID id :
             {CanvasThemeID::paper, CanvasThemeID::midnight, CanvasThemeID::highContrast}) {
            editor.preferences.setCanvasTheme(id);
            const QImage image = editor.canvas->grab().toImage();
            QCOMPARE(image.pixelColor(empty * image.devicePixelRatio()).rgb(),
                     CanvasTheme::make(id, editor.canvas->palette()).background.rgb());
        }
    }

    void everyThemeIsDistinctAndItsWaveStandsOutFromItsBackground() {
        const QPalette palette = QApplication::palette();
        std::vector<QRgb> backgrounds;
        for (const auto& [id, name] : canvasThemeNames) {
            const CanvasTheme theme = CanvasTheme::make(id, palette);
            for (const QColor& colour :
                 {theme.wave, theme.selectedWave, theme.rulerText, theme.cursor}) {
                const int contrast = std::abs(colour.lightness() - theme.background.lightness()) +
                                     std::abs(colour.hue() - theme.background.hue()) / 4;
                QVERIFY2(contrast > 60, name.data());
            }
            if (id != CanvasThemeID::nativeDark && id != CanvasThemeID::nativeLight) {
                QVERIFY2(std::find(backgrounds.begin(), backgrounds.end(),
                                   theme.background.rgb()) == backgrounds.end(),
                         name.data());
                backgrounds.push_back(theme.background.rgb());
            }
        }
    }

    void followingTheSystemSwitchesBetweenTheLightAndDarkThemes() {
        Editor editor;
        editor.preferences.setLightCanvasTheme(CanvasThemeID::paper);
        editor.preferences.setDarkCanvasTheme(CanvasThemeID::ocean);
        editor.preferences.setFollowsSystemAppearance(true);
        const QPalette original = QApplication::palette();
        QPalette dark = original, light = original;
        dark.setColor(QPalette::Window, QColor(0x20, 0x20, 0x20));
        dark.setColor(QPalette::WindowText, QColor(0xf0, 0xf0, 0xf0));
        light.setColor(QPalette::Window, QColor(0xf0, 0xf0, 0xf0));
        light.setColor(QPalette::WindowText, QColor(0x10, 0x10, 0x10));
        QApplication::setPalette(dark);
        QCoreApplication::sendPostedEvents(); // the palette reaches widgets as posted events
        QCOMPARE(editor.canvas->themeID(), CanvasThemeID::ocean);
        QApplication::setPalette(light);
        QCoreApplication::sendPostedEvents();
        QCOMPARE(editor.canvas->themeID(), CanvasThemeID::paper);
        QApplication::setPalette(original);
        QCoreApplication::sendPostedEvents();
    }

    // Keys go through the window's actions to the focused canvas. The view shows 16000 ..
    // 24000 at 10 frames per point: an arrow steps 800 frames, Ctrl+arrow 10.
    void cursorKeys_data() {
        QTest::addColumn<int64_t>("cursor");
        QTest::addColumn<std::optional<FrameRange>>("selection");
        QTest::addColumn<QString>("keys");
        QTest::addColumn<int64_t>("newCursor");
        QTest::addColumn<std::optional<FrameRange>>("newSelection");
        QTest::addColumn<double>("newStart"); // of the view
        QTest::addColumn<double>("newSpan");
        using R = std::optional<FrameRange>;
        const R none;
        QTest::newRow("Home") << int64_t(20000) << R(FrameRange{18000, 19000}) << "Home"
                              << int64_t(0) << none << 0.0 << 8000.0;
        QTest::newRow("End") << int64_t(20000) << none << "End" << int64_t(48000) << none << 40000.0
                             << 8000.0;
        QTest::newRow("Shift+Home") << int64_t(20000) << none << "Shift+Home" << int64_t(0)
                                    << R(FrameRange{0, 20000}) << 0.0 << 8000.0;
        QTest::newRow("Shift+End keeps the start")
            << int64_t(18000) << R(FrameRange{18000, 19000}) << "Shift+End" << int64_t(18000)
            << R(FrameRange{18000, 48000}) << 40000.0 << 8000.0;
        QTest::newRow("Right, Right") << int64_t(20000) << none << "Right, Right" << int64_t(21600)
                                      << none << 16000.0 << 8000.0;
        QTest::newRow("Left") << int64_t(20000) << none << "Left" << int64_t(19200) << none
                              << 16000.0 << 8000.0;
        QTest::newRow("Ctrl+Right") << int64_t(20000) << none << "Ctrl+Right" << int64_t(20010)
                                    << none << 16000.0 << 8000.0;
        QTest::newRow("Right leaves a selection at its end")
            << int64_t(18000) << R(FrameRange{18000, 19000}) << "Right" << int64_t(19000) << none
            << 16000.0 << 8000.0;
        QTest::newRow("Right past the view scrolls")
            << int64_t(23900) << none << "Right" << int64_t(24700) << none << 17500.0 << 8000.0;
        QTest::newRow("Shift+Left moves the start")
            << int64_t(18000) << R(FrameRange{18000, 19000}) << "Shift+Left" << int64_t(17200)
            << R(FrameRange{17200, 19000}) << 16000.0 << 8000.0;
        QTest::newRow("Shift+Right twice, Shift+Left")
            << int64_t(20000) << none << "Shift+Right, Shift+Right, Shift+Left" << int64_t(20000)
            << R(FrameRange{20000, 20800}) << 16000.0 << 8000.0;
        QTest::newRow("Shift+Left across the anchor")
            << int64_t(20000) << none << "Shift+Right, Shift+Left, Shift+Left" << int64_t(19200)
            << R(FrameRange{19200, 20000}) << 16000.0 << 8000.0;
        QTest::newRow("Page Down")
            << int64_t(20000) << none << "PgDown" << int64_t(20000) << none << 24000.0 << 8000.0;
        QTest::newRow("Page Up") << int64_t(20000) << none << "PgUp" << int64_t(20000) << none
                                 << 8000.0 << 8000.0;
        // The cursor at x 200 stays there; out of view, the middle of the view stays.
        QTest::newRow("zoom in around the cursor")
            << int64_t(18000) << none << "Ctrl+=" << int64_t(18000) << none << 17000.0 << 4000.0;
        QTest::newRow("zoom out around the cursor")
            << int64_t(18000) << none << "Ctrl+-" << int64_t(18000) << none << 14000.0 << 16000.0;
        QTest::newRow("zoom in, cursor out of view")
            << int64_t(30000) << none << "Ctrl+=" << int64_t(30000) << none << 18000.0 << 4000.0;
    }

    void cursorKeys() {
        QFETCH(int64_t, cursor);
        QFETCH(std::optional<FrameRange>, selection);
        QFETCH(QString, keys);
        QMainWindow window; // made first and gone last: the canvas leaves it before
        QMenu effectKinds;
        Editor editor;
        editor.canvas->setObjectName("waveformCanvas");
        editor.canvas->setParent(&window);
        window.setCentralWidget(editor.canvas.get());
        MainMenus menus(editor.model, window, effectKinds);
        // The window connects the zoom commands to the canvas.
        connect(menus.action(ActionID::zoomIn), &QAction::triggered, editor.canvas.get(),
                &WaveformCanvas::zoomIn);
        connect(menus.action(ActionID::zoomOut), &QAction::triggered, editor.canvas.get(),
                &WaveformCanvas::zoomOut);
        window.resize(left + canvasWidth, 400);
        window.show();
        window.activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&window));
        QCOMPARE(editor.canvas->width(), left + canvasWidth);
        editor.track->show(16000, 24000);
        editor.track->setCursor(cursor);
        editor.track->setSelection(selection);
        click(editor.canvas.get(), QPointF(left / 2, editor.laneY())); // on the scale: focus only
        QVERIFY(editor.canvas->hasFocus());
        QCOMPARE(editor.track->cursor(), cursor);

        QTest::keySequence(editor.canvas.get(), QKeySequence(keys));
        QTEST(editor.track->cursor(), "newCursor");
        QTEST(editor.track->selection(), "newSelection");
        QTEST(editor.track->viewport().start, "newStart");
        QTEST(editor.track->viewport().visibleSpan(), "newSpan");
    }

    void theScrollBarShowsOnlyWhenThereIsSomewhereToScroll() {
        Editor editor;
        auto* bar = editor.canvas->findChild<QScrollBar*>("canvasScrollBar");
        QVERIFY(bar);
        QVERIFY(!bar->isVisible());
        const int fullHeight = editor.canvas->height() - WaveformCanvas::rulerHeight;
        QCOMPARE(editor.canvas->waveArea().height(), fullHeight);
        editor.canvas->zoomIn();
        QVERIFY(bar->isVisible());
        QCOMPARE(editor.canvas->waveArea().height(), fullHeight - bar->height());
        QCOMPARE(bar->geometry().left(), editor.canvas->waveArea().left());
        editor.canvas->zoomToFit();
        QVERIFY(!bar->isVisible());
    }

    // Pressing in the selection and moving selects anew; its grip or Alt drags it out.
    void onlyTheGripOrAltDragsTheSelectionOut() {
        OwnTemporaryFolder temporary;
        Editor editor;
        int drags = 0;
        QString dragged;
        editor.canvas->runSelectionDrag = [&](std::unique_ptr<QMimeData> data) {
            ++drags;
            if (data->hasUrls()) dragged = data->urls().front().toLocalFile();
        };
        const FrameRange selected{12000, 24000}; // x 200 .. 400
        editor.track->setSelection(selected);
        drag(editor.canvas.get(), editor.at(300), editor.at(320));
        QCOMPARE(drags, 0);
        QCOMPARE(temporary.entries(), 0); // nothing was written
        QCOMPARE(editor.track->selection(), std::optional(FrameRange{18000, 19200}));

        editor.track->setSelection(selected);
        const QRectF grip = editor.canvas->selectionHandleRect();
        QVERIFY(!grip.isEmpty());
        QCOMPARE(grip.center().x(), left + 300.0);
        QVERIFY(grip.top() >= editor.canvas->waveArea().top());
        drag(editor.canvas.get(), grip.center(), grip.center() + QPointF(30, 40));
        QCOMPARE(drags, 1);
        QVERIFY2(dragged.endsWith("(selection).wav"), qPrintable(dragged));
        QVERIFY(dragged.startsWith(temporary.folder.path()));
        QCOMPARE(editor.track->selection(), std::optional(selected));

        drag(editor.canvas.get(), editor.at(250), editor.at(350), Qt::AltModifier);
        QCOMPARE(drags, 2);
        QCOMPARE(editor.track->selection(), std::optional(selected));
        // Alt outside the selection selects as usual.
        drag(editor.canvas.get(), editor.at(500), editor.at(600), Qt::AltModifier);
        QCOMPARE(drags, 2);
        QCOMPARE(editor.track->selection(), std::optional(FrameRange{30000, 36000}));
    }

    // Time labels above, marker names in their own band below, each cut short before the
    // next marker, and none running off the canvas.
    void rulerLabelsNeverOverlap() {
        Editor editor;
        AudioTrack& track = *editor.track;
        for (const int64_t frame : {int64_t(3000), int64_t(3300), int64_t(9000), int64_t(47500)})
            track.addMarker(frame, std::nullopt); // 3000 and 3300 are 5 points apart
        track.addMarker(0, FrameRange{12000, 13500});
        track.addMarker(12600, std::nullopt); // inside the region
        const Uuid named = track.markers()[2].id;
        track.renameMarker(named, "A name far longer than the room before the region");
        for (const double span : {double(frames), 12000.0}) {
            track.show(0, span);
            const auto labels = editor.canvas->rulerLabels();
            int times = 0, names = 0, elided = 0;
            for (size_t i = 0; i < labels.size(); ++i) {
                const auto& a = labels[i];
                times += !a.isMarker;
                names += a.isMarker;
                elided += a.text.endsWith(QString::fromUtf8("…"));
                QVERIFY2(a.rect.left() >= left && a.rect.right() <= editor.canvas->width(),
                         qPrintable(a.text));
                QVERIFY(a.isMarker ? a.rect.top() >= WaveformCanvas::timeBandHeight
                                   : a.rect.bottom() <= WaveformCanvas::timeBandHeight);
                for (size_t j = i + 1; j < labels.size(); ++j)
                    QVERIFY2(!a.rect.intersects(labels[j].rect),
                             qPrintable(a.text + " / " + labels[j].text));
            }
            QVERIFY(times >= 4);
            QVERIFY(names >= 2);
            QVERIFY(elided >= 1);
        }
    }

    void draggedSelectionIsA24BitWavOfTheSelectedFrames() {
        Editor editor;
        editor.track->setSelection(FrameRange{1000, 5800});
        std::unique_ptr<QMimeData> data(editor.canvas->selectionMimeData());
        QVERIFY(data && data->hasUrls());
        const QString path = data->urls().front().toLocalFile();
        QVERIFY2(path.endsWith("loud-then-silent (selection).wav"), qPrintable(path));
        SF_INFO info{};
        SNDFILE* file = sf_open(path.toLocal8Bit().constData(), SFM_READ, &info);
        QVERIFY(file);
        sf_close(file);
        QCOMPARE(info.frames, sf_count_t(4800));
        QCOMPARE(info.channels, 2);
        QCOMPARE(info.format, SF_FORMAT_WAV | SF_FORMAT_PCM_24);

        editor.track->setSelection(std::nullopt);
        QVERIFY(editor.canvas->selectionMimeData() == nullptr);
    }

    void theCanvasFollowsTheActiveTrackAndLetsGoOfTracksWhenDestroyed() {
        Editor editor;
        auto other = AudioTrack::create("/nonexistent/other.wav");
        other->finishLoading(test::makeAudio(rate, {std::vector<float>(96000, 0.1f)}));
        editor.model.addTrack(other);
        editor.model.setSelectedTrackIDs({other->id()});
        QCOMPARE(other->viewport().width, double(canvasWidth));
        drag(editor.canvas.get(), editor.at(100), editor.at(200));
        QCOMPARE(other->selection(), std::optional(FrameRange{12000, 24000}));
        QCOMPARE(editor.track->selection(), std::nullopt);
        editor.canvas.reset();
        // Signals of tracks and model reach no destroyed canvas.
        other->setSelection(FrameRange{0, 10});
        editor.track->setViewport(Viewport{0, 1, 100});
        editor.model.setSelectedTrackIDs({editor.track->id()});
    }

    // Pictures to look at (QT_SCALE_FACTOR=2 for 2x); the scale's labels stand in each lane.
    void screenshotsOfAStereoTrackWithMarkersAndASelection() {
        Editor editor;
        editor.canvas->resize(1366, 768);
        AudioTrack& track = *editor.track;
        track.addMarker(6000, std::nullopt);
        track.addMarker(6600, std::nullopt);
        track.addMarker(0, FrameRange{30000, 42000});
        track.renameMarker(track.markers().back().id, "Outro");
        track.setSelection(FrameRange{14000, 22000});
        track.setCursor(14000);
        const QString scale = QString::number(editor.canvas->devicePixelRatioF());
        for (const auto& [id, name] : {std::pair{CanvasThemeID::nativeLight, "light"},
                                       std::pair{CanvasThemeID::classic, "dark"}}) {
            editor.preferences.setCanvasTheme(id);
            const QImage image = editor.canvas->grab().toImage();
            QVERIFY(image.save(screenshotFolder() + "/canvas-" + name + "-" + scale + "x.png"));
            const QColor strip = editor.canvas->theme().rulerBackground;
            const QRect area = editor.canvas->waveArea();
            const double dpr = image.devicePixelRatio();
            for (int lane = 0; lane < 2; ++lane) {
                const int top = area.top() + lane * area.height() / 2;
                // Rows of the strip at the lane's top (0 dB), quarter (-6 dB), middle (-inf).
                for (const int y : {top + 5, top + area.height() / 8, top + area.height() / 4}) {
                    int drawn = 0;
                    for (int x = 0; x < int(left * dpr) - 1; ++x)
                        drawn += image.pixelColor(x, int(y * dpr)).rgb() != strip.rgb();
                    QVERIFY2(drawn > 0, qPrintable(QString("lane %1 y %2").arg(lane).arg(y)));
                }
            }
        }
    }

    void screenshotsShowTheWaveformWhereTheAudioIsLoudAndNotWhereItIsSilent() {
        Editor editor;
        editor.preferences.setCanvasTheme(CanvasThemeID::classic);
        const CanvasTheme theme = editor.canvas->theme();
        const QRect area = editor.canvas->waveArea();
        const int laneHeight = area.height() / 2;

        QImage normal = editor.canvas->grab().toImage();
        QImage sharp(editor.canvas->size() * 2, QImage::Format_ARGB32_Premultiplied);
        sharp.setDevicePixelRatio(2);
        sharp.fill(Qt::black);
        editor.canvas->render(&sharp);
        QVERIFY(normal.save(screenshotFolder() + "/canvas-1x.png"));
        QVERIFY(sharp.save(screenshotFolder() + "/canvas-2x.png"));

        for (const QImage* image : {&normal, &sharp}) {
            const double dpr = image->devicePixelRatio();
            for (int lane = 0; lane < 2; ++lane) {
                const int top = area.top() + lane * laneHeight, bottom = top + laneHeight;
                // Loud half: every column shows a tall trace (a column spans half a period of
                // the sine, so at least a third of the lane).
                for (int x = 10; x < canvasWidth / 2 - 10; x += 7) {
                    const int drawn = pixelsOf(*image, theme.wave, left + x, top, bottom) +
                                      pixelsOf(*image, theme.waveRMS, left + x, top, bottom);
                    QVERIFY2(drawn > laneHeight * dpr * dpr / 3,
                             qPrintable(QString("x %1 lane %2 dpr %3: %4")
                                            .arg(x)
                                            .arg(lane)
                                            .arg(dpr)
                                            .arg(drawn)));
                }
                // Silent half: no waveform colour at all.
                for (int x = canvasWidth / 2 + 10; x < canvasWidth - 10; x += 7)
                    QCOMPARE(pixelsOf(*image, theme.wave, left + x, top, bottom) +
                                 pixelsOf(*image, theme.waveRMS, left + x, top, bottom),
                             0);
            }
        }
        // At 2x the trace is drawn per device pixel: neighbouring device columns differ.
        const int top = area.top();
        int differing = 0;
        for (int x = 20; x < 200; ++x) {
            int a = 0, b = 0;
            for (int y = top * 2; y < (top + laneHeight) * 2; ++y) {
                a += sharp.pixelColor(2 * (left + x), y).rgb() == theme.wave.rgb();
                b += sharp.pixelColor(2 * (left + x) + 1, y).rgb() == theme.wave.rgb();
            }
            differing += a != b;
        }
        QVERIFY(differing > 20);
    }
};

QTEST_MAIN(CanvasTests)
#include "CanvasTests.moc"
