// What the kernel reports about graphics cards under /sys/class/drm. Nothing here fails: what is missing or
// invalid is an empty text, an empty list, or bus 0.
#pragma once

#include <QString>
#include <QStringList>

/// A file's text up to the first NUL byte, trimmed; empty if the file is missing, unreadable or empty.
QString readSysfsValue(const QString& path);

/// The cards, such as "card0", without their connectors, in the directory's own order.
QStringList listDrmCards(const QString& drmDirectory = QStringLiteral("/sys/class/drm"));

/// Whether a name is a card's: "card0" is, the connector "card0-DP-1" is not.
bool isDrmCardName(const QString& name);

/// The first hardware monitor's directory of a device, such as DEVICE/hwmon/hwmon3.
QString findHwmonDir(const QString& deviceDirectory);

/// The PCI bus number that the device directory's link leads to.
quint32 pciBusOfDevice(const QString& deviceDirectory);

/// The bus number at the end of a path such as /sys/devices/pci0000:00/0000:00:03.1/0000:0c:00.0 (bus 12).
quint32 parsePciBus(const QString& devicePath);
