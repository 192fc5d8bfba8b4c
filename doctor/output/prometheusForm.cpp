#include <QMap>

#include "doctor/Report.h"

namespace doctor {

namespace {

QString labelValue(const QString& text) {
    QString escaped = text;
    escaped.replace('\\', "\\\\").replace('"', "\\\"").replace('\n', "\\n");
    return escaped;
}

QString label(const char* name, const QString& value) {
    return QStringLiteral("%1=\"%2\"").arg(QLatin1String(name), labelValue(value));
}

QString head(const char* name, const char* help) {
    return QStringLiteral("# HELP %1 %2\n# TYPE %1 gauge\n").arg(QLatin1String(name), QLatin1String(help));
}

QString countFamily(const char* name, const char* help, const Report& report, int GpuCount::* member) {
    const auto series = [&](const char* vendor, Gpu::Vendor which) {
        return QStringLiteral("%1{%2} %3\n")
            .arg(QLatin1String(name), label("vendor", QLatin1String(vendor)),
                 QString::number(countGpus(report.gpus, which).*member));
    };
    return head(name, help) + series("NVIDIA", Gpu::Vendor::Nvidia) + series("AMD", Gpu::Vendor::Amd);
}

QString identityFamily(const Report& report) {
    QString series;
    for (const Gpu& gpu : report.gpus) {
        const NvmlIdentity* identity = report.facts.nvml.at(gpu.address);
        const bool isNvidia = gpu.vendor == Gpu::Vendor::Nvidia;
        series +=
            QStringLiteral("qzgpuinfo_gpu_identity{%1,%2,%3,%4} 1\n")
                .arg(label("pci_address", gpu.address), label("vendor", isNvidia ? "NVIDIA" : "AMD"),
                     label("uuid", identity != nullptr ? identity->uuid : QString()),
                     label("driver_version", isNvidia ? report.facts.nvml.library.driverVersion : QString()));
    }
    return series.isEmpty()
               ? series
               : head("qzgpuinfo_gpu_identity", "A GPU's identity; the value is always 1.") + series;
}

/// One series per check: its most serious verdict.
QString verdictFamily(const Report& report) {
    QStringList order;
    QMap<QString, Verdict> verdicts;
    for (const Finding& finding : report.findings) {
        if (!verdicts.contains(finding.check))
            order.append(finding.check);
        verdicts[finding.check] = std::max(verdicts.value(finding.check, Verdict::Skipped), finding.verdict);
    }
    QString text =
        head("qzgpuinfo_doctor_check", "What a check found: 0 skipped, 1 ok, 2 note, 3 warning, 4 failure.");
    for (const QString& check : order)
        text += QStringLiteral("qzgpuinfo_doctor_check{%1} %2\n")
                    .arg(label("check", check), QString::number(static_cast<int>(verdicts[check])));
    return text;
}

} // namespace

QByteArray prometheusForm(const Report& report) {
    const QString text =
        countFamily("qzgpuinfo_gpus_installed", "GPUs plugged into the machine.", report,
                    &GpuCount::installed) +
        countFamily("qzgpuinfo_gpus_listed", "GPUs that the program lists.", report, &GpuCount::listed) +
        identityFamily(report) + verdictFamily(report);
    return text.toUtf8();
}

} // namespace doctor
