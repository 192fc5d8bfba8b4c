// The platforms and GPU devices of the loaded OpenCL library. Counts are as reported by the library; lists
// hold only the entries that it really returned.
#pragma once

#include <vector>

#include <CL/cl.h>

#include <QByteArray>
#include <QString>

#include "gpu/GpuDevice.h"
#include "opencl/GpuOpenCL_Loader.h"

/// The vendors' device attributes for the PCI location; not every Khronos header has them.
constexpr cl_device_info deviceAttributePciBusIdNv = 0x4008;    ///< cl_uint
constexpr cl_device_info deviceAttributeTopologyAmd = 0x4037;   ///< 24 bytes
constexpr cl_device_info deviceAttributePciBusInfoKhr = 0x410F; ///< PciBusInfoKhr

/// Answer to `deviceAttributePciBusInfoKhr`.
struct PciBusInfoKhr {
    cl_uint pci_domain;
    cl_uint pci_bus;
    cl_uint pci_device;
    cl_uint pci_function;
};
static_assert(sizeof(PciBusInfoKhr) == 16);

/// Room for the name of a platform or a device, bytes.
constexpr std::size_t openCLNameRoom = 256;

/// A PCI bus number as printed after "0x" in messages.
QString pciBusText(cl_uint bus);

/// Whether two drivers mean the same PCI bus. Only the low byte counts, all that a PCI bus number has: some
/// give it as a signed byte, or with a domain above it.
constexpr bool isSameBus(cl_uint a, cl_uint b) {
    return (a & 0xFFU) == (b & 0xFFU);
}

struct OpenCLPlatform {
    std::size_t number = 0; ///< its place in the library's own list, from 0
    cl_platform_id id = nullptr;
};

struct OpenCLPlatforms {
    cl_uint reported = 0;               ///< how many there are; may exceed the list's size's size
    std::vector<OpenCLPlatform> listed; ///< at most 8, without those whose entry the library left unset
};

/// The library's platforms; `reported` is 0 if the call sets no count.
OpenCLPlatforms listOpenCLPlatforms();

/// Logs at level 5 the number and name of a platform.
void logOpenCLPlatform(const OpenCLPlatform& platform);

/// At most 12 GPU devices of a platform; none when the call fails.
std::vector<cl_device_id> listOpenCLGpuDevices(const OpenCLPlatform& platform);

/// A text attribute of a device, at most `room` bytes: what the device writes, whatever status it returns.
/// Empty if it writes nothing.
QByteArray openCLDeviceText(cl_device_id device, cl_device_info attribute, std::size_t room);

/// Reads a fixed-size attribute into `value`. False if the device does not support it.
template <class Value>
bool readOpenCLDevice(cl_device_id device, cl_device_info attribute, Value& value) {
    return GpuOpenCL_Loader::call(GpuOpenCL_Loader::table().clGetDeviceInfo, device, attribute, sizeof value,
                                  &value, nullptr) == CL_SUCCESS;
}

/// The device that a record is paired with, null without one. The record carries it as a number, since it is
/// published.
cl_device_id openCLDeviceOf(const GpuDevice& record);

/// Pairs a record with a device.
void setOpenCLDevice(GpuDevice& record, cl_device_id device);
