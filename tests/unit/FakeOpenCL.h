// A stand-in for an OpenCL library: platforms and devices by the test's description, every call recorded and
// failed through FakeCalls, live objects counted, the kernel's results and the time of a round by script.
#pragma once

#include <optional>
#include <vector>

#include <CL/cl.h>

#include <QByteArray>
#include <QStringList>

#include "tests/unit/FakeLoader.h"

struct FakeClDevice {
    QByteArray name;              ///< written as it is, without a terminator if it fills the caller's buffer
    QByteArray extensions;        ///< the same
    std::optional<cl_uint> busNv; ///< absent: the attribute is not answered
    std::optional<unsigned char> topologyBus; ///< the byte of AMD's topology
    std::optional<cl_uint> busKhr;
};

struct FakeClPlatform {
    QByteArray name;
    std::vector<FakeClDevice> devices;
};

/// What a benchmark run encounters.
struct FakeClScript {
    /// The first floats of the n-th read of the results; the last entry serves all further ones.
    std::vector<std::vector<float>> results = {{1.0F, 2.0F, 3.0F, 4.0F}};
    /// The milliseconds that pass in the n-th clFinish; the last entry serves all further ones.
    std::vector<double> roundMs = {10.0};
    QByteArray buildLog = QByteArray("no such type", 13); ///< as the driver writes it, terminator or not
    std::optional<std::size_t> buildLogSize;              ///< reported instead of the text's size
};

namespace FakeOpenCL {

/// Lets the library open by `file`, with all 21 entry points and these platforms.
FakeLibrary& install(const std::vector<FakeClPlatform>& platforms, const QByteArray& file = "libOpenCL.so.1");

FakeClScript& script();

/// Reports this number of platforms, or of a platform's devices, instead of the real one.
void reportPlatforms(cl_uint count);
void reportDevices(cl_uint count);

/// Leaves the entry of a platform, or of a device of every platform, null.
void leavePlatformNull(std::size_t index);
void leaveDeviceNull(std::size_t index);

cl_device_id device(std::size_t platform, std::size_t index);

/// Objects that were created and not released, such as "buffer2".
QStringList liveObjects();

/// Calls that OpenCL forbids: with a released or foreign object.
QStringList misuses();

/// The source texts in the order in which programs were made of them.
std::vector<QByteArray> sources();

/// The data of the n-th write to a buffer (from 0).
const std::vector<float>& written(std::size_t n);

} // namespace FakeOpenCL
