#include "app/QtExecutor.h"

#include <QTimer>

namespace sonvale {

QtExecutor::QtExecutor(QObject* parent)
    : QObject(parent) {
    pool.setMaxThreadCount(std::max(2, QThread::idealThreadCount()));
}

QtExecutor::~QtExecutor() { pool.waitForDone(); }

void QtExecutor::post(Work work) {
    QMetaObject::invokeMethod(
        this, [work = std::move(work)] { work(); }, Qt::QueuedConnection);
}

DelayedTask QtExecutor::postAfter(std::chrono::milliseconds delay, Work work) {
    auto cancelled = std::make_shared<bool>(false);
    QTimer::singleShot(delay, this, [work = std::move(work), cancelled] {
        if (!*cancelled) work();
    });
    return DelayedTask(cancelled);
}

void QtExecutor::runInBackground(Work work) { pool.start(std::move(work)); }

void QtExecutor::waitForBackground() { pool.waitForDone(); }

} // namespace sonvale
