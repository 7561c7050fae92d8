#include "app/MainWindow.h"
#include "app/MultitrackHarness.h"
#include "app/ShortcutsDialog.h"
#include "app/canvas/WaveformCanvas.h"
#include "editor/EditorModel.h"
#include "effects/EffectChain.h"
#include "effects/EffectSession.h"
#include "effects/LimiterProcessor.h"

#include <QAction>
#include <QDockWidget>
#include <QLabel>
#include <QListWidget>
#include <QMenuBar>
#include <QMessageBox>
#include <QPushButton>
#include <QSplitter>
#include <QStackedWidget>
#include <QStatusBar>
#include <QToolButton>
#include <QTreeWidget>
#include <QtTest>
#include <cmath>

using namespace sonvale;
using ID = ActionID;

namespace {

// A window over in-memory preferences that a second window can share.
struct Window {
    QtExecutor executor;
    Preferences& preferences;
    EditorModel model{executor, preferences};
    MainWindow window{model};

    explicit Window(Preferences& preferences)
        : preferences(preferences) {}
    ~Window() { executor.waitForBackground(); }

    AudioTrackPtr open(const char* name) {
        auto opened = model.open({(QString(SONVALE_FIXTURE_DIR) + "/" + name).toStdString()});
        if (opened.size() != 1 || !QTest::qWaitFor([&] { return opened[0]->isReady(); }, 10000))
            return nullptr;
        return opened[0];
    }
};

// WCAG's contrast ratio of two colours, 1 to 21.
double contrast(const QColor& a, const QColor& b) {
    auto luminance = [](const QColor& c) {
        auto channel = [](double v) {
            return v <= 0.03928 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4);
        };
        return 0.2126 * channel(c.redF()) + 0.7152 * channel(c.greenF()) +
               0.0722 * channel(c.blueF());
    };
    const double x = luminance(a), y = luminance(b);
    return (std::max(x, y) + 0.05) / (std::min(x, y) + 0.05);
}

} // namespace

class WindowLayoutTests : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void fitsASmallScreenWithTheEffectsPanelOpenInEitherTheme_data() {
        QTest::addColumn<QString>("theme");
        QTest::addColumn<bool>("dark");
        QTest::newRow("light") << "paper" << false;
        QTest::newRow("dark") << "midnight" << true;
    }
    void fitsASmallScreenWithTheEffectsPanelOpenInEitherTheme() {
        QFETCH(QString, theme);
        QFETCH(bool, dark);
        Preferences preferences;
        preferences.setCanvasTheme(*canvasThemeFromRawValue(theme.toStdString()));
        Window w(preferences);
        auto track = w.open("stereo-s16.wav");
        QVERIFY(track);
        // A 1366x768 screen less a panel and the title bar.
        const QSize screen(1366, 720);
        w.window.resize(screen);
        w.window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&w.window));
        w.model.addEffect(EffectKind::equalizer);
        w.model.addEffect(EffectKind::compressor);
        QTRY_VERIFY(w.window.effectsPanelDock()->isVisible());
        QTest::qWait(100); // the panel lays out its editor
        QVERIFY2(w.window.minimumSizeHint().height() <= screen.height(),
                 qPrintable(QString::number(w.window.minimumSizeHint().height())));
        QCOMPARE(w.window.size(), screen);
        // The views keep a waveform that reads above the panel.
        QVERIFY(w.window.canvas()->height() >= 200);

        const QPalette palette = w.window.palette();
        QCOMPARE(palette.color(QPalette::Window).lightnessF() < 0.5, dark);
        for (auto [text, back] : {std::pair{QPalette::WindowText, QPalette::Window},
                                  std::pair{QPalette::ButtonText, QPalette::Button},
                                  std::pair{QPalette::Text, QPalette::Base},
                                  std::pair{QPalette::HighlightedText, QPalette::Highlight}})
            QVERIFY2(contrast(palette.color(text), palette.color(back)) >= 4.5,
                     qPrintable(QString("roles %1 on %2").arg(text).arg(back)));
        QVERIFY(
            !test::saveScreenshots(w.window, "window-effects-" + QString(QTest::currentDataTag()))
                 .isNull());
    }

    void aNarrowWindowStepsThePanelsAsideBeforeTheWaveform() {
        Preferences preferences;
        Window w(preferences);
        QVERIFY(w.open("stereo-s16.wav"));
        auto* inspector = w.window.findChild<QSplitter*>("inspectorAndMarkers");
        w.window.resize(1366, 720);
        w.window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&w.window));
        QVERIFY(inspector->isVisible() && w.window.trackList()->isVisible());
        auto* more = w.window.findChild<QToolButton*>("moreButton");
        for (auto [width, inspectorShown, listShown, overflows] :
             {std::tuple{900, false, true, true}, std::tuple{700, false, false, true},
              std::tuple{1366, true, true, false}}) {
            w.window.resize(width, 720);
            QTest::qWait(50); // the panels' new minimum reaches the window
            QTRY_COMPARE(w.window.width(), width);
            QCOMPARE(inspector->isVisible(), inspectorShown);
            QCOMPARE(w.window.trackList()->isVisible(), listShown);
            QTRY_VERIFY2(w.window.canvas()->width() >= width / 2,
                         qPrintable(QString("%1: %2").arg(width).arg(w.window.canvas()->width())));
            // The transport bar keeps one line: what doesn't fit waits behind its » button.
            QCOMPARE(more->isVisible(), overflows);
            const auto* panel = w.window.findChild<QWidget*>("transportOverflow");
            QCOMPARE(!panel->findChildren<QLabel*>().isEmpty(), overflows);
            const auto* bar = more->parentWidget();
            QVERIFY(bar->height() < 80);
            QVERIFY(bar->childrenRect().right() <= bar->width());
        }
        // Turned off in the View menu, a panel stays off however wide the window is.
        w.window.action(ID::showInspector)->trigger();
        QVERIFY(!inspector->isVisible());
    }

    void theWindowComesBackAsItWasLeft() {
        Preferences preferences;
        QList<int> sizes;
        {
            Window first(preferences);
            first.window.resize(1180, 700);
            first.window.show();
            QVERIFY(QTest::qWaitForWindowExposed(&first.window));
            auto* panes = first.window.findChild<QSplitter*>("panes");
            panes->setSizes({300, 880});
            sizes = panes->sizes();
            first.window.action(ID::showInspector)->trigger();
            QVERIFY(first.window.close());
        }
        QVERIFY(preferences.windowLayout().has_value());
        Window second(preferences);
        second.window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&second.window));
        QCOMPARE(second.window.size(), QSize(1180, 700));
        QCOMPARE(second.window.findChild<QSplitter*>("panes")->sizes(), sizes);
        QVERIFY(!second.window.action(ID::showInspector)->isChecked());
    }

    void theStartPageAndTheTitleSayWhatIsOpen() {
        Preferences preferences;
        Window w(preferences);
        auto* views = w.window.findChild<QStackedWidget*>("views");
        QCOMPARE(views->currentWidget()->objectName(), QString("startPage"));
        auto track = w.open("speech.wav");
        QVERIFY(track);
        QTRY_VERIFY(views->currentWidget()->isAncestorOf(w.window.canvas()));
        QCOMPARE(w.window.windowTitle(),
                 QString::fromUtf8("speech.wav \u2014 Untitled Session[*]"));
    }

    void anExportSaysWhereTheFileWent() {
        Preferences preferences;
        Window w(preferences);
        QVERIFY(w.open("speech.wav"));
        QTemporaryDir dir;
        const QString file = dir.filePath("out.wav");
        w.model.exportActiveTrack(file.toStdString(), ExportFormat::wav16, false);
        QTRY_VERIFY_WITH_TIMEOUT(!w.window.statusBar()->currentMessage().isEmpty(), 10000);
        QVERIFY(w.window.statusBar()->currentMessage().contains("out.wav"));
        QVERIFY(w.window.statusBar()->currentMessage().contains(dir.path()));
        QVERIFY(!w.window.findChild<QPushButton*>("showExported")->isHidden());
    }

    void loudnessThatWouldClipAsksToLimitOrStopAtTheCleanGain() {
        Preferences preferences;
        Window w(preferences);
        auto track = w.open("speech.wav"); // -19.8 LUFS with peaks at -1.4 dBFS
        QVERIFY(track);
        QTRY_VERIFY_WITH_TIMEOUT(track->currentLoudness().has_value(), 10000);
        const LoudnessTarget target{-14, "Streaming"};
        const float clean = -20 * std::log10(track->audio()->peak);
        for (const char* answer : {"stopAtCleanGain", "limitPeaks"}) {
            const float before = track->gainDB();
            w.model.normalizeLoudness(target);
            QMessageBox* box = w.window.sessionQuestion();
            QVERIFY(box);
            QVERIFY(box->informativeText().contains("over 0 dBFS"));
            QCOMPARE(track->gainDB(), before); // nothing changes before the answer
            box->findChild<QPushButton*>(answer)->click();
        }
        // The clean gain was applied, then the limiter took over the gain from the track.
        QCOMPARE(track->gainDB(), 0.0f);
        w.model.undo();
        QVERIFY(std::abs(track->gainDB() - clean) < 0.01f);
        auto limiter = w.model.effectChain()->selected();
        QCOMPARE(limiter->kind(), EffectKind::limiter);
        const double needed = -14 - *track->currentLoudness();
        QVERIFY(std::abs(limiter->values()[LimiterProcessor::gain] - needed) < 0.01);
        QCOMPARE(limiter->values()[LimiterProcessor::ceiling], -1.0);
        // A target within the peaks' room asks nothing.
        QVERIFY(!w.model.clippingQuestion({-30, "Quiet"}));
    }

    void alertsAreWideAndTheShortcutListCoversEveryKeyedCommand() {
        Preferences preferences;
        Window w(preferences);
        w.window.show();
        w.model.showAlert({"Export failed",
                           "The disk is full. Free some space on the disk that holds the "
                           "folder, or export to another disk, and try again."});
        QTRY_VERIFY(w.window.alertBox() && w.window.alertBox()->isVisible());
        QVERIFY(QTest::qWaitForWindowExposed(w.window.alertBox()));
        auto* text = w.window.alertBox()->findChild<QLabel*>("qt_msgbox_informativelabel");
        QVERIFY(text->height() <= 3 * text->fontMetrics().lineSpacing());

        ShortcutsDialog dialog(*w.window.menuBar());
        QStringList listed;
        for (int g = 0; g < dialog.list()->topLevelItemCount(); ++g)
            for (int i = 0; i < dialog.list()->topLevelItem(g)->childCount(); ++i)
                listed << dialog.list()
                              ->topLevelItem(g)
                              ->child(i)
                              ->data(1, Qt::UserRole)
                              .toStringList();
        for (QAction* action : w.window.findChildren<QAction*>())
            if (!action->shortcut().isEmpty() && !action->menu() && !action->objectName().isEmpty())
                QVERIFY2(listed.contains(action->shortcut().toString(QKeySequence::NativeText)),
                         qPrintable(action->objectName()));
    }
};

QTEST_MAIN(WindowLayoutTests)
#include "WindowLayoutTests.moc"
