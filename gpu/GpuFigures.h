// Every figure of a record, listed once: where it is, how the summary combines it, how the report shows it.
#pragma once

#include <algorithm>
#include <cstdint>

#include "gpu/GpuDevice.h"

/// A figure and the marker that says whether it is present. `Value` is `std::int32_t` or `float`.
template <class Value>
struct GpuFigure {
    std::uint8_t GpuDevice::* marker; ///< two figures may share one
    Value GpuDevice::* value;
    Value (*combine)(Value, Value); ///< the summary's value so far and the next GPU's
    Value summaryStart;             ///< the summary's value before the first GPU
    const char* reportLine;         ///< %1: the GPU's label, %2: the value
};

/// Drivers may report anything: a sum beyond 32 bits wraps.
constexpr std::int32_t wrappingSum(std::int32_t a, std::int32_t b) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) + static_cast<std::uint32_t>(b));
}

constexpr float sum(float a, float b) {
    return a + b;
}

constexpr std::int32_t highest(std::int32_t a, std::int32_t b) {
    return std::max(a, b);
}

constexpr std::int32_t lowest(std::int32_t a, std::int32_t b) {
    return std::min(a, b);
}

/// Calls `visit` with each `GpuFigure`, in the order of the report.
template <class Visit>
void walkFigures(Visit visit) {
    using Integer = GpuFigure<std::int32_t>;
    using Score = GpuFigure<float>;
    using Gpu = GpuDevice;
    visit(Integer{&Gpu::hasUsage, &Gpu::usagePercent, wrappingSum, 0, "    %1: Gpu Usage:   %2 %"});
    visit(Integer{&Gpu::hasTemperature, &Gpu::temperature, highest, 0, "    %1: Temperature: %2 C"});
    visit(Integer{&Gpu::hasMemTotal, &Gpu::memTotalMb, lowest, 65535, "    %1: Mem Total:   %2 Mb"});
    visit(Integer{&Gpu::hasMemUsage, &Gpu::memUsedMb, highest, 0, "    %1: Mem Used:    %2 Mb"});
    visit(Integer{&Gpu::hasMemUsage, &Gpu::memFreeMb, lowest, 65535, "    %1: Mem Free:    %2 Mb"});
    visit(Score{&Gpu::hasSpeed, &Gpu::speedGps, sum, 0.0F, "    %1: Speed:       %2 GPS"});
}
