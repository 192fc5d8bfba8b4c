// The recording functions of OpenCL's queries.
#include <algorithm>

#include <CL/cl.h>

#include <QJsonArray>

#include "doctor/recording/RecordedCall.h"
#include "doctor/steps/Message.h"

namespace doctor {

namespace {

// The program's buffers are no larger; a driver may report any count.
constexpr cl_uint mostHandles = 64;

template <class Handle>
QJsonArray handlesIn(const Handle* handles, cl_uint room, cl_uint reported) {
    QJsonArray texts;
    for (cl_uint i = 0; handles != nullptr && i < std::min({room, reported, mostHandles}); ++i)
        texts.append(handleText(handles[i]));
    return texts;
}

/// The bytes of an answer, without the zeros at its end.
QString bytesIn(const void* value, std::size_t room) {
    QByteArray bytes(static_cast<const char*>(value), value != nullptr ? static_cast<int>(room) : 0);
    while (bytes.endsWith('\0'))
        bytes.chop(1);
    return textOfBytes(bytes);
}

cl_int clGetPlatformIDs(cl_uint room, cl_platform_id* platforms, cl_uint* count) {
    const RecordedCall call("clGetPlatformIDs");
    const cl_int status = call.real(clGetPlatformIDs)(room, platforms, count);
    return call.answer(
        status, {{"reported", static_cast<double>(*count)}, {"handles", handlesIn(platforms, room, *count)}});
}

cl_int clGetPlatformInfo(cl_platform_id platform, cl_platform_info attribute, std::size_t room, void* value,
                         std::size_t* size) {
    const RecordedCall call("clGetPlatformInfo", {{"platform", handleText(platform)},
                                                  {"attribute", static_cast<double>(attribute)}});
    const cl_int status = call.real(clGetPlatformInfo)(platform, attribute, room, value, size);
    return call.answer(status, {{"bytes", bytesIn(value, room)}});
}

cl_int clGetDeviceIDs(cl_platform_id platform, cl_device_type type, cl_uint room, cl_device_id* devices,
                      cl_uint* count) {
    const RecordedCall call("clGetDeviceIDs", {{"platform", handleText(platform)}});
    const cl_int status = call.real(clGetDeviceIDs)(platform, type, room, devices, count);
    return call.answer(status, {{"reported", static_cast<double>(*count)},
                                {"handles", handlesIn(devices, room, status == CL_SUCCESS ? *count : 0)}});
}

cl_int clGetDeviceInfo(cl_device_id device, cl_device_info attribute, std::size_t room, void* value,
                       std::size_t* size) {
    const RecordedCall call("clGetDeviceInfo",
                            {{"device", handleText(device)}, {"attribute", static_cast<double>(attribute)}});
    const cl_int status = call.real(clGetDeviceInfo)(device, attribute, room, value, size);
    return call.answer(status, {{"bytes", bytesIn(value, room)}});
}

} // namespace

void* openCLRecordingFunction(const QString& entryPoint) {
    static const QHash<QString, void*> functions{
        {"clGetPlatformIDs", reinterpret_cast<void*>(clGetPlatformIDs)},
        {"clGetPlatformInfo", reinterpret_cast<void*>(clGetPlatformInfo)},
        {"clGetDeviceIDs", reinterpret_cast<void*>(clGetDeviceIDs)},
        {"clGetDeviceInfo", reinterpret_cast<void*>(clGetDeviceInfo)},
    };
    return functions.value(entryPoint);
}

} // namespace doctor
