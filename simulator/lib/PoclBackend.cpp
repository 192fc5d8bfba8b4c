#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include <dlfcn.h>

#include "simulator/lib/ClBackend.h"
#include "simulator/lib/happen.h"

namespace qzsim {

namespace {

/// The real loader's functions. Resolved once; the loader stays open, since PoCL's threads do not end with
/// it.
struct RealOpenCl {
    void* loader = nullptr;
    cl_device_id device = nullptr;

    template <typename Function>
    Function* get(const char* name) const {
        void* symbol = dlsym(loader, name);
        if (symbol == nullptr) {
            std::fprintf(stderr, "simulator: the real OpenCL loader has no %s\n", name);
            std::abort();
        }
        return reinterpret_cast<Function*>(symbol);
    }
};

#define QZSIM_REAL(name) get<decltype(name)>(#name)

/// The first device behind the loader, or null. The loader sees one driver alone.
cl_device_id findDevice(const RealOpenCl& real) {
    cl_platform_id platform = nullptr;
    cl_device_id device = nullptr;
    const bool isFound =
        real.QZSIM_REAL(clGetPlatformIDs)(1, &platform, nullptr) == 0 &&
        real.QZSIM_REAL(clGetDeviceIDs)(platform, CL_DEVICE_TYPE_ALL, 1, &device, nullptr) == 0;
    return isFound ? device : nullptr;
}

/// While it exists, registers only the drivers of a folder; the real loader looks once.
class OnlyDriversOf {
  public:
    explicit OnlyDriversOf(const char* folder) {
        if (const char* set = std::getenv(variable))
            before = set;
        if (folder != nullptr)
            setenv(variable, folder, 1);
    }
    ~OnlyDriversOf() {
        if (before)
            setenv(variable, before->c_str(), 1);
        else
            unsetenv(variable);
    }
    OnlyDriversOf(const OnlyDriversOf&) = delete;
    OnlyDriversOf& operator=(const OnlyDriversOf&) = delete;

  private:
    static constexpr const char* variable = "OCL_ICD_VENDORS";
    std::optional<std::string> before;
};

RealOpenCl openReal() {
    RealOpenCl real;
    const OnlyDriversOf drivers(std::getenv("QZSIM_OPENCL_DRIVERS"));
    const char* path = std::getenv("QZSIM_REAL_OPENCL");
    real.loader = path == nullptr ? nullptr : dlopen(path, RTLD_LAZY | RTLD_NODELETE);
    real.device = real.loader == nullptr ? nullptr : findDevice(real);
    if (real.device == nullptr)
        std::fprintf(stderr, "simulator: no device behind the OpenCL loader %s\n",
                     path == nullptr ? "" : path);
    return real;
}

class PoclBackend : public ClBackend {
  public:
    explicit PoclBackend(const OpenClStack& stack)
        : real(openReal()), share(stack.share), stretch(stack.stretch) {}

    cl_context createContext(cl_int& status) override {
        if (real.device == nullptr) {
            status = CL_DEVICE_NOT_AVAILABLE;
            return nullptr;
        }
        return real.QZSIM_REAL(clCreateContext)(nullptr, 1, &real.device, nullptr, nullptr, &status);
    }

    cl_command_queue createQueue(cl_context context, cl_int& status) override {
        return real.QZSIM_REAL(clCreateCommandQueue)(context, real.device, 0, &status);
    }

    cl_program createProgram(cl_context context, const std::string& source, cl_int& status) override {
        const char* text = source.c_str();
        return real.QZSIM_REAL(clCreateProgramWithSource)(context, 1, &text, nullptr, &status);
    }

    cl_int build(cl_program program) override {
        return real.QZSIM_REAL(clBuildProgram)(program, 1, &real.device, nullptr, nullptr, nullptr);
    }

    std::string buildLog(cl_program program) override {
        const auto info = real.QZSIM_REAL(clGetProgramBuildInfo);
        std::size_t size = 0;
        info(program, real.device, CL_PROGRAM_BUILD_LOG, 0, nullptr, &size);
        std::string log(size, '\0');
        info(program, real.device, CL_PROGRAM_BUILD_LOG, size, log.data(), nullptr);
        log.resize(std::min(log.find('\0'), log.size()));
        return log;
    }

    cl_kernel createKernel(cl_program program, const char* name, cl_int& status) override {
        return real.QZSIM_REAL(clCreateKernel)(program, name, &status);
    }

    cl_mem createBuffer(cl_context context, cl_mem_flags flags, std::size_t size, cl_int& status) override {
        return real.QZSIM_REAL(clCreateBuffer)(context, flags, size, nullptr, &status);
    }

    cl_int setArgument(cl_kernel kernel, cl_uint index, std::size_t size, const void* value) override {
        return real.QZSIM_REAL(clSetKernelArg)(kernel, index, size, value);
    }

    cl_int write(cl_command_queue queue, cl_mem buffer, std::size_t offset, std::size_t size,
                 const void* data) override {
        return real.QZSIM_REAL(clEnqueueWriteBuffer)(queue, buffer, CL_TRUE, offset, size, data, 0, nullptr,
                                                     nullptr);
    }

    cl_int read(cl_command_queue queue, cl_mem buffer, std::size_t offset, std::size_t size,
                void* data) override {
        return real.QZSIM_REAL(clEnqueueReadBuffer)(queue, buffer, CL_TRUE, offset, size, data, 0, nullptr,
                                                    nullptr);
    }

    cl_int launch(cl_command_queue queue, cl_kernel kernel, cl_uint dimensions, const std::size_t* global,
                  const std::size_t* local) override {
        std::array<std::size_t, 3> size{};
        std::copy_n(global, dimensions, size.begin());
        // Groups are left out in the last dimension, so that those that run still begin with item 0.
        const std::size_t last = dimensions - 1;
        const std::size_t groupSize = local == nullptr ? 1 : local[last];
        const std::size_t wholeGroups = size[last] / groupSize;
        const auto groups = static_cast<double>(wholeGroups);
        size[last] =
            std::max<std::size_t>(1, static_cast<std::size_t>(std::floor(groups * share))) * groupSize;
        launched = Clock::now();
        return real.QZSIM_REAL(clEnqueueNDRangeKernel)(queue, kernel, dimensions, nullptr, size.data(), local,
                                                       0, nullptr, nullptr);
    }

    cl_int finish(cl_command_queue queue) override {
        const cl_int status = real.QZSIM_REAL(clFinish)(queue);
        const std::chrono::duration<double, std::milli> took = Clock::now() - launched;
        if (stretch > 1.0)
            advanceClock(std::llround(took.count() * (stretch - 1.0)));
        return status;
    }

    cl_int release(ClKind kind, void* handle) override {
        switch (kind) {
        case ClKind::Context:
            return real.QZSIM_REAL(clReleaseContext)(static_cast<cl_context>(handle));
        case ClKind::Queue:
            return real.QZSIM_REAL(clReleaseCommandQueue)(static_cast<cl_command_queue>(handle));
        case ClKind::Program:
            return real.QZSIM_REAL(clReleaseProgram)(static_cast<cl_program>(handle));
        case ClKind::Kernel:
            return real.QZSIM_REAL(clReleaseKernel)(static_cast<cl_kernel>(handle));
        case ClKind::Buffer:
            return real.QZSIM_REAL(clReleaseMemObject)(static_cast<cl_mem>(handle));
        }
        return CL_INVALID_VALUE;
    }

  private:
    using Clock = std::chrono::steady_clock;

    RealOpenCl real;
    double share;
    double stretch;
    Clock::time_point launched;
};

} // namespace

std::unique_ptr<ClBackend> makePoclBackend(const OpenClStack& stack) {
    return std::make_unique<PoclBackend>(stack);
}

} // namespace qzsim
