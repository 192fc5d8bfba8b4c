#include "doctor/facts/ProgramFacts.h"

#include <algorithm>

#include "doctor/facts/PciFacts.h"
#include "doctor/facts/json.h"

namespace doctor {

namespace {

bool isCudaLibrary(const QString& library) {
    return library.startsWith("libcuda");
}

/// The functions that count CUDA's devices, of the runtime and of the driver.
bool countsCudaDevices(const CallFacts& call) {
    return call.name == QLatin1String("cudaGetDeviceCount") || call.name == QLatin1String("cuInit");
}

void noteDeviceCall(NvmlDeviceFacts& device, const CallFacts& call) {
    if (call.name == QLatin1String("nvmlDeviceGetName"))
        device.name = call.text("name");
    if (call.name == QLatin1String("nvmlDeviceGetPciInfo_v3") && call.status == 0) {
        device.bus = static_cast<quint32>(call.number("bus"));
        device.address = pciAddress(static_cast<quint32>(call.number("domain")), device.bus,
                                    static_cast<quint32>(call.number("slot")));
    }
    const auto known = std::find_if(device.queries.begin(), device.queries.end(),
                                    [&](const QueryFacts& query) { return query.function == call.name; });
    if (known == device.queries.end())
        device.queries.append({call.name, call.status});
    else if (known->status == 0)
        known->status = call.status;
}

/// The driver's library reports a device attribute by attribute.
void noteAttribute(CudaDeviceFacts& device, const CallFacts& call) {
    constexpr int pciBus = 33;
    constexpr int capabilityMajor = 75;
    constexpr int capabilityMinor = 76;
    const int value = static_cast<int>(call.number("value"));
    switch (call.arguments.value("attribute").toInt()) {
    case pciBus:
        device.bus = value;
        break;
    case capabilityMajor:
        device.major = value;
        break;
    case capabilityMinor:
        device.minor = value;
        break;
    default:
        break;
    }
}

const RecordFacts* recordAt(const QVector<RecordFacts>& records, bool isNvidia, int place) {
    const auto found = std::find_if(records.begin(), records.end(), [&](const RecordFacts& record) {
        return record.isNvidia == isNvidia && record.place == place;
    });
    return found != records.end() ? &*found : nullptr;
}

} // namespace

QVector<CallFacts> callsOf(const Messages& messages) {
    QVector<CallFacts> calls;
    for (const Message& message : messages) {
        const bool isWithin = !calls.isEmpty() && !calls.last().returned;
        if (message.kind == QLatin1String(messageBegin)) {
            CallFacts call;
            call.name = message.content.value("call").toString();
            call.arguments = message.content;
            calls.append(call);
        } else if (message.kind == QLatin1String(messageEnd) && isWithin) {
            calls.last().returned = true;
            calls.last().answer = message.content;
            calls.last().status = message.content.value("status").toInt();
        } else if (message.kind == QLatin1String(messageOutput) && isWithin) {
            calls.last().printed += bytesOfText(message.content.value("text").toString());
        }
    }
    return calls;
}

ProgramFacts::ProgramFacts(const StepOutcome& outcome)
    : wasRun(outcome.end != StepOutcome::End::NotRun), calls(callsOf(outcome.messages)),
      records(fromJson<RecordFacts>(outcome.reported("record"))),
      cards(fromJson<CardFacts>(outcome.reported("card"))) {}

const CallFacts* ProgramFacts::firstCall(const QString& name) const {
    const auto found =
        std::find_if(calls.begin(), calls.end(), [&](const CallFacts& call) { return call.name == name; });
    return found != calls.end() ? &*found : nullptr;
}

bool ProgramFacts::hasOpened(const QString& part) const {
    return std::any_of(calls.begin(), calls.end(), [&](const CallFacts& call) {
        return call.name.startsWith("open ") && call.name.contains(part) && call.returned && call.status == 0;
    });
}

QVector<NvmlDeviceFacts> ProgramFacts::nvmlDevices() const {
    QVector<NvmlDeviceFacts> devices;
    int place = 0;
    for (const CallFacts& call : calls) {
        if (call.name == QLatin1String("nvmlDeviceGetHandleByIndex_v2") && call.returned) {
            NvmlDeviceFacts device;
            device.index = call.arguments.value("index").toInt();
            device.handleStatus = call.status;
            device.handle = call.text("device");
            device.place = call.status == 0 ? place++ : -1;
            devices.append(device);
        } else if (call.name.startsWith("nvmlDevice") && call.returned) {
            for (NvmlDeviceFacts& device : devices)
                if (device.handleStatus == 0 && device.handle == call.argument("device"))
                    noteDeviceCall(device, call);
        }
    }
    return devices;
}

QVector<CudaLibraryFacts> ProgramFacts::cudaLibraries() const {
    QVector<CudaLibraryFacts> libraries;
    for (const CallFacts& call : calls) {
        if (call.name.startsWith("open ") && isCudaLibrary(call.argument("library"))) {
            CudaLibraryFacts library;
            library.file = call.argument("library");
            library.opened = call.returned && call.status == 0;
            library.reason = call.text("reason");
            libraries.append(library);
        } else if (countsCudaDevices(call) && call.returned && !libraries.isEmpty() &&
                   !libraries.last().countStatus) {
            libraries.last().countStatus = call.status;
        }
    }
    return libraries;
}

QString ProgramFacts::cudaLibrary() const {
    // The search ends with the first that answers.
    const QVector<CudaLibraryFacts> libraries = cudaLibraries();
    return !libraries.isEmpty() && libraries.last().countStatus == 0 ? libraries.last().file : QString();
}

QVector<CudaDeviceFacts> ProgramFacts::cudaDevices() const {
    QVector<CudaDeviceFacts> devices;
    int asked = -1;
    const auto deviceOf = [&](int number) -> CudaDeviceFacts& {
        const auto known =
            std::find_if(devices.begin(), devices.end(),
                         [number](const CudaDeviceFacts& device) { return device.number == number; });
        if (known != devices.end())
            return *known;
        devices.append(CudaDeviceFacts());
        devices.last().number = number;
        return devices.last();
    };
    for (const CallFacts& call : calls) {
        if (!call.returned)
            continue;
        if (call.name.startsWith("cudaGetDeviceProperties")) {
            CudaDeviceFacts& device = deviceOf(call.arguments.value("device").toInt());
            device = {device.number, call.status, static_cast<int>(call.number("bus")),
                      static_cast<int>(call.number("major")), static_cast<int>(call.number("minor"))};
        } else if (call.name == QLatin1String("cuDeviceGet")) {
            asked = call.arguments.value("device").toInt();
            deviceOf(asked).status = call.status;
        } else if (call.name == QLatin1String("cuDeviceGetAttribute") && asked >= 0) {
            noteAttribute(deviceOf(asked), call);
            if (call.status != 0)
                deviceOf(asked).status = call.status;
        }
    }
    return devices;
}

const RecordFacts* ProgramFacts::nvidiaRecord(int place) const {
    return recordAt(records, true, place);
}

const RecordFacts* ProgramFacts::amdRecord(int place) const {
    return recordAt(records, false, place);
}

int ProgramFacts::listedCount() const {
    return static_cast<int>(std::count_if(records.begin(), records.end(),
                                          [](const RecordFacts& record) { return record.isListed; }));
}

} // namespace doctor
