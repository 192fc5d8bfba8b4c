#include "support/DynamicLoader.h"

#include <cstdint>

#include <dlfcn.h>
#include <link.h>

namespace {

const char* sonameOf(void* library) {
    link_map* map = nullptr;
    if (dlinfo(library, RTLD_DI_LINKMAP, &map) != 0 || map->l_ld == nullptr)
        return nullptr;
    const char* strings = nullptr;
    const ElfW(Dyn)* soname = nullptr;
    for (const ElfW(Dyn)* entry = map->l_ld; entry->d_tag != DT_NULL; ++entry) {
        if (entry->d_tag == DT_STRTAB)
            // NOLINTNEXTLINE(performance-no-int-to-ptr): the dynamic section has its addresses as numbers.
            strings = reinterpret_cast<const char*>(entry->d_un.d_ptr);
        if (entry->d_tag == DT_SONAME)
            soname = entry;
    }
    if (strings == nullptr || soname == nullptr)
        return nullptr;
    // A read-only dynamic section keeps the file's addresses; all others have been relocated to addresses
    // in memory.
    if (reinterpret_cast<std::uintptr_t>(strings) < map->l_addr)
        strings += map->l_addr;
    return strings + soname->d_un.d_val;
}

} // namespace

DynamicLoader DynamicLoader::system() {
    return {dlopen, dlsym, dlclose, sonameOf};
}

void* DynamicLoader::openFirst(std::initializer_list<const char*> names) const {
    for (const char* name : names)
        if (void* library = open(name, RTLD_LAZY))
            return library;
    return nullptr;
}
