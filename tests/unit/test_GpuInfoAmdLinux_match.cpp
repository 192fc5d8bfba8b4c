// AMD's cards paired with OpenCL devices, and the devices' ray tracing.
#include <QTest>

#include "tests/unit/AmdMachine.h"
#include "tests/unit/testRows.h"

namespace {

const QByteArray fixes = "  -> Possible fixes:\n"
                         "     Ubuntu:  sudo apt install mesa-opencl-icd\n"
                         "     Rocky 9: sudo dnf install mesa-libOpenCL\n"
                         "     Check /etc/OpenCL/vendors/ for missing .icd files\n"
                         "     Run 'clinfo' to see what OpenCL sees\n";

FakeClDevice topology(const QByteArray& name, unsigned char bus, const QByteArray& extensions = {}) {
    FakeClDevice device;
    device.name = name;
    device.topologyBus = bus;
    device.extensions = extensions;
    return device;
}

FakeClDevice nameOnly(const QByteArray& name) {
    FakeClDevice device;
    device.name = name;
    return device;
}

DrmFiles product(const QByteArray& name) {
    return {{"product_name", name}};
}

} // namespace

class TestGpuInfoAmdLinux_match : public QObject {
    Q_OBJECT

  private slots:
    void byBus() {
        AmdMachine machine;
        machine.drm.addAmdCard("card0", "0000:0c:00.0", product("Radeon %1 X"));
        FakeOpenCL::install(
            {{"AMD %2", {topology("gfx a", 0x0B), topology("gfx b", 0x0C), topology("gfx c", 0x0C)}}});
        QCOMPARE(machine.detect(), QByteArray("AMD GPU OpenCL: 1 platform(s) found\n"
                                              "  OpenCL platform 0: AMD %2\n"
                                              "    OCL device 'gfx a': PCI bus 0xb (via AMD topology)\n"
                                              "    OCL device 'gfx b': PCI bus 0xc (via AMD topology)\n"
                                              "    OCL device 'gfx c': PCI bus 0xc (via AMD topology)\n"
                                              "  Radeon %1 X: matched via PCI bus 0xc\n"
                                              "1 AMD GPU(s) found\n"));
        QCOMPARE(machine.result, 1);
        QCOMPARE(openCLDeviceOf(machine.provider.record(0)), FakeOpenCL::device(0, 1));
    }

    void byBusOfASignedByte() {
        AmdMachine machine;
        machine.drm.addAmdCard("card0", "0000:83:00.0");
        FakeOpenCL::install({{"p", {topology("gfx", 0x83)}}});
        QCOMPARE(machine.detect(), QByteArray("AMD GPU OpenCL: 1 platform(s) found\n"
                                              "  OpenCL platform 0: p\n"
                                              "    OCL device 'gfx': PCI bus 0xffffff83 (via AMD topology)\n"
                                              "  card0: matched via PCI bus 0x83\n"
                                              "1 AMD GPU(s) found\n"));
    }

    void byName() {
        AmdMachine machine;
        machine.drm.addAmdCard("card0", "0000:0c:00.0", product("navi 21 %1"));
        FakeOpenCL::install({{"p", {nameOnly(" AMD Radeon navi 21 %2 ")}}});
        QCOMPARE(
            machine.detect(),
            QByteArray("AMD GPU OpenCL: 1 platform(s) found\n"
                       "  OpenCL platform 0: p\n"
                       "    OCL device 'AMD Radeon navi 21 %2': no PCI bus info available, name-match only\n"
                       "  navi 21 %1: matched via name fallback to OCL 'AMD Radeon navi 21 %2'\n"
                       "1 AMD GPU(s) found\n"));
        QCOMPARE(openCLDeviceOf(machine.provider.record(0)), FakeOpenCL::device(0, 0));
    }

    // Names are compared byte for byte, and shown as UTF-8.
    void nameAsLatin1() {
        AmdMachine machine;
        machine.drm.addAmdCard("card0", "0000:0c:00.0", product("caf\xC3\xA9 2000"));
        FakeOpenCL::install({{"p", {nameOnly("x caf\xC3\xA9 3000")}}});
        const QByteArray printed = machine.detect();
        QVERIFY2(printed.contains("\n  caf\xC3\xA9 2000: matched via name fallback to OCL"),
                 printed.constData());
    }

    void busBeforeName() {
        AmdMachine machine;
        machine.drm.addAmdCard("card0", "0000:0c:00.0", product("navi 21"));
        FakeOpenCL::install({{"p", {nameOnly("navi 21"), topology("other", 0x0C)}}});
        machine.detect();
        QCOMPARE(openCLDeviceOf(machine.provider.record(0)), FakeOpenCL::device(0, 1));
    }

    void candidateServesSeveralGpus() {
        AmdMachine machine;
        machine.drm.addAmdCard("card0", "0000:0c:00.0");
        machine.drm.addAmdCard("card1", "0000:0c:00.1");
        machine.drm.addAmdCard("card2", "0000:0d:00.0");
        FakeOpenCL::install({{"p", {topology("gfx", 0x0C), nameOnly("")}}});
        machine.detect();
        QCOMPARE(openCLDeviceOf(machine.provider.named("card0")), FakeOpenCL::device(0, 0));
        QCOMPARE(openCLDeviceOf(machine.provider.named("card1")), FakeOpenCL::device(0, 0));
        QCOMPARE(openCLDeviceOf(machine.provider.named("card2")),
                 FakeOpenCL::device(0, 1)); // a nameless one fits all
    }

    void unmatched() {
        AmdMachine machine;
        machine.drm.addAmdCard("card0", "0000:c1:00.0", product("Radeon %1"));
        FakeOpenCL::install(
            {{"p", {topology("gfx %2", 0x8A), nameOnly("llvmpipe"), topology("gfx b", 0x0B)}}});
        QCOMPARE(machine.detect(), "AMD GPU OpenCL: 1 platform(s) found\n"
                                   "  OpenCL platform 0: p\n"
                                   "    OCL device 'gfx %2': PCI bus 0xffffff8a (via AMD topology)\n"
                                   "    OCL device 'llvmpipe': no PCI bus info available, name-match only\n"
                                   "    OCL device 'gfx b': PCI bus 0xb (via AMD topology)\n"
                                   "AMD GPU 'Radeon %1' (PCI bus 0xc1): no matching OpenCL device found.\n"
                                   "  -> Benchmark will not be available for this GPU.\n"
                                   "  -> Available OpenCL devices:\n"
                                   "     'gfx %2' on PCI bus 0xffffff8a\n"
                                   "     'llvmpipe' (no PCI bus info)\n"
                                   "     'gfx b' on PCI bus 0xb\n" +
                                       fixes + "1 AMD GPU(s) found\n");
        QCOMPARE(machine.result, 1);
        QVERIFY(openCLDeviceOf(machine.provider.record(0)) == nullptr);
        QCOMPARE(int(machine.provider.record(0).amdRayTracing), 0);
    }

    void levels_data() {
        // lines: the warning has ten, the count is one
        const auto row = testColumns<int, int>("level", "lines");
        row("4", 4, 11);
        row("3", 3, 11);
        row("2", 2, 10);
        row("1", 1, 0);
    }

    void levels() {
        QFETCH(int, level);
        AmdMachine machine;
        machine.drm.addAmdCard("card0", "0000:c1:00.0");
        FakeOpenCL::install({{"p", {topology("gfx", 0x8A), nameOnly("llvmpipe")}}});
        logLevel = level;
        QTEST(int(machine.detect().count('\n')), "lines");
    }

    void manyPlatformsAndDevices() {
        AmdMachine machine;
        machine.drm.addAmdCard("card0", "0000:c1:00.0");
        std::vector<FakeClPlatform> platforms(9);
        for (FakeClPlatform& platform : platforms)
            platform.devices.assign(13, topology("gfx", 1));
        FakeOpenCL::install(platforms);
        const QByteArray printed = machine.detect();
        QVERIFY(printed.startsWith("AMD GPU OpenCL: 9 platform(s) found\n"));
        FakeOpenCL::reportPlatforms(4294967295U);
        QVERIFY(machine.detect().startsWith("AMD GPU OpenCL: 4294967295 platform(s) found\n"));
        QCOMPARE(printed.count("    OCL device 'gfx'"), 8 * 12);
        QCOMPARE(printed.count("     'gfx' on PCI bus 0x1\n"), 8 * 12);
    }

    void rayTracing_data() {
        const auto row = testColumns<QByteArray, int>("extensions", "flag");
        const QByteArray name = "cl_khr_ray_tracing";
        row("alone", name, 1);
        row("in the middle", "cl_khr_fp64 " + name + " cl_khr_icd", 1);
        row("inside another name", "cl_khr_fp64 x" + name + "_2", 1);
        row("absent", "cl_khr_fp64 cl_khr_icd", 0);
        row("another case", name.toUpper(), 0);
        row("one letter short", name.chopped(1), 0);
        row("empty", QByteArray(), 0);
        row("at the end of the room", QByteArray(4096 - name.size(), 'x') + name, 1);
        row("across the end of the room", QByteArray(4097 - name.size(), 'x') + name, 0);
        row("beyond the room", QByteArray(4096, 'x') + name, 0);
        row("behind the terminator", QByteArray(1, '\0') + name, 0);
    }

    void rayTracing() {
        QFETCH(QByteArray, extensions);
        AmdMachine machine;
        machine.drm.addAmdCard("card0", "0000:0c:00.0");
        FakeOpenCL::install({{"p", {topology("gfx", 0x0C, extensions)}}});
        machine.detect();
        QTEST(int(machine.provider.record(0).amdRayTracing), "flag");
        QCOMPARE(FakeCalls::all().last(), QString("clGetDeviceInfo(device0.0, 0x1030, 4096)"));
    }

    void rayTracingIsAskedOfThePair() {
        AmdMachine machine;
        machine.drm.addAmdCard("card0", "0000:0c:00.0");
        machine.drm.addAmdCard("card1", "0000:0d:00.0");
        machine.drm.addAmdCard("card2", "0000:0e:00.0");
        machine.drm.addAmdCard("card3", "0000:0f:00.0");
        FakeOpenCL::install({{"p",
                              {topology("a", 0x0C), topology("b", 0x0D, "cl_khr_ray_tracing"),
                               topology("d", 0x0F, "cl_khr_ray_tracing")}}});
        machine.detect();
        QCOMPARE(int(machine.provider.named("card0").amdRayTracing), 0);
        QCOMPARE(int(machine.provider.named("card1").amdRayTracing), 1);
        QCOMPARE(int(machine.provider.named("card2").amdRayTracing), 0);
        QCOMPARE(int(machine.provider.named("card3").amdRayTracing), 1);
        QCOMPARE(FakeCalls::all().filter("0x1030").size(), 3); // none for the GPU without a device
    }

    void matchesAreDetail() {
        for (const FakeClDevice& device : {topology("gfx", 0x0C), nameOnly("card0")}) {
            AmdMachine machine;
            machine.drm.addAmdCard("card0", "0000:0c:00.0");
            FakeOpenCL::install({{"p", {device}}});
            logLevel = 4;
            QCOMPARE(machine.detect(), QByteArray("1 AMD GPU(s) found\n"));
            QCOMPARE(openCLDeviceOf(machine.provider.record(0)), FakeOpenCL::device(0, 0));
        }
    }

    void rayTracingNotAnswered() {
        AmdMachine machine;
        machine.drm.addAmdCard("card0", "0000:0c:00.0");
        FakeOpenCL::install({{"p", {topology("gfx", 0x0C, "cl_khr_ray_tracing")}}});
        FakeCalls::fail("clGetDeviceInfo", -5, 3); // behind the name and the topology
        machine.detect();
        QCOMPARE(int(machine.provider.record(0).amdRayTracing), 0);
        AmdMachine other;
        other.drm.addAmdCard("card0", "0000:0c:00.0");
        FakeOpenCL::install({{"p", {topology("gfx", 0x0C, "cl_khr_ray_tracing")}}});
        FakeCalls::fail("clGetDeviceInfo", -5, 3);
        FakeCalls::setAnswers("clGetDeviceInfo", true); // what is written counts, not the status
        other.detect();
        QCOMPARE(int(other.provider.record(0).amdRayTracing), 1);
    }

    void order() {
        AmdMachine machine;
        for (const char* card : {"card0", "card1", "card2"})
            machine.drm.addAmdCard(card, QString("0000:0%1:00.0").arg(card[4]));
        FakeOpenCL::install({{"p", {topology("a", 2), topology("b", 1), topology("c", 0)}}});
        const QByteArray printed = machine.detect();
        int last = -1;
        for (int i = 0; i < 3; ++i) {
            const int at =
                printed.indexOf(QByteArray("\n  ") + machine.provider.record(i).name + ": matched");
            QVERIFY2(at > last, printed.constData()); // in the list's order, whatever OpenCL's is
            last = at;
        }
    }
};

QTEST_APPLESS_MAIN(TestGpuInfoAmdLinux_match)
#include "test_GpuInfoAmdLinux_match.moc"
