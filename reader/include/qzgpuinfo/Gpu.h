// One GPU of the list.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace qzgpuinfo {

enum class GpuKind : std::uint8_t {
    Other = 0,
    Cuda = 1, ///< NVIDIA
    Amd = 2,
    Metal = 3, ///< Apple
    Summary = 4,
    Unknown = 255, ///< a kind that this version does not know
};

/// "Other", "Cuda", "AMD", "Metal", "-" (the summary) or "unknown"; never null.
const char* kindText(GpuKind kind) noexcept;

/// One GPU, or the summary over all. A figure without a value is unknown; 0 is a reading.
struct Gpu {
    /// UTF-8; at most 63 characters. What the driver gave that is not UTF-8 is U+FFFD.
    std::string name;
    GpuKind kind = GpuKind::Other;
    std::int32_t deviceIndex = -1; ///< number among the vendor's GPUs; -1: none, 99: the summary
    bool listed = false;           ///< found in the latest update cycle
    bool answering = false;        ///< gave its load, temperature or used memory in that cycle
    bool openclMatched = false;    ///< paired with an OpenCL device
    bool optixCapable = false;     ///< NVIDIA: compute capability 7.5 or newer
    bool amdRayTracing = false;    ///< AMD: its OpenCL device offers ray tracing
    std::optional<std::int32_t> usagePercent;
    std::optional<std::int32_t> temperatureCelsius;
    std::optional<std::int32_t> memoryTotalMiB;
    std::optional<std::int32_t> memoryUsedMiB;
    std::optional<std::int32_t> memoryFreeMiB;
    std::optional<float> speedGps; ///< benchmark score in GPS
};

} // namespace qzgpuinfo
