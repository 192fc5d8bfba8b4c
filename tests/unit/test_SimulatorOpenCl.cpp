// The OpenCL stand-in through the dynamic loader, without PoCL: queries, objects, what is leaked and misused.
#include <array>
#include <cstring>

#include <QElapsedTimer>
#include <QTest>

#include "simulator/lib/ClApi.h"
#include "tests/unit/SimulatedLibrary.h"
#include "tests/unit/testRows.h"

namespace {

constexpr const char* scripted =
    "[opencl]\nmode = scripted\nround_ms = 40, 0\nresults = 1.5, 2.5\n"
    "build_log = it went wrong\n"
    "[platform]\nname = P0\n[device]\nname = D0\nnv_bus = 0x83\nkhr_bus = 0x184\n"
    "amd_topology_bus = 0x85\nextensions = a b\n"
    "[device]\nname = CPU\ntype = cpu\n"
    "[platform]\nname = P1\n";

#define QZSIM_CL(name) get<decltype(name)>(#name)

struct OpenCl {
    OpenCl() {
        library.QZSIM_CL(clGetPlatformIDs)(2, platforms.data(), nullptr);
        library.QZSIM_CL(clGetDeviceIDs)(platforms[0], CL_DEVICE_TYPE_GPU, 1, &device, nullptr);
    }

    SimulatedLibrary library{"libqzsim-opencl.so"};
    std::array<cl_platform_id, 2> platforms{};
    cl_device_id device = nullptr;
};

/// A context with one object of each kind in it.
struct Objects : OpenCl {
    Objects() {
        const char* text = "kernel text";
        cl_int status = 0;
        context = library.QZSIM_CL(clCreateContext)(nullptr, 1, &device, nullptr, nullptr, &status);
        queue = library.QZSIM_CL(clCreateCommandQueue)(context, device, 0, &status);
        program = library.QZSIM_CL(clCreateProgramWithSource)(context, 1, &text, nullptr, &status);
        library.QZSIM_CL(clBuildProgram)(program, 1, &device, nullptr, nullptr, nullptr);
        kernel = library.QZSIM_CL(clCreateKernel)(program, "k", &status);
        buffer = library.QZSIM_CL(clCreateBuffer)(context, CL_MEM_READ_ONLY, 16, nullptr, &status);
    }

    cl_int launch() const {
        const std::array<std::size_t, 2> global = {512, 2};
        const std::array<std::size_t, 2> local = {256, 1};
        return library.QZSIM_CL(clEnqueueNDRangeKernel)(queue, kernel, 2, nullptr, global.data(),
                                                        local.data(), 0, nullptr, nullptr);
    }

    cl_context context = nullptr;
    cl_command_queue queue = nullptr;
    cl_program program = nullptr;
    cl_kernel kernel = nullptr;
    cl_mem buffer = nullptr;
};

} // namespace

class TestSimulatorOpenCl : public QObject {
    Q_OBJECT

  private slots:
    void platforms() {
        const SimulatedMachine machine(scripted);
        const OpenCl cl;
        cl_uint count = 0;
        QCOMPARE(cl.library.QZSIM_CL(clGetPlatformIDs)(0, nullptr, &count), CL_SUCCESS);
        QCOMPARE(count, 2u);
        QCOMPARE(cl.library.QZSIM_CL(clGetPlatformIDs)(0, nullptr, nullptr), CL_INVALID_VALUE);
        std::array<char, 8> name{};
        std::size_t size = 0;
        const auto info = cl.library.QZSIM_CL(clGetPlatformInfo);
        QCOMPARE(info(cl.platforms[1], CL_PLATFORM_NAME, name.size(), name.data(), &size), CL_SUCCESS);
        QCOMPARE(name.data(), "P1");
        QCOMPARE(size, std::size_t{3});
        QCOMPARE(info(cl.platforms[1], CL_PLATFORM_NAME, 2, name.data(), nullptr), CL_INVALID_VALUE);
        QCOMPARE(info(nullptr, CL_PLATFORM_NAME, name.size(), name.data(), nullptr), CL_INVALID_PLATFORM);
    }

    void devices() {
        const SimulatedMachine machine(scripted);
        const OpenCl cl;
        const auto list = cl.library.QZSIM_CL(clGetDeviceIDs);
        std::array<cl_device_id, 3> devices{};
        cl_uint count = 9;
        QCOMPARE(list(cl.platforms[0], CL_DEVICE_TYPE_GPU, 3, devices.data(), &count), CL_SUCCESS);
        QCOMPARE(count, 1u);
        QVERIFY(devices[1] == nullptr);
        QCOMPARE(list(cl.platforms[0], CL_DEVICE_TYPE_ALL, 1, devices.data(), &count), CL_SUCCESS);
        QCOMPARE(count, 2u);
        QCOMPARE(list(cl.platforms[1], CL_DEVICE_TYPE_GPU, 3, devices.data(), &count), CL_DEVICE_NOT_FOUND);
        QCOMPARE(count, 0u);
    }

    void reportedCounts() {
        const SimulatedMachine machine("[opencl]\nmode = scripted\nreported_platforms = 40\n"
                                       "[platform]\nreported_devices = 99\n[device]\n");
        const OpenCl cl;
        cl_uint count = 0;
        std::array<cl_device_id, 2> devices{};
        cl.library.QZSIM_CL(clGetPlatformIDs)(0, nullptr, &count);
        QCOMPARE(count, 40u);
        QCOMPARE(cl.library.QZSIM_CL(clGetDeviceIDs)(cl.platforms[0], CL_DEVICE_TYPE_GPU, 2, devices.data(),
                                                     &count),
                 CL_SUCCESS);
        QCOMPARE(count, 99u);
        QVERIFY(devices[0] != nullptr && devices[1] == nullptr);
    }

    void noPlatform() {
        const SimulatedMachine machine("[opencl]\n");
        const SimulatedLibrary library("libqzsim-opencl.so");
        cl_uint count = 9;
        QCOMPARE(library.QZSIM_CL(clGetPlatformIDs)(0, nullptr, &count), -1001);
        QCOMPARE(count, 0u);
    }

    void attributes() {
        const SimulatedMachine machine(scripted);
        const OpenCl cl;
        const auto info = cl.library.QZSIM_CL(clGetDeviceInfo);
        std::uint32_t bus = 0;
        QCOMPARE(info(cl.device, 0x4008, sizeof bus, &bus, nullptr), CL_SUCCESS);
        QCOMPARE(bus, 0x83u);
        std::array<std::uint32_t, 4> khr{};
        QCOMPARE(info(cl.device, 0x410F, sizeof khr, khr.data(), nullptr), CL_SUCCESS);
        QCOMPARE(khr[1], 0x184u);
        std::array<unsigned char, 24> topology{};
        QCOMPARE(info(cl.device, 0x4037, sizeof topology, topology.data(), nullptr), CL_SUCCESS);
        QCOMPARE(topology[21], static_cast<unsigned char>(0x85));
        std::array<char, 8> text{};
        QCOMPARE(info(cl.device, CL_DEVICE_NAME, text.size(), text.data(), nullptr), CL_SUCCESS);
        QCOMPARE(text.data(), "D0");
        QCOMPARE(info(cl.device, CL_DEVICE_EXTENSIONS, text.size(), text.data(), nullptr), CL_SUCCESS);
        QCOMPARE(text.data(), "a b");
        QCOMPARE(info(nullptr, CL_DEVICE_NAME, text.size(), text.data(), nullptr), CL_INVALID_DEVICE);
        QCOMPARE(info(cl.device, 0x9999, text.size(), text.data(), nullptr), CL_INVALID_VALUE);
    }

    void refusedAttributes() {
        const SimulatedMachine machine("[opencl]\nmode = scripted\n[platform]\nname = @refused\n[device]\n"
                                       "name = @refused\nnv_bus = refused -33\nkhr_bus = refused\n");
        const OpenCl cl;
        const auto info = cl.library.QZSIM_CL(clGetDeviceInfo);
        std::array<char, 64> room{};
        QCOMPARE(info(cl.device, 0x4008, room.size(), room.data(), nullptr), -33);
        QCOMPARE(info(cl.device, 0x410F, room.size(), room.data(), nullptr), -30);
        QCOMPARE(info(cl.device, 0x4037, room.size(), room.data(), nullptr), -30);
        QCOMPARE(info(cl.device, CL_DEVICE_NAME, room.size(), room.data(), nullptr), -30);
        QCOMPARE(cl.library.QZSIM_CL(clGetPlatformInfo)(cl.platforms[0], CL_PLATFORM_NAME, room.size(),
                                                        room.data(), nullptr),
                 -30);
    }

    void leaksAreCounted() {
        const SimulatedMachine machine(scripted);
        const Objects objects;
        for (const char* kind : {"context", "queue", "program", "kernel", "buffer"})
            QCOMPARE(machine.counted((QByteArray("live:") + kind).constData()), 1);
        QCOMPARE(objects.library.QZSIM_CL(clReleaseMemObject)(objects.buffer), CL_SUCCESS);
        QCOMPARE(objects.library.QZSIM_CL(clReleaseKernel)(objects.kernel), CL_SUCCESS);
        QCOMPARE(objects.library.QZSIM_CL(clReleaseProgram)(objects.program), CL_SUCCESS);
        QCOMPARE(objects.library.QZSIM_CL(clReleaseCommandQueue)(objects.queue), CL_SUCCESS);
        QCOMPARE(objects.library.QZSIM_CL(clReleaseContext)(objects.context), CL_SUCCESS);
        for (const char* kind : {"context", "queue", "program", "kernel", "buffer"})
            QCOMPARE(machine.counted((QByteArray("live:") + kind).constData()), 0);
    }

    void misuse() {
        const SimulatedMachine machine(scripted);
        const Objects objects;
        const auto release = objects.library.QZSIM_CL(clReleaseKernel);
        QCOMPARE(release(objects.kernel), CL_SUCCESS);
        QCOMPARE(release(objects.kernel), CL_INVALID_KERNEL);
        QCOMPARE(objects.launch(), CL_INVALID_KERNEL);
        QCOMPARE(release(reinterpret_cast<cl_kernel>(objects.queue)), CL_INVALID_KERNEL);
        QCOMPARE(objects.library.QZSIM_CL(clFinish)(nullptr), CL_INVALID_COMMAND_QUEUE);
        QCOMPARE(machine.counted("live:kernel"), 0);
        QCOMPARE(machine.counted("misuse:clReleaseKernel of a released kernel"), 1);
        QCOMPARE(machine.counted("misuse:clReleaseKernel of an invalid kernel"), 1);
        QCOMPARE(machine.counted("misuse:clEnqueueNDRangeKernel of a released kernel"), 1);
        QCOMPARE(machine.counted("misuse:clFinish of an invalid queue"), 1);
    }

    void rounds() {
        const SimulatedMachine machine(scripted);
        const Objects objects;
        const auto finish = objects.library.QZSIM_CL(clFinish);
        QElapsedTimer timer;
        timer.start();
        QCOMPARE(objects.launch(), CL_SUCCESS);
        QCOMPARE(finish(objects.queue), CL_SUCCESS);
        QVERIFY(timer.restart() >= 40);
        QCOMPARE(objects.launch(), CL_SUCCESS);
        QCOMPARE(finish(objects.queue), CL_SUCCESS);
        QVERIFY(timer.elapsed() < 40);
        QCOMPARE(machine.counted("note:range 512x2 local 256x1 offset none"), 2);
        // The next benchmark has another context and begins with the first round again.
        objects.library.QZSIM_CL(clCreateContext)(nullptr, 1, &objects.device, nullptr, nullptr, nullptr);
        timer.start();
        QCOMPARE(objects.launch(), CL_SUCCESS);
        QCOMPARE(finish(objects.queue), CL_SUCCESS);
        QVERIFY(timer.elapsed() >= 40);
    }

    void transfers() {
        const SimulatedMachine machine(scripted, "clEnqueueReadBuffer = answer 0 at 2");
        const Objects objects;
        const auto read = objects.library.QZSIM_CL(clEnqueueReadBuffer);
        std::array<float, 4> results{};
        const auto all = [&](std::size_t size) {
            return read(objects.queue, objects.buffer, CL_TRUE, 0, size, results.data(), 0, nullptr, nullptr);
        };
        QCOMPARE(all(16), CL_SUCCESS);
        QCOMPARE(results[2], 1.5f);
        QCOMPARE(results[3], 2.5f);
        QCOMPARE(all(16), CL_SUCCESS);
        QCOMPARE(results[3], 0.0f);
        QCOMPARE(all(17), CL_INVALID_VALUE);
        QCOMPARE(objects.library.QZSIM_CL(clEnqueueWriteBuffer)(objects.queue, objects.buffer, CL_TRUE, 8, 9,
                                                                results.data(), 0, nullptr, nullptr),
                 CL_INVALID_VALUE);
        QCOMPARE(objects.library.QZSIM_CL(clSetKernelArg)(objects.kernel, 0, 4, results.data()),
                 CL_INVALID_ARG_SIZE);
        QCOMPARE(objects.library.QZSIM_CL(clSetKernelArg)(objects.kernel, 0, 8, &objects.queue),
                 CL_INVALID_MEM_OBJECT);
        QCOMPARE(objects.library.QZSIM_CL(clSetKernelArg)(objects.kernel, 0, 8, &objects.buffer), CL_SUCCESS);
    }

    void buildLog() {
        const SimulatedMachine machine(scripted, "clBuildProgram = fail -11");
        const Objects objects;
        std::size_t size = 0;
        std::array<char, 64> log{};
        const auto info = objects.library.QZSIM_CL(clGetProgramBuildInfo);
        QCOMPARE(info(objects.program, objects.device, CL_PROGRAM_BUILD_LOG, 0, nullptr, &size), CL_SUCCESS);
        QCOMPARE(size, std::strlen("it went wrong") + 1);
        QCOMPARE(info(objects.program, objects.device, CL_PROGRAM_BUILD_LOG, size, log.data(), nullptr),
                 CL_SUCCESS);
        QCOMPARE(log.data(), "it went wrong");
        QCOMPARE(objects.library.QZSIM_CL(clBuildProgram)(objects.program, 1, &objects.device, nullptr,
                                                          nullptr, nullptr),
                 -11);
    }

    void failingCreation_data() {
        const auto row = testColumns<QByteArray, QByteArray>("function", "kind");
        row("context", "clCreateContext", "context");
        row("queue", "clCreateCommandQueue", "queue");
        row("program", "clCreateProgramWithSource", "program");
        row("kernel", "clCreateKernel", "kernel");
        row("buffer", "clCreateBuffer", "buffer");
    }

    void failingCreation() {
        QFETCH(QByteArray, function);
        QFETCH(QByteArray, kind);
        const SimulatedMachine machine(scripted, function + " = fail -6");
        const Objects objects;
        QCOMPARE(machine.counted(("live:" + kind).constData()), 0);
        QCOMPARE(machine.counted(("call:" + function).constData()), 1);
        if (kind == "context") {
            cl_int status = 0;
            QVERIFY(objects.library.QZSIM_CL(clCreateContext)(nullptr, 1, &objects.device, nullptr, nullptr,
                                                              &status) == nullptr);
            QCOMPARE(status, -6);
        }
    }
};

QTEST_APPLESS_MAIN(TestSimulatorOpenCl)
#include "test_SimulatorOpenCl.moc"
