#pragma once

#include <memory>

#include <QObject>
#include <QSocketNotifier>

#include "support/FileDescriptor.h"

/// While it lives, the first SIGINT, SIGTERM or SIGHUP ends the event loop in an orderly way. A signal within
/// a tenth of a second counts as the same; the next of any kind ends the process at once, since a driver's
/// call may never return. A signal that was ignored at start stays ignored; one that was blocked is
/// unblocked. Without a free descriptor nothing is changed, and the first signal usually ends the process.
class EndSignals : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(EndSignals)

  public:
    EndSignals();
    ~EndSignals() override;

  signals:
    /// A signal has arrived. Emitted again for as long as the event loop runs.
    void endRequested();

  private:
    FileDescriptor event;
    std::unique_ptr<QSocketNotifier> notifier;
};
