// A stand-in library as the program uses it: opened by the dynamic loader, on a machine that a test
// describes.
#pragma once

#include <dlfcn.h>

#include <QByteArray>
#include <QFile>
#include <QTemporaryDir>

#include "simulator/lib/Counters.h"

/// The description, the faults and the counters of a test, in the environment that the stand-ins read.
class SimulatedMachine {
  public:
    explicit SimulatedMachine(const QByteArray& description, const QByteArray& faults = {}) {
        QFile file(folder.filePath("machine"));
        if (!file.open(QIODevice::WriteOnly) || file.write(description) != description.size())
            qFatal("a description cannot be written");
        qputenv("QZSIM_MACHINE", file.fileName().toLocal8Bit());
        qputenv("QZSIM_FAULTS", faults);
        qputenv("QZSIM_COUNTERS", countersPath());
    }

    QByteArray countersPath() const { return folder.filePath("counters").toLocal8Bit(); }

    /// The counter's value; 0 for one that was never counted.
    qint64 counted(const char* name) const {
        return qzsim::Counters(countersPath().toStdString()).value(name);
    }

  private:
    QTemporaryDir folder;
};

/// One of the stand-ins, open as long as the object exists.
class SimulatedLibrary {
  public:
    explicit SimulatedLibrary(const char* fileName)
        : path(QByteArray(QZSIM_LIB_DIR "/") + fileName), handle(dlopen(path.constData(), RTLD_LAZY)) {
        if (handle == nullptr)
            qFatal("%s", dlerror());
    }

    ~SimulatedLibrary() { dlclose(handle); }

    SimulatedLibrary(const SimulatedLibrary&) = delete;
    SimulatedLibrary& operator=(const SimulatedLibrary&) = delete;

    template <typename Function>
    Function* get(const char* name) const {
        return reinterpret_cast<Function*>(dlsym(handle, name));
    }

    /// Whether the library of that file is in memory.
    static bool isLoaded(const QByteArray& path) {
        void* found = dlopen(path.constData(), RTLD_LAZY | RTLD_NOLOAD);
        if (found != nullptr)
            dlclose(found);
        return found != nullptr;
    }

    const QByteArray path;

  private:
    void* handle;
};
