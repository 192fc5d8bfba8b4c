#include "simulator/lib/Session.h"

#include <cstdio>
#include <cstdlib>

#include <dlfcn.h>
#include <unistd.h>

#include "simulator/lib/EntryPoints.h"
#include "simulator/lib/happen.h"

namespace qzsim {

namespace {

std::string environment(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? std::string() : std::string(value);
}

Machine machineOfEnvironment() {
    try {
        const std::string path = environment("QZSIM_MACHINE");
        if (path.empty())
            throw DescriptionError(Place{"QZSIM_MACHINE", 0}, "no machine is named");
        Machine machine = readMachine(path);
        addFaults(machine, environment("QZSIM_FAULTS"), "QZSIM_FAULTS");
        return machine;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "simulator: %s\n", error.what());
        _exit(99);
    }
}

} // namespace

std::int64_t Verdict::number(std::int64_t otherwise) const {
    return answer ? parseNumber(*answer).value_or(otherwise) : otherwise;
}

Session& Session::instance() {
    static Session session;
    return session;
}

Session::Session()
    : description(machineOfEnvironment()), counts(environment("QZSIM_COUNTERS")),
      cycleStart(parseNumber(environment("QZSIM_CYCLE_START")).value_or(0)) {}

Verdict Session::call(std::string_view function, int device) {
    const std::string name = "call:" + std::string(function);
    const auto call = static_cast<std::uint64_t>(counts.happened(name));
    auto callOfDevice = call;
    if (device >= 0)
        callOfDevice = static_cast<std::uint64_t>(counts.add(name + "#" + std::to_string(device)));
    Verdict verdict;
    verdict.call = callOfDevice;
    for (const Fault& fault : description.faults) {
        if (fault.kind != TargetKind::Function || !fault.concerns(function, device) ||
            !fault.strikesAt(fault.device ? callOfDevice : call))
            continue;
        if (fault.action == Action::Fail)
            verdict.code = static_cast<int>(fault.number);
        else if (fault.action == Action::Answer)
            verdict.answer = fault.text;
        else
            happen(fault);
    }
    return verdict;
}

const Fault* Session::opened(std::string_view path, std::uint64_t& reading) {
    reading = static_cast<std::uint64_t>(counts.happened("open:" + std::string(path)));
    const Fault* struck = nullptr;
    for (const Fault& fault : description.faults) {
        if (fault.kind != TargetKind::File || fault.target != path || !fault.strikesAt(reading))
            continue;
        if (fault.action == Action::Fail || fault.action == Action::Refuse || fault.action == Action::Answer)
            struck = &fault;
        else
            happen(fault);
    }
    return struck;
}

LibraryPresence::LibraryPresence(std::string_view name, std::string_view liveCounter)
    : library(name), zeroAtEnd(liveCounter) {
    Session& session = Session::instance();
    const auto load = static_cast<std::uint64_t>(session.counters().happened("load:" + library));
    for (const Fault& fault : session.machine().faults) {
        if (fault.kind != TargetKind::Library || findLibrary(fault.target) != findLibrary(library) ||
            !fault.strikesAt(load))
            continue;
        if (fault.action == Action::CrashAtExit)
            stayLoaded(this);
        happen(fault);
    }
}

LibraryPresence::~LibraryPresence() {
    Session& session = Session::instance();
    session.counters().happened("unload:" + library);
    for (const Fault& fault : session.machine().faults) {
        if (fault.kind != TargetKind::Library || findLibrary(fault.target) != findLibrary(library))
            continue;
        const bool isUsed = !zeroAtEnd.empty() && session.counters().value(zeroAtEnd) != 0;
        if (fault.action == Action::CrashAtUnload || fault.action == Action::CrashAtExit ||
            (fault.action == Action::CrashWithoutShutdown && isUsed))
            crash();
    }
}

} // namespace qzsim
