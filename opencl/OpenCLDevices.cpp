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

// A library may report more than the room it was given, and leave entries unset.
template <class Handle, std::size_t Room>
std::vector<Handle> returnedEntries(const std::array<Handle, Room>& entries, cl_uint reported) {
    std::vector<Handle> listed(entries.begin(), entries.begin() + std::min<std::size_t>(reported, Room));
    listed.erase(std::remove(listed.begin(), listed.end(), nullptr), listed.end());
    return listed;
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
    std::array<cl_platform_id, platformRoom> platforms{};
    cl_uint reported = 0;
    // The count alone tells: a library without platforms answers an error or a success with none.
    call(table().clGetPlatformIDs, platformRoom, platforms.data(), &reported);
    return {reported, returnedEntries(platforms, reported)};
}

void logOpenCLPlatform(std::size_t number, cl_platform_id platform) {
    QByteArray name(static_cast<int>(openCLNameRoom), '\0');
    call(table().clGetPlatformInfo, platform, CL_PLATFORM_NAME, openCLNameRoom, name.data(), nullptr);
    logLine(5, QStringLiteral("  OpenCL platform %1: %2")
                   .arg(QString::number(number), QString::fromUtf8(textUpToTerminator(name))));
}

std::vector<cl_device_id> listOpenCLGpuDevices(cl_platform_id platform) {
    std::array<cl_device_id, deviceRoom> devices{};
    cl_uint reported = 0;
    const cl_int status =
        call(table().clGetDeviceIDs, platform, CL_DEVICE_TYPE_GPU, deviceRoom, devices.data(), &reported);
    return status == CL_SUCCESS ? returnedEntries(devices, reported) : std::vector<cl_device_id>();
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
