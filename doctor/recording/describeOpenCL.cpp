#include "doctor/recording/describeParts.h"
#include "doctor/steps/Message.h"
#include "opencl/OpenCLDevices.h"

namespace doctor {

namespace {

QByteArray bytesOf(const CallFacts& call) {
    return bytesOfText(call.text("bytes"));
}

/// A text up to its first NUL.
QByteArray textOf(const CallFacts& call) {
    const QByteArray bytes = bytesOf(call);
    const int end = bytes.indexOf('\0');
    return end < 0 ? bytes : bytes.left(end);
}

quint32 wordOf(const QByteArray& bytes, int offset) {
    quint32 word = 0;
    for (int i = 3; i >= 0; --i)
        word = (word << 8) | (offset + i < bytes.size() ? static_cast<unsigned char>(bytes[offset + i]) : 0U);
    return word;
}

/// A call's first text; a different one later is a fault of that call.
void describeText(DescriptionText& text, const QVector<NumberedCall>& calls, const QString& key) {
    const NumberedCall* given = nullptr;
    for (const NumberedCall& one : calls)
        if (given == nullptr && one.call->returned && !textOf(*one.call).isEmpty())
            given = &one;
    bool isRefused = given == nullptr;
    for (const NumberedCall& one : calls)
        isRefused = isRefused && one.call->returned && one.call->status != 0;
    if (isRefused && !calls.isEmpty()) {
        text.value(key, "@refused");
        return;
    }
    const QByteArray usual = given != nullptr ? textOf(*given->call) : QByteArray();
    text.value(key, nameValue(usual));
    for (const NumberedCall& one : calls) {
        if (!one.call->returned || textOf(*one.call) == usual)
            continue;
        const QByteArray other = textOf(*one.call);
        text.fault(faultTarget(one),
                   other.isEmpty() ? "fail " + QByteArray::number(one.call->status)
                                   : "answer " + quotedValue(other),
                   "at " + QByteArray::number(one.number));
    }
}

struct BusAttribute {
    cl_device_info attribute;
    const char* key;
    int size;
    int offset;
};

constexpr BusAttribute busAttributes[] = {
    {deviceAttributePciBusIdNv, "nv_bus", 4, 0},
    {deviceAttributeTopologyAmd, "amd_topology_bus", 1, 21},
    {deviceAttributePciBusInfoKhr, "khr_bus", 4, 4},
};

quint32 busOf(const BusAttribute& attribute, const CallFacts& call) {
    const quint32 word = wordOf(bytesOf(call), attribute.offset);
    return attribute.size == 1 ? word & 0xFFU : word;
}

/// The calls that ask a device for one attribute.
QVector<NumberedCall> asking(const NumberedCalls& calls, int device, cl_device_info attribute) {
    QVector<NumberedCall> found;
    const QVector<NumberedCall> asked = calls.of("clGetDeviceInfo", device);
    for (const NumberedCall& one : asked)
        if (static_cast<cl_device_info>(one.call->arguments.value("attribute").toDouble()) == attribute)
            found.append(one);
    return found;
}

void describeBus(DescriptionText& text, const NumberedCalls& calls, int device,
                 const BusAttribute& attribute) {
    const QVector<NumberedCall> asked = asking(calls, device, attribute.attribute);
    const CallFacts* answered = nullptr;
    for (const NumberedCall& one : asked)
        if (answered == nullptr && one.call->returned && one.call->status == 0)
            answered = one.call;
    if (answered == nullptr) {
        if (!asked.isEmpty() && asked.first().call->returned)
            text.value(QLatin1String(attribute.key),
                       "refused " + QByteArray::number(asked.first().call->status));
        return;
    }
    const quint32 bus = busOf(attribute, *answered);
    text.bus(QLatin1String(attribute.key), bus);
    if (attribute.attribute == deviceAttributePciBusInfoKhr && wordOf(bytesOf(*answered), 0) != 0)
        text.value("khr_domain", wordOf(bytesOf(*answered), 0));
    for (const NumberedCall& one : asked) {
        if (!one.call->returned || (one.call->status == 0 && busOf(attribute, *one.call) == bus))
            continue;
        text.fault(faultTarget(one),
                   one.call->status != 0 ? "fail " + QByteArray::number(one.call->status)
                                         : "answer " + QByteArray::number(busOf(attribute, *one.call)),
                   "at " + QByteArray::number(one.number));
    }
}

void describeDevice(DescriptionText& text, const NumberedCalls& calls, int device) {
    text.section("device");
    describeText(text, asking(calls, device, CL_DEVICE_NAME), "name");
    for (const BusAttribute& attribute : busAttributes)
        describeBus(text, calls, device, attribute);
    const QVector<NumberedCall> extensions = asking(calls, device, CL_DEVICE_EXTENSIONS);
    if (!extensions.isEmpty() && extensions.first().call->returned)
        text.value("extensions", nameValue(textOf(*extensions.first().call)));
}

/// The calls about one platform.
QVector<NumberedCall> about(const NumberedCalls& calls, const char* function, const QString& platform) {
    QVector<NumberedCall> found;
    const QVector<NumberedCall> asked = calls.of(QLatin1String(function));
    for (const NumberedCall& one : asked)
        if (one.call->argument("platform") == platform)
            found.append(one);
    return found;
}

void describePlatform(DescriptionText& text, const NumberedCalls& calls, const QString& platform,
                      int& nextDevice) {
    constexpr int deviceNotFound = -1;
    text.section("platform");
    describeText(text, about(calls, "clGetPlatformInfo", platform), "name");
    int listed = 0;
    qint64 reported = -1;
    const QVector<NumberedCall> asked = about(calls, "clGetDeviceIDs", platform);
    for (const NumberedCall& one : asked) {
        if (!one.call->returned)
            continue;
        if (one.call->status == 0 && reported < 0) {
            reported = static_cast<qint64>(one.call->number("reported"));
            listed = handlesOf(*one.call).size();
        } else if (one.call->status != 0 && (reported > 0 || one.call->status != deviceNotFound)) {
            text.fault("clGetDeviceIDs", "fail " + QByteArray::number(one.call->status),
                       "at " + QByteArray::number(one.number));
        }
    }
    if (reported > 0 && reported != listed)
        text.value("reported_devices", reported);
    for (int i = 0; i < listed; ++i)
        describeDevice(text, calls, nextDevice++);
}

/// The count of platforms from the first successful call; a call with another count, or a failure, is a
/// fault.
qint64 describeCounts(DescriptionText& text, const QVector<NumberedCall>& listed, int platforms) {
    const auto countOf = [](const NumberedCall& one) {
        return static_cast<qint64>(one.call->number("reported"));
    };
    qint64 usual = -1;
    for (const NumberedCall& one : listed)
        if (usual < 0 && one.call->returned && one.call->status == 0)
            usual = countOf(one);
    // Without platforms a loader returns its own error.
    for (const NumberedCall& one : listed) {
        if (!one.call->returned || platforms == 0)
            continue;
        const QByteArray at = "at " + QByteArray::number(one.number);
        if (one.call->status != 0)
            text.fault(one.target, "fail " + QByteArray::number(one.call->status), at);
        else if (countOf(one) != usual)
            text.fault(one.target, "answer " + QByteArray::number(countOf(one)), at);
    }
    return usual < 0 ? platforms : usual;
}

} // namespace

void describeOpenCL(DescriptionText& text, const NumberedCalls& calls) {
    const QVector<NumberedCall> listed = calls.of("clGetPlatformIDs");
    if (listed.isEmpty())
        return;
    text.section("opencl");
    text.value("mode", "scripted");
    text.value("round_ms", "50, 2000");
    text.value("sleep", "no");
    const qint64 reported = describeCounts(text, listed, calls.platforms.size());
    if (reported != calls.platforms.size())
        text.value("reported_platforms", reported);
    int nextDevice = 0;
    for (const QString& platform : calls.platforms)
        describePlatform(text, calls, platform, nextDevice);
}

} // namespace doctor
