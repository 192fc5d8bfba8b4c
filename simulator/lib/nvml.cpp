// Stand-in for libnvidia-ml.so.1: the functions that the program and the doctor use, with the published ABI.
#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "simulator/lib/Session.h"

namespace {

using namespace qzsim;

using nvmlReturn_t = int;
using nvmlDevice_t = const NvmlGpu*;

enum : nvmlReturn_t {
    NVML_SUCCESS = 0,
    NVML_ERROR_UNINITIALIZED = 1,
    NVML_ERROR_INVALID_ARGUMENT = 2,
    NVML_ERROR_NOT_SUPPORTED = 3,
    NVML_ERROR_INSUFFICIENT_SIZE = 7,
};

/// Version 3 of the record.
struct nvmlPciInfo_t {
    char busIdLegacy[16];
    unsigned domain;
    unsigned bus;
    unsigned device;
    unsigned pciDeviceId;
    unsigned pciSubSystemId;
    char busId[32];
};
static_assert(sizeof(nvmlPciInfo_t) == 68 && offsetof(nvmlPciInfo_t, bus) == 20);

struct nvmlUtilization_t {
    unsigned gpu;
    unsigned memory;
};

struct nvmlMemory_t {
    unsigned long long total;
    unsigned long long free;
    unsigned long long used;
};
static_assert(sizeof(nvmlMemory_t) == 24);

constexpr const char* liveInits = "live:nvml";

LibraryPresence presence("libnvidia-ml.so.1", liveInits);

Session& session() {
    return Session::instance();
}

bool isInitialised() {
    return session().counters().value(liveInits) > 0;
}

/// The device's index, or -1 for an invalid handle.
int indexOf(nvmlDevice_t device) {
    const auto& gpus = session().machine().nvmlGpus;
    for (std::size_t i = 0; i < gpus.size(); ++i)
        if (&gpus[i] == device)
            return static_cast<int>(i);
    return -1;
}

/// The checks that every query of a device makes first.
nvmlReturn_t checkDevice(const char* function, int index, bool hasRoom) {
    if (!isInitialised()) {
        session().misuse(std::string(function) + " without nvmlInit_v2");
        return NVML_ERROR_UNINITIALIZED;
    }
    if (index < 0 || !hasRoom) {
        session().misuse(std::string(function) + " with a bad argument");
        return NVML_ERROR_INVALID_ARGUMENT;
    }
    return NVML_SUCCESS;
}

/// A text with its terminator, as NVML hands it over.
nvmlReturn_t giveText(const Verdict& verdict, const std::string& described, char* text, unsigned room) {
    const std::string& answer = verdict.answer ? *verdict.answer : described;
    if (answer.size() >= room)
        return NVML_ERROR_INSUFFICIENT_SIZE;
    std::memcpy(text, answer.c_str(), answer.size() + 1);
    return NVML_SUCCESS;
}

nvmlReturn_t giveSystemText(const char* function, const std::string& described, char* text, unsigned room) {
    const Verdict verdict = session().call(function);
    if (verdict.code)
        return *verdict.code;
    if (const auto bad = checkDevice(function, 0, text != nullptr))
        return bad;
    return giveText(verdict, described, text, room);
}

nvmlReturn_t giveDeviceText(const char* function, nvmlDevice_t device, std::string NvmlGpu::* described,
                            char* text, unsigned room) {
    const int index = indexOf(device);
    const Verdict verdict = session().call(function, index);
    if (verdict.code)
        return *verdict.code;
    if (const auto bad = checkDevice(function, index, text != nullptr))
        return bad;
    return giveText(verdict, device->*described, text, room);
}

} // namespace

QZSIM_API nvmlReturn_t nvmlInit_v2() {
    const Verdict verdict = session().call("nvmlInit_v2");
    if (verdict.code)
        return *verdict.code;
    session().counters().add(liveInits);
    return NVML_SUCCESS;
}

QZSIM_API nvmlReturn_t nvmlShutdown() {
    const Verdict verdict = session().call("nvmlShutdown");
    if (verdict.code)
        return *verdict.code;
    if (!isInitialised())
        return NVML_ERROR_UNINITIALIZED;
    session().counters().add(liveInits, -1);
    return NVML_SUCCESS;
}

QZSIM_API nvmlReturn_t nvmlDeviceGetCount_v2(unsigned* count) {
    const Verdict verdict = session().call("nvmlDeviceGetCount_v2");
    if (verdict.code)
        return *verdict.code;
    if (const auto bad = checkDevice("nvmlDeviceGetCount_v2", 0, count != nullptr))
        return bad;
    const Machine& machine = session().machine();
    *count = static_cast<unsigned>(
        verdict.number(machine.reportedNvmlDevices.value_or(static_cast<unsigned>(machine.nvmlGpus.size()))));
    return NVML_SUCCESS;
}

QZSIM_API nvmlReturn_t nvmlDeviceGetHandleByIndex_v2(unsigned index, nvmlDevice_t* device) {
    const int number = index > 1000 ? 1000 : static_cast<int>(index);
    const Verdict verdict = session().call("nvmlDeviceGetHandleByIndex_v2", number);
    if (verdict.code)
        return *verdict.code;
    if (const auto bad = checkDevice("nvmlDeviceGetHandleByIndex_v2", 0, device != nullptr))
        return bad;
    const auto& gpus = session().machine().nvmlGpus;
    if (index >= gpus.size() || !gpus[index].hasHandle)
        return NVML_ERROR_INVALID_ARGUMENT;
    *device = &gpus[index];
    return NVML_SUCCESS;
}

QZSIM_API nvmlReturn_t nvmlDeviceGetPciInfo_v3(nvmlDevice_t device, nvmlPciInfo_t* pci) {
    const int index = indexOf(device);
    const Verdict verdict = session().call("nvmlDeviceGetPciInfo_v3", index);
    if (verdict.code)
        return *verdict.code;
    if (const auto bad = checkDevice("nvmlDeviceGetPciInfo_v3", index, pci != nullptr))
        return bad;
    *pci = {};
    pci->domain = device->pci.domain;
    pci->bus = static_cast<unsigned>(verdict.number(device->pci.bus));
    pci->device = device->pci.device;
    std::snprintf(pci->busIdLegacy, sizeof pci->busIdLegacy, "%04X:%02X:%02X.0", pci->domain & 0xffff,
                  pci->bus & 0xff, pci->device & 0xff);
    std::snprintf(pci->busId, sizeof pci->busId, "%08X:%02X:%02X.0", pci->domain, pci->bus, pci->device);
    return NVML_SUCCESS;
}

QZSIM_API nvmlReturn_t nvmlDeviceGetName(nvmlDevice_t device, char* name, unsigned length) {
    const int index = indexOf(device);
    const Verdict verdict = session().call("nvmlDeviceGetName", index);
    if (verdict.code)
        return *verdict.code;
    if (const auto bad = checkDevice("nvmlDeviceGetName", index, name != nullptr))
        return bad;
    const std::string& text = verdict.answer ? *verdict.answer : device->name;
    // A name that is too long fills the buffer without a terminator, as a careless driver would write it.
    std::memcpy(name, text.c_str(), std::min<std::size_t>(text.size() + 1, length));
    return NVML_SUCCESS;
}

QZSIM_API nvmlReturn_t nvmlDeviceGetUtilizationRates(nvmlDevice_t device, nvmlUtilization_t* utilisation) {
    const int index = indexOf(device);
    const Verdict verdict = session().call("nvmlDeviceGetUtilizationRates", index);
    if (verdict.code)
        return *verdict.code;
    if (const auto bad = checkDevice("nvmlDeviceGetUtilizationRates", index, utilisation != nullptr))
        return bad;
    utilisation->gpu =
        static_cast<unsigned>(verdict.number(session().valueAt(device->utilisation, verdict.call)));
    utilisation->memory = 0;
    return NVML_SUCCESS;
}

QZSIM_API nvmlReturn_t nvmlDeviceGetTemperature(nvmlDevice_t device, int sensor, unsigned* temperature) {
    const int index = indexOf(device);
    const Verdict verdict = session().call("nvmlDeviceGetTemperature", index);
    if (verdict.code)
        return *verdict.code;
    if (const auto bad =
            checkDevice("nvmlDeviceGetTemperature", index, temperature != nullptr && sensor == 0))
        return bad;
    *temperature =
        static_cast<unsigned>(verdict.number(session().valueAt(device->temperature, verdict.call)));
    return NVML_SUCCESS;
}

QZSIM_API nvmlReturn_t nvmlDeviceGetMemoryInfo(nvmlDevice_t device, nvmlMemory_t* memory) {
    const int index = indexOf(device);
    const Verdict verdict = session().call("nvmlDeviceGetMemoryInfo", index);
    if (verdict.code)
        return *verdict.code;
    if (const auto bad = checkDevice("nvmlDeviceGetMemoryInfo", index, memory != nullptr))
        return bad;
    const auto at = [&](const Figure& figure) {
        return static_cast<unsigned long long>(session().valueAt(figure, verdict.call));
    };
    memory->total = at(device->memoryTotal);
    memory->free = at(device->memoryFree);
    memory->used =
        static_cast<unsigned long long>(verdict.number(static_cast<std::int64_t>(at(device->memoryUsed))));
    return NVML_SUCCESS;
}

QZSIM_API nvmlReturn_t nvmlSystemGetDriverVersion(char* version, unsigned room) {
    return giveSystemText("nvmlSystemGetDriverVersion", session().machine().driverVersion, version, room);
}

QZSIM_API nvmlReturn_t nvmlSystemGetNVMLVersion(char* version, unsigned room) {
    return giveSystemText("nvmlSystemGetNVMLVersion", session().machine().nvmlVersion, version, room);
}

QZSIM_API nvmlReturn_t nvmlDeviceGetUUID(nvmlDevice_t device, char* uuid, unsigned room) {
    return giveDeviceText("nvmlDeviceGetUUID", device, &NvmlGpu::uuid, uuid, room);
}

QZSIM_API nvmlReturn_t nvmlDeviceGetVbiosVersion(nvmlDevice_t device, char* version, unsigned room) {
    return giveDeviceText("nvmlDeviceGetVbiosVersion", device, &NvmlGpu::vbiosVersion, version, room);
}

QZSIM_API nvmlReturn_t nvmlDeviceGetMigMode(nvmlDevice_t device, unsigned* current, unsigned* pending) {
    const int index = indexOf(device);
    const Verdict verdict = session().call("nvmlDeviceGetMigMode", index);
    if (verdict.code)
        return *verdict.code;
    if (const auto bad = checkDevice("nvmlDeviceGetMigMode", index, current != nullptr && pending != nullptr))
        return bad;
    if (!device->mig && !verdict.answer)
        return NVML_ERROR_NOT_SUPPORTED;
    *current = *pending = static_cast<unsigned>(verdict.number(device->mig.value_or(false) ? 1 : 0));
    return NVML_SUCCESS;
}

QZSIM_API nvmlReturn_t nvmlDeviceGetPersistenceMode(nvmlDevice_t device, int* mode) {
    const int index = indexOf(device);
    const Verdict verdict = session().call("nvmlDeviceGetPersistenceMode", index);
    if (verdict.code)
        return *verdict.code;
    if (const auto bad = checkDevice("nvmlDeviceGetPersistenceMode", index, mode != nullptr))
        return bad;
    *mode = static_cast<int>(verdict.number(device->persistence ? 1 : 0));
    return NVML_SUCCESS;
}

QZSIM_API const char* nvmlErrorString(nvmlReturn_t result) {
    // It returns no status, so "fail" makes it return null and "answer" another text.
    static std::string answered;
    const Verdict verdict = session().call("nvmlErrorString");
    if (verdict.code)
        return nullptr;
    if (verdict.answer) {
        answered = *verdict.answer;
        return answered.c_str();
    }
    static const char* const texts[] = {"Success",
                                        "Uninitialized",
                                        "Invalid Argument",
                                        "Not Supported",
                                        "Insufficient Permissions",
                                        "Already Initialized",
                                        "Not Found",
                                        "Insufficient Size",
                                        "Insufficient External Power",
                                        "Driver Not Loaded",
                                        "Timeout",
                                        "Interrupt Request Issue",
                                        "NVML Shared Library Not Found",
                                        "Function Not Found",
                                        "Corrupted infoROM",
                                        "GPU is lost",
                                        "GPU requires reset",
                                        "The operating system has blocked the request",
                                        "Driver/library version mismatch",
                                        "In use by another client",
                                        "Insufficient Memory",
                                        "No data",
                                        "VGPU ECC operation not supported",
                                        "Insufficient Resources",
                                        "Frequency not supported"};
    constexpr int count = sizeof texts / sizeof *texts;
    return result >= 0 && result < count ? texts[result] : "Unknown Error";
}
