#pragma once

#include <QObject>
#include <QString>
#include <QTimer>

/// Watches for the end of the process that started this one, by its name, so that the program does not run on
/// as an orphan.
class WatchDog : public QObject {
    Q_OBJECT

  public:
    WatchDog(const QString& nameOfProcess, int intervalMs);

    /// Begins to look, every interval; the first time after one interval.
    void start();

  signals:
    /// No process of that name exists. Comes again every interval for as long as that is so.
    void processKilled();

  public slots:
    void onTimeout();

  private:
    qint32 interval; ///< milliseconds
    QString processName;
    QTimer timer;
};
