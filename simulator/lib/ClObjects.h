// The live OpenCL objects: counts leaks and recognises released and invented handles.
#pragma once

#include <cstddef>
#include <string>
#include <unordered_map>

namespace qzsim {

enum class ClKind { Context, Queue, Program, Kernel, Buffer };

const char* kindName(ClKind kind);

class ClObjects {
  public:
    /// Records a new object; ignores a null handle. `size` applies to buffers.
    void created(ClKind kind, const void* handle, std::size_t size = 0);

    /// Whether `handle` lives and is of that kind; if not, `function`'s misuse goes into the report.
    bool isLive(ClKind kind, const void* handle, const char* function);

    /// The same, and removes the object.
    bool released(ClKind kind, const void* handle, const char* function);

    std::size_t sizeOf(const void* buffer) const;

  private:
    struct Object {
        ClKind kind;
        bool lives;
        std::size_t size;
    };
    std::unordered_map<const void*, Object> objects;
};

} // namespace qzsim
