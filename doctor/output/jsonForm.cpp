#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include "doctor/Report.h"

namespace doctor {

namespace {

QJsonValue textOrNull(const QString& text) {
    return text.isEmpty() ? QJsonValue() : QJsonValue(text);
}

QJsonObject gpuObject(const Report& report, const Gpu& gpu) {
    const NvmlIdentity* identity = report.facts.nvml.at(gpu.address);
    const bool isNvidia = gpu.vendor == Gpu::Vendor::Nvidia;
    return {
        {"vendor", isNvidia ? "NVIDIA" : "AMD"},
        {"address", textOrNull(gpu.address)},
        {"name", textOrNull(gpu.name)},
        {"kernelDriver", textOrNull(gpu.driver)},
        {"driverVersion", isNvidia ? textOrNull(report.facts.nvml.library.driverVersion) : QJsonValue()},
        {"uuid", identity != nullptr ? textOrNull(identity->uuid) : QJsonValue()},
        {"vbiosVersion", identity != nullptr ? textOrNull(identity->vbiosVersion) : QJsonValue()},
        {"installed", gpu.counts},
        {"listed", gpu.isListed},
        {"reason", textOrNull(gpu.counts ? gpu.whyNotListed : gpu.whyNotCounted)},
    };
}

QJsonObject findingObject(const Finding& finding) {
    return {{"check", finding.check},
            {"subject", textOrNull(finding.subject)},
            {"verdict", verdictName(finding.verdict)},
            {"fact", finding.fact},
            {"advice", textOrNull(finding.advice)}};
}

} // namespace

QByteArray jsonForm(const Report& report) {
    QJsonArray gpus;
    for (const Gpu& gpu : report.gpus)
        gpus.append(gpuObject(report, gpu));
    QJsonArray findings;
    for (const Finding& finding : report.findings)
        findings.append(findingObject(finding));
    const GpuCount count = report.count();
    const QJsonObject whole{{"format", 1},
                            {"verdict", verdictName(report.worst())},
                            {"headline", report.headline()},
                            {"installed", count.installed},
                            {"listed", count.listed},
                            {"gpus", gpus},
                            {"findings", findings}};
    return QJsonDocument(whole).toJson();
}

} // namespace doctor
