// The OpenCL GPU devices that an AMD card may be paired with.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include <QString>

#include "opencl/OpenCLDevices.h"

/// Answer to `deviceAttributeTopologyAmd`.
struct TopologyAmd {
    cl_uint type;
    char unused[17];
    signed char bus;
    char device;
    char function;
};
static_assert(sizeof(TopologyAmd) == 24 && offsetof(TopologyAmd, bus) == 21);

/// One OpenCL GPU device and its answers.
struct AmdOclCandidate {
    cl_device_id device = nullptr;
    QString name;
    bool busKnown = false;
    std::int32_t bus = 0;       ///< PCI bus; negative where a driver gave 0x80 and above in a signed byte
    const char* busSource = ""; ///< the attribute that gave it, in words
};

/// The GPU devices of all platforms, platform by platform, each logged at level 5 as it is found.
std::vector<AmdOclCandidate> collectAmdOclCandidates(const OpenCLPlatforms& platforms);

/// The first candidate on a PCI bus, compared by the low byte; null if there is none.
const AmdOclCandidate* findCandidateByBus(const std::vector<AmdOclCandidate>& candidates, quint32 bus);

/// The first candidate without a known bus whose name matches the GPU's; null if there is none.
const AmdOclCandidate* findCandidateByName(const std::vector<AmdOclCandidate>& candidates,
                                           const QString& gpuName);
