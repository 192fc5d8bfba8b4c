#include "app/WatchDog.h"

#include "app/log/logLine.h"
#include "support/ourProcessAlreadyExists.h"

WatchDog::WatchDog(const QString& nameOfProcess, int intervalMs)
    : interval(intervalMs), processName(nameOfProcess) {
    timer.setTimerType(Qt::PreciseTimer);
    connect(&timer, &QTimer::timeout, this, &WatchDog::onTimeout);
}

void WatchDog::start() {
    timer.start(interval);
}

void WatchDog::onTimeout() {
    if (ourProcessAlreadyExists(_qzString8_allSize<25>(processName), true, true, nullptr))
        return;
    logLine(3, QStringLiteral("Process '%1' does  not exist, closing...").arg(processName));
    emit processKilled();
}
