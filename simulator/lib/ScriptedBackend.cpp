#include <algorithm>
#include <cstring>
#include <vector>

#include "simulator/lib/ClBackend.h"
#include "simulator/lib/Session.h"
#include "simulator/lib/happen.h"

namespace qzsim {

namespace {

void passTime(std::int64_t milliseconds, bool sleeps) {
    if (sleeps || !advanceClock(milliseconds))
        sleepMilliseconds(milliseconds);
}

class ScriptedBackend : public ClBackend {
  public:
    explicit ScriptedBackend(const OpenClStack& described) : stack(described) {}

    cl_context createContext(cl_int& status) override {
        // Each benchmark creates a context, so each begins with the first round of the script, and waits
        // for nothing that was launched in another.
        round = 0;
        pendingMs = 0;
        return make<cl_context>(status);
    }
    cl_command_queue createQueue(cl_context, cl_int& status) override {
        return make<cl_command_queue>(status);
    }
    cl_program createProgram(cl_context, const std::string&, cl_int& status) override {
        return make<cl_program>(status);
    }
    cl_int build(cl_program) override { return CL_SUCCESS; }
    std::string buildLog(cl_program) override { return stack.buildLog; }
    cl_kernel createKernel(cl_program, const char*, cl_int& status) override {
        return make<cl_kernel>(status);
    }
    cl_mem createBuffer(cl_context, cl_mem_flags, std::size_t, cl_int& status) override {
        return make<cl_mem>(status);
    }
    cl_int setArgument(cl_kernel, cl_uint, std::size_t, const void*) override { return CL_SUCCESS; }
    cl_int write(cl_command_queue, cl_mem, std::size_t, std::size_t, const void*) override {
        return CL_SUCCESS;
    }

    cl_int read(cl_command_queue, cl_mem, std::size_t, std::size_t size, void* data) override {
        auto* bytes = static_cast<unsigned char*>(data);
        for (std::size_t i = 0; i < size / sizeof(float); ++i) {
            std::memcpy(bytes + i * sizeof(float), &stack.results[i % stack.results.size()], sizeof(float));
        }
        return CL_SUCCESS;
    }

    cl_int launch(cl_command_queue, cl_kernel, cl_uint, const std::size_t*, const std::size_t*) override {
        pendingMs += stack.roundMs.at(++round);
        return CL_SUCCESS;
    }

    cl_int finish(cl_command_queue) override {
        passTime(pendingMs, stack.sleeps);
        pendingMs = 0;
        return CL_SUCCESS;
    }

    cl_int release(ClKind, void*) override { return CL_SUCCESS; }

  private:
    template <typename Handle>
    Handle make(cl_int& status) {
        // The tokens are kept to the end, so that no address is reused and a released one is recognised.
        tokens.push_back(std::make_unique<char[]>(16));
        status = CL_SUCCESS;
        return reinterpret_cast<Handle>(tokens.back().get());
    }

    const OpenClStack& stack;
    std::vector<std::unique_ptr<char[]>> tokens;
    std::int64_t pendingMs = 0;
    std::uint64_t round = 0;
};

} // namespace

std::unique_ptr<ClBackend> makeScriptedBackend(const OpenClStack& stack) {
    return std::make_unique<ScriptedBackend>(stack);
}

} // namespace qzsim
