// A vendor's library that is opened at run time, with the table of its entry points.
#pragma once

#include <initializer_list>

#include "support/DynamicLoader.h"

/// Whether a library can be used without an entry point.
enum class EntryPoint { Required, Optional };

/// Why a library is not loaded: none of its names opens, or it lacks a required entry point.
enum class LoadFailure { NotFound, Incomplete };

/// Either unloaded, with a table of null pointers, or loaded, with every required pointer set. Does not
/// unload in its destructor. `Table` has function pointers and `template <class Visit> void walk(Visit)`,
/// which calls `visit(name, pointer, EntryPoint)` for each: the one list that fills the table.
template <class Table>
class VendorLibrary {
  public:
    /// Opens the first of `names` that opens and fills the table; every entry point is looked up before the
    /// result is known. Returns true immediately if already loaded. A failure is passed to
    /// `report(LoadFailure)`, and only then is a library closed that lacks a required entry point: closing
    /// runs its code, which may print or crash.
    template <class Report>
    bool load(std::initializer_list<const char*> names, const DynamicLoader& from, Report report) {
        if (isLoaded())
            return true;
        loader = from;
        library = loader.openFirst(names);
        if (library == nullptr) {
            report(LoadFailure::NotFound);
            return false;
        }
        bool complete = true;
        entryPoints.walk([&](const char* name, auto& function, EntryPoint need) {
            if (!loader.resolve(library, name, function) && need == EntryPoint::Required)
                complete = false;
        });
        if (!complete) {
            report(LoadFailure::Incomplete);
            unload();
        }
        return complete;
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
