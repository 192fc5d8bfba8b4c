// The least that a benchmark run can cost outside its kernel rounds: 2^28 random numbers in two arrays of
// plain malloc, and their transfer to the first GPU device of the first OpenCL platform. Prints one JSON
// object: milliseconds of wall time and of processor time.
#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "benchmarks/processorTime.h"
#include "opencl/GpuOpenCL_Loader.h"
#include "opencl/HostArray.h"

namespace {

constexpr std::size_t elements = std::size_t(1) << 27;
constexpr std::size_t bytes = elements * sizeof(float);

cl_device_id firstDevice() {
    const GpuOpenCL_Table& openCL = GpuOpenCL_Loader::table();
    cl_platform_id platform = nullptr;
    cl_device_id device = nullptr;
    openCL.clGetPlatformIDs(1, &platform, nullptr);
    openCL.clGetDeviceIDs(platform, CL_DEVICE_TYPE_GPU, 1, &device, nullptr);
    return device;
}

bool transfer(cl_context context, cl_command_queue queue, const HostArray<float>& data) {
    const GpuOpenCL_Table& openCL = GpuOpenCL_Loader::table();
    cl_mem buffer = openCL.clCreateBuffer(context, CL_MEM_READ_ONLY, bytes, nullptr, nullptr);
    const cl_int status =
        openCL.clEnqueueWriteBuffer(queue, buffer, CL_TRUE, 0, bytes, data.get(), 0, nullptr, nullptr);
    openCL.clReleaseMemObject(buffer);
    return status == CL_SUCCESS;
}

bool run(cl_device_id device) {
    const GpuOpenCL_Table& openCL = GpuOpenCL_Loader::table();
    cl_context context = openCL.clCreateContext(nullptr, 1, &device, nullptr, nullptr, nullptr);
    cl_command_queue queue = openCL.clCreateCommandQueue(context, device, 0, nullptr);
    const HostArray<float> a(std::malloc(bytes));
    const HostArray<float> b(std::malloc(bytes));
    if (queue == nullptr || a == nullptr || b == nullptr)
        return false;
    std::srand(123);
    for (std::size_t i = 0; i < elements; ++i) {
        a[i] = static_cast<float>(std::rand());
        b[i] = static_cast<float>(std::rand());
    }
    const bool transferred = transfer(context, queue, a) && transfer(context, queue, b);
    openCL.clReleaseCommandQueue(queue);
    openCL.clReleaseContext(context);
    return transferred;
}

} // namespace

int main() {
    if (GpuOpenCL_Loader::load() == 0)
        return 1;
    cl_device_id device = firstDevice();
    const auto began = std::chrono::steady_clock::now();
    const double beganProcessor = processorMilliseconds();
    const bool done = device != nullptr && run(device);
    const auto ended = std::chrono::steady_clock::now();
    std::printf("{\"total_ms\": %.3f, \"processor_ms\": %.3f}\n",
                std::chrono::duration<double, std::milli>(ended - began).count(),
                processorMilliseconds() - beganProcessor);
    return done ? 0 : 1;
}
