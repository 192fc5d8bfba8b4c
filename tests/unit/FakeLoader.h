// A dynamic loader with libraries that the test makes.
#pragma once

#include <map>

#include <QByteArray>

#include "support/DynamicLoader.h"

struct FakeLibrary {
    QByteArray file;   ///< the name it is opened by
    QByteArray soname; ///< null: its file has none
    std::map<QByteArray, void*> symbols;
    int timesOpen = 0;

    /// Adds an entry point.
    template <class Function>
    void add(const char* name, Function* function) {
        symbols[name] = reinterpret_cast<void*>(function);
    }
};

/// Calls are recorded in FakeCalls as dlopen(FILE, MODE), dlsym(FILE, NAME), dlclose(FILE).
namespace FakeLoader {

/// Forgets every library.
void reset();

/// A new, empty library that opens by this file name.
FakeLibrary& provide(const QByteArray& file);

/// The library of a file name; must be there.
FakeLibrary& library(const QByteArray& file);

/// Removes the library of this file name.
void remove(const QByteArray& file);

/// The loader to pass to the code under test.
DynamicLoader functions();

} // namespace FakeLoader
