#include "opencl/OpenCLDevices.h"

#include <algorithm>
#include <array>
#include <cstdint>

#include <QString>

#include "app/log/logLine.h"

using GpuOpenCL_Loader::call;
using GpuOpenCL_Loader::table;

namespace {

constexpr cl_uint platformRoom = 8;
constexpr cl_uint deviceRoom = 12;

// A library may report more than the room it was given, and leave entries unset: `add(place, handle)` for
// each that it really returned.
template <class Handle, std::size_t Room, class Add>
void forReturnedEntries(const std::array<Handle, Room>& entries, cl_uint reported, Add add) {
    for (std::size_t place = 0; place < std::min<std::size_t>(reported, Room); ++place)
        if (entries[place] != nullptr)
            add(place, entries[place]);
}

QByteArray textUpToTerminator(const QByteArray& buffer) {
    const int end = buffer.indexOf('\0');
    return end < 0 ? buffer : buffer.left(end);
}

} // namespace

QString pciBusText(cl_uint bus) {
    return QString::number(bus, 16);
}

OpenCLPlatforms listOpenCLPlatforms() {
    std::array<cl_platform_id, platformRoom> entries{};
    OpenCLPlatforms platforms;
    // Only the count matters: a library without platforms returns an error, or success with a count of 0.
    call(table().clGetPlatformIDs, platformRoom, entries.data(), &platforms.reported);
    forReturnedEntries(entries, platforms.reported, [&](std::size_t place, cl_platform_id id) {
        platforms.listed.push_back({place, id});
    });
    return platforms;
}

void logOpenCLPlatform(const OpenCLPlatform& platform) {
    QByteArray name(static_cast<int>(openCLNameRoom), '\0');
    call(table().clGetPlatformInfo, platform.id, CL_PLATFORM_NAME, openCLNameRoom, name.data(), nullptr);
    logLine(5, QStringLiteral("  OpenCL platform %1: %2")
                   .arg(QString::number(platform.number), QString::fromUtf8(textUpToTerminator(name))));
}

std::vector<cl_device_id> listOpenCLGpuDevices(const OpenCLPlatform& platform) {
    std::array<cl_device_id, deviceRoom> entries{};
    cl_uint reported = 0;
    std::vector<cl_device_id> devices;
    if (call(table().clGetDeviceIDs, platform.id, CL_DEVICE_TYPE_GPU, deviceRoom, entries.data(),
             &reported) == CL_SUCCESS)
        forReturnedEntries(entries, reported,
                           [&](std::size_t, cl_device_id device) { devices.push_back(device); });
    return devices;
}

QByteArray openCLDeviceText(cl_device_id device, cl_device_info attribute, std::size_t room) {
    QByteArray text(static_cast<int>(room), '\0');
    call(table().clGetDeviceInfo, device, attribute, room, text.data(), nullptr);
    return textUpToTerminator(text);
}

cl_device_id openCLDeviceOf(const GpuDevice& record) {
    // NOLINTNEXTLINE(performance-no-int-to-ptr): a number in the published record, a handle here.
    return reinterpret_cast<cl_device_id>(static_cast<std::uintptr_t>(record.clDevice));
}

void setOpenCLDevice(GpuDevice& record, cl_device_id device) {
    record.clDevice = reinterpret_cast<std::uintptr_t>(device);
}
