#include "gpu/printGpuStatus.h"

#include <QString>

#include "app/log/logLine.h"
#include "gpu/GpuInfo.h"
#include "gpu/shortGpuName.h"

namespace {

constexpr int reportLevel = 4;
constexpr int lastGpuIndex = 89; // what follows is no GPU but the summary

QString headerLine(const GpuDevice& record, const QString& label) {
    QString name = gpuName(record);
    if (label.isEmpty())
        return QStringLiteral("---- %1 ----").arg(name);
    return QStringLiteral("---- %1 %2-%3 %4 ----")
        .arg(label, QString::fromLatin1(gpuTypeName(record)).rightJustified(5),
             QString::number(record.deviceIndex).leftJustified(2), shortGpuName(name));
}

void logValue(const char* line, const QString& label, const QString& value) {
    logLine(reportLevel, QString::fromLatin1(line).arg(label, value));
}

QString figure(int value) {
    return QString::number(value).rightJustified(5);
}

} // namespace

void printGpuStatus(const GpuDevice& record, const int& index) {
    const QString label = index <= lastGpuIndex ? QStringLiteral("#%1").arg(index, -2) : QString();
    logLine(reportLevel, headerLine(record, label));
    if (record.hasUsage)
        logValue("    %1: Gpu Usage:   %2 %", label, figure(record.usagePercent));
    if (record.hasTemperature)
        logValue("    %1: Temperature: %2 C", label, figure(record.temperature));
    if (record.hasMemTotal)
        logValue("    %1: Mem Total:   %2 Mb", label, figure(record.memTotalMb));
    if (record.hasMemUsage) {
        logValue("    %1: Mem Used:    %2 Mb", label, figure(record.memUsedMb));
        logValue("    %1: Mem Free:    %2 Mb", label, figure(record.memFreeMb));
    }
    if (record.hasSpeed)
        logValue("    %1: Speed:       %2 GPS", label,
                 QString::number(static_cast<double>(record.speedGps), 'f', 2).rightJustified(5));
    logLine(reportLevel, QStringLiteral(" "));
}
