// A directory tree like the kernel's /sys/class/drm, on real files and links.
#pragma once

#include <map>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

/// By the file's name in the device's directory; "hwmon/hwmon3/temp1_input" makes directories.
using DrmFiles = std::map<QString, QByteArray>;

class DrmTree {
  public:
    DrmTree() { QDir(root.path()).mkpath("drm"); }

    /// The directory that replaces /sys/class/drm.
    QString path() const { return root.filePath("drm"); }

    QString filePath(const QString& name) const { return root.filePath(name); }

    /// Adds a card whose device link ends in `pciAddress`. Returns the device's directory as seen from the
    /// card.
    QString addCard(const QString& card, const QString& pciAddress, const DrmFiles& files = {}) const {
        const QString target = root.filePath("devices/pci0000:00/0000:00:03.1/" + pciAddress);
        const QString seen = path() + "/" + card;
        QDir().mkpath(target);
        QDir().mkpath(seen);
        if (!QFile::link(target, seen + "/device"))
            qFatal("the card's device can't be linked");
        for (const auto& [name, bytes] : files)
            write(seen + "/device/" + name, bytes);
        return seen + "/device";
    }

    /// An AMD card with 8 GiB; `more` adds to its files or replaces them.
    QString addAmdCard(const QString& card, const QString& pciAddress, const DrmFiles& more = {}) const {
        DrmFiles files = more;
        files.insert({{"vendor", "0x1002\n"}, {"mem_info_vram_total", "8589934592\n"}});
        return addCard(card, pciAddress, files);
    }

    static void write(const QString& path, const QByteArray& bytes) {
        QDir().mkpath(QFileInfo(path).path());
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
            qFatal("%s can't be written", qPrintable(path));
    }

  private:
    QTemporaryDir root;
};
