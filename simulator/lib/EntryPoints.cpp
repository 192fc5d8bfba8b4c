#include "simulator/lib/EntryPoints.h"

#include <algorithm>

namespace qzsim {

const std::vector<LibraryInfo>& knownLibraries() {
    static const std::vector<std::string_view> runtime = {"cudaGetDeviceCount", "cudaGetDeviceProperties",
                                                          "cudaGetDeviceProperties_v2"};
    static const std::vector<LibraryInfo> libraries = {
        {"libnvidia-ml.so.1",
         "libnvidia-ml.so",
         "libqzsim-nvml.so",
         {"nvmlInit_v2", "nvmlShutdown", "nvmlDeviceGetCount_v2", "nvmlDeviceGetHandleByIndex_v2",
          "nvmlDeviceGetPciInfo_v3", "nvmlDeviceGetName", "nvmlDeviceGetUtilizationRates",
          "nvmlDeviceGetTemperature", "nvmlDeviceGetMemoryInfo", "nvmlErrorString",
          "nvmlSystemGetDriverVersion", "nvmlSystemGetNVMLVersion", "nvmlDeviceGetUUID",
          "nvmlDeviceGetVbiosVersion", "nvmlDeviceGetMigMode", "nvmlDeviceGetPersistenceMode"}},
        {"libcudart.so.13", "libcudart.so", "libqzsim-cudart13.so", runtime},
        {"libcudart.so.12", "libcudart.so", "libqzsim-cudart12.so", runtime},
        {"libcudart.so.11.0", "libcudart.so", "libqzsim-cudart11.so", runtime},
        {"libcuda.so.1",
         "libcuda.so",
         "libqzsim-cuda.so",
         {"cuInit", "cuDeviceGetCount", "cuDeviceGet", "cuDeviceGetAttribute"}},
        {"libOpenCL.so.1",
         "libOpenCL.so",
         "libqzsim-opencl.so",
         {"clGetPlatformIDs",
          "clGetPlatformInfo",
          "clGetDeviceIDs",
          "clGetDeviceInfo",
          "clCreateContext",
          "clCreateCommandQueue",
          "clCreateProgramWithSource",
          "clBuildProgram",
          "clGetProgramBuildInfo",
          "clCreateKernel",
          "clCreateBuffer",
          "clEnqueueWriteBuffer",
          "clEnqueueReadBuffer",
          "clEnqueueNDRangeKernel",
          "clSetKernelArg",
          "clFinish",
          "clReleaseKernel",
          "clReleaseProgram",
          "clReleaseCommandQueue",
          "clReleaseContext",
          "clReleaseMemObject"}},
        // Drivers that the OpenCL loader opens.
        {"libnvidia-opencl.so.1", "libnvidia-opencl.so", "libqzsim-icd-nvidia.so", {}},
        {"libamdocl64.so", "libamdocl64.so", "libqzsim-icd-amd.so", {}},
        {"libMesaOpenCL.so.1", "libMesaOpenCL.so", "libqzsim-icd-mesa.so", {}},
        {"libRusticlOpenCL.so.1", "libRusticlOpenCL.so", "libqzsim-icd-rusticl.so", {}},
        {"libsimulated-opencl.so.1", "libsimulated-opencl.so", "libqzsim-icd-simulated.so", {}},
    };
    return libraries;
}

const LibraryInfo* findLibrary(std::string_view name) {
    for (const auto& library : knownLibraries())
        if (library.name == name || library.plainName == name)
            return &library;
    return nullptr;
}

bool isKnownFunction(std::string_view name) {
    const auto& libraries = knownLibraries();
    return std::any_of(libraries.begin(), libraries.end(), [name](const LibraryInfo& library) {
        return std::find(library.functions.begin(), library.functions.end(), name) != library.functions.end();
    });
}

} // namespace qzsim
