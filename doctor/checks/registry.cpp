#include "doctor/checks/registry.h"

#include "doctor/checks/checks.h"

namespace doctor {

const std::vector<Check>& checks() {
    static const std::vector<Check> all{
        {"system.distribution", "which distribution and kernel", NeedsNothing, judgeDistribution},
        {"system.container", "whether this is a container or WSL", NeedsNothing, judgeContainer},
        {"system.user", "whose rights are judged", NeedsRights, judgeUser},
        {"system.devices", "whether that user may open the device nodes", NeedsRights, judgeDevices},
        {"system.environment", "variables that hide GPUs or move drivers", NeedsNothing, judgeEnvironment},
        {"system.shm", "room and rights of /dev/shm", NeedsRights, judgeSharedMemory},
        {"system.memory", "whether the benchmark has room", NeedsNothing, judgeMemory},
        {"pci.devices", "the GPUs that are plugged in", NeedsProgram, judgePciDevices},
        {"pci.drivers", "the kernel driver of each", NeedsNothing, judgePciDrivers},
        {"nvidia.module", "NVIDIA's kernel module", NeedsProgram, judgeNvidiaModule},
        {"nvidia.nvml", "NVML, the library that lists NVIDIA's GPUs", NeedsProgram | NeedsNvml,
         judgeNvmlLibrary},
        {"nvidia.start", "whether NVML starts, how fast, and what it counts", NeedsProgram | NeedsNvml,
         judgeNvmlStart},
        {"nvidia.versions", "whether the library and the kernel module belong together",
         NeedsProgram | NeedsNvml, judgeNvidiaVersions},
        {"nvidia.devices", "each GPU that NVML lists", NeedsProgram | NeedsNvml, judgeNvmlDevices},
        {"nvidia.queries", "each figure that the program reads of it", NeedsProgram, judgeNvmlQueries},
        {"nvidia.shutdown", "whether NVML ends in order", NeedsProgram, judgeNvmlEnd},
        {"nvidia.cuda", "which CUDA library answers", NeedsProgram, judgeCudaLibrary},
        {"nvidia.cudaDevices", "the devices that CUDA shows", NeedsProgram, judgeCudaDevices},
        {"amd.module", "AMD's kernel module", NeedsNothing, judgeAmdModule},
        {"amd.cards", "each card, and whether it is large enough", NeedsProgram, judgeAmdCards},
        {"amd.files", "each figure that the program reads of it", NeedsProgram, judgeAmdFiles},
        {"amd.power", "cards that sleep", NeedsNothing, judgeAmdPower},
        {"opencl.loader", "the OpenCL loader", NeedsOpenCL, judgeOpenCLLoader},
        {"opencl.icd", "each registered OpenCL driver, tried alone", NeedsIcds, judgeIcdFiles},
        {"opencl.platforms", "what the drivers offer together", NeedsOpenCL | NeedsIcds, judgePlatforms},
        {"opencl.devices", "each OpenCL GPU and the bus that it reports", NeedsOpenCL, judgeOpenCLDevices},
        {"opencl.room", "more devices than the program looks at", NeedsOpenCL, judgeOpenCLRoom},
        {"pairing.run", "whether the program's own search finishes", NeedsProgram | NeedsIcds,
         judgeProgramRun},
        {"pairing.gpus", "the CUDA and the OpenCL device of each GPU", NeedsProgram | NeedsOpenCL,
         judgePairing},
        {"pairing.buses", "GPUs on equal PCI buses", NeedsProgram, judgeBuses},
        {"pairing.listed", "installed GPUs that are not listed", NeedsProgram, judgeListing},
        {"answers.queryGPU", "qzGpuInfo -queryGPU", NeedsAnswers | NeedsProgram, judgeQueryGpu},
        {"answers.queryNvCuda", "qzGpuInfo -queryNvCuda", NeedsAnswers | NeedsProgram, judgeQueryNvCuda},
        {"answers.queryNvOptix", "qzGpuInfo -queryNvOptix", NeedsAnswers | NeedsProgram, judgeQueryNvOptix},
        {"answers.queryAmdRt", "qzGpuInfo -queryAmdRt", NeedsAnswers | NeedsProgram, judgeQueryAmdRt},
        {"answers.returnGPS", "what qzGpuInfo -returnGPS needs", NeedsProgram, judgeScore},
        {"segment.state", "what a reader of the segment gets", NeedsSegment, judgeSegmentState},
        {"segment.owner", "whose the segment is", NeedsSegment | NeedsRights, judgeSegmentOwner},
        {"segment.companion", "whether the companion publishes", NeedsSegment, judgeCompanion},
    };
    return all;
}

bool selects(const QString& selector, const Check& check) {
    const QString id = QLatin1String(check.id);
    const QString prefix = selector.endsWith('.') ? selector : selector + '.';
    return id == selector || id.startsWith(prefix);
}

} // namespace doctor
