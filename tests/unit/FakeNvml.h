// A stand-in for NVML with devices that the test describes; FakeCalls records its calls and makes them fail.
#pragma once

#include <vector>

#include <QByteArray>

#include "nvidia/nvml.h"
#include "tests/unit/FakeLoader.h"

struct FakeNvmlDevice {
    QByteArray name; ///< written as it is, without a terminator if it fills the caller's buffer
    unsigned int bus = 0;
    unsigned int utilization = 0;
    unsigned int temperature = 0;
    nvmlMemory_t memory{};
};

namespace FakeNvml {

/// Lets the library open by `file`, with all ten entry points and these devices.
FakeLibrary& install(const std::vector<FakeNvmlDevice>& devices,
                     const QByteArray& file = "libnvidia-ml.so.1");

/// To change while it is in use.
FakeNvmlDevice& device(std::size_t index);

/// Lets the library report this number of devices instead of the real one.
void reportCount(unsigned int count);

} // namespace FakeNvml
