#include "doctor/facts/PciFacts.h"

#include <QDir>
#include <QFileInfo>

#include "gpu/sysfs.h"

namespace doctor {

namespace {

quint32 hexValue(const QString& path) {
    return readSysfsValue(path).toUInt(nullptr, 16);
}

bool isGpuClass(quint32 classCode) {
    constexpr quint32 display = 0x03;
    constexpr quint32 processingAccelerator = 0x12;
    const quint32 baseClass = classCode >> 16;
    return baseClass == display || baseClass == processingAccelerator;
}

} // namespace

QVector<PciDevice> listPciGpus(const Places& places) {
    QVector<PciDevice> gpus;
    const QStringList addresses =
        QDir(places.pciDevices()).entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name);
    for (const QString& address : addresses) {
        const QString directory = places.pciDevices() + "/" + address;
        PciDevice device;
        device.address = address;
        device.classCode = hexValue(directory + "/class");
        if (!isGpuClass(device.classCode))
            continue;
        device.vendor = hexValue(directory + "/vendor");
        device.device = hexValue(directory + "/device");
        device.driver = QFileInfo(QFileInfo(directory + "/driver").symLinkTarget()).fileName();
        device.powerState = readSysfsValue(directory + "/power/runtime_status");
        gpus.append(device);
    }
    return gpus;
}

QString pciVendorName(quint32 vendor) {
    switch (vendor) {
    case pciVendorNvidia:
        return QStringLiteral("NVIDIA");
    case pciVendorAmd:
        return QStringLiteral("AMD");
    case 0x8086:
        return QStringLiteral("Intel");
    case 0x1a03:
        return QStringLiteral("ASPEED");
    case 0x102b:
        return QStringLiteral("Matrox");
    case 0x1414:
        return QStringLiteral("Microsoft");
    case 0x15ad:
        return QStringLiteral("VMware");
    case 0x1234:
    case 0x1af4:
    case 0x1b36:
        return QStringLiteral("QEMU");
    default:
        return QStringLiteral("vendor 0x%1").arg(vendor, 4, 16, QLatin1Char('0'));
    }
}

QString pciAddress(quint32 domain, quint32 bus, quint32 device, quint32 function) {
    return QStringLiteral("%1:%2:%3.%4")
        .arg(domain, 4, 16, QLatin1Char('0'))
        .arg(bus & 0xFFU, 2, 16, QLatin1Char('0'))
        .arg(device, 2, 16, QLatin1Char('0'))
        .arg(function);
}

} // namespace doctor
