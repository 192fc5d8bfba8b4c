// A test's private directory in real shared memory.
#pragma once

#include <cstdlib>

#include <sys/stat.h>
#include <unistd.h>

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QStringList>

#include "support/qzSharedMemory.h"

/// Created by the constructor; removed with its content by the process that created it.
class SegmentDirectory {
  public:
    SegmentDirectory() {
        char name[] = "/dev/shm/qzTest-XXXXXX";
        if (mkdtemp(name) != nullptr)
            directory = name;
    }
    ~SegmentDirectory() {
        if (!directory.isEmpty() && getpid() == owner)
            QDir(QString::fromUtf8(directory)).removeRecursively();
    }
    SegmentDirectory(const SegmentDirectory&) = delete;
    SegmentDirectory& operator=(const SegmentDirectory&) = delete;

    const char* path() const { return directory.constData(); }
    QByteArray file(const char* key) const { return directory + '/' + key; }

    /// The names in it, hidden files included.
    QStringList names() const {
        return QDir(QString::fromUtf8(directory))
            .entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    }

    /// Of the name itself; all zeros if it does not exist.
    struct stat status(const char* key) const {
        struct stat result{};
        if (lstat(file(key).constData(), &result) != 0)
            result = {};
        return result;
    }

    QByteArray bytes(const char* key) const {
        QFile opened(QString::fromUtf8(file(key)));
        return opened.open(QIODevice::ReadOnly) ? opened.readAll() : QByteArray();
    }

    /// A plain file of this user with rights 0600.
    bool makeFile(const char* key, const QByteArray& content) const {
        QFile opened(QString::fromUtf8(file(key)));
        return opened.open(QIODevice::WriteOnly) && opened.write(content) == content.size() &&
               chmod(file(key).constData(), 0600) == 0;
    }

  private:
    QByteArray directory;
    pid_t owner = getpid();
};

/// Numbers of the descriptors that this process has open.
inline QStringList openDescriptors() {
    return QDir(QStringLiteral("/proc/self/fd"))
        .entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot);
}
