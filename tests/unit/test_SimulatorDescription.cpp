// What a machine's description may say, and the one line that reports where it is wrong.
#include <cerrno>

#include <QTest>

#include "simulator/lib/Machine.h"

using namespace qzsim;

namespace {

Machine parse(const QByteArray& text) {
    return parseMachine(text.toStdString(), "file");
}

QByteArray complaint(const QByteArray& text) {
    try {
        parse(text);
    } catch (const DescriptionError& error) {
        return error.what();
    }
    return "none";
}

const SysfsFile* fileOf(const Machine& machine, const std::string& path) {
    for (const SysfsFile& file : machine.cards.at(0).files)
        if (file.path == path)
            return &file;
    return nullptr;
}

} // namespace

class TestSimulatorDescription : public QObject {
    Q_OBJECT

  private slots:
    void figure_data() {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QList<qint64>>("readings");
        QTest::newRow("one number stays") << QByteArray("45") << QList<qint64>{45, 45, 45};
        QTest::newRow("a list's last stays") << QByteArray("1, 2") << QList<qint64>{1, 2, 2, 2};
        QTest::newRow("a list starts over") << QByteArray("1, 2, ...") << QList<qint64>{1, 2, 1, 2};
        QTest::newRow("cycle") << QByteArray("cycle") << QList<qint64>{1, 2, 3};
        QTest::newRow("cycle of a size") << QByteArray("cycle 1MiB") << QList<qint64>{1048576, 2097152};
        QTest::newRow("hexadecimal") << QByteArray("0x1F") << QList<qint64>{31};
        QTest::newRow("sizes") << QByteArray("1KiB, 3GiB") << QList<qint64>{1024, 3221225472};
    }

    void figure() {
        QFETCH(QByteArray, text);
        QFETCH(QList<qint64>, readings);
        const auto figure = Figure::parse(text.toStdString());
        QVERIFY(figure.has_value());
        for (int i = 0; i < readings.size(); ++i)
            QCOMPARE(qint64{figure->at(static_cast<std::uint64_t>(i) + 1)}, readings[i]);
    }

    void cycleStart() {
        QCOMPARE(Figure::parse("cycle 10")->at(2, 1000), std::int64_t{10020});
        QCOMPARE(Figure::parse("7")->at(2, 1000), std::int64_t{7});
    }

    void noFigure() {
        for (const char* text : {"", "x", "1,,2", "1 2", "cycle 0", "cycle x", "cycle 1 2", "0x", "--1",
                                 "...", "9223372036854775808", "8796093022208MiB"})
            QVERIFY2(!Figure::parse(text).has_value(), text);
    }

    void errors_data() {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QByteArray>("said");
        const auto row = [](const char* name, const char* text, const char* said) {
            QTest::newRow(name) << QByteArray(text) << QByteArray(said);
        };
        row("unknown section", "\n[gpu]\n", "file:2: there is no section [gpu]");
        row("unknown key", "[nvidia]\n# a comment\nbuss = 1\n", "file:3: [nvidia] has no key buss");
        row("key twice", "[nvidia]\nbus = 1\nbus = 2\n", "file:3: duplicate key in this section: bus");
        row("line before a section", "bus = 1\n", "file:1: a line before the first section");
        row("no key", "[nvidia]\nbus\n", "file:2: neither a section, a comment nor \"key = value\": bus");
        row("open bracket", "[nvidia\n", "file:1: the section's closing bracket is missing");
        row("empty section name", "[]\n", "file:1: a section without a name");
        row("bus too large", "[nvidia]\nbus = 0x100000000\n",
            "file:2: bus must lie between 0 and 4294967295: 0x100000000");
        row("bus negative", "[nvidia]\nbus = -1\n", "file:2: bus must lie between 0 and 4294967295: -1");
        row("bus no number", "[nvidia]\nbus = one\n", "file:2: bus must be a number: one");
        row("count too large", "[nvidia]\ncount = 65\n", "file:2: count must lie between 1 and 64: 65");
        row("count too small", "[nvidia]\ncount = 0\n", "file:2: count must lie between 1 and 64: 0");
        row("figure", "[nvidia]\ntemperature = hot\n",
            "file:2: temperature must be a number, a list of them or \"cycle\": hot");
        row("figure too large", "[nvidia]\ntemperature = 1, 4294967296\n",
            "file:2: temperature must lie between 0 and 4294967295: 1, 4294967296");
        row("flag", "[nvidia]\nhandle = maybe\n", "file:2: handle must be yes or no: maybe");
        row("compute", "[nvidia]\ncompute = 8\n", "file:2: compute must be MAJOR.MINOR or none: 8");
        row("escape", "[nvidia]\nname = \"\\q\"\n", "file:2: invalid escape sequence: \"\\q\"");
        row("short escape", "[nvidia]\nname = \"\\x1\"\n", "file:2: invalid escape sequence: \"\\x1\"");
        row("device without platform", "[device]\n", "file:1: a [device] comes after its [platform]");
        row("device type", "[platform]\n[device]\ntype = tpu\n",
            "file:2: a device's type is gpu, cpu or accelerator: tpu");
        row("attribute", "[platform]\n[device]\nnv_bus = no\n",
            "file:3: nv_bus must be a number or \"refused [CODE]\": no");
        row("mode", "[opencl]\nmode = fast\n", "file:1: mode must be pocl or scripted: fast");
        row("stretch", "[opencl]\nstretch = 0.5\n",
            "file:2: stretch must be a number between 1.000000 and 1000.000000: 0.5");
        row("share", "[opencl]\nshare = 1.5\n",
            "file:2: share must be a number between 0.000000 and 1.000000: 1.5");
        row("results", "[opencl]\nresults = a\n", "file:2: results must be numbers: a");
        row("runtime", "[libraries]\ncudart = 10\n", "file:1: a CUDA runtime is 11, 12 or 13: 10");
        row("library", "[libraries]\nnvml = libcuda.so.1\n",
            "file:1: neither \"none\" nor a name of libnvidia-ml.so.1: libcuda.so.1");
        row("card without a name", "[card]\n", "file:1: a card needs its name: [card card0]");
        row("card with a path", "[card a/b]\n", "file:1: a card needs its name: [card card0]");
        row("address with a path", "[card card0]\naddress = a/b\n",
            "file:1: an address is one name of a folder: a/b");
        row("kind of file", "[card card0]\nlabel = @gone\n", "file:2: not a kind of file: @gone");
        row("errno", "[card card0]\nlabel = @fails EWHAT\n", "file:2: @fails needs an errno: @fails EWHAT");
        row("misspelt file", "[card card0]\nvendr = 1\n", "file:2: [card] has no key vendr");
        row("monitor that is not there", "[card card0]\nhwmon = hwmon1\nhwmon2/temp1_input = 1\n",
            "file:3: [card] has no key hwmon2/temp1_input");
        row("file above the device", "[card card0]\n./a/../../b = 1\n",
            "file:2: not a file below the device: ./a/../../b");
        row("file without a name", "[card card0]\nhwmon = hwmon1\nhwmon1/ = 1\n",
            "file:3: not a file below the device: hwmon1/");
        row("device entry", "[card card0]\ndevice_entry = x\n",
            "file:1: device_entry must be link, directory, dangling or missing: x");
        row("os-release", "[os-release]\nid = a\nmissing = yes\n",
            "file:1: [os-release] has one of text, id and \"missing = yes\"");
        row("expectation", "[expected]\nquery = queryGPU\n", "file:2: [expected] has no key query");
        row("fault", "[faults]\nnvmlFoo = fail 1\n",
            "file:2: neither a function, a library nor a file: nvmlFoo");
    }

    void errors() {
        QFETCH(QByteArray, text);
        QFETCH(QByteArray, said);
        QCOMPARE(complaint(text), said);
    }

    void unreadable() {
        for (const char* path : {"/nonexistent", "/"})
            try {
                readMachine(path);
                QFAIL(path);
            } catch (const DescriptionError& error) {
                QCOMPARE(QByteArray(error.what()), QByteArray(path) + ":0: the description cannot be read");
            }
    }

    void repetition() {
        const Machine machine =
            parse("[nvidia]\ncount = 3\nname = G{i}\nbus = 0xfe\ncompute = 7.5\n"
                  "[card card9]\ncount = 2\naddress = 0000:0f:00.0\nlabel = L{i}\n"
                  "product_name = \"\\x7bi}\"\n[platform]\n[device]\ncount = 2\nnv_bus = 5\n");
        QCOMPARE(machine.nvmlGpus.size(), std::size_t{3});
        QCOMPARE(machine.nvmlGpus[2].name, std::string("G2"));
        QCOMPARE(machine.nvmlGpus[2].pci.bus, 0x100u);
        QCOMPARE(machine.cudaDevices.size(), std::size_t{3});
        QCOMPARE(machine.cudaDevices[2].compute.minor, 5);
        QCOMPARE(machine.cards.at(1).name, std::string("card10"));
        QCOMPARE(machine.cards.at(1).address, std::string("0000:10:00.0"));
        QCOMPARE(machine.cards.at(1).files.at(1).bytes, std::string("L1\n"));
        QCOMPARE(machine.cards.at(1).files.at(0).bytes, std::string("{i}"));
        const auto& devices = machine.openCl.platforms.at(0).devices;
        QCOMPARE(*devices.at(1).nvBus.value, 6u);
        QCOMPARE(devices.at(1).index, 1);
        QVERIFY(!devices.at(1).amdBus.value.has_value());
    }

    void cudaDevicesOfTheirOwn() {
        const Machine machine = parse("[nvidia]\ncompute = 8.9\n[cuda-device]\nbus = 9\nseen_by = driver\n");
        QCOMPARE(machine.cudaDevices.size(), std::size_t{1});
        QCOMPARE(machine.cudaDevices[0].pci.bus, 9u);
        QVERIFY(machine.cudaDevices[0].inDriver);
        QVERIFY(!machine.cudaDevices[0].inRuntime);
    }

    void libraries_data() {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QStringList>("links");
        QTest::newRow("nothing") << QByteArray("[machine]\n") << QStringList{};
        QTest::newRow("NVIDIA") << QByteArray("[nvidia]\n")
                                << QStringList{"libnvidia-ml.so.1", "libcudart.so.12", "libcuda.so.1"};
        QTest::newRow("OpenCL") << QByteArray("[opencl]\n") << QStringList{"libOpenCL.so.1"};
        QTest::newRow("chosen")
            << QByteArray("[nvidia]\n[platform]\n[libraries]\nnvml = libnvidia-ml.so\ncudart = 13, 11\n"
                          "cudart_plain = 12\ncuda = no\nopencl = libOpenCL.so\n")
            << QStringList{"libnvidia-ml.so", "libcudart.so.13", "libcudart.so.11.0", "libcudart.so",
                           "libOpenCL.so"};
        QTest::newRow("none of them")
            << QByteArray("[nvidia]\n[platform]\n[libraries]\nnvml = none\ncudart = none\ncuda = no\n"
                          "opencl = none\n")
            << QStringList{};
    }

    void libraries() {
        QFETCH(QByteArray, text);
        QFETCH(QStringList, links);
        QStringList found;
        for (const LibraryLink& library : parse(text).libraries)
            found << QString::fromStdString(library.link);
        QCOMPARE(found, links);
    }

    void cardFiles() {
        const Machine machine = parse("[card card0]\nvendor = 0x1002\nproduct_name = \"a\\x00b\\xff\\n\"\n"
                                      "label =\nmem_info_vram_total = 2000MiB\nmem_info_vram_used = 1, 2\n"
                                      "gpu_busy_percent = @fails EBUSY\nhwmon = hwmon2, hwmon5\n"
                                      "hwmon5/temp1_input = @dangling\nhwmon5/power1_average = 1, 2\n"
                                      "./power/state = D0\nconnectors = DP-1\n");
        QCOMPARE(fileOf(machine, "vendor")->bytes, std::string("0x1002\n"));
        QCOMPARE(fileOf(machine, "product_name")->bytes, std::string("a\0b\xff\n", 5));
        QCOMPARE(fileOf(machine, "label")->bytes, std::string());
        QCOMPARE(fileOf(machine, "mem_info_vram_total")->bytes, std::string("2097152000\n"));
        QVERIFY(fileOf(machine, "mem_info_vram_used")->kind == SysfsFile::Kind::Changing);
        QVERIFY(fileOf(machine, "gpu_busy_percent")->kind == SysfsFile::Kind::Fails);
        QCOMPARE(fileOf(machine, "gpu_busy_percent")->errorNumber, EBUSY);
        QVERIFY(fileOf(machine, "hwmon/hwmon5/temp1_input")->kind == SysfsFile::Kind::Dangling);
        QVERIFY(fileOf(machine, "hwmon/hwmon5/power1_average")->kind == SysfsFile::Kind::Changing);
        QCOMPARE(fileOf(machine, "power/state")->bytes, std::string("D0\n"));
        QCOMPARE(machine.cards[0].hwmonDirs.size(), std::size_t{2});
    }

    void osRelease() {
        QCOMPARE(*parse("[machine]\n").osRelease, std::string("PRETTY_NAME=\"Simulated\"\nID=debian\n"));
        QCOMPARE(*parse("[os-release]\ntext = \"ID=x\"\n").osRelease, std::string("ID=x"));
        QVERIFY(parse("[os-release]\nid = rocky\n").osRelease->find("\nID=rocky\n") != std::string::npos);
        QVERIFY(!parse("[os-release]\nmissing = yes\n").osRelease.has_value());
    }
};

QTEST_APPLESS_MAIN(TestSimulatorDescription)
#include "test_SimulatorDescription.moc"
