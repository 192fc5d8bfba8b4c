// Which of the kernel's graphics cards the program lists.
#pragma once

#include <QString>

/// Cards with less memory than this are not listed: the carve-outs of integrated graphics and the smallest
/// cards, which no render job fits.
constexpr quint32 minAmdMemoryMb = 2000;

/// What the kernel reports about an AMD card.
struct AmdCard {
    QString name;
    QString deviceDirectory;
    QString hwmonDirectory; ///< empty if the card has no hardware monitor
    quint32 bus = 0;        ///< PCI bus number
    quint32 memoryMb = 0;   ///< also 0 if the kernel does not report it

    bool isListed() const { return memoryMb >= minAmdMemoryMb; }
};

/// Whether a card such as /sys/class/drm/card0 with this device directory is AMD's.
bool isAmdCard(const QString& deviceDirectory);

/// `card`: its name in the DRM directory, such as "card0", used if the kernel has no better one.
AmdCard readAmdCard(const QString& card, const QString& deviceDirectory);
