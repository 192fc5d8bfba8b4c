// A vendor's library that is opened at run time, with the table of its entry points.
#pragma once

#include <initializer_list>

#include "support/DynamicLoader.h"

/// Whether a library is of use without an entry point.
enum class EntryPoint { Required, Optional };

/// Why a library is not loaded: no file of its names opens, or it lacks a required entry point.
enum class LoadFailure { NotFound, Incomplete };

/// Either unloaded, with a table of null pointers, or loaded, with every required pointer set. Never unloads
/// by itself. `Table` has function pointers and `template <class Visit> void walk(Visit)`, which calls
/// `visit(name, pointer, EntryPoint)` for each: the one list that fills the table.
template <class Table>
class VendorLibrary {
  public:
    /// Opens the first of `names` that opens and fills the table; every entry point is looked up before the
    /// result is known. True at once when it is loaded already. A failure is told to `report(LoadFailure)`,
    /// and only then is a library closed that lacks a required entry point: its own code runs as it is
    /// closed, and may print or crash.
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
