// Preloaded: writes a line to standard output for what can't be seen there otherwise, then does it. Where
// QZ_TEST_EXIT is set, the event loop that comes next exits with that code.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include <dlfcn.h>
#include <sys/auxv.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QTimer>

namespace {

void tell(std::string_view line) {
    [[maybe_unused]] const ssize_t written = write(STDOUT_FILENO, line.data(), line.size());
}

template <class Function>
Function* next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

/// Whether the code at an address is part of the program itself. GCC 14's C++ library flushes, too, when any
/// program ends.
bool isOfProgram(const void* code) {
    Dl_info its{};
    Dl_info programs{};
    return dladdr(code, &its) != 0 &&
           dladdr(reinterpret_cast<const void*>(getauxval(AT_PHDR)), &programs) != 0 &&
           its.dli_fbase == programs.dli_fbase;
}

} // namespace

extern "C" int fflush(FILE* stream) {
    const int result = next<int(FILE*)>("fflush")(stream);
    if (isOfProgram(__builtin_return_address(0)))
        tell(stream == stdout   ? "[output flushed]\n"
             : stream == stderr ? "[errors flushed]\n"
                                : "[flushed]\n");
    return result;
}

void QCoreApplication::processEvents(QEventLoop::ProcessEventsFlags flags) {
    tell("[events]\n");
    next<void(QEventLoop::ProcessEventsFlags)>(
        "_ZN16QCoreApplication13processEventsE6QFlagsIN10QEventLoop17ProcessEventsFlagEE")(flags);
    if (const char* code = std::getenv("QZ_TEST_EXIT"))
        QTimer::singleShot(0, QCoreApplication::instance(),
                           [code] { QCoreApplication::exit(std::atoi(code)); });
}

void QCoreApplication::quit() {
    tell("[quit]\n");
    next<void()>("_ZN16QCoreApplication4quitEv")();
}

void QTimer::start(int interval) {
    tell("[timer " + std::to_string(interval) +
         (timerType() == Qt::PreciseTimer ? " precise]\n" : " coarse]\n"));
    using Start = void(QTimer*, int);
    next<Start>("_ZN6QTimer5startEi")(this, interval);
}

// The two below can't be defined by their names: the one is a destructor, the other is private.

extern "C" void destroyTimer(QTimer* timer) __asm__("_ZN6QTimerD1Ev");
extern "C" void destroyTimer(QTimer* timer) {
    tell("[timer " + std::to_string(timer->interval()) + " destroyed]\n");
    next<void(QTimer*)>("_ZN6QTimerD1Ev")(timer);
}

using ConnectImpl = QMetaObject::Connection(const QObject*, void**, const QObject*, void**,
                                            QtPrivate::QSlotObjectBase*, Qt::ConnectionType, const int*,
                                            const QMetaObject*);
constexpr char connectImplName[] = "_ZN7QObject11connectImplEPKS_PPvS1_S3_"
                                   "PN9QtPrivate15QSlotObjectBaseEN2Qt14ConnectionTypeEPKiPK11QMetaObject";

ConnectImpl connectObjects __asm__("_ZN7QObject11connectImplEPKS_PPvS1_S3_"
                                   "PN9QtPrivate15QSlotObjectBaseEN2Qt14ConnectionTypeEPKiPK11QMetaObject");
QMetaObject::Connection connectObjects(const QObject* sender, void** signal, const QObject* receiver,
                                       void** slotPointer, QtPrivate::QSlotObjectBase* slotObject,
                                       Qt::ConnectionType type, const int* types, const QMetaObject* meta) {
    tell(type == Qt::AutoConnection ? "[connected]\n" : "[connected in another way]\n");
    return next<ConnectImpl>(connectImplName)(sender, signal, receiver, slotPointer, slotObject, type, types,
                                              meta);
}
