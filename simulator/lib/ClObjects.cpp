#include "simulator/lib/ClObjects.h"

#include "simulator/lib/Session.h"

namespace qzsim {

const char* kindName(ClKind kind) {
    static const char* const names[] = {"context", "queue", "program", "kernel", "buffer"};
    return names[static_cast<int>(kind)];
}

void ClObjects::created(ClKind kind, const void* handle, std::size_t size) {
    if (handle != nullptr) {
        // An implementation may use the address of a released object again.
        objects[handle] = Object{kind, true, size};
        Session::instance().counters().add(std::string("live:") + kindName(kind));
    }
}

bool ClObjects::isLive(ClKind kind, const void* handle, const char* function) {
    const auto found = objects.find(handle);
    if (found != objects.end() && found->second.kind == kind && found->second.lives)
        return true;
    const bool wasReleased = found != objects.end() && found->second.kind == kind;
    Session::instance().misuse(std::string(function) + (wasReleased ? " of a released " : " of an invalid ") +
                               kindName(kind));
    return false;
}

bool ClObjects::released(ClKind kind, const void* handle, const char* function) {
    if (!isLive(kind, handle, function))
        return false;
    objects[handle].lives = false;
    Session::instance().counters().add(std::string("live:") + kindName(kind), -1);
    return true;
}

std::size_t ClObjects::sizeOf(const void* buffer) const {
    const auto found = objects.find(buffer);
    return found == objects.end() ? 0 : found->second.size;
}

} // namespace qzsim
