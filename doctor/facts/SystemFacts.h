// The machine, except its GPUs.
#pragma once

#include <QString>
#include <QStringList>
#include <QVector>

#include "doctor/Places.h"

namespace doctor {

struct EnvironmentVariable {
    QString name;
    QString value;
};

struct SystemFacts {
    QString distribution;   ///< its full name, such as "Debian GNU/Linux 12 (bookworm)"; may be empty
    QString distributionId; ///< "debian"
    QString kernel;         ///< release, such as "6.1.0-18-amd64"
    QString container;      ///< "docker", "podman", ...; empty outside of one
    bool wsl = false;       ///< Windows Subsystem for Linux
    QVector<EnvironmentVariable> environment; ///< those set that hide devices or move drivers
    double memoryAvailableMb = -1.0;          ///< -1: unknown
    QStringList modules;                      ///< kernel modules of GPUs that are loaded, of those looked for
    QString nvidiaModuleVersion;              ///< of /proc/driver/nvidia/version; empty without it
};

/// Variables that hide GPUs or make the loaders look elsewhere.
const QStringList& watchedVariables();

SystemFacts readSystem(const Places& places);

/// A key's value in an os-release file, without quotes; empty without it.
QString osReleaseValue(const QByteArray& osRelease, const QString& key);

/// The version in "NVRM version: NVIDIA UNIX x86_64 Kernel Module  550.54.14  Thu Feb 22 ..."; empty without
/// one.
QString parseNvidiaModuleVersion(const QByteArray& text);

/// "MemAvailable:   16318432 kB" in MiB; -1 without it.
double parseMemoryAvailable(const QByteArray& meminfo);

/// The container manager, from the first process's environment or from a file; `wsl` from /proc/version.
QString containerOf(const Places& places);
bool isWsl(const QByteArray& procVersion);

} // namespace doctor
