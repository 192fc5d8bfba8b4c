// Every GPU of the machine, merged from the PCI bus, the vendors' libraries and the program's list.
#pragma once

#include <QString>
#include <QVector>

#include "doctor/facts/Facts.h"

namespace doctor {

struct Gpu {
    enum class Vendor { Nvidia, Amd };

    Vendor vendor = Vendor::Nvidia;
    QString address; ///< may be empty if only a vendor's library lists the GPU
    QString name;    ///< may be empty
    QString driver;  ///< the kernel's; empty: none is bound, or the PCI bus doesn't show it
    bool onPciBus = false;
    bool counts = true; ///< as installed
    QString whyNotCounted;
    bool isListed = false;
    QString whyNotListed; ///< only for one that counts; a clause
    QString seeCheck;     ///< the check that says what to do about that; may be empty
    int nvmlIndex = -1;
    QString card;                        ///< AMD: the kernel's entry, such as "card0"
    const RecordFacts* record = nullptr; ///< owned by the facts
};

/// By vendor, then by address.
QVector<Gpu> gpusOf(const Facts& facts);

struct GpuCount {
    int installed = 0;
    int listed = 0;
};
GpuCount countGpus(const QVector<Gpu>& gpus);
GpuCount countGpus(const QVector<Gpu>& gpus, Gpu::Vendor vendor);

} // namespace doctor
