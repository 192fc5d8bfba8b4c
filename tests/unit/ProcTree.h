// A process list for tests.
#pragma once

#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

/// A process list on disk.
class ProcTree {
  public:
    ProcTree() { addProcess(1, "init", "/sbin/init", QByteArray("/sbin/init\0", 11)); }

    QByteArray root() const { return QFile::encodeName(directory.path()); }

    void addProcess(int pid, const QByteArray& comm, const QByteArray& exe, const QByteArray& cmdline,
                    char state = 'S', int threads = 1) const {
        remove(pid);
        QDir(directory.path()).mkdir(QString::number(pid));
        write(pid, "stat",
              QByteArray::number(pid) + " (" + comm + ") " + state +
                  " 1 1 1 0 -1 4194560 1 0 0 0 3 1 0 0 20 0 " + QByteArray::number(threads) + " 0 " +
                  QByteArray::number(1000 + pid) + " 0\n");
        write(pid, "comm", comm + '\n');
        write(pid, "cmdline", cmdline);
        if (!exe.isEmpty())
            QVERIFY(symlink(exe.constData(), (root() + '/' + QByteArray::number(pid) + "/exe").constData()) ==
                    0);
    }

    void write(int pid, const char* entry, const QByteArray& bytes) const {
        QFile file(path(pid) + QLatin1Char('/') + QLatin1String(entry));
        QVERIFY(file.open(QIODevice::WriteOnly));
        QCOMPARE(file.write(bytes), qint64(bytes.size()));
    }

    void removeEntry(int pid, const char* entry) const {
        QFile::remove(path(pid) + QLatin1Char('/') + QLatin1String(entry));
    }
    void remove(int pid) const { QDir(path(pid)).removeRecursively(); }

    QString path(int pid) const { return directory.path() + QLatin1Char('/') + QString::number(pid); }

  private:
    QTemporaryDir directory;
};
