// The OpenCL stand-in's objects: every call is counted, its handles are checked, and the backend does the
// rest.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "simulator/lib/ClApi.h"
#include "simulator/lib/ClBackend.h"
#include "simulator/lib/ClLookup.h"
#include "simulator/lib/Session.h"

namespace {

using namespace qzsim;

ClObjects& objects() {
    static ClObjects live;
    return live;
}

ClBackend& backend() {
    const OpenClStack& stack = Session::instance().machine().openCl;
    static const auto made = stack.usesPocl ? makePoclBackend(stack) : makeScriptedBackend(stack);
    return *made;
}

void note(const std::string& what) {
    Session::instance().counters().happened("note:" + what);
}

/// Ends every clCreate...: stores the status where the caller wants it.
template <typename Handle>
Handle ended(Handle handle, cl_int status, cl_int* where) {
    if (where != nullptr)
        *where = status;
    return handle;
}

/// Appends a program's text, and a zero byte, to the file named by QZSIM_KERNELS.
void keepSource(const std::string& source) {
    const char* path = std::getenv("QZSIM_KERNELS");
    if (std::FILE* file = path == nullptr ? nullptr : std::fopen(path, "abe")) {
        std::fwrite(source.c_str(), 1, source.size() + 1, file);
        std::fclose(file);
    }
}

std::string joinSource(cl_uint count, const char** texts, const std::size_t* lengths) {
    std::string source;
    for (cl_uint i = 0; i < count; ++i) {
        source +=
            lengths == nullptr || lengths[i] == 0 ? std::string(texts[i]) : std::string(texts[i], lengths[i]);
    }
    return source;
}

std::string sizesText(cl_uint dimensions, const std::size_t* sizes) {
    if (sizes == nullptr)
        return "none";
    std::string text;
    for (cl_uint i = 0; i < dimensions; ++i)
        text += (i == 0 ? "" : "x") + std::to_string(sizes[i]);
    return text;
}

bool fitsBuffer(cl_mem buffer, std::size_t offset, std::size_t size) {
    const std::size_t room = objects().sizeOf(buffer);
    return offset <= room && size <= room - offset;
}

cl_int releaseObject(ClKind kind, void* handle, const char* function, cl_int invalid) {
    const Verdict verdict = Session::instance().call(function);
    if (verdict.code)
        return *verdict.code;
    return objects().released(kind, handle, function) ? backend().release(kind, handle) : invalid;
}

} // namespace

cl_context clCreateContext(const cl_context_properties*, cl_uint count, const cl_device_id* devices,
                           void(CL_CALLBACK*)(const char*, const void*, std::size_t, void*), void*,
                           cl_int* status) {
    const bool isDevice = count == 1 && devices != nullptr && findClDevice(devices[0]) != nullptr;
    const Verdict verdict =
        Session::instance().call("clCreateContext", isDevice ? findClDevice(devices[0])->index : -1);
    if (verdict.code)
        return ended<cl_context>(nullptr, *verdict.code, status);
    if (!isDevice) {
        Session::instance().misuse("clCreateContext of an invalid device");
        return ended<cl_context>(nullptr, CL_INVALID_DEVICE, status);
    }
    cl_int result = CL_SUCCESS;
    const cl_context context = backend().createContext(result);
    objects().created(ClKind::Context, context);
    return ended(context, result, status);
}

cl_command_queue clCreateCommandQueue(cl_context context, cl_device_id device, cl_command_queue_properties,
                                      cl_int* status) {
    const Verdict verdict = Session::instance().call("clCreateCommandQueue");
    if (verdict.code)
        return ended<cl_command_queue>(nullptr, *verdict.code, status);
    if (!objects().isLive(ClKind::Context, context, "clCreateCommandQueue"))
        return ended<cl_command_queue>(nullptr, CL_INVALID_CONTEXT, status);
    if (findClDevice(device) == nullptr) {
        Session::instance().misuse("clCreateCommandQueue of an invalid device");
        return ended<cl_command_queue>(nullptr, CL_INVALID_DEVICE, status);
    }
    cl_int result = CL_SUCCESS;
    const cl_command_queue queue = backend().createQueue(context, result);
    objects().created(ClKind::Queue, queue);
    return ended(queue, result, status);
}

cl_program clCreateProgramWithSource(cl_context context, cl_uint count, const char** texts,
                                     const std::size_t* lengths, cl_int* status) {
    const Verdict verdict = Session::instance().call("clCreateProgramWithSource");
    if (verdict.code)
        return ended<cl_program>(nullptr, *verdict.code, status);
    if (!objects().isLive(ClKind::Context, context, "clCreateProgramWithSource"))
        return ended<cl_program>(nullptr, CL_INVALID_CONTEXT, status);
    if (count == 0 || texts == nullptr)
        return ended<cl_program>(nullptr, CL_INVALID_VALUE, status);
    const std::string source = joinSource(count, texts, lengths);
    keepSource(source);
    cl_int result = CL_SUCCESS;
    const cl_program program = backend().createProgram(context, source, result);
    objects().created(ClKind::Program, program);
    return ended(program, result, status);
}

cl_int clBuildProgram(cl_program program, cl_uint, const cl_device_id*, const char* options,
                      void(CL_CALLBACK*)(cl_program, void*), void*) {
    const Verdict verdict = Session::instance().call("clBuildProgram");
    if (verdict.code)
        return *verdict.code;
    if (!objects().isLive(ClKind::Program, program, "clBuildProgram"))
        return CL_INVALID_PROGRAM;
    note(std::string("build options ") + (options == nullptr ? "none" : options));
    return backend().build(program);
}

cl_int clGetProgramBuildInfo(cl_program program, cl_device_id, cl_program_build_info what, std::size_t room,
                             void* value, std::size_t* needed) {
    const Verdict verdict = Session::instance().call("clGetProgramBuildInfo");
    if (verdict.code)
        return *verdict.code;
    if (!objects().isLive(ClKind::Program, program, "clGetProgramBuildInfo"))
        return CL_INVALID_PROGRAM;
    if (what != CL_PROGRAM_BUILD_LOG)
        return CL_INVALID_VALUE;
    const std::string log = verdict.answer ? *verdict.answer : backend().buildLog(program);
    if (needed != nullptr)
        *needed = log.size() + 1;
    if (value != nullptr) {
        if (room < log.size() + 1)
            return CL_INVALID_VALUE;
        std::memcpy(value, log.c_str(), log.size() + 1);
    }
    return CL_SUCCESS;
}

cl_kernel clCreateKernel(cl_program program, const char* name, cl_int* status) {
    const Verdict verdict = Session::instance().call("clCreateKernel");
    if (verdict.code)
        return ended<cl_kernel>(nullptr, *verdict.code, status);
    if (!objects().isLive(ClKind::Program, program, "clCreateKernel"))
        return ended<cl_kernel>(nullptr, CL_INVALID_PROGRAM, status);
    note(std::string("kernel ") + (name == nullptr ? "none" : name));
    cl_int result = CL_SUCCESS;
    const cl_kernel kernel = backend().createKernel(program, name, result);
    objects().created(ClKind::Kernel, kernel);
    return ended(kernel, result, status);
}

cl_mem clCreateBuffer(cl_context context, cl_mem_flags flags, std::size_t size, void* host, cl_int* status) {
    const Verdict verdict = Session::instance().call("clCreateBuffer");
    if (verdict.code)
        return ended<cl_mem>(nullptr, *verdict.code, status);
    if (!objects().isLive(ClKind::Context, context, "clCreateBuffer"))
        return ended<cl_mem>(nullptr, CL_INVALID_CONTEXT, status);
    if (size == 0 || host != nullptr)
        return ended<cl_mem>(nullptr, CL_INVALID_VALUE, status);
    note("buffer " + std::to_string(flags) + " " + std::to_string(size));
    cl_int result = CL_SUCCESS;
    const cl_mem buffer = backend().createBuffer(context, flags, size, result);
    objects().created(ClKind::Buffer, buffer, size);
    return ended(buffer, result, status);
}

cl_int clSetKernelArg(cl_kernel kernel, cl_uint index, std::size_t size, const void* value) {
    const Verdict verdict = Session::instance().call("clSetKernelArg");
    if (verdict.code)
        return *verdict.code;
    if (!objects().isLive(ClKind::Kernel, kernel, "clSetKernelArg"))
        return CL_INVALID_KERNEL;
    cl_mem buffer = nullptr;
    constexpr std::size_t handleSize = sizeof(cl_mem); // NOLINT(bugprone-sizeof-expression): a handle's size
    if (size != handleSize || value == nullptr)
        return CL_INVALID_ARG_SIZE;
    std::memcpy(&buffer, value, handleSize);
    if (!objects().isLive(ClKind::Buffer, buffer, "clSetKernelArg"))
        return CL_INVALID_MEM_OBJECT;
    note("argument " + std::to_string(index));
    return backend().setArgument(kernel, index, size, value);
}

cl_int clEnqueueWriteBuffer(cl_command_queue queue, cl_mem buffer, cl_bool, std::size_t offset,
                            std::size_t size, const void* data, cl_uint, const cl_event*, cl_event*) {
    const Verdict verdict = Session::instance().call("clEnqueueWriteBuffer");
    if (verdict.code)
        return *verdict.code;
    if (!objects().isLive(ClKind::Queue, queue, "clEnqueueWriteBuffer"))
        return CL_INVALID_COMMAND_QUEUE;
    if (!objects().isLive(ClKind::Buffer, buffer, "clEnqueueWriteBuffer"))
        return CL_INVALID_MEM_OBJECT;
    return data == nullptr || !fitsBuffer(buffer, offset, size)
               ? CL_INVALID_VALUE
               : backend().write(queue, buffer, offset, size, data);
}

cl_int clEnqueueReadBuffer(cl_command_queue queue, cl_mem buffer, cl_bool, std::size_t offset,
                           std::size_t size, void* data, cl_uint, const cl_event*, cl_event*) {
    const Verdict verdict = Session::instance().call("clEnqueueReadBuffer");
    if (verdict.code)
        return *verdict.code;
    if (!objects().isLive(ClKind::Queue, queue, "clEnqueueReadBuffer"))
        return CL_INVALID_COMMAND_QUEUE;
    if (!objects().isLive(ClKind::Buffer, buffer, "clEnqueueReadBuffer"))
        return CL_INVALID_MEM_OBJECT;
    if (data == nullptr || !fitsBuffer(buffer, offset, size))
        return CL_INVALID_VALUE;
    note("read " + std::to_string(size));
    const cl_int status = backend().read(queue, buffer, offset, size, data);
    if (verdict.answer) {
        const float value = static_cast<float>(parseReal(*verdict.answer).value_or(0.0));
        for (std::size_t i = 0; i + sizeof value <= size; i += sizeof value)
            std::memcpy(static_cast<char*>(data) + i, &value, sizeof value);
    }
    return status;
}

cl_int clEnqueueNDRangeKernel(cl_command_queue queue, cl_kernel kernel, cl_uint dimensions,
                              const std::size_t* offset, const std::size_t* global, const std::size_t* local,
                              cl_uint, const cl_event*, cl_event*) {
    const Verdict verdict = Session::instance().call("clEnqueueNDRangeKernel");
    if (verdict.code)
        return *verdict.code;
    if (!objects().isLive(ClKind::Queue, queue, "clEnqueueNDRangeKernel"))
        return CL_INVALID_COMMAND_QUEUE;
    if (!objects().isLive(ClKind::Kernel, kernel, "clEnqueueNDRangeKernel"))
        return CL_INVALID_KERNEL;
    if (dimensions < 1 || dimensions > 3 || global == nullptr)
        return CL_INVALID_WORK_DIMENSION;
    note("range " + sizesText(dimensions, global) + " local " + sizesText(dimensions, local) + " offset " +
         sizesText(dimensions, offset));
    return backend().launch(queue, kernel, dimensions, global, local);
}

cl_int clFinish(cl_command_queue queue) {
    const Verdict verdict = Session::instance().call("clFinish");
    if (verdict.code)
        return *verdict.code;
    return objects().isLive(ClKind::Queue, queue, "clFinish") ? backend().finish(queue)
                                                              : CL_INVALID_COMMAND_QUEUE;
}

cl_int clReleaseKernel(cl_kernel kernel) {
    return releaseObject(ClKind::Kernel, kernel, "clReleaseKernel", CL_INVALID_KERNEL);
}

cl_int clReleaseProgram(cl_program program) {
    return releaseObject(ClKind::Program, program, "clReleaseProgram", CL_INVALID_PROGRAM);
}

cl_int clReleaseCommandQueue(cl_command_queue queue) {
    return releaseObject(ClKind::Queue, queue, "clReleaseCommandQueue", CL_INVALID_COMMAND_QUEUE);
}

cl_int clReleaseContext(cl_context context) {
    return releaseObject(ClKind::Context, context, "clReleaseContext", CL_INVALID_CONTEXT);
}

cl_int clReleaseMemObject(cl_mem buffer) {
    return releaseObject(ClKind::Buffer, buffer, "clReleaseMemObject", CL_INVALID_MEM_OBJECT);
}
