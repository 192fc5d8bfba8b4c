// The C interface over the C++ reader.
#include "reader/c/qzgpuinfo.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <exception>
#include <optional>

#include "qzgpuinfo/Reader.h"

using qzgpuinfo::Gpu;
using qzgpuinfo::GpuKind;
using qzgpuinfo::SegmentResult;

struct qzgpuinfo_reader {
    qzgpuinfo::Reader reader;
    qzgpuinfo::Snapshot snapshot;
};

namespace {

// The size that a structure had in version 1: the least that a caller may have.
constexpr std::size_t firstStateSize = 40;
constexpr std::size_t firstGpuSize = 240;
static_assert(sizeof(qzgpuinfo_state) >= firstStateSize && sizeof(qzgpuinfo_gpu) >= firstGpuSize);

// The results of reading and the kinds have the same numbers in both interfaces.
static_assert(static_cast<int>(SegmentResult::IoError) == QZGPUINFO_IO_ERROR);
static_assert(static_cast<int>(qzgpuinfo::Freshness::TooOld) == QZGPUINFO_TOO_OLD);
static_assert(static_cast<int>(GpuKind::Summary) == QZGPUINFO_KIND_SUMMARY);
static_assert(static_cast<int>(GpuKind::Unknown) == QZGPUINFO_KIND_UNKNOWN);

// A name has at most 63 bytes in the block, and U+FFFD three in place of one.
static_assert(sizeof(qzgpuinfo_gpu::name) > std::size_t{63} * 3);

/// Keeps `errno` as the caller had it.
class ErrnoGuard {
  public:
    ErrnoGuard() = default;
    ~ErrnoGuard() { errno = kept; }
    ErrnoGuard(const ErrnoGuard&) = delete;
    ErrnoGuard& operator=(const ErrnoGuard&) = delete;

  private:
    int kept = errno;
};

/// Copies what both sides know of a structure and sets the rest of the caller's to zero.
template <class Structure>
void handOver(Structure filled, Structure* callers) noexcept {
    const std::size_t size = callers->size;
    const std::size_t known = std::min(size, sizeof filled);
    filled.size = callers->size;
    std::memcpy(callers, &filled, known);
    std::memset(reinterpret_cast<unsigned char*>(callers) + known, 0, size - known);
}

qzgpuinfo_state stateOf(const qzgpuinfo::Snapshot& snapshot) noexcept {
    qzgpuinfo_state state{};
    state.gpu_count = static_cast<std::uint32_t>(snapshot.gpus.size());
    state.freshness = static_cast<std::uint32_t>(freshness(snapshot));
    state.system_error = snapshot.systemError;
    state.opened = snapshot.opened;
    state.attached = snapshot.writerAttached;
    state.published = snapshot.published;
    state.measuring = snapshot.measuring;
    state.published_at = snapshot.publishedAt;
    state.age_seconds = snapshot.ageSeconds - snapshot.aheadSeconds;
    return state;
}

template <class Optional, class Value>
void put(const Optional& figure, std::uint8_t& has, Value& value) noexcept {
    has = figure.has_value();
    value = figure.value_or(Value{});
}

qzgpuinfo_gpu gpuOf(const Gpu& gpu) noexcept {
    qzgpuinfo_gpu copy{};
    copy.kind = static_cast<std::uint32_t>(gpu.kind);
    copy.device_index = gpu.deviceIndex;
    copy.listed = gpu.listed;
    copy.answering = gpu.answering;
    copy.opencl_matched = gpu.openclMatched;
    copy.optix_capable = gpu.optixCapable;
    copy.amd_ray_tracing = gpu.amdRayTracing;
    put(gpu.usagePercent, copy.has_usage, copy.usage_percent);
    put(gpu.temperatureCelsius, copy.has_temperature, copy.temperature_celsius);
    put(gpu.memoryTotalMiB, copy.has_memory_total, copy.memory_total_mib);
    put(gpu.memoryUsedMiB, copy.has_memory_used, copy.memory_used_mib);
    put(gpu.memoryFreeMiB, copy.has_memory_free, copy.memory_free_mib);
    put(gpu.speedGps, copy.has_speed, copy.speed_gps);
    gpu.name.copy(copy.name, sizeof copy.name - 1);
    return copy;
}

qzgpuinfo_result openReader(const char* directory, std::optional<uid_t> owner,
                            qzgpuinfo_reader** reader) noexcept {
    if (reader == nullptr)
        return QZGPUINFO_INVALID_ARGUMENT;
    const ErrnoGuard guard;
    *reader = nullptr;
    try {
        *reader =
            new qzgpuinfo_reader{qzgpuinfo::Reader(directory != nullptr ? directory : "/dev/shm", owner), {}};
        return QZGPUINFO_OK;
    } catch (const std::exception&) {
        return QZGPUINFO_OUT_OF_MEMORY;
    }
}

} // namespace

uint32_t qzgpuinfo_api_version() {
    return QZGPUINFO_API_VERSION;
}

const char* qzgpuinfo_result_text(int result) {
    switch (result) {
    case QZGPUINFO_INVALID_ARGUMENT:
        return "an argument is a null pointer or a structure's size is too small";
    case QZGPUINFO_OUT_OF_RANGE:
        return "no GPU has this index";
    case QZGPUINFO_OUT_OF_MEMORY:
        return "there is not enough memory";
    default:
        return segmentResultText(static_cast<SegmentResult>(result));
    }
}

const char* qzgpuinfo_kind_text(uint32_t kind) {
    return kindText(kind <= QZGPUINFO_KIND_SUMMARY ? static_cast<GpuKind>(kind) : GpuKind::Unknown);
}

qzgpuinfo_result qzgpuinfo_open(const char* directory, qzgpuinfo_reader** reader) {
    return openReader(directory, {}, reader);
}

qzgpuinfo_result qzgpuinfo_open_user(const char* directory, uint32_t user, qzgpuinfo_reader** reader) {
    return openReader(directory, user, reader);
}

void qzgpuinfo_close(qzgpuinfo_reader* reader) {
    const ErrnoGuard guard;
    delete reader;
}

qzgpuinfo_result qzgpuinfo_read(qzgpuinfo_reader* reader, uint32_t lock_wait_ms, qzgpuinfo_state* state) {
    if (reader == nullptr || (state != nullptr && state->size < firstStateSize))
        return QZGPUINFO_INVALID_ARGUMENT;
    const ErrnoGuard guard;
    qzgpuinfo_result result = QZGPUINFO_OUT_OF_MEMORY;
    try {
        const SegmentResult read =
            reader->reader.read(reader->snapshot, std::chrono::milliseconds(lock_wait_ms));
        result = static_cast<qzgpuinfo_result>(read);
    } catch (const std::exception&) {
        reader->snapshot = {};
    }
    if (state != nullptr)
        handOver(stateOf(reader->snapshot), state);
    return result;
}

qzgpuinfo_result qzgpuinfo_get_gpu(const qzgpuinfo_reader* reader, uint32_t index, qzgpuinfo_gpu* gpu) {
    if (reader == nullptr || gpu == nullptr || gpu->size < firstGpuSize)
        return QZGPUINFO_INVALID_ARGUMENT;
    if (index >= reader->snapshot.gpus.size())
        return QZGPUINFO_OUT_OF_RANGE;
    handOver(gpuOf(reader->snapshot.gpus[index]), gpu);
    return QZGPUINFO_OK;
}

qzgpuinfo_result qzgpuinfo_get_summary(const qzgpuinfo_reader* reader, qzgpuinfo_gpu* summary) {
    if (reader == nullptr || summary == nullptr || summary->size < firstGpuSize)
        return QZGPUINFO_INVALID_ARGUMENT;
    handOver(gpuOf(reader->snapshot.summary), summary);
    return QZGPUINFO_OK;
}
