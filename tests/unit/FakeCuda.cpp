#include "tests/unit/FakeCuda.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>

#include "tests/unit/FakeCalls.h"

namespace {

using FakeCalls::answers;
using FakeCalls::enter;

struct Runtime {
    QByteArray file;
    std::size_t pciBusOffset = 0;
    std::vector<FakeCudaDevice> devices;
};

// An entry point does not know its library, so each runtime has separate functions.
std::array<Runtime, 4> runtimes;

std::vector<FakeCudaDevice> driverDevices;
std::optional<int> reported;

constexpr int invalidDevice = 101;
constexpr std::size_t roomToFill = 4096;

template <int Slot>
int getDeviceCount(int* count) {
    const int status = enter("cudaGetDeviceCount", {runtimes[Slot].file});
    if (answers("cudaGetDeviceCount", status))
        *count = reported.value_or(static_cast<int>(runtimes[Slot].devices.size()));
    return status;
}

template <int Slot>
int getDeviceProperties(void* properties, int device) {
    const Runtime& runtime = runtimes[Slot];
    const int status = enter("cudaGetDeviceProperties", {runtime.file, QString::number(device)});
    if (status != 0)
        return status;
    if (device < 0 || device >= static_cast<int>(runtime.devices.size()))
        return invalidDevice;
    auto* record = static_cast<char*>(properties);
    if (std::any_of(record, record + roomToFill, [](char byte) { return byte != 0; }))
        qFatal("the properties' record is not zeroed");
    std::memset(record, 0x5a, roomToFill); // and generous: a newer runtime may write far more than today's
    const FakeCudaDevice& described = runtime.devices[static_cast<std::size_t>(device)];
    std::memcpy(record + 360, &described.major, sizeof described.major);
    std::memcpy(record + 364, &described.minor, sizeof described.minor);
    std::memcpy(record + runtime.pciBusOffset, &described.bus, sizeof described.bus);
    return 0;
}

int init(unsigned int flags) {
    return enter("cuInit", {QString::number(flags)});
}

int driverCount(int* count) {
    const int status = enter("cuDeviceGetCount", {});
    if (answers("cuDeviceGetCount", status))
        *count = static_cast<int>(driverDevices.size());
    return status;
}

// A driver's device is its number plus 100, so that the two cannot be confused.
int driverDevice(int* device, int ordinal) {
    const int status = enter("cuDeviceGet", {QString::number(ordinal)});
    if (status == 0 && (ordinal < 0 || ordinal >= static_cast<int>(driverDevices.size())))
        return invalidDevice;
    *device = status == 0 ? ordinal + 100 : *device;
    return status;
}

int driverAttribute(int* value, int attribute, int device) {
    const int status =
        enter("cuDeviceGetAttribute", {QString::number(attribute), QString::number(device - 100)});
    if (status != 0)
        return status;
    const FakeCudaDevice& described = driverDevices.at(static_cast<std::size_t>(device - 100));
    *value = attribute == 33   ? described.bus
             : attribute == 75 ? described.major
             : attribute == 76 ? described.minor
                               : 4711;
    return 0;
}

template <int Slot>
void addEntryPoints(FakeLibrary& library, const char* properties) {
    library.add("cudaGetDeviceCount", getDeviceCount<Slot>);
    library.add(properties, getDeviceProperties<Slot>);
}

} // namespace

FakeLibrary& FakeCuda::installRuntime(const QByteArray& file, const QByteArray& soname,
                                      std::size_t pciBusOffset, const std::vector<FakeCudaDevice>& devices,
                                      const char* properties) {
    static const std::array<QByteArray, 4> files = {"libcudart.so.13", "libcudart.so.12", "libcudart.so.11.0",
                                                    "libcudart.so"};
    static constexpr std::array adders = {addEntryPoints<0>, addEntryPoints<1>, addEntryPoints<2>,
                                          addEntryPoints<3>};
    reported.reset();
    FakeLibrary& library = FakeLoader::provide(file);
    library.soname = soname;
    for (std::size_t slot = 0; slot < files.size(); ++slot)
        if (files[slot] == file) {
            runtimes[slot] = {file, pciBusOffset, devices};
            adders[slot](library, properties);
        }
    return library;
}

FakeLibrary& FakeCuda::installDriver(const std::vector<FakeCudaDevice>& devices) {
    driverDevices = devices;
    FakeLibrary& library = FakeLoader::provide("libcuda.so.1");
    library.soname = "libcuda.so.1";
    library.add("cuInit", init);
    library.add("cuDeviceGetCount", driverCount);
    library.add("cuDeviceGet", driverDevice);
    library.add("cuDeviceGetAttribute", driverAttribute);
    return library;
}

void FakeCuda::reportCount(int count) {
    reported = count;
}
