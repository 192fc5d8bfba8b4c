// The OpenCL stand-in's platforms and devices, answered from the description in both modes.
#include <algorithm>
#include <cstring>

#include "simulator/lib/ClApi.h"
#include "simulator/lib/ClLookup.h"
#include "simulator/lib/Session.h"

namespace {

using namespace qzsim;

constexpr cl_device_info deviceTopologyAmd = 0x4037;
constexpr cl_device_info devicePciBusIdNv = 0x4008;
constexpr cl_device_info devicePciBusInfoKhr = 0x410F;
constexpr cl_int platformNotFoundKhr = -1001;

LibraryPresence presence("libOpenCL.so.1");

const std::vector<ClPlatform>& platforms() {
    return Session::instance().machine().openCl.platforms;
}

const ClPlatform* findPlatform(cl_platform_id id) {
    for (const ClPlatform& platform : platforms())
        if (reinterpret_cast<cl_platform_id>(const_cast<ClPlatform*>(&platform)) == id)
            return &platform;
    return nullptr;
}

/// Copies bytes to the caller as every OpenCL query does.
cl_int giveBytes(const void* bytes, std::size_t size, std::size_t room, void* value, std::size_t* needed) {
    if (needed != nullptr)
        *needed = size;
    if (value != nullptr) {
        if (room < size)
            return CL_INVALID_VALUE;
        std::memcpy(value, bytes, size);
    }
    return CL_SUCCESS;
}

cl_int giveText(const std::string& text, std::size_t room, void* value, std::size_t* needed) {
    return giveBytes(text.c_str(), text.size() + 1, room, value, needed);
}

cl_int giveBus(const ClDevice& device, cl_device_info what, std::uint32_t bus, std::size_t room, void* value,
               std::size_t* needed) {
    if (what == devicePciBusIdNv)
        return giveBytes(&bus, sizeof bus, room, value, needed);
    if (what == devicePciBusInfoKhr) {
        const std::uint32_t info[4] = {device.khrDomain, bus, 0, 0};
        return giveBytes(info, sizeof info, room, value, needed);
    }
    // Type 1 is PCI express; then 17 unused bytes, bus, device and function.
    unsigned char topology[24] = {1};
    topology[21] = static_cast<unsigned char>(bus);
    return giveBytes(topology, sizeof topology, room, value, needed);
}

const ClAttribute& busAttribute(const ClDevice& device, cl_device_info what) {
    return what == devicePciBusIdNv    ? device.nvBus
           : what == deviceTopologyAmd ? device.amdBus
                                       : device.khrBus;
}

} // namespace

namespace qzsim {

const ClDevice* findClDevice(cl_device_id id) {
    for (const ClPlatform& platform : platforms()) {
        for (const ClDevice& device : platform.devices)
            if (clDeviceId(device) == id)
                return &device;
    }
    return nullptr;
}

cl_device_id clDeviceId(const ClDevice& device) {
    return reinterpret_cast<cl_device_id>(const_cast<ClDevice*>(&device));
}

} // namespace qzsim

cl_int clGetPlatformIDs(cl_uint room, cl_platform_id* ids, cl_uint* count) {
    const Verdict verdict = Session::instance().call("clGetPlatformIDs");
    if (verdict.code)
        return *verdict.code;
    if ((ids != nullptr && room == 0) || (ids == nullptr && count == nullptr))
        return CL_INVALID_VALUE;
    const auto real = static_cast<cl_uint>(offeredPlatforms().size());
    if (ids != nullptr)
        std::copy_n(offeredPlatforms().begin(), std::min(room, real), ids);
    if (count != nullptr) {
        const auto& reported = Session::instance().machine().openCl.reportedPlatforms;
        *count = static_cast<cl_uint>(verdict.number(reported.value_or(real)));
    }
    return real == 0 ? platformNotFoundKhr : CL_SUCCESS;
}

cl_int clGetPlatformInfo(cl_platform_id id, cl_platform_info what, std::size_t room, void* value,
                         std::size_t* needed) {
    const Verdict verdict = Session::instance().call("clGetPlatformInfo");
    if (verdict.code)
        return *verdict.code;
    const ClPlatform* platform = findPlatform(id);
    if (platform == nullptr) {
        Session::instance().misuse("clGetPlatformInfo of an invalid platform");
        return CL_INVALID_PLATFORM;
    }
    if (what != CL_PLATFORM_NAME || !platform->answersName)
        return CL_INVALID_VALUE;
    return giveText(verdict.answer.value_or(platform->name), room, value, needed);
}

cl_int clGetDeviceIDs(cl_platform_id id, cl_device_type type, cl_uint room, cl_device_id* ids,
                      cl_uint* count) {
    const Verdict verdict = Session::instance().call("clGetDeviceIDs");
    if (verdict.code)
        return *verdict.code;
    const ClPlatform* platform = findPlatform(id);
    if (platform == nullptr) {
        Session::instance().misuse("clGetDeviceIDs of an invalid platform");
        return CL_INVALID_PLATFORM;
    }
    if ((ids != nullptr && room == 0) || (ids == nullptr && count == nullptr))
        return CL_INVALID_VALUE;
    cl_uint real = 0;
    for (const ClDevice& device : platform->devices) {
        if ((device.type & type) != 0) {
            if (ids != nullptr && real < room)
                ids[real] = clDeviceId(device);
            ++real;
        }
    }
    if (count != nullptr)
        *count = static_cast<cl_uint>(verdict.number(platform->reportedDevices.value_or(real)));
    return real == 0 && !platform->reportedDevices ? CL_DEVICE_NOT_FOUND : CL_SUCCESS;
}

cl_int clGetDeviceInfo(cl_device_id id, cl_device_info what, std::size_t room, void* value,
                       std::size_t* needed) {
    const ClDevice* device = findClDevice(id);
    const Verdict verdict =
        Session::instance().call("clGetDeviceInfo", device == nullptr ? -1 : device->index);
    if (verdict.code)
        return *verdict.code;
    if (device == nullptr) {
        Session::instance().misuse("clGetDeviceInfo of an invalid device");
        return CL_INVALID_DEVICE;
    }
    switch (what) {
    case CL_DEVICE_NAME:
        return device->answersName ? giveText(verdict.answer.value_or(device->name), room, value, needed)
                                   : CL_INVALID_VALUE;
    case CL_DEVICE_EXTENSIONS:
        return giveText(verdict.answer.value_or(device->extensions), room, value, needed);
    case CL_DEVICE_TYPE:
        return giveBytes(&device->type, sizeof device->type, room, value, needed);
    case devicePciBusIdNv:
    case deviceTopologyAmd:
    case devicePciBusInfoKhr: {
        const ClAttribute& attribute = busAttribute(*device, what);
        if (!attribute.value)
            return attribute.refusal;
        const auto bus = static_cast<std::uint32_t>(verdict.number(*attribute.value));
        return giveBus(*device, what, bus, room, value, needed);
    }
    default:
        return CL_INVALID_VALUE;
    }
}
