// The rules by which an NVIDIA GPU is paired with its CUDA and its OpenCL device.
#pragma once

#include "opencl/OpenCLDevices.h"

/// No machine has more devices; a driver that reports more is broken, and must not block the program for
/// hours.
constexpr unsigned int maxNvidiaDevices = 4096;

/// The bus that an OpenCL device gives, and how.
struct NvidiaOclBus {
    const char* attribute = nullptr; ///< "NV" or "KHR", the attribute that answered; null if neither did
    cl_uint bus = 0;
};

/// Queries an OpenCL device's bus. If it supports the vendor's attribute, the other is not tried.
NvidiaOclBus nvidiaOclBus(cl_device_id device);

/// CUDA's number of the device on a PCI bus, -1 if there is none.
int cudaDeviceOnBus(unsigned int bus);

/// Whether a CUDA device has the ray-tracing units that OptiX needs, which came with compute capability 7.5.
/// False for a number that CUDA has no device for.
bool isOptixCapable(int cudaDevice);
