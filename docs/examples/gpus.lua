-- Prints the GPUs that a companion publishes: luajit gpus.lua [DIRECTORY]
local ffi = require("ffi")

ffi.cdef [[
typedef struct {
    uint32_t size, gpu_count, freshness;
    int32_t system_error;
    uint8_t opened, attached, published, measuring, reserved[4];
    double published_at, age_seconds;
} qzgpuinfo_state;

typedef struct {
    uint32_t size, kind;
    int32_t device_index;
    uint8_t listed, answering, opencl_matched, optix_capable, amd_ray_tracing;
    uint8_t has_usage, has_temperature, has_memory_total, has_memory_used, has_memory_free, has_speed, reserved;
    int32_t usage_percent, temperature_celsius, memory_total_mib, memory_used_mib, memory_free_mib;
    float speed_gps;
    char name[192];
} qzgpuinfo_gpu;

int qzgpuinfo_open(const char* directory, void** reader);
int qzgpuinfo_read(void* reader, uint32_t lock_wait_ms, qzgpuinfo_state* state);
int qzgpuinfo_get_gpu(const void* reader, uint32_t index, qzgpuinfo_gpu* gpu);
void qzgpuinfo_close(void* reader);
const char* qzgpuinfo_result_text(int result);
const char* qzgpuinfo_kind_text(uint32_t kind);
]]

local OK, FRESH = 0, 0
local library = ffi.load("libqzgpuinfo.so.1")
local reader = ffi.new("void*[1]")
local state = ffi.new("qzgpuinfo_state", {size = ffi.sizeof("qzgpuinfo_state")})
local gpu = ffi.new("qzgpuinfo_gpu", {size = ffi.sizeof("qzgpuinfo_gpu")})

local result = library.qzgpuinfo_open(arg[1], reader)
if result == OK then
    result = library.qzgpuinfo_read(reader[0], 1000, state)
end

if result ~= OK then
    print(ffi.string(library.qzgpuinfo_result_text(result)))
elseif state.freshness ~= FRESH then
    print(("stale, published %.0f s ago"):format(state.age_seconds))
end

for i = 0, state.gpu_count - 1 do
    library.qzgpuinfo_get_gpu(reader[0], i, gpu)
    local load = gpu.answering == 1 and "load unknown" or "does not answer"
    if gpu.has_usage == 1 then
        load = gpu.usage_percent .. " %"
    end
    print(("%s %s: %s"):format(ffi.string(library.qzgpuinfo_kind_text(gpu.kind)), ffi.string(gpu.name), load))
end

library.qzgpuinfo_close(reader[0])
os.exit(result == OK and state.freshness == FRESH and 0 or 1)
