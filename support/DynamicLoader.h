// The dynamic loader's operations as a value, so that a test can replace the system's.
#pragma once

#include <initializer_list>

/// Functions to open, search and close vendor libraries.
struct DynamicLoader {
    void* (*open)(const char* name, int mode);
    void* (*symbol)(void* library, const char* name);
    int (*close)(void* library);
    const char* (*soname)(void* library); ///< the DT_SONAME of the library's file, null without one

    /// dlopen, dlsym, dlclose, and the soname from the library's dynamic section.
    static DynamicLoader system();

    /// Opens the first of `names` that can be opened (RTLD_LAZY), in their order; null if none can.
    void* openFirst(std::initializer_list<const char*> names) const;

    /// Sets `function` to the library's entry point `name`, or to null; returns whether it exists.
    template <class Function>
    bool resolve(void* library, const char* name, Function*& function) const {
        function = reinterpret_cast<Function*>(symbol(library, name));
        return function != nullptr;
    }
};
