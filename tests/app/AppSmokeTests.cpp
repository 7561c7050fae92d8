#include "app/MainWindow.h"
#include "app/QtExecutor.h"

#include <QListWidget>
#include <QtTest>

class MainWindowTests : public QObject {
    Q_OBJECT
private slots:
    void windowIsTitledSonvale() {
        sonvale::QtExecutor executor;
        sonvale::MainWindow window(executor);
        QCOMPARE(window.windowTitle(), QString("Sonvale"));
    }
};

QTEST_MAIN(MainWindowTests)
#include "AppSmokeTests.moc"
