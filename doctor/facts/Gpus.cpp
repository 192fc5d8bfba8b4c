#include "doctor/facts/Gpus.h"

#include <algorithm>

#include "amd/amdCard.h"
#include "doctor/facts/endingText.h"
#include "gpu/GpuInfoBlock.h"

namespace doctor {

namespace {

const Gpu* sameNumberBefore(const QVector<Gpu>& gpus, const Gpu& gpu) {
    const auto found = std::find_if(gpus.begin(), gpus.end(), [&](const Gpu& other) {
        return other.vendor == gpu.vendor && other.record != nullptr && other.record != gpu.record &&
               other.record->deviceIndex == gpu.record->deviceIndex && other.isListed;
    });
    return found != gpus.end() ? &*found : nullptr;
}

QString shownName(const Gpu& gpu) {
    return gpu.address.isEmpty() ? gpu.name : gpu.address;
}

/// Why a GPU is not listed, and the check that says what to do about it.
struct Reason {
    QString text;
    const char* check;
};

/// The same for a GPU with a record, whose number has no place in the list.
Reason whyRecordIsNotListed(const Facts& facts, const QVector<Gpu>& gpus, const Gpu& gpu) {
    const int number = gpu.record->deviceIndex;
    if (number < 0) {
        const QString library = facts.programRun.cudaLibrary();
        return library.isEmpty()
                   ? Reason{QStringLiteral("no CUDA library answers, so it has no CUDA number"),
                            "nvidia.cuda"}
                   : Reason{QStringLiteral("CUDA (%1) shows no device on its PCI bus").arg(library),
                            "nvidia.cudaDevices"};
    }
    if (const Gpu* other = sameNumberBefore(gpus, gpu))
        return {QStringLiteral("its PCI bus is that of %1, and the program distinguishes GPUs only by bus")
                    .arg(shownName(*other)),
                "pairing.buses"};
    if (number >= GpuInfoBlock::capacity)
        return {QStringLiteral("the list has room for %1 GPUs of a vendor").arg(GpuInfoBlock::capacity), ""};
    return {QStringLiteral("its CUDA number %1 is beyond the count of the GPUs that NVML gave").arg(number),
            "nvidia.devices"};
}

/// Why NVML's part of the program's run gave no GPU at all; empty when it gave some.
Reason whyNoNvml(const Facts& facts) {
    const ProgramFacts& run = facts.programRun;
    if (!run.hasOpened("nvidia-ml"))
        return {QStringLiteral("NVML, the driver's management library, could not be opened"), "nvidia.nvml"};
    const CallFacts* started = run.firstCall("nvmlInit_v2");
    if (started == nullptr)
        return {QStringLiteral("NVML lacks a function that the program needs"), "nvidia.nvml"};
    if (started->returned && started->status != 0)
        return {QStringLiteral("NVML does not start: %1").arg(nvmlStatusName(started->status)),
                "nvidia.start"};
    const CallFacts* counted = run.firstCall("nvmlDeviceGetCount_v2");
    if (counted != nullptr && counted->returned && counted->status != 0)
        return {QStringLiteral("NVML does not count its GPUs: %1").arg(nvmlStatusName(counted->status)),
                "nvidia.start"};
    return {};
}

/// The status with which NVML refused access to a GPU that it counts; 0 if it refused none.
int refusedStatus(const Facts& facts) {
    const QVector<NvmlDeviceFacts> devices = facts.programRun.nvmlDevices();
    for (const NvmlDeviceFacts& device : devices)
        if (device.handleStatus != 0)
            return device.handleStatus;
    return 0;
}

Reason whyNvmlDoesNotListIt(const Facts& facts, const Gpu& gpu) {
    if (gpu.driver == QLatin1String("nouveau"))
        return {QStringLiteral("the kernel driver nouveau has it, which NVIDIA's libraries can't use"),
                "pci.drivers"};
    Reason noNvml = whyNoNvml(facts);
    if (!noNvml.text.isEmpty())
        return noNvml;
    if (gpu.driver.isEmpty())
        return {QStringLiteral("no kernel driver is bound to it"), "pci.drivers"};
    if (const int status = refusedStatus(facts))
        return {QStringLiteral("NVML gives no access to one of its GPUs: %1").arg(nvmlStatusName(status)),
                "nvidia.devices"};
    return {facts.system.container.isEmpty()
                ? QStringLiteral("NVML does not list it")
                : QStringLiteral("NVML does not list it: this container was not given it"),
            "nvidia.devices"};
}

Reason whyNoCard(const Gpu& gpu) {
    return {gpu.driver.isEmpty()
                ? QStringLiteral("no kernel driver is bound to it, so /sys/class/drm has no card")
                : QStringLiteral("/sys/class/drm has no card for it"),
            "pci.drivers"};
}

Gpu* gpuAt(QVector<Gpu>& gpus, Gpu::Vendor vendor, const QString& address) {
    for (Gpu& gpu : gpus)
        if (!address.isEmpty() && gpu.vendor == vendor && gpu.address == address)
            return &gpu;
    return nullptr;
}

/// The GPU at an address; adds it if the PCI bus does not show it.
Gpu& gpuOrNew(QVector<Gpu>& gpus, Gpu::Vendor vendor, const QString& address) {
    if (Gpu* known = gpuAt(gpus, vendor, address))
        return *known;
    Gpu gpu;
    gpu.vendor = vendor;
    gpu.address = address;
    gpus.append(gpu);
    return gpus.last();
}

void addPci(QVector<Gpu>& gpus, const QVector<PciDevice>& devices) {
    for (const PciDevice& device : devices) {
        if (device.vendor != pciVendorNvidia && device.vendor != pciVendorAmd)
            continue;
        Gpu gpu;
        gpu.vendor = device.vendor == pciVendorNvidia ? Gpu::Vendor::Nvidia : Gpu::Vendor::Amd;
        gpu.address = device.address;
        gpu.driver = device.driver;
        gpu.onPciBus = true;
        gpu.counts = device.driver != QLatin1String("vfio-pci");
        if (!gpu.counts)
            gpu.whyNotCounted = QStringLiteral("vfio-pci holds it for a virtual machine");
        gpus.append(gpu);
    }
}

void addNvidia(QVector<Gpu>& gpus, const Facts& facts) {
    const QVector<NvmlDeviceFacts> devices = facts.programRun.nvmlDevices();
    for (const NvmlDeviceFacts& device : devices) {
        // Without a handle NVML only counts it: the PCI bus has the rest.
        if (device.handleStatus != 0)
            continue;
        Gpu& gpu = gpuOrNew(gpus, Gpu::Vendor::Nvidia, device.address);
        gpu.nvmlIndex = device.index;
        gpu.name = QString::fromUtf8(device.name.toLatin1());
        gpu.record = facts.programRun.nvidiaRecord(device.place);
    }
}

void addAmd(QVector<Gpu>& gpus, const Facts& facts) {
    int place = 0;
    for (const CardFacts& card : facts.programRun.cards) {
        if (!card.isAmd)
            continue;
        Gpu& gpu = gpuOrNew(gpus, Gpu::Vendor::Amd, card.address);
        gpu.card = card.entry;
        gpu.name = card.name;
        if (card.isLargeEnough) {
            gpu.record = facts.programRun.amdRecord(place++);
        } else if (gpu.counts && card.memoryMb > 0) {
            gpu.counts = false;
            gpu.whyNotCounted = QStringLiteral("it has %1 MB of memory, and cards below %2 MB are not listed")
                                    .arg(card.memoryMb)
                                    .arg(minAmdMemoryMb);
        }
    }
}

Reason whyNotListed(const Facts& facts, const QVector<Gpu>& gpus, const Gpu& gpu) {
    if (gpu.record != nullptr)
        return whyRecordIsNotListed(facts, gpus, gpu);
    if (!facts.programEnd.isDone() && facts.programRun.wasRun)
        return {QStringLiteral("the program %1").arg(endingText(facts.programEnd, facts.timeLimit)),
                "pairing.run"};
    if (gpu.vendor == Gpu::Vendor::Nvidia)
        return whyNvmlDoesNotListIt(facts, gpu);
    if (gpu.card.isEmpty())
        return whyNoCard(gpu);
    return {QStringLiteral("its kernel driver does not report its memory (mem_info_vram_total)"),
            "amd.cards"};
}

} // namespace

QVector<Gpu> gpusOf(const Facts& facts) {
    QVector<Gpu> gpus;
    addPci(gpus, facts.pci);
    addNvidia(gpus, facts);
    addAmd(gpus, facts);
    std::stable_sort(gpus.begin(), gpus.end(), [](const Gpu& a, const Gpu& b) {
        return a.vendor != b.vendor ? a.vendor == Gpu::Vendor::Nvidia : a.address < b.address;
    });
    for (Gpu& gpu : gpus)
        gpu.isListed = gpu.record != nullptr && gpu.record->isListed;
    for (Gpu& gpu : gpus)
        if (gpu.counts && !gpu.isListed) {
            const Reason reason = whyNotListed(facts, gpus, gpu);
            gpu.whyNotListed = reason.text;
            gpu.seeCheck = QLatin1String(reason.check);
        }
    return gpus;
}

GpuCount countGpus(const QVector<Gpu>& gpus, Gpu::Vendor vendor) {
    GpuCount count;
    for (const Gpu& gpu : gpus) {
        count.installed += gpu.vendor == vendor && gpu.counts ? 1 : 0;
        count.listed += gpu.vendor == vendor && gpu.isListed ? 1 : 0;
    }
    return count;
}

GpuCount countGpus(const QVector<Gpu>& gpus) {
    const GpuCount nvidia = countGpus(gpus, Gpu::Vendor::Nvidia);
    const GpuCount amd = countGpus(gpus, Gpu::Vendor::Amd);
    return {nvidia.installed + amd.installed, nvidia.listed + amd.listed};
}

} // namespace doctor
