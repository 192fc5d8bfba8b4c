// Does the work of the OpenCL stand-in's objects: PoCL, or a script.
#pragma once

#include <memory>
#include <string>

#include "simulator/lib/ClApi.h"
#include "simulator/lib/ClObjects.h"
#include "simulator/lib/Machine.h"

namespace qzsim {

/// Handles have been checked already; every operation returns an OpenCL status, and null with a failure.
class ClBackend {
  public:
    virtual ~ClBackend() = default;

    virtual cl_context createContext(cl_int& status) = 0;
    virtual cl_command_queue createQueue(cl_context context, cl_int& status) = 0;
    virtual cl_program createProgram(cl_context context, const std::string& source, cl_int& status) = 0;
    virtual cl_int build(cl_program program) = 0;
    virtual std::string buildLog(cl_program program) = 0;
    virtual cl_kernel createKernel(cl_program program, const char* name, cl_int& status) = 0;
    virtual cl_mem createBuffer(cl_context context, cl_mem_flags flags, std::size_t size, cl_int& status) = 0;
    virtual cl_int setArgument(cl_kernel kernel, cl_uint index, std::size_t size, const void* value) = 0;
    virtual cl_int write(cl_command_queue queue, cl_mem buffer, std::size_t offset, std::size_t size,
                         const void* data) = 0;
    virtual cl_int read(cl_command_queue queue, cl_mem buffer, std::size_t offset, std::size_t size,
                        void* data) = 0;

    /// `dimensions` is 1 to 3.
    virtual cl_int launch(cl_command_queue queue, cl_kernel kernel, cl_uint dimensions,
                          const std::size_t* global, const std::size_t* local) = 0;
    virtual cl_int finish(cl_command_queue queue) = 0;
    virtual cl_int release(ClKind kind, void* handle) = 0;
};

/// Passes everything to PoCL, or another driver in its place, through the real ICD loader, whose path is in
/// QZSIM_REAL_OPENCL.
std::unique_ptr<ClBackend> makePoclBackend(const OpenClStack& stack);

/// Computes nothing; a round takes the time that the description says.
std::unique_ptr<ClBackend> makeScriptedBackend(const OpenClStack& stack);

} // namespace qzsim
