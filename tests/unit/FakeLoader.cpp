#include "tests/unit/FakeLoader.h"

#include "tests/unit/FakeCalls.h"

namespace {

std::map<QByteArray, FakeLibrary> libraries;

FakeLibrary& opened(void* handle) {
    auto* library = static_cast<FakeLibrary*>(handle);
    if (library == nullptr || library->timesOpen < 1)
        qFatal("a library is used that is not open");
    return *library;
}

void* openLibrary(const char* name, int mode) {
    FakeCalls::enter("dlopen", {name, QString::number(mode)});
    const auto found = libraries.find(name);
    if (found == libraries.end())
        return nullptr;
    ++found->second.timesOpen;
    return &found->second;
}

void* findSymbol(void* handle, const char* name) {
    const FakeLibrary& library = opened(handle);
    FakeCalls::enter("dlsym", {library.file, name});
    const auto found = library.symbols.find(name);
    return found != library.symbols.end() ? found->second : nullptr;
}

int closeLibrary(void* handle) {
    FakeLibrary& library = opened(handle);
    FakeCalls::enter("dlclose", {library.file});
    --library.timesOpen;
    return 0;
}

const char* sonameOf(void* handle) {
    const QByteArray& soname = opened(handle).soname;
    return soname.isNull() ? nullptr : soname.constData();
}

} // namespace

void FakeLoader::reset() {
    libraries.clear();
}

FakeLibrary& FakeLoader::provide(const QByteArray& file) {
    FakeLibrary& library = libraries[file];
    library.file = file;
    return library;
}

FakeLibrary& FakeLoader::library(const QByteArray& file) {
    return libraries.at(file);
}

void FakeLoader::remove(const QByteArray& file) {
    libraries.erase(file);
}

DynamicLoader FakeLoader::functions() {
    return {openLibrary, findSymbol, closeLibrary, sonameOf};
}
