#include "gpu/printGpuStatus.h"

#include <QString>

#include "app/log/logLine.h"
#include "gpu/GpuFigures.h"
#include "gpu/GpuInfo.h"
#include "gpu/shortGpuName.h"

namespace {

constexpr int reportLevel = 4;
constexpr int lastGpuIndex = 89; // higher ones are the summary

QString headerLine(const GpuDevice& record, const QString& label) {
    QString name = gpuName(record);
    if (label.isEmpty())
        return QStringLiteral("---- %1 ----").arg(name);
    return QStringLiteral("---- %1 %2-%3 %4 ----")
        .arg(label, QString::fromLatin1(gpuTypeName(record)).rightJustified(5),
             QString::number(record.deviceIndex).leftJustified(2), shortGpuName(name));
}

QString valueText(std::int32_t value) {
    return QString::number(value).rightJustified(5);
}

QString valueText(float value) {
    return QString::number(static_cast<double>(value), 'f', 2).rightJustified(5);
}

} // namespace

void printGpuStatus(const GpuDevice& record, const int& index) {
    const QString label = index <= lastGpuIndex ? QStringLiteral("#%1").arg(index, -2) : QString();
    logLine(reportLevel, headerLine(record, label));
    walkFigures([&](const auto& figure) {
        if (record.*figure.marker)
            logLine(reportLevel,
                    QString::fromLatin1(figure.reportLine).arg(label, valueText(record.*figure.value)));
    });
    logLine(reportLevel, QStringLiteral(" "));
}
