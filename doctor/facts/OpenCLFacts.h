// What OpenCL offers: through the loader with all drivers, and with each driver alone.
#pragma once

#include <QString>
#include <QVector>

#include "doctor/Places.h"
#include "doctor/steps/StepRunner.h"

namespace doctor {

/// One way in which a device may report its bus.
struct BusAnswer {
    QString attribute; ///< "NV", "AMD", "KHR"
    int status = 0;
    quint32 bus = 0;

    template <class Visit>
    void walk(Visit visit) {
        visit("attribute", attribute);
        visit("status", status);
        visit("bus", bus);
    }
};

struct OpenCLDeviceFacts {
    QString name;
    QString handle;
    int platform = 0; ///< its place in the loader's list
    int number = 0;   ///< its place among the platform's GPUs
    QVector<BusAnswer> answers;
    // By the program's rules.
    QString nvidiaAttribute; ///< the one by which an NVIDIA GPU is paired with it; empty: none
    quint32 nvidiaBus = 0;
    bool amdBusKnown = false;
    QString amdSource;
    quint32 amdBus = 0;

    template <class Visit>
    void walk(Visit visit) {
        visit("name", name);
        visit("handle", handle);
        visit("platform", platform);
        visit("number", number);
        visit("answers", answers);
        visit("nvidiaAttribute", nvidiaAttribute);
        visit("nvidiaBus", nvidiaBus);
        visit("amdBusKnown", amdBusKnown);
        visit("amdSource", amdSource);
        visit("amdBus", amdBus);
    }
};

struct OpenCLPlatformFacts {
    int number = 0;
    QString name;
    int status = 0;           ///< of asking for GPUs
    quint32 reported = 0;     ///< GPUs, as the platform counts them
    quint32 otherDevices = 0; ///< CPUs and other non-GPU devices

    template <class Visit>
    void walk(Visit visit) {
        visit("number", number);
        visit("name", name);
        visit("status", status);
        visit("reported", reported);
        visit("otherDevices", otherDevices);
    }
};

struct OpenCLLibrary {
    QString file; ///< the path that was opened
    quint32 reportedPlatforms = 0;

    template <class Visit>
    void walk(Visit visit) {
        visit("file", file);
        visit("reportedPlatforms", reportedPlatforms);
    }
};

struct OpenCLFacts {
    OpenCLLibrary library;
    QVector<OpenCLPlatformFacts> platforms;
    QVector<OpenCLDeviceFacts> devices;

    OpenCLFacts() = default;
    explicit OpenCLFacts(const StepOutcome& outcome);

    /// GPUs of a platform that the program looks at; a platform may count more.
    quint32 seenOf(const OpenCLPlatformFacts& platform) const;
};

/// One registered driver.
struct IcdFile {
    QString path;    ///< of the .icd file
    QString library; ///< as the file names it; empty: it names none
};

/// The .icd files of the loader's folder, or of what OCL_ICD_VENDORS names instead, by name.
QVector<IcdFile> listIcdFiles(const Places& places, const QString& oclIcdVendors);

} // namespace doctor
