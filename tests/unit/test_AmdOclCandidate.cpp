#include <QTest>

#include "amd/AmdOclCandidate.h"
#include "app/log/logLine.h"
#include "tests/unit/CaptureStdout.h"
#include "tests/unit/FakeCalls.h"
#include "tests/unit/FakeOpenCL.h"
#include "tests/unit/testRows.h"

namespace {

struct Answers {
    std::optional<unsigned char> topology;
    std::optional<cl_uint> khr;
};

FakeClDevice device(const QByteArray& name, const Answers& answers = {}) {
    FakeClDevice made;
    made.name = name;
    made.topologyBus = answers.topology;
    made.busKhr = answers.khr;
    return made;
}

AmdOclCandidate onBus(const QString& name, std::int32_t bus) {
    AmdOclCandidate candidate;
    candidate.name = name;
    candidate.busKnown = true;
    candidate.bus = bus;
    return candidate;
}

AmdOclCandidate nameOnly(const QString& name) {
    AmdOclCandidate candidate;
    candidate.name = name;
    return candidate;
}

/// The index in the list, -1 for none.
int place(const std::vector<AmdOclCandidate>& candidates, const AmdOclCandidate* found) {
    return found == nullptr ? -1 : static_cast<int>(found - candidates.data());
}

} // namespace

Q_DECLARE_METATYPE(Answers)
Q_DECLARE_METATYPE(std::vector<AmdOclCandidate>)

class TestAmdOclCandidate : public QObject {
    Q_OBJECT

  private slots:
    void init() { logLevel = 5; }

    void bus_data() {
        QTest::addColumn<Answers>("answers");
        QTest::addColumn<bool>("known");
        QTest::addColumn<int>("bus");
        QTest::addColumn<QByteArray>("line");
        const auto row = [](const char* name, const Answers& answers, bool known, int bus, const char* line) {
            QTest::newRow(name) << answers << known << bus
                                << QByteArray("    OCL device 'gfx %1': ") + line + "\n";
        };
        row("topology", {0x0C, {}}, true, 12, "PCI bus 0xc (via AMD topology)");
        row("topology, 0", {0, {}}, true, 0, "PCI bus 0x0 (via AMD topology)");
        row("topology, the last positive", {0x7F, {}}, true, 127, "PCI bus 0x7f (via AMD topology)");
        row("topology, signed", {0x83, {}}, true, -125, "PCI bus 0xffffff83 (via AMD topology)");
        row("topology, the first negative", {0x80, {}}, true, -128, "PCI bus 0xffffff80 (via AMD topology)");
        row("topology before KHR", {0x0C, 0x0D}, true, 12, "PCI bus 0xc (via AMD topology)");
        row("KHR", {{}, 0xC1}, true, 193, "PCI bus 0xc1 (via khr_pci_bus_info)");
        row("KHR, above a byte", {{}, 0x10C}, true, 268, "PCI bus 0x10c (via khr_pci_bus_info)");
        row("KHR, all bits", {{}, 0xFFFFFFFF}, true, -1, "PCI bus 0xffffffff (via khr_pci_bus_info)");
        row("neither", {}, false, 0, "no PCI bus info available, name-match only");
    }

    void bus() {
        QFETCH(Answers, answers);
        const auto candidates = collect({{"p", {device("gfx %1", answers)}}});
        QCOMPARE(candidates.size(), std::size_t(1));
        QTEST(candidates[0].busKnown, "known");
        QTEST(candidates[0].bus, "bus");
        QFETCH(QByteArray, line);
        QCOMPARE(printed, "  OpenCL platform 0: p\n" + line);
        logLevel = 4;
        collect({{"p", {device("gfx %1", answers)}}});
        QCOMPARE(printed, QByteArray());
    }

    // A success that writes nothing means bus 0.
    void busWithoutAnswer_data() {
        const auto row = testColumns<Answers, QByteArray>("answers", "way");
        row("topology", Answers{0x0C, {}}, "via AMD topology");
        row("KHR", Answers{{}, 0x0C}, "via khr_pci_bus_info");
    }

    void busWithoutAnswer() {
        QFETCH(Answers, answers);
        QFETCH(QByteArray, way);
        collect({{"p", {device("gfx", answers)}}});
        FakeCalls::setAnswers("clGetDeviceInfo", false);
        std::vector<AmdOclCandidate> candidates;
        printed = printedBy([&] { candidates = collectAmdOclCandidates(listOpenCLPlatforms()); });
        QVERIFY(candidates.at(0).busKnown);
        QCOMPARE(candidates.at(0).bus, 0);
        QCOMPARE(printed, "  OpenCL platform 0: p\n    OCL device '': PCI bus 0x0 (" + way + ")\n");
    }

    void names_data() {
        const auto row = testColumns<QByteArray, QString>("given", "name");
        row("plain", "gfx1030", "gfx1030");
        row("trimmed", "  gfx 1030\t\n ", "gfx 1030");
        row("empty", QByteArray(), "");
        row("blank", "   ", "");
        row("Latin-1", QByteArray("caf\xE9"), QString("caf") + QChar(0xE9));
        row("up to the terminator", QByteArray("one\0two", 7), "one");
        row("unterminated", QByteArray(300, 'x'), QString(256, 'x'));
    }

    void names() {
        QFETCH(QByteArray, given);
        QTEST(collect({{"p", {device(given)}}}).at(0).name, "name");
    }

    void listAndCalls() {
        const auto candidates = collect({{"one", {device("a", {0x01, {}}), device("b", {{}, 2})}},
                                         {"two", {}},
                                         {"three", {device("c")}}});
        QCOMPARE(candidates.size(), std::size_t(3));
        QCOMPARE(candidates[0].device, FakeOpenCL::device(0, 0));
        QCOMPARE(candidates[1].device, FakeOpenCL::device(0, 1));
        QCOMPARE(candidates[2].device, FakeOpenCL::device(2, 0));
        QCOMPARE(
            FakeCalls::all(),
            QStringList({"clGetPlatformIDs(8)", "clGetPlatformInfo(platform0, 0x902, 256)",
                         "clGetDeviceIDs(platform0, 4, 12)", "clGetDeviceInfo(device0.0, 0x102b, 256)",
                         "clGetDeviceInfo(device0.0, 0x4037, 24)", "clGetDeviceInfo(device0.1, 0x102b, 256)",
                         "clGetDeviceInfo(device0.1, 0x4037, 24)", "clGetDeviceInfo(device0.1, 0x410f, 16)",
                         "clGetPlatformInfo(platform1, 0x902, 256)", "clGetDeviceIDs(platform1, 4, 12)",
                         "clGetPlatformInfo(platform2, 0x902, 256)", "clGetDeviceIDs(platform2, 4, 12)",
                         "clGetDeviceInfo(device2.0, 0x102b, 256)", "clGetDeviceInfo(device2.0, 0x4037, 24)",
                         "clGetDeviceInfo(device2.0, 0x410f, 16)"}));
        QCOMPARE(printed, QByteArray("  OpenCL platform 0: one\n"
                                     "    OCL device 'a': PCI bus 0x1 (via AMD topology)\n"
                                     "    OCL device 'b': PCI bus 0x2 (via khr_pci_bus_info)\n"
                                     "  OpenCL platform 1: two\n"
                                     "  OpenCL platform 2: three\n"
                                     "    OCL device 'c': no PCI bus info available, name-match only\n"));
    }

    void failingPlatforms() {
        collect({{"one", {device("a")}}, {"two", {device("b")}}});
        const OpenCLPlatforms platforms = listOpenCLPlatforms();
        FakeCalls::fail("clGetDeviceIDs", -1, 1);
        std::vector<AmdOclCandidate> candidates;
        printedBy([&] { candidates = collectAmdOclCandidates(platforms); });
        QCOMPARE(candidates.size(), std::size_t(1));
        QCOMPARE(candidates[0].name, QString("b"));
    }

    // A platform keeps its number in the library's list.
    void nullEntries() {
        collect({{"one", {device("a")}}, {"two", {device("b")}}, {"three", {device("c"), device("d")}}});
        FakeOpenCL::leavePlatformNull(1);
        FakeOpenCL::leaveDeviceNull(0);
        std::vector<AmdOclCandidate> candidates;
        printed = printedBy([&] { candidates = collectAmdOclCandidates(listOpenCLPlatforms()); });
        QCOMPARE(printed, QByteArray("  OpenCL platform 0: one\n"
                                     "  OpenCL platform 2: three\n"
                                     "    OCL device 'd': no PCI bus info available, name-match only\n"));
        QCOMPARE(candidates.size(), std::size_t(1));
        QCOMPARE(candidates[0].device, FakeOpenCL::device(2, 1));
    }

    void byBus_data() {
        const auto row =
            testColumns<std::vector<AmdOclCandidate>, quint32, int>("candidates", "bus", "found");
        row("none", {}, 12, -1);
        row("equal", {onBus("a", 11), onBus("b", 12)}, 12, 1);
        row("the first of two", {onBus("a", 12), onBus("b", 12)}, 12, 0);
        row("other", {onBus("a", 11)}, 12, -1);
        row("signed", {onBus("a", -125)}, 0x83, 0);
        row("low byte of the candidate's", {onBus("a", 0x10C)}, 0x0C, 0);
        row("low byte of the GPU's", {onBus("a", 0x0C)}, 0x30C, 0);
        row("the highest bit of the byte", {onBus("a", 0)}, 0x80, -1);
        row("an unknown bus is not bus 0", {nameOnly("a")}, 0, -1);
        row("bus 0", {nameOnly("a"), onBus("b", 0)}, 0, 1);
    }

    void byBus() {
        QFETCH(std::vector<AmdOclCandidate>, candidates);
        QFETCH(quint32, bus);
        QTEST(place(candidates, findCandidateByBus(candidates, bus)), "found");
    }

    void byName_data() {
        const auto row =
            testColumns<QString, std::vector<AmdOclCandidate>, int>("gpu", "candidates", "found");
        row("the GPU's first six", "navi 21", {nameOnly("AMD Radeon navi 21 XT")}, 0);
        row("first six, at the start", "navi 21", {nameOnly("navi 22")}, 0);
        row("only five of the GPU's", "navi 21", {nameOnly("AMD Radeon navi XT")}, -1);
        row("upper and lower case", "NAVI 21", {nameOnly("amd NaVi 2")}, 0);
        row("the candidate's last six", "AMD Radeon fx1030 (navi)", {nameOnly("device gfx1030")}, 0);
        row("only five of the candidate's", "AMD Radeon x1030 (navi)", {nameOnly("device gfx1030")}, -1);
        row("last six, case", "amd radeon FX1030", {nameOnly("gFx1030")}, 0);
        row("neither", "AMD Radeon", {nameOnly("gfx1030")}, -1);
        row("short GPU name", "navi", {nameOnly("AMD Navi XT")}, 0);
        row("short candidate name", "AMD navi 21", {nameOnly("vi 2")}, 0);
        row("short candidate name, absent", "AMD navi 21", {nameOnly("xt")}, -1);
        row("empty candidate name", "AMD navi 21", {nameOnly("")}, 0);
        row("empty GPU name", "", {nameOnly("gfx1030")}, 0);
        row("both empty", "", {nameOnly("")}, 0);
        row("known bus, never", "navi 21", {onBus("navi 21", 12)}, -1);
        row("known bus skipped", "navi 21", {onBus("navi 21", 12), nameOnly("navi 21")}, 1);
        row("the first that matches", "navi 21",
            {nameOnly("vega 10"), nameOnly("navi 2x"), nameOnly("navi 21")}, 1);
        row("no pattern", "navi.*", {nameOnly("navi 21")}, -1);
        row("none", "navi 21", {}, -1);
    }

    void byName() {
        QFETCH(QString, gpu);
        QFETCH(std::vector<AmdOclCandidate>, candidates);
        QTEST(place(candidates, findCandidateByName(candidates, gpu)), "found");
    }

  private:
    std::vector<AmdOclCandidate> collect(const std::vector<FakeClPlatform>& platforms) {
        GpuOpenCL_Loader::unload();
        FakeLoader::reset();
        FakeOpenCL::install(platforms);
        GpuOpenCL_Loader::load(FakeLoader::functions());
        FakeCalls::reset();
        std::vector<AmdOclCandidate> candidates;
        printed = printedBy([&] { candidates = collectAmdOclCandidates(listOpenCLPlatforms()); });
        return candidates;
    }

    QByteArray printed;
};

QTEST_APPLESS_MAIN(TestAmdOclCandidate)
#include "test_AmdOclCandidate.moc"
