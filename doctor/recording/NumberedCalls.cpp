#include "doctor/recording/NumberedCalls.h"

#include <QJsonArray>
#include <QRegularExpression>

namespace doctor {

namespace {

QString targetOf(const CallFacts& call) {
    if (call.name.startsWith("read "))
        return cardFileOf(call.argument("path"));
    if (call.name.startsWith("open "))
        return call.argument("library");
    return call.name;
}

} // namespace

QVector<QString> handlesOf(const CallFacts& call) {
    QVector<QString> handles;
    const QJsonArray array = call.answer.value("handles").toArray();
    // A library may report more handles than it writes, and leave the rest unset.
    for (const QJsonValue& handle : array)
        if (handle.toString() != QLatin1String("0"))
            handles.append(handle.toString());
    return handles;
}

QString cardFileOf(const QString& path) {
    static const QRegularExpression form("/(card\\d+)/device/(.+)$");
    const QRegularExpressionMatch match = form.match(path);
    return match.hasMatch() ? match.captured(1) + "/" + match.captured(2) : QString();
}

NumberedCalls::NumberedCalls(const QVector<CallFacts>& calls) {
    noteHandles(calls);
    QMap<QPair<QString, int>, int> counts;
    for (const CallFacts& call : calls) {
        if (call.name == QLatin1String("cuDeviceGet") && call.returned && call.status == 0)
            cudaOrdinals[static_cast<int>(call.number("handle"))] = call.arguments.value("device").toInt();
        const NumberedCall one{&call, targetOf(call), deviceOf(call), 0};
        numbered.append(one);
        numbered.last().number = ++counts[{one.target, one.device}];
    }
}

/// Notes the platforms and devices that the calls return, from the first call that returns them.
void NumberedCalls::noteHandles(const QVector<CallFacts>& calls) {
    QMap<QString, QVector<QString>> devices;
    for (const CallFacts& call : calls) {
        if (!call.returned)
            continue;
        if (call.name == QLatin1String("nvmlDeviceGetHandleByIndex_v2") && call.status == 0 &&
            !nvmlDevices.contains(call.text("device")))
            nvmlDevices.insert(call.text("device"), call.arguments.value("index").toInt());
        if (call.name == QLatin1String("clGetPlatformIDs") && platforms.isEmpty())
            platforms = handlesOf(call);
        if (call.name == QLatin1String("clGetDeviceIDs") && devices[call.argument("platform")].isEmpty())
            devices[call.argument("platform")] = handlesOf(call);
    }
    for (const QString& platform : qAsConst(platforms))
        openCLDevices += devices.value(platform);
}

int NumberedCalls::deviceOf(const CallFacts& call) const {
    if (call.name == QLatin1String("nvmlDeviceGetHandleByIndex_v2"))
        return call.arguments.value("index").toInt();
    if (call.name.startsWith("nvmlDevice"))
        return nvmlDevices.value(call.argument("device"), -1);
    if (call.name.startsWith("cudaGetDeviceProperties") || call.name == QLatin1String("cuDeviceGet"))
        return call.arguments.value("device").toInt();
    if (call.name == QLatin1String("cuDeviceGetAttribute"))
        return cudaOrdinals.value(call.arguments.value("handle").toInt(), -1);
    if (call.name == QLatin1String("clGetDeviceInfo"))
        return openCLDevices.indexOf(call.argument("device"));
    return -1;
}

QVector<NumberedCall> NumberedCalls::of(const QString& target, int device) const {
    QVector<NumberedCall> found;
    for (const NumberedCall& one : numbered)
        if (one.target == target && one.device == device)
            found.append(one);
    return found;
}

} // namespace doctor
