#include <algorithm>

#include "doctor/recording/describeParts.h"
#include "doctor/steps/Message.h"

namespace doctor {

namespace {

constexpr int invalidArgument = 2;

/// The statuses of a function's calls for a device; a call that never returned has none.
QVector<int> statusesOf(const QVector<NumberedCall>& calls) {
    QVector<int> statuses;
    for (const NumberedCall& one : calls)
        if (one.call->returned)
            statuses.append(one.call->status);
    return statuses;
}

/// A figure's readings; a failed one repeats the previous value, which is never shown.
template <class Value>
QVector<quint64> readingsOf(const QVector<NumberedCall>& calls, Value value) {
    QVector<quint64> readings;
    for (const NumberedCall& one : calls)
        if (one.call->returned)
            readings.append(one.call->status == 0 ? value(*one.call)
                            : readings.isEmpty()  ? 0
                                                  : readings.last());
    return readings;
}

void describeFigure(DescriptionText& text, const NumberedCalls& calls, int device, const char* function,
                    const char* key, const char* field) {
    const QVector<quint64> readings =
        readingsOf(calls.of(QLatin1String(function), device), [field](const CallFacts& call) {
            const QJsonValue value = call.answer.value(QLatin1String(field));
            return value.isString() ? value.toString().toULongLong() : static_cast<quint64>(value.toDouble());
        });
    if (!readings.isEmpty())
        text.value(QLatin1String(key), figureValue(readings));
}

const CallFacts* firstGood(const QVector<NumberedCall>& calls) {
    const auto found = std::find_if(calls.begin(), calls.end(), [](const NumberedCall& one) {
        return one.call->returned && one.call->status == 0;
    });
    return found != calls.end() ? found->call : nullptr;
}

/// A device's location; one that reports another bus in a later call does so here as well.
void describePlace(DescriptionText& text, const NumberedCalls& calls, int device) {
    const QVector<NumberedCall> asked = calls.of("nvmlDeviceGetPciInfo_v3", device);
    const CallFacts* place = firstGood(asked);
    if (place == nullptr)
        return;
    text.bus("bus", static_cast<quint32>(place->number("bus")));
    if (place->number("domain") != 0.0)
        text.value("domain", static_cast<qint64>(place->number("domain")));
    if (place->number("slot") != 0.0)
        text.value("device", static_cast<qint64>(place->number("slot")) & 31);
    for (const NumberedCall& one : asked)
        if (one.call->returned && one.call->status == 0 && one.call->number("bus") != place->number("bus"))
            text.fault(faultTarget(one), "answer " + QByteArray::number(one.call->number("bus"), 'f', 0),
                       "at " + QByteArray::number(one.number));
}

void describeDevice(DescriptionText& text, const NumberedCalls& calls, int device) {
    text.section("nvidia");
    const CallFacts* name = firstGood(calls.of("nvmlDeviceGetName", device));
    text.value("name", nameValue(name != nullptr ? bytesOfText(name->text("name")) : QByteArray()));
    describePlace(text, calls, device);
    describeFigure(text, calls, device, "nvmlDeviceGetUtilizationRates", "utilisation", "value");
    describeFigure(text, calls, device, "nvmlDeviceGetTemperature", "temperature", "value");
    describeFigure(text, calls, device, "nvmlDeviceGetMemoryInfo", "memory_total", "total");
    describeFigure(text, calls, device, "nvmlDeviceGetMemoryInfo", "memory_used", "used");
    describeFigure(text, calls, device, "nvmlDeviceGetMemoryInfo", "memory_free", "free");
    for (const char* function :
         {"nvmlDeviceGetHandleByIndex_v2", "nvmlDeviceGetName", "nvmlDeviceGetPciInfo_v3",
          "nvmlDeviceGetUtilizationRates", "nvmlDeviceGetTemperature", "nvmlDeviceGetMemoryInfo"})
        text.failures(QStringLiteral("%1#%2").arg(QLatin1String(function)).arg(device),
                      statusesOf(calls.of(QLatin1String(function), device)));
}

/// The texts that NVML gave for its statuses, where the program asked for them.
void describeErrorTexts(DescriptionText& text, const NumberedCalls& calls) {
    const QVector<NumberedCall> asked = calls.of("nvmlErrorString");
    for (const NumberedCall& one : asked) {
        if (!one.call->returned)
            continue;
        const QJsonValue words = one.call->answer.value("text");
        text.fault("nvmlErrorString",
                   words.isNull() ? QByteArray("fail 0")
                                  : "answer " + quotedValue(bytesOfText(words.toString())),
                   "at " + QByteArray::number(one.number));
    }
}

/// How many devices are described: those after the last with a handle are only counted.
int describedDevices(const NumberedCalls& calls, int counted) {
    int last = 0;
    for (const NumberedCall& one : calls.all())
        if (one.target == QLatin1String("nvmlDeviceGetHandleByIndex_v2") && one.call->returned &&
            one.call->status != invalidArgument)
            last = std::max(last, one.device + 1);
    return std::min(last, counted);
}

QString answeringFunction(const NumberedCalls& calls) {
    for (const NumberedCall& one : calls.all())
        if (one.target.startsWith("cudaGetDeviceProperties"))
            return one.target;
    return {};
}

} // namespace

QString faultTarget(const NumberedCall& call) {
    return call.device < 0 ? call.target : QStringLiteral("%1#%2").arg(call.target).arg(call.device);
}

void describeNvml(DescriptionText& text, const NumberedCalls& calls) {
    const QVector<NumberedCall> counted = calls.of("nvmlDeviceGetCount_v2");
    const CallFacts* count = firstGood(counted);
    const auto reported = count != nullptr ? static_cast<qint64>(count->number("count")) : 0;
    const int described = describedDevices(calls, static_cast<int>(std::min<qint64>(reported, 4096)));
    if (reported != described) {
        text.section("nvml");
        text.value("reported_devices", reported);
    }
    for (int device = 0; device < described; ++device)
        describeDevice(text, calls, device);
    for (const char* function : {"nvmlInit_v2", "nvmlDeviceGetCount_v2", "nvmlShutdown"})
        text.failures(QLatin1String(function), statusesOf(calls.of(QLatin1String(function))));
    describeErrorTexts(text, calls);
}

void describeCuda(DescriptionText& text, const NumberedCalls& calls, const Facts& facts) {
    const QVector<CudaDeviceFacts> devices = facts.programRun.cudaDevices();
    qint64 reported = 0;
    for (const char* function : {"cudaGetDeviceCount", "cuDeviceGetCount"})
        if (const CallFacts* count = firstGood(calls.of(QLatin1String(function))))
            reported = static_cast<qint64>(count->number("count"));
    if (reported != devices.size()) {
        text.section("cuda");
        text.value("reported_devices", std::max<qint64>(0, reported));
    }
    const QString properties = answeringFunction(calls);
    for (const CudaDeviceFacts& device : devices) {
        text.section("cuda-device");
        text.bus("bus", static_cast<quint32>(device.bus));
        text.value("compute", QByteArray::number(device.major) + "." + QByteArray::number(device.minor));
        for (const QString& function :
             {properties, QStringLiteral("cuDeviceGet"), QStringLiteral("cuDeviceGetAttribute")})
            text.failures(QStringLiteral("%1#%2").arg(function).arg(device.number),
                          statusesOf(calls.of(function, device.number)));
    }
    for (const char* function : {"cudaGetDeviceCount", "cuInit", "cuDeviceGetCount"})
        text.failures(QLatin1String(function), statusesOf(calls.of(QLatin1String(function))));
}

} // namespace doctor
