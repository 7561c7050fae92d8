#include "app/MainWindow.h"
#include "app/QtExecutor.h"

#include <QListWidget>
#include <QtTest>

class MainWindowTests : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void windowIsTitledSonvale() {
        sonvale::QtExecutor executor;
        sonvale::MainWindow window(executor);
        QCOMPARE(window.windowTitle(), QString("Sonvale"));
    }

    void openedFilesAppearInTheListAndLoadInTheBackground() {
        sonvale::QtExecutor executor;
        sonvale::MainWindow window(executor);
        const QString dir = SONVALE_FIXTURE_DIR;
        window.openFiles({dir + "/stereo-s16.wav", dir + "/noise.mp3"});
        QListWidget* list = window.trackList();
        QCOMPARE(list->count(), 2);
        QVERIFY(list->item(0)->text().startsWith("stereo-s16.wav"));
        QTRY_VERIFY_WITH_TIMEOUT(!list->item(0)->text().contains(QString::fromUtf8("loading")), 10000);
        QTRY_VERIFY_WITH_TIMEOUT(!list->item(1)->text().contains(QString::fromUtf8("loading")), 10000);
        // The fixture is three seconds long; the broken file shows the decoder's reason.
        QVERIFY2(list->item(0)->text().endsWith("0:03.0"), qPrintable(list->item(0)->text()));
        QVERIFY2(list->item(1)->text().contains("noise.mp3"), qPrintable(list->item(1)->text()));
        QVERIFY(list->item(1)->text().size() > QString("noise.mp3 - ").size());
        executor.waitForBackground();
    }
};

QTEST_MAIN(MainWindowTests)
#include "AppSmokeTests.moc"
