#include "tests/unit/FakeNvml.h"

#include <cstring>

#include "tests/unit/FakeCalls.h"

namespace {

using FakeCalls::answers;
using FakeCalls::enter;

std::vector<FakeNvmlDevice> devices;
unsigned int reported = 0;

// Handles are the devices' numbers from 1.
nvmlDevice_t handleOf(unsigned int index) {
    return reinterpret_cast<nvmlDevice_t>(static_cast<std::uintptr_t>(index + 1));
}

QString numberOf(nvmlDevice_t handle) {
    return QString::number(reinterpret_cast<std::uintptr_t>(handle) - 1);
}

FakeNvmlDevice& deviceOf(nvmlDevice_t handle) {
    return devices.at(reinterpret_cast<std::uintptr_t>(handle) - 1);
}

nvmlReturn_t init() {
    return enter("nvmlInit_v2", {});
}

nvmlReturn_t shutdown() {
    return enter("nvmlShutdown", {});
}

nvmlReturn_t getCount(unsigned int* count) {
    const int status = enter("nvmlDeviceGetCount_v2", {});
    if (answers("nvmlDeviceGetCount_v2", status))
        *count = reported;
    return status;
}

nvmlReturn_t getHandle(unsigned int index, nvmlDevice_t* handle) {
    const int status = enter("nvmlDeviceGetHandleByIndex_v2", {QString::number(index)});
    if (status == NVML_SUCCESS && index >= devices.size())
        return 2; // as NVML answers an argument out of range
    if (status == NVML_SUCCESS)
        *handle = handleOf(index);
    return status;
}

nvmlReturn_t getPciInfo(nvmlDevice_t handle, nvmlPciInfo_t* pci) {
    const int status = enter("nvmlDeviceGetPciInfo_v3", {numberOf(handle)});
    if (answers("nvmlDeviceGetPciInfo_v3", status)) {
        // Everything but the bus is filled with nonsense, in case another member is read.
        std::memset(pci, 0x5a, sizeof *pci);
        pci->bus = deviceOf(handle).bus;
    }
    return status;
}

nvmlReturn_t getName(nvmlDevice_t handle, char* name, unsigned int length) {
    const int status = enter("nvmlDeviceGetName", {numberOf(handle), QString::number(length)});
    for (unsigned int i = 0; i < length; ++i)
        if (name[i] != '\0')
            qFatal("the name's buffer is not zeroed");
    const QByteArray& text = deviceOf(handle).name;
    if (answers("nvmlDeviceGetName", status))
        std::memcpy(name, text.constData(),
                    std::min<std::size_t>(length, static_cast<std::size_t>(text.size())));
    return status;
}

nvmlReturn_t getUtilization(nvmlDevice_t handle, nvmlUtilization_t* utilization) {
    const int status = enter("nvmlDeviceGetUtilizationRates", {numberOf(handle)});
    if (answers("nvmlDeviceGetUtilizationRates", status))
        *utilization = {deviceOf(handle).utilization, 9999};
    return status;
}

nvmlReturn_t getTemperature(nvmlDevice_t handle, nvmlTemperatureSensors_t sensor, unsigned int* temperature) {
    const int status = enter("nvmlDeviceGetTemperature", {numberOf(handle), QString::number(sensor)});
    if (answers("nvmlDeviceGetTemperature", status))
        *temperature = deviceOf(handle).temperature;
    return status;
}

nvmlReturn_t getMemory(nvmlDevice_t handle, nvmlMemory_t* memory) {
    const int status = enter("nvmlDeviceGetMemoryInfo", {numberOf(handle)});
    if (answers("nvmlDeviceGetMemoryInfo", status))
        *memory = deviceOf(handle).memory;
    return status;
}

const char* errorString(nvmlReturn_t result) {
    static QByteArray text;
    enter("nvmlErrorString", {QString::number(result)});
    text = "error " + QByteArray::number(result) + " %1";
    return text.constData();
}

} // namespace

FakeLibrary& FakeNvml::install(const std::vector<FakeNvmlDevice>& described, const QByteArray& file) {
    devices = described;
    reported = static_cast<unsigned int>(described.size());
    FakeLibrary& library = FakeLoader::provide(file);
    library.add("nvmlInit_v2", init);
    library.add("nvmlShutdown", shutdown);
    library.add("nvmlDeviceGetCount_v2", getCount);
    library.add("nvmlDeviceGetHandleByIndex_v2", getHandle);
    library.add("nvmlDeviceGetPciInfo_v3", getPciInfo);
    library.add("nvmlDeviceGetName", getName);
    library.add("nvmlDeviceGetUtilizationRates", getUtilization);
    library.add("nvmlDeviceGetTemperature", getTemperature);
    library.add("nvmlDeviceGetMemoryInfo", getMemory);
    library.add("nvmlErrorString", errorString);
    return library;
}

FakeNvmlDevice& FakeNvml::device(std::size_t index) {
    return devices.at(index);
}

void FakeNvml::reportCount(unsigned int count) {
    reported = count;
}
