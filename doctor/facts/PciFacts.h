// The graphics and compute devices on the PCI bus.
#pragma once

#include <QString>
#include <QVector>

#include "doctor/Places.h"

namespace doctor {

constexpr quint32 pciVendorNvidia = 0x10de;
constexpr quint32 pciVendorAmd = 0x1002;

struct PciDevice {
    QString address; ///< domain:bus:device.function, such as "0000:0c:00.0"
    quint32 vendor = 0;
    quint32 device = 0;
    quint32 classCode = 0; ///< 24 bits: class, subclass, interface
    QString driver;        ///< the kernel's; empty when none is bound
    QString powerState;    ///< power/runtime_status, such as "active" or "suspended"; empty without it

    bool isSuspended() const { return powerState == QLatin1String("suspended"); }
};

/// The devices of class 03 (display) and 12 (processing accelerators), by address. Reads only files
/// that wake no device.
QVector<PciDevice> listPciGpus(const Places& places);

/// "NVIDIA", "AMD", "Intel", ... or the number.
QString pciVendorName(quint32 vendor);

/// An address from its numbers, as the kernel writes it.
QString pciAddress(quint32 domain, quint32 bus, quint32 device, quint32 function = 0);

} // namespace doctor
