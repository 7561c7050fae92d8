#include "app/QtExecutor.h"
#include "app/canvas/CanvasTheme.h"
#include "app/canvas/WaveformCanvas.h"
#include "audio/AudioTrack.h"
#include "editor/EditorModel.h"
#include "persistence/Preferences.h"
#include "support/AudioFiles.h"

#include <QDir>
#include <QLineEdit>
#include <QMimeData>
#include <QMouseEvent>
#include <QNativeGestureEvent>
#include <QPointingDevice>
#include <QScrollBar>
#include <QWheelEvent>
#include <QtTest>
#include <cmath>
#include <memory>
#include <sndfile.h>

using namespace sonvale;

namespace {

constexpr double rate = 48000;
constexpr int64_t frames = 48000; // one second: a loud first half and a silent second half
constexpr int canvasWidth = 800;  // 60 frames per point when the whole track shows

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
        canvas->resize(canvasWidth, 300);
        canvas->show();
        QVERIFY(QTest::qWaitForWindowExposed(canvas.get()));
    }
    int laneY() const { return canvas->waveArea().center().y(); }
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

} // namespace

class CanvasTests : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void draggingSelectsTheFramesUnderThePointerForTheViewport() {
        Editor editor;
        editor.track->show(12000, 24000); // 15 frames per point from frame 12000
        drag(editor.canvas.get(), QPointF(100, editor.laneY()), QPointF(300, editor.laneY()));
        QCOMPARE(editor.track->selection(), std::optional(FrameRange{13500, 16500}));
        QCOMPARE(editor.track->cursor(), int64_t(13500));
        // Dragging leftwards selects the same way.
        drag(editor.canvas.get(), QPointF(500, editor.laneY()), QPointF(400, editor.laneY()));
        QCOMPARE(editor.track->selection(), std::optional(FrameRange{18000, 19500}));
    }

    void aClickPlacesTheCursorAndClearsTheSelection() {
        Editor editor;
        editor.track->setSelection(FrameRange{600, 1200});
        click(editor.canvas.get(), QPointF(250, editor.laneY()));
        QCOMPARE(editor.track->selection(), std::nullopt);
        QCOMPARE(editor.track->cursor(), int64_t(15000));
    }

    void shiftClickExtendsTheSelectionFromItsFartherEdge() {
        Editor editor;
        editor.track->setSelection(FrameRange{6000, 12000});
        click(editor.canvas.get(), QPointF(300, editor.laneY()), Qt::ShiftModifier); // frame 18000
        QCOMPARE(editor.track->selection(), std::optional(FrameRange{6000, 18000}));
        click(editor.canvas.get(), QPointF(50, editor.laneY()), Qt::ShiftModifier); // frame 3000
        QCOMPARE(editor.track->selection(), std::optional(FrameRange{3000, 18000}));
    }

    void selectionEdgesSnapToZeroCrossingsOnlyWhenThePreferenceIsOn() {
        Editor editor;
        editor.track->show(0, 8000); // 10 frames per point: six points reach 60 frames
        const QPointF from(101.7, editor.laneY()), to(402.3, editor.laneY());
        drag(editor.canvas.get(), from, to);
        QCOMPARE(editor.track->selection(), std::optional(FrameRange{1017, 4023}));

        editor.preferences.setSnapToZeroCrossings(true);
        editor.track->setSelection(std::nullopt); // a drag inside a selection carries it out
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
        const QPointF pointer(300, editor.laneY());
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
        const QPointF fingers(600, editor.laneY());
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
        drag(editor.canvas.get(), QPointF(201, y), QPointF(301, y));
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
        drag(editor.canvas.get(), QPointF(200, y), QPointF(250, y));
        QCOMPARE(editor.track->markers().front().start, int64_t(6000));
        QCOMPARE(editor.track->markers().front().end, std::optional<int64_t>(15000));
        // Grabbing the bar moves the whole region.
        drag(editor.canvas.get(), QPointF(150, y), QPointF(170, y));
        QCOMPARE(editor.track->markers().front().start, int64_t(7200));
        QCOMPARE(editor.track->markers().front().end, std::optional<int64_t>(16200));
        editor.track->addMarker(30000, std::nullopt);
        editor.track->setSelection(FrameRange{2000, 5000});
        editor.canvas->grab().save(screenshotFolder() + "/canvas-markers.png");
    }

    void doubleClickOnAMarkerRenamesItInPlace() {
        Editor editor;
        const auto id = editor.track->addMarker(12000, std::nullopt);
        const QPointF at(200, WaveformCanvas::rulerHeight - 4);
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
        const QPoint empty(700,
                           editor.canvas->waveArea().top() + 3); // silent half, off the zero line
        for (const CanvasThemeID id :
             {CanvasThemeID::paper, CanvasThemeID::midnight, CanvasThemeID::highContrast}) {
            editor.preferences.setCanvasTheme(id);
            const QImage image = editor.canvas->grab().toImage();
            QCOMPARE(image.pixelColor(empty).rgb(),
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
        drag(editor.canvas.get(), QPointF(100, editor.laneY()), QPointF(200, editor.laneY()));
        QCOMPARE(other->selection(), std::optional(FrameRange{12000, 24000}));
        QCOMPARE(editor.track->selection(), std::nullopt);
        editor.canvas.reset();
        // Signals of tracks and model reach no destroyed canvas.
        other->setSelection(FrameRange{0, 10});
        editor.track->setViewport(Viewport{0, 1, 100});
        editor.model.setSelectedTrackIDs({editor.track->id()});
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
                    const int drawn = pixelsOf(*image, theme.wave, x, top, bottom) +
                                      pixelsOf(*image, theme.waveRMS, x, top, bottom);
                    QVERIFY2(drawn > laneHeight * dpr * dpr / 3,
                             qPrintable(QString("x %1 lane %2 dpr %3: %4")
                                            .arg(x)
                                            .arg(lane)
                                            .arg(dpr)
                                            .arg(drawn)));
                }
                // Silent half: no waveform colour at all.
                for (int x = canvasWidth / 2 + 10; x < canvasWidth - 10; x += 7)
                    QCOMPARE(pixelsOf(*image, theme.wave, x, top, bottom) +
                                 pixelsOf(*image, theme.waveRMS, x, top, bottom),
                             0);
            }
        }
        // At 2x the trace is drawn per device pixel: neighbouring device columns differ.
        const int top = area.top();
        int differing = 0;
        for (int x = 20; x < 200; ++x) {
            int a = 0, b = 0;
            for (int y = top * 2; y < (top + laneHeight) * 2; ++y) {
                a += sharp.pixelColor(2 * x, y).rgb() == theme.wave.rgb();
                b += sharp.pixelColor(2 * x + 1, y).rgb() == theme.wave.rgb();
            }
            differing += a != b;
        }
        QVERIFY(differing > 20);
    }
};

QTEST_MAIN(CanvasTests)
#include "CanvasTests.moc"
