// The dynamic loader's operations as a value, so that a test can stand in for the system's.
#pragma once

#include <initializer_list>

/// What vendor libraries are opened, searched and closed with.
struct DynamicLoader {
    void* (*open)(const char* name, int mode);
    void* (*symbol)(void* library, const char* name);
    int (*close)(void* library);
    const char* (*soname)(void* library); ///< the name that the library's file gives itself, null without one

    /// dlopen, dlsym, dlclose, and the soname from the library's dynamic section.
    static DynamicLoader system();

    /// The first of `names` that opens (RTLD_LAZY), tried in their order; null when none does.
    void* openFirst(std::initializer_list<const char*> names) const;

    /// Sets `function` to the library's entry point `name`, null when it lacks it. Whether it has it.
    template <class Function>
    bool resolve(void* library, const char* name, Function*& function) const {
        function = reinterpret_cast<Function*>(symbol(library, name));
        return function != nullptr;
    }
};
