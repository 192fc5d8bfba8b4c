// A vendor's library that is opened at run time, with the table of its entry points.
#pragma once

#include <initializer_list>

#include "support/DynamicLoader.h"

/// Whether a library is of use without an entry point.
enum class EntryPoint { Required, Optional };

enum class LoadResult { Loaded, NotFound, Incomplete };

/// Either unloaded, with a table of null pointers, or loaded, with every required pointer set. Never unloads
/// by itself. `Table` has function pointers and `template <class Visit> void walk(Visit)`, which calls
/// `visit(name, pointer, EntryPoint)` for each: the one list that fills the table.
template <class Table>
class VendorLibrary {
  public:
    /// Opens the first of `names` that opens and fills the table; every entry point is looked up before the
    /// result is known. Loaded at once when it already is. A library that lacks a required entry point is
    /// closed again.
    LoadResult load(std::initializer_list<const char*> names, const DynamicLoader& from) {
        if (isLoaded())
            return LoadResult::Loaded;
        loader = from;
        library = loader.openFirst(names);
        if (library == nullptr)
            return LoadResult::NotFound;
        bool complete = true;
        entryPoints.walk([&](const char* name, auto& function, EntryPoint need) {
            if (!loader.resolve(library, name, function) && need == EntryPoint::Required)
                complete = false;
        });
        if (!complete)
            unload();
        return complete ? LoadResult::Loaded : LoadResult::Incomplete;
    }

    bool isLoaded() const { return library != nullptr; }

    /// Closes the library, if it is open, and clears the table.
    void unload() {
        if (library != nullptr)
            loader.close(library);
        library = nullptr;
        entryPoints = Table();
    }

    const Table& table() const { return entryPoints; }

  private:
    DynamicLoader loader{};
    void* library = nullptr;
    Table entryPoints;
};
