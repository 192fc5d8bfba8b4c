// The record of one GPU: plain bytes, copied by value everywhere and written unchanged into shared memory.
#pragma once

#include <cstddef>
#include <cstdint>

/// Kinds of GPU, the values of `GpuDevice::gpuType`.
enum GpuType : std::uint8_t {
    GpuType_Other = 0,
    GpuType_Cuda = 1, ///< NVIDIA
    GpuType_Amd = 2,
    GpuType_Metal = 3, ///< Apple
    GpuType_Summary = 4,
};

// `clDevice` is on a 4-byte boundary: readers in other languages rely on the offsets below.
#pragma pack(push, 4)

/// One GPU. A figure is meaningful only while its `has…` marker is non-zero: 0 is a reading, never "unknown".
/// A new record is zero-filled except for `deviceIndex`.
struct GpuDevice {
    /// 1: the provider has this GPU. It sets it at each refresh (AMD's as soon as the card is found) and
    /// never clears it in its own record; the driver clears it in the list before each cycle, so that
    /// there it marks the GPUs of the current cycle.
    std::uint8_t statsValid = 0;
    char name[64] = {};             ///< as the driver gave it, NUL-terminated
    std::uint8_t reserved65 = 0;    ///< always 0; the suite's name
    std::uint8_t optixCapable = 0;  ///< NVIDIA: compute capability 7.5 or newer
    std::uint8_t amdRayTracing = 0; ///< AMD: the OpenCL device offers ray tracing
    std::uint8_t gpuType = GpuType_Other;
    std::uint8_t filler69[3] = {};
    std::int32_t deviceIndex = -1; ///< the provider's own device number; 99 in the summary
    std::uint64_t clDevice = 0;    ///< the matched `cl_device_id`, 0: none; valid in this process only
    std::uint8_t hasTemperature = 0;
    std::uint8_t filler85[3] = {};
    std::int32_t temperature = 0; ///< degrees Celsius
    std::uint8_t hasMemTotal = 0;
    std::uint8_t filler93[3] = {};
    std::int32_t memTotalMb = 0;  ///< MiB
    std::uint8_t hasMemUsage = 0; ///< marker of both figures below
    std::uint8_t filler101[3] = {};
    std::int32_t memUsedMb = 0; ///< MiB
    std::int32_t memFreeMb = 0; ///< MiB
    std::uint8_t hasUsage = 0;
    std::uint8_t filler113[3] = {};
    std::int32_t usagePercent = 0; ///< percent; in the summary a sum over the GPUs
    std::uint8_t hasSpeed = 0;
    std::uint8_t filler121[3] = {};
    float speedGps = 0.0F;      ///< benchmark score in GPS
    std::uint8_t tail[24] = {}; ///< reserved; never written
};

#pragma pack(pop)

static_assert(sizeof(GpuDevice) == 152 && alignof(GpuDevice) == 4);
static_assert(offsetof(GpuDevice, statsValid) == 0);
static_assert(offsetof(GpuDevice, name) == 1);
static_assert(offsetof(GpuDevice, reserved65) == 65);
static_assert(offsetof(GpuDevice, optixCapable) == 66);
static_assert(offsetof(GpuDevice, amdRayTracing) == 67);
static_assert(offsetof(GpuDevice, gpuType) == 68);
static_assert(offsetof(GpuDevice, deviceIndex) == 72);
static_assert(offsetof(GpuDevice, clDevice) == 76);
static_assert(offsetof(GpuDevice, hasTemperature) == 84);
static_assert(offsetof(GpuDevice, temperature) == 88);
static_assert(offsetof(GpuDevice, hasMemTotal) == 92);
static_assert(offsetof(GpuDevice, memTotalMb) == 96);
static_assert(offsetof(GpuDevice, hasMemUsage) == 100);
static_assert(offsetof(GpuDevice, memUsedMb) == 104);
static_assert(offsetof(GpuDevice, memFreeMb) == 108);
static_assert(offsetof(GpuDevice, hasUsage) == 112);
static_assert(offsetof(GpuDevice, usagePercent) == 116);
static_assert(offsetof(GpuDevice, hasSpeed) == 120);
static_assert(offsetof(GpuDevice, speedGps) == 124);
static_assert(offsetof(GpuDevice, tail) == 128);

/// Sets every field that has an initial value to it; filler, the rest of `name` and `tail` keep their
/// contents.
void initialiseGpuDevice(GpuDevice& record);

/// Stores at most 63 bytes of `text` as the record's name, always NUL-terminated. `text` may be null (empty
/// name).
void setGpuName(GpuDevice& record, const char* text);

/// "Other", "Cuda", "AMD", "Metal", "-" (the summary), or an empty text for an unknown kind.
const char* gpuTypeName(const GpuDevice& record);
