#include "amd/amdCard.h"

#include "gpu/sysfs.h"

namespace {

QString cardName(const QString& card, const QString& deviceDirectory) {
    QString product = readSysfsValue(deviceDirectory + "/product_name");
    if (!product.isEmpty())
        return product;
    const QString label = readSysfsValue(deviceDirectory + "/label");
    return label.isEmpty() ? card : label;
}

} // namespace

bool isAmdCard(const QString& deviceDirectory) {
    return readSysfsValue(deviceDirectory + "/vendor").toLower() == QLatin1String("0x1002");
}

AmdCard readAmdCard(const QString& card, const QString& deviceDirectory) {
    AmdCard read;
    read.name = cardName(card, deviceDirectory);
    read.deviceDirectory = deviceDirectory;
    read.hwmonDirectory = findHwmonDir(deviceDirectory);
    read.bus = pciBusOfDevice(deviceDirectory);
    const QString memoryBytes = readSysfsValue(deviceDirectory + "/mem_info_vram_total");
    read.memoryMb = static_cast<quint32>(memoryBytes.toULongLong() >> 20);
    return read;
}
