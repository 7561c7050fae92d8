#include "app/MainWindow.h"
#include "app/QtExecutor.h"
#include "editor/EditorModel.h"
#include "persistence/Preferences.h"

#include <QListWidget>
#include <QtTest>

using namespace sonvale;

class MainWindowTests : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void windowIsTitledSonvale() {
        QtExecutor executor;
        Preferences preferences;
        EditorModel model(executor, preferences);
        MainWindow window(model);
        QCOMPARE(window.windowTitle(), QString("Untitled Session[*]"));
    }

    void openedFilesAppearInTheListAndLoadInTheBackground() {
        QtExecutor executor;
        Preferences preferences;
        EditorModel model(executor, preferences);
        MainWindow window(model);
        const QString dir = SONVALE_FIXTURE_DIR;
        window.openFiles({dir + "/stereo-s16.wav", dir + "/noise.mp3"});
        QListWidget* list = window.trackList();
        QCOMPARE(list->count(), 2);
        // Opened files are listed sorted by path.
        QVERIFY(list->item(0)->text().startsWith("noise"));
        QVERIFY(list->item(1)->text().startsWith("stereo-s16"));
        QTRY_VERIFY_WITH_TIMEOUT(model.tracks()[1]->isReady(), 10000);
        QTRY_VERIFY_WITH_TIMEOUT(!list->item(0)->text().contains("Loading"), 10000);
        // The fixture is three seconds long; the broken file shows the decoder's reason.
        QVERIFY2(list->item(1)->text().section('\n', 1).startsWith("0:03.0 "),
                 qPrintable(list->item(1)->text()));
        QVERIFY(!list->item(0)->toolTip().isEmpty());
        executor.waitForBackground();
    }
};

QTEST_MAIN(MainWindowTests)
#include "AppSmokeTests.moc"
