#include <QTest>

#include "app/log/logLine.h"
#include "opencl/OpenCLDevices.h"
#include "tests/unit/CaptureStdout.h"
#include "tests/unit/FakeCalls.h"
#include "tests/unit/FakeOpenCL.h"
#include "tests/unit/testRows.h"

namespace {

FakeClDevice named(const QByteArray& name) {
    FakeClDevice device;
    device.name = name;
    return device;
}

std::vector<FakeClPlatform> platformsWithDevices(std::size_t platforms, std::size_t devices) {
    return {platforms, FakeClPlatform{"p", {devices, FakeClDevice()}}};
}

OpenCLPlatform firstPlatform() {
    return listOpenCLPlatforms().listed.at(0);
}

} // namespace

class TestOpenCLDevices : public QObject {
    Q_OBJECT

  private slots:
    void init() {
        logLevel = 5;
        use(platformsWithDevices(1, 1));
    }

    void platforms_data() {
        const auto row = testColumns<int, cl_uint, int>("there", "reported", "listed");
        row("none", 0, 0U, 0);
        row("one", 1, 1U, 1);
        row("as many as there is room for", 8, 8U, 8);
        row("more than the room", 9, 9U, 8);
        row("a wild count", 2, 4294967295U, 2);
    }

    void platforms() {
        QFETCH(int, there);
        QFETCH(cl_uint, reported);
        use(platformsWithDevices(static_cast<std::size_t>(there), 0));
        FakeOpenCL::reportPlatforms(reported);
        const OpenCLPlatforms platforms = listOpenCLPlatforms();
        QCOMPARE(platforms.reported, reported);
        QTEST(static_cast<int>(platforms.listed.size()), "listed");
        QCOMPARE(FakeCalls::all(), QStringList("clGetPlatformIDs(8)"));
    }

    void platformsWithANullEntry() {
        use(platformsWithDevices(3, 0));
        FakeOpenCL::leavePlatformNull(1);
        const OpenCLPlatforms platforms = listOpenCLPlatforms();
        QCOMPARE(platforms.reported, 3U);
        QCOMPARE(platforms.listed.size(), std::size_t(2));
        QVERIFY(platforms.listed[0].id != nullptr && platforms.listed[1].id != nullptr);
        QCOMPARE(platforms.listed[0].number, std::size_t(0));
        QCOMPARE(platforms.listed[1].number, std::size_t(2));
    }

    void platformsOfAFailingCall() {
        FakeCalls::fail("clGetPlatformIDs", -1001);
        QCOMPARE(listOpenCLPlatforms().reported, 0U);
        QVERIFY(listOpenCLPlatforms().listed.empty());
        FakeCalls::setAnswers("clGetPlatformIDs", true); // what counts is the count
        QCOMPARE(listOpenCLPlatforms().reported, 1U);
        QCOMPARE(listOpenCLPlatforms().listed.size(), std::size_t(1));
    }

    void devices_data() {
        const auto row = testColumns<int, int, int, int>("there", "reported", "status", "listed");
        row("none", 0, 0, 0, 0);
        row("one", 1, 1, 0, 1);
        row("as many as there is room for", 12, 12, 0, 12);
        row("more than the room", 13, 13, 0, 12);
        row("a wild count", 2, 4000000, 0, 2);
        row("success with none", 2, 0, 0, 0);
        row("failing", 2, 2, -5, 0);
        row("positive status", 2, 2, 1, 0);
    }

    void devices() {
        QFETCH(int, there);
        QFETCH(int, reported);
        QFETCH(int, status);
        use(platformsWithDevices(1, static_cast<std::size_t>(there)));
        FakeOpenCL::reportDevices(static_cast<cl_uint>(reported));
        FakeCalls::setAnswers("clGetDeviceIDs", true);
        FakeCalls::fail("clGetDeviceIDs", status);
        const std::vector<cl_device_id> listed = listOpenCLGpuDevices(firstPlatform());
        QTEST(static_cast<int>(listed.size()), "listed");
        QCOMPARE(FakeCalls::of({"clGetDeviceIDs"}), QStringList("clGetDeviceIDs(platform0, 4, 12)"));
        for (std::size_t i = 0; i < listed.size(); ++i)
            QCOMPARE(listed[i], FakeOpenCL::device(0, i));
    }

    void devicesWithANullEntry() {
        use(platformsWithDevices(1, 3));
        FakeOpenCL::leaveDeviceNull(0);
        const std::vector<cl_device_id> expected = {FakeOpenCL::device(0, 1), FakeOpenCL::device(0, 2)};
        QCOMPARE(listOpenCLGpuDevices(firstPlatform()), expected);
    }

    void platformLine_data() {
        QTest::addColumn<QByteArray>("name");
        QTest::addColumn<int>("status");
        QTest::addColumn<bool>("answers");
        QTest::addColumn<QByteArray>("line");
        const auto row = [](const char* title, const QByteArray& name, const QByteArray& shown,
                            int status = 0, bool answers = true) {
            QTest::newRow(title) << name << status << answers << "  OpenCL platform 7: " + shown + "\n";
        };
        row("plain", "Portable Computing Language", "Portable Computing Language");
        row("nameless", "", "");
        row("with a placeholder", "a %1 b %2", "a %1 b %2");
        row("UTF-8", "caf\xC3\xA9", "caf\xC3\xA9");
        row("up to the terminator", QByteArray("one\0two", 7), "one");
        row("255 bytes", QByteArray(255, 'x'), QByteArray(255, 'x'));
        row("unterminated", QByteArray(256, 'x'), QByteArray(256, 'x'));
        row("longer than the room", QByteArray(300, 'x'), QByteArray(256, 'x'));
        row("failing", "name", "", -32, false);
        row("failing, written all the same", "name", "name", -32); // the buffer is what counts
        row("success without an answer", "name", "", 0, false);
    }

    void platformLine() {
        QFETCH(QByteArray, name);
        QFETCH(int, status);
        QFETCH(bool, answers);
        use({{name, {}}});
        FakeCalls::fail("clGetPlatformInfo", status);
        FakeCalls::setAnswers("clGetPlatformInfo", answers);
        const QByteArray printed = printedBy([] { logOpenCLPlatform({7, firstPlatform().id}); });
        QTEST(printed, "line");
        QCOMPARE(FakeCalls::of({"clGetPlatformInfo"}),
                 QStringList("clGetPlatformInfo(platform0, 0x902, 256)"));
        logLevel = 4;
        QCOMPARE(printedBy([] { logOpenCLPlatform({7, firstPlatform().id}); }), QByteArray());
    }

    void deviceText() {
        use({{"p", {named("first"), named(QByteArray(300, 'y'))}}});
        QCOMPARE(openCLDeviceText(FakeOpenCL::device(0, 0), CL_DEVICE_NAME, 256), QByteArray("first"));
        QCOMPARE(openCLDeviceText(FakeOpenCL::device(0, 1), CL_DEVICE_NAME, 256), QByteArray(256, 'y'));
        QCOMPARE(openCLDeviceText(FakeOpenCL::device(0, 1), CL_DEVICE_NAME, 4), QByteArray("yyyy"));
    }

    void deviceTextWithoutAnswer() {
        use({{"p", {named("first")}}});
        const auto text = [] { return openCLDeviceText(FakeOpenCL::device(0, 0), CL_DEVICE_NAME, 256); };
        FakeCalls::fail("clGetDeviceInfo", -33);
        QCOMPARE(text(), QByteArray());
        FakeCalls::setAnswers("clGetDeviceInfo", true); // what is written counts, not the status
        QCOMPARE(text(), QByteArray("first"));
        FakeCalls::heal();
        FakeCalls::setAnswers("clGetDeviceInfo", false);
        QCOMPARE(text(), QByteArray());
    }

    void fixedSizeAttribute() {
        FakeClDevice device;
        device.busNv = 0x1234U;
        use({{"p", {device}}});
        cl_uint bus = 0;
        QVERIFY(readOpenCLDevice(FakeOpenCL::device(0, 0), deviceAttributePciBusIdNv, bus));
        QCOMPARE(bus, 0x1234U);
        PciBusInfoKhr location{};
        QVERIFY(!readOpenCLDevice(FakeOpenCL::device(0, 0), deviceAttributePciBusInfoKhr, location));
        QCOMPARE(FakeCalls::all(), QStringList({"clGetDeviceInfo(device0.0, 0x4008, 4)",
                                                "clGetDeviceInfo(device0.0, 0x410f, 16)"}));
    }

    void devicePairing() {
        GpuDevice record;
        QVERIFY(openCLDeviceOf(record) == nullptr);
        auto* device = reinterpret_cast<cl_device_id>(std::uintptr_t(0x7fff'0123'4567'89ab));
        setOpenCLDevice(record, device);
        const std::uint64_t stored = record.clDevice; // a copy: the record's is not aligned
        QCOMPARE(stored, std::uint64_t(0x7fff'0123'4567'89ab));
        QCOMPARE(openCLDeviceOf(record), device);
    }

  private:
    static void use(const std::vector<FakeClPlatform>& described) {
        GpuOpenCL_Loader::unload();
        FakeLoader::reset();
        FakeOpenCL::install(described);
        GpuOpenCL_Loader::load(FakeLoader::functions());
        FakeCalls::reset();
    }
};

QTEST_APPLESS_MAIN(TestOpenCLDevices)
#include "test_OpenCLDevices.moc"
