// Stand-ins for CUDA's runtimes and for the driver's library, with devices that the test describes.
#pragma once

#include <vector>

#include <QByteArray>

#include "tests/unit/FakeLoader.h"

struct FakeCudaDevice {
    int bus = 0;
    int major = 0;
    int minor = 0;
};

/// The calls are recorded with the library's file as their first argument.
namespace FakeCuda {

/// Lets a runtime of the soname's version open by `file`. Its record has the bus at `pciBusOffset`.
/// Every file has its own devices; `properties` is the name of the entry point that reads them.
FakeLibrary& installRuntime(const QByteArray& file, const QByteArray& soname, std::size_t pciBusOffset,
                            const std::vector<FakeCudaDevice>& devices,
                            const char* properties = "cudaGetDeviceProperties");

/// The same as `libcuda.so.1`.
FakeLibrary& installDriver(const std::vector<FakeCudaDevice>& devices);

/// Lets the runtimes report this number of devices instead of the real one, until one is installed.
void reportCount(int count);

} // namespace FakeCuda
