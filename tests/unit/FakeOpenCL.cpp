#include "tests/unit/FakeOpenCL.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <map>

#include "tests/unit/FakeCalls.h"
#include "tests/unit/VirtualTime.h"

namespace {

using FakeCalls::answers;
using FakeCalls::enter;

struct World {
    std::vector<FakeClPlatform> platforms;
    FakeClScript script;
    std::optional<cl_uint> reportedPlatforms;
    std::optional<cl_uint> reportedDevices;
    std::optional<std::size_t> nullPlatform;
    std::optional<std::size_t> nullDevice;
    std::map<const void*, QString> live;
    std::map<QString, int> made;
    QStringList misuses;
    std::vector<QByteArray> sources;
    std::vector<std::vector<float>> writes;
    std::size_t reads = 0;
    std::size_t rounds = 0;
};

World world;
std::size_t objectsMade = 0; // of every world: a handle is never given twice

constexpr std::size_t platformBase = 0x1000; // platform p: 0x1000 + p; its device d: 0x10000 + 0x100 * p + d
constexpr std::size_t deviceBase = 0x10000;
constexpr std::size_t objectBase = 0x200000;

template <class Handle>
Handle handle(std::size_t number) {
    return reinterpret_cast<Handle>(static_cast<std::uintptr_t>(number));
}

std::size_t number(const void* object) {
    return reinterpret_cast<std::uintptr_t>(object);
}

/// The name of a live object; a call with any other is noted as a misuse.
QString live(const void* object, const char* kind) {
    const auto found = world.live.find(object);
    if (found != world.live.end() && found->second.startsWith(kind))
        return found->second;
    world.misuses.append(QStringLiteral("%1 0x%2").arg(kind).arg(number(object), 0, 16));
    return QStringLiteral("none");
}

QString deviceText(cl_device_id device) {
    const std::size_t rest = number(device) - deviceBase;
    return QStringLiteral("device%1.%2").arg(rest / 0x100).arg(rest % 0x100);
}

const FakeClDevice& described(cl_device_id device) {
    const std::size_t rest = number(device) - deviceBase;
    return world.platforms.at(rest / 0x100).devices.at(rest % 0x100);
}

QString pointerText(const void* pointer) {
    return pointer == nullptr ? QStringLiteral("null") : QStringLiteral("set");
}

QString sizesText(const std::size_t* sizes) {
    return sizes == nullptr ? QStringLiteral("null") : QStringLiteral("{%1, %2}").arg(sizes[0]).arg(sizes[1]);
}

template <class Handle>
Handle create(const char* function, const QString& kind, cl_int status, cl_int* error) {
    if (error == nullptr)
        qFatal("a creation is not asked for its status");
    *error = status;
    if (!answers(function, status))
        return nullptr;
    const QString name = kind + QString::number(++world.made[kind]);
    const auto object = handle<Handle>(objectBase + ++objectsMade);
    world.live[object] = name;
    return object;
}

cl_int release(const char* function, const char* kind, const void* object) {
    const cl_int status = enter(function, {live(object, kind)});
    world.live.erase(object);
    return status;
}

/// Writes a text like a driver that trusts the caller's buffer size.
cl_int answerText(const QByteArray& text, std::size_t room, void* value) {
    std::memcpy(value, text.constData(), std::min(room, static_cast<std::size_t>(text.size())));
    return CL_SUCCESS;
}

template <class Value>
cl_int answerNumbers(const Value& answer, std::size_t room, void* value) {
    if (room != sizeof answer)
        return CL_INVALID_VALUE;
    std::memcpy(value, &answer, sizeof answer);
    return CL_SUCCESS;
}

cl_int getPlatformIDs(cl_uint room, cl_platform_id* platforms, cl_uint* count) {
    const cl_int status = enter("clGetPlatformIDs", {QString::number(room)});
    if (!answers("clGetPlatformIDs", status))
        return status;
    for (std::size_t i = 0; i < std::min<std::size_t>(room, world.platforms.size()); ++i)
        platforms[i] = world.nullPlatform == i ? nullptr : handle<cl_platform_id>(platformBase + i);
    *count = world.reportedPlatforms.value_or(static_cast<cl_uint>(world.platforms.size()));
    return status;
}

cl_int getPlatformInfo(cl_platform_id platform, cl_platform_info attribute, std::size_t room, void* value,
                       std::size_t*) {
    const std::size_t index = number(platform) - platformBase;
    const cl_int status =
        enter("clGetPlatformInfo", {"platform" + QString::number(index),
                                    "0x" + QString::number(attribute, 16), QString::number(room)});
    if (answers("clGetPlatformInfo", status))
        answerText(world.platforms.at(index).name, room, value);
    return status;
}

cl_int getDeviceIDs(cl_platform_id platform, cl_device_type type, cl_uint room, cl_device_id* devices,
                    cl_uint* count) {
    const std::size_t index = number(platform) - platformBase;
    const cl_int status = enter("clGetDeviceIDs", {"platform" + QString::number(index), QString::number(type),
                                                   QString::number(room)});
    if (!answers("clGetDeviceIDs", status))
        return status;
    const std::size_t there = world.platforms.at(index).devices.size();
    for (std::size_t i = 0; i < std::min<std::size_t>(room, there); ++i)
        devices[i] = world.nullDevice == i ? nullptr : handle<cl_device_id>(deviceBase + 0x100 * index + i);
    *count = world.reportedDevices.value_or(static_cast<cl_uint>(there));
    return there == 0 ? CL_DEVICE_NOT_FOUND : status;
}

cl_int answerDeviceInfo(const FakeClDevice& device, cl_device_info attribute, std::size_t room, void* value) {
    if (attribute == CL_DEVICE_NAME)
        return answerText(device.name, room, value);
    if (attribute == CL_DEVICE_EXTENSIONS)
        return answerText(device.extensions, room, value);
    if (attribute == 0x4008 && device.busNv)
        return answerNumbers(*device.busNv, room, value);
    if (attribute == 0x4037 && device.topologyBus) {
        std::array<unsigned char, 24> topology;
        topology.fill(0x5a);
        topology[21] = *device.topologyBus;
        return answerNumbers(topology, room, value);
    }
    if (attribute == 0x410F && device.busKhr)
        return answerNumbers(std::array<cl_uint, 4>{0x5a5a, *device.busKhr, 0x5a5a, 0x5a5a}, room, value);
    return CL_INVALID_VALUE;
}

cl_int getDeviceInfo(cl_device_id device, cl_device_info attribute, std::size_t room, void* value,
                     std::size_t*) {
    const QString hex = "0x" + QString::number(attribute, 16);
    const cl_int status = enter("clGetDeviceInfo", {deviceText(device), hex, QString::number(room)});
    std::vector<char> unread(room);
    void* target = answers("clGetDeviceInfo", status) ? value : unread.data();
    const cl_int answered = answerDeviceInfo(described(device), attribute, room, target);
    return status != CL_SUCCESS ? status : answered;
}

cl_context createContext(const cl_context_properties* properties, cl_uint count, const cl_device_id* devices,
                         void (*callback)(const char*, const void*, std::size_t, void*), void* user,
                         cl_int* error) {
    const cl_int status =
        enter("clCreateContext", {pointerText(properties), QString::number(count), deviceText(*devices),
                                  callback == nullptr ? "null" : "set", pointerText(user)});
    return create<cl_context>("clCreateContext", "context", status, error);
}

cl_command_queue createQueue(cl_context context, cl_device_id device, cl_command_queue_properties properties,
                             cl_int* error) {
    const cl_int status = enter("clCreateCommandQueue",
                                {live(context, "context"), deviceText(device), QString::number(properties)});
    return create<cl_command_queue>("clCreateCommandQueue", "queue", status, error);
}

cl_program createProgram(cl_context context, cl_uint count, const char** texts, const std::size_t* lengths,
                         cl_int* error) {
    const cl_int status = enter("clCreateProgramWithSource",
                                {live(context, "context"), QString::number(count), pointerText(lengths)});
    world.sources.emplace_back(*texts);
    return create<cl_program>("clCreateProgramWithSource", "program", status, error);
}

cl_int buildProgram(cl_program program, cl_uint count, const cl_device_id* devices, const char* options,
                    void (*callback)(cl_program, void*), void* user) {
    return enter("clBuildProgram",
                 {live(program, "program"), QString::number(count), deviceText(*devices),
                  pointerText(options), callback == nullptr ? "null" : "set", pointerText(user)});
}

cl_int getBuildInfo(cl_program program, cl_device_id device, cl_program_build_info attribute,
                    std::size_t room, void* value, std::size_t* size) {
    const cl_int status = enter("clGetProgramBuildInfo", {live(program, "program"), deviceText(device),
                                                          "0x" + QString::number(attribute, 16),
                                                          QString::number(room), pointerText(value)});
    if (status != CL_SUCCESS)
        return status;
    const FakeClScript& script = world.script;
    if (size != nullptr)
        *size = script.buildLogSize.value_or(static_cast<std::size_t>(script.buildLog.size()));
    return value != nullptr ? answerText(script.buildLog, room, value) : CL_SUCCESS;
}

cl_kernel createKernel(cl_program program, const char* name, cl_int* error) {
    const cl_int status = enter("clCreateKernel", {live(program, "program"), name});
    return create<cl_kernel>("clCreateKernel", "kernel", status, error);
}

cl_mem createBuffer(cl_context context, cl_mem_flags flags, std::size_t size, void* host, cl_int* error) {
    const cl_int status = enter("clCreateBuffer", {live(context, "context"), QString::number(flags),
                                                   QString::number(size), pointerText(host)});
    return create<cl_mem>("clCreateBuffer", "buffer", status, error);
}

cl_int writeBuffer(cl_command_queue queue, cl_mem buffer, cl_bool blocking, std::size_t offset,
                   std::size_t size, const void* data, cl_uint events, const cl_event* wait,
                   cl_event* event) {
    const auto* floats = static_cast<const float*>(data);
    world.writes.emplace_back(floats, floats + size / sizeof(float));
    return enter("clEnqueueWriteBuffer",
                 {live(queue, "queue"), live(buffer, "buffer"), QString::number(blocking),
                  QString::number(offset), QString::number(size), QString::number(events), pointerText(wait),
                  pointerText(event)});
}

cl_int readBuffer(cl_command_queue queue, cl_mem buffer, cl_bool blocking, std::size_t offset,
                  std::size_t size, void* data, cl_uint events, const cl_event* wait, cl_event* event) {
    const cl_int status =
        enter("clEnqueueReadBuffer", {live(queue, "queue"), live(buffer, "buffer"), QString::number(blocking),
                                      QString::number(offset), QString::number(size), QString::number(events),
                                      pointerText(wait), pointerText(event)});
    const auto& results = world.script.results;
    const std::vector<float>& floats = results.at(std::min(world.reads++, results.size() - 1));
    if (status == CL_SUCCESS)
        std::memcpy(data, floats.data(), std::min(size, floats.size() * sizeof(float)));
    return status;
}

cl_int enqueueKernel(cl_command_queue queue, cl_kernel kernel, cl_uint dimensions, const std::size_t* offset,
                     const std::size_t* global, const std::size_t* local, cl_uint events,
                     const cl_event* wait, cl_event* event) {
    return enter("clEnqueueNDRangeKernel",
                 {live(queue, "queue"), live(kernel, "kernel"), QString::number(dimensions),
                  sizesText(offset), sizesText(global), sizesText(local), QString::number(events),
                  pointerText(wait), pointerText(event)});
}

cl_int setKernelArg(cl_kernel kernel, cl_uint index, std::size_t size, const void* value) {
    cl_mem buffer = nullptr;
    std::memcpy(&buffer, value, sizeof buffer);
    return enter("clSetKernelArg", {live(kernel, "kernel"), QString::number(index), QString::number(size),
                                    live(buffer, "buffer")});
}

cl_int finish(cl_command_queue queue) {
    const cl_int status = enter("clFinish", {live(queue, "queue")});
    const auto& roundMs = world.script.roundMs;
    VirtualTime::pass(roundMs.at(std::min(world.rounds++, roundMs.size() - 1)));
    return status;
}

cl_int releaseKernel(cl_kernel kernel) {
    return release("clReleaseKernel", "kernel", kernel);
}

cl_int releaseProgram(cl_program program) {
    return release("clReleaseProgram", "program", program);
}

cl_int releaseQueue(cl_command_queue queue) {
    return release("clReleaseCommandQueue", "queue", queue);
}

cl_int releaseContext(cl_context context) {
    return release("clReleaseContext", "context", context);
}

cl_int releaseBuffer(cl_mem buffer) {
    return release("clReleaseMemObject", "buffer", buffer);
}

} // namespace

FakeLibrary& FakeOpenCL::install(const std::vector<FakeClPlatform>& platforms, const QByteArray& file) {
    world = World();
    world.platforms = platforms;
    FakeLibrary& library = FakeLoader::provide(file);
    library.add("clGetPlatformIDs", getPlatformIDs);
    library.add("clGetPlatformInfo", getPlatformInfo);
    library.add("clGetDeviceIDs", getDeviceIDs);
    library.add("clGetDeviceInfo", getDeviceInfo);
    library.add("clCreateContext", createContext);
    library.add("clCreateCommandQueue", createQueue);
    library.add("clCreateProgramWithSource", createProgram);
    library.add("clBuildProgram", buildProgram);
    library.add("clGetProgramBuildInfo", getBuildInfo);
    library.add("clCreateKernel", createKernel);
    library.add("clCreateBuffer", createBuffer);
    library.add("clEnqueueWriteBuffer", writeBuffer);
    library.add("clEnqueueReadBuffer", readBuffer);
    library.add("clEnqueueNDRangeKernel", enqueueKernel);
    library.add("clSetKernelArg", setKernelArg);
    library.add("clFinish", finish);
    library.add("clReleaseKernel", releaseKernel);
    library.add("clReleaseProgram", releaseProgram);
    library.add("clReleaseCommandQueue", releaseQueue);
    library.add("clReleaseContext", releaseContext);
    library.add("clReleaseMemObject", releaseBuffer);
    return library;
}

FakeClScript& FakeOpenCL::script() {
    return world.script;
}

void FakeOpenCL::reportPlatforms(cl_uint count) {
    world.reportedPlatforms = count;
}

void FakeOpenCL::reportDevices(cl_uint count) {
    world.reportedDevices = count;
}

void FakeOpenCL::leavePlatformNull(std::size_t index) {
    world.nullPlatform = index;
}

void FakeOpenCL::leaveDeviceNull(std::size_t index) {
    world.nullDevice = index;
}

cl_device_id FakeOpenCL::device(std::size_t platform, std::size_t index) {
    return handle<cl_device_id>(deviceBase + 0x100 * platform + index);
}

QStringList FakeOpenCL::liveObjects() {
    QStringList names;
    for (const auto& [object, name] : world.live)
        names.append(name);
    return names;
}

QStringList FakeOpenCL::misuses() {
    return world.misuses;
}

std::vector<QByteArray> FakeOpenCL::sources() {
    return world.sources;
}

const std::vector<float>& FakeOpenCL::written(std::size_t n) {
    return world.writes.at(n);
}
