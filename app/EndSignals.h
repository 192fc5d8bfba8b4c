#pragma once

#include <memory>

#include <QObject>
#include <QSocketNotifier>

#include "support/FileDescriptor.h"

/// Ends the event loop in an orderly way on the first SIGINT or SIGTERM for as long as it lives, also where
/// the parent had them ignored or blocked. One that follows within a tenth of a second belongs to it; the
/// next, of either kind, ends the process at once: a driver's call that never returns must not hold it.
/// Without a free descriptor it does nothing: what the parent set stays, which mostly means that the first
/// one already ends the process.
class EndSignals : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(EndSignals)

  public:
    EndSignals();
    ~EndSignals() override;

  signals:
    /// A signal came. Comes again for as long as the event loop runs.
    void endRequested();

  private:
    FileDescriptor event;
    std::unique_ptr<QSocketNotifier> notifier;
};
