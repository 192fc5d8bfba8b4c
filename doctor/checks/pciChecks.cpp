// pci.*
#include "doctor/checks/advice.h"
#include "doctor/checks/checks.h"
#include "doctor/facts/Gpus.h"

namespace doctor {

namespace {

QString deviceText(const PciDevice& device) {
    return QStringLiteral("%1 GPU %2 at %3")
        .arg(pciVendorName(device.vendor), QString::number(device.device, 16).rightJustified(4, '0'),
             device.address);
}

bool isOurs(const PciDevice& device) {
    return device.vendor == pciVendorNvidia || device.vendor == pciVendorAmd;
}

} // namespace

void judgePciDevices(const Facts& facts, Findings& findings) {
    const QVector<Gpu> gpus = gpusOf(facts);
    for (const PciDevice& device : facts.pci) {
        findings.on(device.address);
        if (!isOurs(device)) {
            findings.note(QStringLiteral("%1: not a vendor whose GPUs are listed").arg(deviceText(device)));
            continue;
        }
        QString whyNot;
        for (const Gpu& gpu : gpus)
            if (gpu.address == device.address)
                whyNot = gpu.whyNotCounted;
        if (whyNot.isEmpty())
            findings.ok(QStringLiteral("%1 is installed").arg(deviceText(device)));
        else
            findings.note(QStringLiteral("%1 is left out: %2").arg(deviceText(device), whyNot));
    }
    findings.on({});
    const GpuCount count = countGpus(gpus);
    if (facts.pci.isEmpty() && count.installed > 0)
        findings.note(QStringLiteral("the PCI bus shows no GPU; the drivers report %1").arg(count.installed));
    else if (findings.isEmpty())
        findings.ok(QStringLiteral("there is no GPU on the PCI bus"));
}

void judgePciDrivers(const Facts& facts, Findings& findings) {
    for (const PciDevice& device : facts.pci) {
        if (!isOurs(device))
            continue;
        const bool isNvidia = device.vendor == pciVendorNvidia;
        findings.on(device.address);
        if (device.driver == QLatin1String("nouveau"))
            findings.failure(
                QStringLiteral("the kernel driver nouveau has %1, so NVIDIA's driver can't use it")
                    .arg(deviceText(device)),
                QStringLiteral("%1, which keeps nouveau from loading, and reboot")
                    .arg(installAdvice(Package::NvidiaDriver, facts.system.distributionId)));
        else if (device.driver == QLatin1String("vfio-pci"))
            findings.note(QStringLiteral("vfio-pci holds %1 for a virtual machine").arg(deviceText(device)));
        else if (device.driver.isEmpty())
            findings.failure(QStringLiteral("no kernel driver is bound to %1").arg(deviceText(device)),
                             isNvidia
                                 ? installAdvice(Package::NvidiaDriver, facts.system.distributionId)
                                 : QStringLiteral("load the kernel's driver: sudo modprobe amdgpu; then see "
                                                  "dmesg for why it does not take the GPU"));
        else
            findings.ok(QStringLiteral("%1 has the kernel driver %2").arg(deviceText(device), device.driver));
    }
    if (findings.isEmpty())
        findings.ok(QStringLiteral("there is no GPU that needs a driver"));
}

} // namespace doctor
