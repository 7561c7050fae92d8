#pragma once

#include "base/Executor.h"

#include <QObject>
#include <QThreadPool>

namespace sonvale {

// The executor of the desktop program: main-thread work goes through Qt's event loop,
// background work through a thread pool.
class QtExecutor final : public QObject, public Executor {
    Q_OBJECT
public:
    explicit QtExecutor(QObject* parent = nullptr);
    ~QtExecutor() override;
    void post(Work work) override;
    DelayedTask postAfter(std::chrono::milliseconds delay, Work work) override;
    void runInBackground(Work work) override;
    // Waits for background work to finish (at quit and in tests).
    void waitForBackground();

private:
    QThreadPool pool;
};

} // namespace sonvale
