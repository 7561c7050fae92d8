#include "app/MultitrackHarness.h"

#include <QAction>
#include <QDir>
#include <QtTest>

namespace sonvale::test {

std::unique_ptr<PlaybackEngine> manualEngine(ManualOutput*& output) {
    auto manual = std::make_unique<ManualOutput>();
    output = manual.get();
    return std::make_unique<PlaybackEngine>(std::move(manual));
}

bool MultitrackHarness::addTracks(std::initializer_list<const char*> names) {
    for (const char* name : names) {
        const QString path = QString(SONVALE_FIXTURE_DIR) + "/" + name;
        auto opened = model.open({path.toStdString()});
        if (opened.size() != 1 || !QTest::qWaitFor([&] { return opened[0]->isReady(); }, 10000))
            return false;
        model.setSelectedTrackIDs({opened[0]->id()});
        window.action(ActionID::addToTimeline)->trigger();
    }
    return true;
}

QImage saveScreenshots(QWidget& window, const QString& name) {
    const QImage normal = window.grab().toImage();
    QImage sharp(window.size() * 2, QImage::Format_ARGB32_Premultiplied);
    sharp.setDevicePixelRatio(2);
    window.render(&sharp);
    const QString dir = QDir(QString(SONVALE_FIXTURE_DIR) + "/../screenshots").absolutePath();
    QDir().mkpath(dir);
    if (!normal.save(dir + "/" + name + "-1x.png") || !sharp.save(dir + "/" + name + "-2x.png"))
        return {};
    return normal;
}

} // namespace sonvale::test
