#pragma once

#include <QObject>
#include <QString>
#include <QTimer>

/// Watches for the end of the process that started this one, by its name, so that the program does not
/// continue as an orphan.
class WatchDog : public QObject {
    Q_OBJECT

  public:
    WatchDog(const QString& nameOfProcess, int intervalMs);

    /// Starts checking once per interval; the first check comes after one interval.
    void start();

  signals:
    /// No process of that name exists. Emitted at every interval while that is so.
    void processKilled();

  public slots:
    void onTimeout();

  private:
    qint32 interval; ///< milliseconds
    QString processName;
    QTimer timer;
};
