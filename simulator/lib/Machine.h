// A simulated machine, as read from its description.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "simulator/lib/Fault.h"
#include "simulator/lib/Figure.h"

namespace qzsim {

struct PciPlace {
    std::uint32_t domain = 0;
    std::uint32_t bus = 0;
    std::uint32_t device = 0;
};

struct ComputeCapability {
    int major = 0;
    int minor = 0;
};

struct NvmlGpu {
    std::string name;
    PciPlace pci;
    Figure utilisation;
    Figure temperature;
    Figure memoryTotal; ///< bytes
    Figure memoryFree;
    Figure memoryUsed;
    bool hasHandle = true;
    std::string uuid;
    std::string vbiosVersion;
    std::optional<bool> mig; ///< none: the GPU can't be partitioned
    bool persistence = true;
    std::optional<ComputeCapability> compute; ///< none: CUDA does not see it
};

struct CudaDevice {
    std::string name;
    PciPlace pci;
    ComputeCapability compute;
    bool inRuntime = true;
    bool inDriver = true;
};

/// An attribute of an OpenCL device: a number, or the code that refuses it.
struct ClAttribute {
    std::optional<std::uint32_t> value;
    int refusal = -30; ///< CL_INVALID_VALUE
};

struct ClDevice {
    std::string name;
    bool answersName = true;
    std::uint64_t type = 0; ///< CL_DEVICE_TYPE_ bits
    ClAttribute nvBus;
    ClAttribute amdBus;
    ClAttribute khrBus;
    std::uint32_t khrDomain = 0;
    std::string extensions;
    int index = 0; ///< over all platforms
};

struct ClPlatform {
    std::string name;
    std::string icd;    ///< file that registers its driver, such as "nvidia.icd"
    std::string driver; ///< its library
    bool answersName = true;
    std::optional<std::uint32_t> reportedDevices; ///< the reported count, instead of the real one
    std::vector<ClDevice> devices;
};

struct OpenClStack {
    bool usesPocl = true;
    double share = 1.0;                        ///< of the work-groups that PoCL runs
    double stretch = 1.0;                      ///< what a millisecond of PoCL's counts on the program's clock
    Figure roundMs;                            ///< duration of a scripted round
    bool sleeps = true;                        ///< or the program's clock is moved on instead
    std::vector<float> results = {1, 2, 3, 4}; ///< what a scripted read gives, over and over
    std::string buildLog = "scripted build log\n";
    std::optional<std::uint32_t> reportedPlatforms;
    std::vector<ClPlatform> platforms;
};

/// A file of /etc/OpenCL/vendors.
struct IcdFile {
    std::string name;
    std::string text;
};

struct SysfsFile {
    enum class Kind { Missing, Bytes, Directory, Dangling, Unreadable, Fails, Changing };
    std::string path; ///< below the device directory
    Kind kind = Kind::Missing;
    std::string bytes;
    int errorNumber = 0;
    Figure figure;
};

struct Card {
    std::string name;                                     ///< card0
    std::string address;                                  ///< the last part of the device link's target
    SysfsFile::Kind deviceEntry = SysfsFile::Kind::Bytes; ///< Bytes: the usual link
    std::vector<SysfsFile> files;
    std::vector<std::string> hwmonDirs;
    std::vector<std::string> connectors;
};

/// An entry of /sys/bus/pci/devices.
struct PciDevice {
    std::string address; ///< 0000:41:00.0
    std::uint32_t classCode = 0x030000;
    std::string vendor; ///< the file's text; empty if a card describes the file
    std::uint32_t device = 0;
    std::string driver; ///< empty: none is bound
    std::vector<SysfsFile> files;
};

/// A file in place of a device node: only its mode is of interest.
struct DeviceNode {
    std::string path; ///< below /dev
    unsigned mode = 0666;
};

struct LibraryLink {
    std::string link; ///< the name that the program opens
    std::string file; ///< the stand-in's file
};

struct Machine {
    std::string summary;
    std::vector<std::string> processes;
    std::optional<std::string> osRelease; ///< none: no such file
    std::vector<LibraryLink> libraries;
    bool fastRandom = false;                 ///< rand() is made cheap, for tests that run many benchmarks
    std::string driverVersion = "550.54.14"; ///< NVIDIA's, as NVML reports it
    std::string nvmlVersion = "12.550.54.14";
    std::optional<std::uint32_t> reportedNvmlDevices;
    std::vector<NvmlGpu> nvmlGpus;
    std::vector<CudaDevice> cudaDevices;
    std::optional<std::uint32_t> reportedCudaDevices;
    OpenClStack openCl;
    std::vector<IcdFile> icds;
    std::vector<std::string> drmEntries; ///< further names in /sys/class/drm
    std::vector<Card> cards;
    std::vector<PciDevice> pciDevices;
    std::vector<std::string> modules; ///< of the kernel
    std::vector<DeviceNode> nodes;
    std::vector<SysfsFile> procFiles; ///< with their paths below /proc
    std::vector<Fault> faults;
};

/// The machine that `path` describes. Throws DescriptionError.
Machine readMachine(const std::string& path);

/// The same from a text; `file` is the name for error messages.
Machine parseMachine(std::string_view text, const std::string& file);

/// Adds the faults of `text`, one per line. Throws DescriptionError.
void addFaults(Machine& machine, std::string_view text, const std::string& source);

} // namespace qzsim
