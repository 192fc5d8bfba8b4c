// What the program's run found, from its recorded calls.
#pragma once

#include <optional>

#include <QJsonObject>
#include <QString>
#include <QVector>

#include "doctor/steps/StepRunner.h"

namespace doctor {

/// A GPU as a provider has it.
struct RecordFacts {
    bool isNvidia = false;
    int place = 0; ///< in the provider's own order
    QString name;
    int deviceIndex = -1;
    int kind = 0; ///< GpuType
    bool optixCapable = false;
    bool amdRayTracing = false;
    bool isListed = false; ///< it is in the GPU list
    QString openCLDevice;  ///< handle; empty: none

    template <class Visit>
    void walk(Visit visit) {
        visit("isNvidia", isNvidia);
        visit("place", place);
        visit("name", name);
        visit("deviceIndex", deviceIndex);
        visit("kind", kind);
        visit("optixCapable", optixCapable);
        visit("amdRayTracing", amdRayTracing);
        visit("isListed", isListed);
        visit("openCLDevice", openCLDevice);
    }
};

/// One card in /sys/class/drm.
struct CardFacts {
    QString entry;   ///< "card0"
    QString address; ///< the last part of its device link
    QString name;
    bool isAmd = false;
    bool isLargeEnough = false; ///< by the program's rule
    quint32 memoryMb = 0;
    quint32 bus = 0;

    template <class Visit>
    void walk(Visit visit) {
        visit("entry", entry);
        visit("address", address);
        visit("name", name);
        visit("isAmd", isAmd);
        visit("isLargeEnough", isLargeEnough);
        visit("memoryMb", memoryMb);
        visit("bus", bus);
    }
};

/// One recorded call.
struct CallFacts {
    QString name;
    QJsonObject arguments;
    QJsonObject answer;
    bool returned = false;
    int status = 0;
    QByteArray printed; ///< by the driver, within the call

    QString argument(const char* key) const { return arguments.value(QLatin1String(key)).toString(); }
    double number(const char* key) const { return answer.value(QLatin1String(key)).toDouble(); }
    QString text(const char* key) const { return answer.value(QLatin1String(key)).toString(); }
};

/// A query of a device, and whether it answers.
struct QueryFacts {
    QString function;
    int status = 0;
};

/// A device as NVML reported it to the program.
struct NvmlDeviceFacts {
    int index = 0;
    int handleStatus = 0;
    QString handle;
    QString name;
    QString address; ///< empty when its place is not known
    quint32 bus = 0;
    int place = -1; ///< of its record; -1 without one
    QVector<QueryFacts> queries;
};

struct CudaDeviceFacts {
    int number = 0;
    int status = 0;
    int bus = 0;
    int major = 0;
    int minor = 0;
};

/// One of CUDA's libraries, as it was tried.
struct CudaLibraryFacts {
    QString file;
    bool opened = false;
    QString reason;                 ///< why it did not open
    std::optional<int> countStatus; ///< none: it was not asked
};

class ProgramFacts {
  public:
    ProgramFacts() = default;
    explicit ProgramFacts(const StepOutcome& outcome);

    bool wasRun = false;
    QVector<CallFacts> calls;
    QVector<RecordFacts> records;
    QVector<CardFacts> cards;

    /// The first call of that name; null without one.
    const CallFacts* firstCall(const QString& name) const;

    /// Whether the library of one of these names was opened.
    bool hasOpened(const QString& part) const;

    QVector<NvmlDeviceFacts> nvmlDevices() const;
    QVector<CudaLibraryFacts> cudaLibraries() const;

    /// The library that answers; empty if none does.
    QString cudaLibrary() const;
    QVector<CudaDeviceFacts> cudaDevices() const;

    const RecordFacts* nvidiaRecord(int place) const;
    const RecordFacts* amdRecord(int place) const;

    int listedCount() const;
};

/// The calls of a step, each with its answer and what was printed during it.
QVector<CallFacts> callsOf(const Messages& messages);

} // namespace doctor
