#include "app/AboutDialog.h"

#include <QLabel>
#include <QtTest>

class AboutTests : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void showsNameVersionAndLicence() {
        sonvale::AboutDialog about;
        QCOMPARE(about.windowTitle(), QString("About Sonvale"));
        QVERIFY(about.findChild<QLabel*>("aboutName")->text().contains("Sonvale"));
        QCOMPARE(about.findChild<QLabel*>("aboutVersion")->text(),
                 QString("Version " SONVALE_VERSION));
        QVERIFY(about.findChild<QLabel*>("aboutLicence")->text().contains("GPL-3.0-or-later"));
        QVERIFY(!about.findChild<QLabel*>("aboutSummary")->text().isEmpty());
    }

    void theIconIsBuiltIntoTheProgram() {
        const QIcon icon = sonvale::applicationIcon();
        QVERIFY(!icon.isNull());
        const QImage image = icon.pixmap(QSize(64, 64)).toImage();
        QCOMPARE(image.size(), QSize(64, 64));
        // The drawing is a rounded square: the corner is transparent, the middle is painted.
        QCOMPARE(qAlpha(image.pixel(0, 0)), 0);
        QVERIFY(qAlpha(image.pixel(32, 32)) > 0);

        sonvale::AboutDialog about;
        const QLabel* shown = about.findChild<QLabel*>("aboutIcon");
        QVERIFY(!shown->pixmap().isNull());
    }
};

QTEST_MAIN(AboutTests)
#include "AboutTests.moc"
