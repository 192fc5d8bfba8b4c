#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

#include "doctor/facts/NvmlFacts.h"
#include "doctor/facts/OpenCLFacts.h"
#include "doctor/facts/PciFacts.h"
#include "doctor/facts/SystemFacts.h"
#include "doctor/facts/endingText.h"
#include "doctor/facts/json.h"
#include "tests/unit/DrmTree.h"

using namespace doctor;
using End = StepOutcome::End;

namespace {

struct Inner {
    QString text;
    template <class Visit>
    void walk(Visit visit) {
        visit("text", text);
    }
};

struct Outer {
    int number = 1;
    double real = 0.5;
    bool flag = false;
    QString text = "unset";
    QStringList texts;
    QVector<int> numbers;
    Inner inner;
    QVector<Inner> inners;
    template <class Visit>
    void walk(Visit visit) {
        visit("number", number);
        visit("real", real);
        visit("flag", flag);
        visit("text", text);
        visit("texts", texts);
        visit("numbers", numbers);
        visit("inner", inner);
        visit("inners", inners);
    }
};

StepOutcome ended(End end, int code, const QString& inside, const QByteArray& printed = {}) {
    StepOutcome outcome;
    outcome.end = end;
    outcome.code = code;
    outcome.inside = inside;
    outcome.messages.append({messageBegin, {{"call", inside}}});
    if (!printed.isEmpty())
        outcome.messages.append({messageOutput, {{"text", textOfBytes(printed)}}});
    return outcome;
}

} // namespace

class TestDoctorFacts : public QObject {
    Q_OBJECT

  private slots:
    void jsonAndBack() {
        Outer outer;
        outer.number = -7;
        outer.real = 1e-3;
        outer.flag = true;
        outer.text = QString::fromUtf8("ü\n\"");
        outer.texts = QStringList{"a", ""};
        outer.numbers = QVector<int>{3, 2, 1};
        outer.inner.text = "in";
        outer.inners = {Inner{"x"}, Inner{"y"}};
        const Outer back =
            fromJson<Outer>(QJsonDocument::fromJson(QJsonDocument(toJson(outer)).toJson()).object());
        QCOMPARE(back.number, -7);
        QCOMPARE(back.real, 1e-3);
        QVERIFY(back.flag);
        QCOMPARE(back.text, outer.text);
        QCOMPARE(back.texts, outer.texts);
        QCOMPARE(back.numbers, outer.numbers);
        QCOMPARE(back.inner.text, QString("in"));
        QCOMPARE(back.inners.size(), 2);
        QCOMPARE(back.inners[1].text, QString("y"));
        QCOMPARE(fromJson<Outer>(QJsonObject()).text, QString("unset"));
    }

    void bytesAsText() {
        QByteArray all;
        for (int byte = 0; byte < 256; ++byte)
            all += char(byte);
        QCOMPARE(bytesOfText(textOfBytes(all)), all);
    }

    void moduleVersion_data() {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QString>("version");
        QTest::newRow("closed")
            << QByteArray("NVRM version: NVIDIA UNIX x86_64 Kernel Module  550.54.14  Thu Feb 22 "
                          "01:44:30 UTC 2024\nGCC version:  gcc version 12.2.0 (Debian)\n")
            << "550.54.14";
        QTest::newRow("open")
            << QByteArray("NVRM version: NVIDIA UNIX Open Kernel Module for x86_64  570.86.10  Release "
                          "Build  (dvs-builder)\nGCC version: 13\n")
            << "570.86.10";
        QTest::newRow("two parts") << QByteArray(
                                          "NVRM version: NVIDIA UNIX x86_64 Kernel Module  390.157  Wed\n")
                                   << "390.157";
        QTest::newRow("none") << QByteArray("GCC version:  12.2.0 Kernel Module\n") << "";
        QTest::newRow("empty") << QByteArray() << "";
        QTest::newRow("second line does not count") << QByteArray("NVRM\nKernel Module  1.2  x\n") << "";
    }
    void moduleVersion() {
        QFETCH(QByteArray, text);
        QTEST(parseNvidiaModuleVersion(text), "version");
    }

    void memoryAvailable() {
        QCOMPARE(parseMemoryAvailable("MemTotal: 5 kB\nMemAvailable:    2048 kB\n"), 2.0);
        QCOMPARE(parseMemoryAvailable("MemTotal: 5 kB\n"), -1.0);
        QCOMPARE(parseMemoryAvailable(""), -1.0);
    }

    void osRelease() {
        const QByteArray text("NAME=x\nPRETTY_NAME=\"A System 1\"\nID=a\n");
        QCOMPARE(osReleaseValue(text, "PRETTY_NAME"), QString("A System 1"));
        QCOMPARE(osReleaseValue(text, "NAME"), QString("x"));
        QCOMPARE(osReleaseValue(text, "AME"), QString());
    }

    void wsl() {
        QVERIFY(isWsl("Linux version 5.15.146.1-microsoft-standard-WSL2 (root@)"));
        QVERIFY(!isWsl("Linux version 6.1.0-18-amd64 (debian-kernel@)"));
    }

    void container_data() {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("container");
        QTest::newRow("none") << "proc/1/environ" << QByteArray("HOME=/\0", 7) << "";
        QTest::newRow("environment") << "proc/1/environ" << QByteArray("HOME=/\0container=lxc\0", 21)
                                     << "lxc";
        QTest::newRow("docker") << ".dockerenv" << QByteArray() << "docker";
        QTest::newRow("podman") << "run/.containerenv" << QByteArray() << "podman";
        QTest::newRow("groups") << "proc/1/cgroup" << QByteArray("0::/kubepods/besteffort/pod1\n")
                                << "kubepods";
    }
    void container() {
        QFETCH(QString, file);
        QFETCH(QByteArray, bytes);
        const DrmTree tree;
        DrmTree::write(tree.filePath(file), bytes);
        QTEST(containerOf(Places{tree.filePath({})}), "container");
    }

    void pciDevices() {
        const DrmTree tree;
        const auto add = [&](const QString& address, const DrmFiles& files, const QString& driver) {
            const QString folder = tree.filePath("sys/bus/pci/devices/" + address);
            for (const auto& [name, bytes] : files)
                DrmTree::write(folder + "/" + name, bytes);
            if (!driver.isEmpty())
                QVERIFY(QFile::link("../../../../bus/pci/drivers/" + driver, folder + "/driver"));
        };
        add("0000:0c:00.0",
            {{"class", "0x030000\n"},
             {"vendor", "0x1002\n"},
             {"device", "0x744c\n"},
             {"power/runtime_status", "suspended\n"}},
            "amdgpu");
        add("0000:01:00.0",
            {{"class", "0x030200\n"},
             {"vendor", "0x10de\n"},
             {"device", "0x2684\n"},
             {"power/runtime_status", "active\n"}},
            "nvidia");
        add("0000:01:00.1", {{"class", "0x040300\n"}, {"vendor", "0x10de\n"}, {"device", "0x22ba\n"}},
            "snd_hda_intel");
        add("0001:81:00.0", {{"class", "0x120000\n"}, {"vendor", "0x1002\n"}, {"device", "0x74a1\n"}}, {});
        add("0000:02:00.0", {{"class", "0x020000\n"}, {"vendor", "0x8086\n"}}, "igb");
        add("0000:03:00.0", {}, {});
        const QVector<PciDevice> gpus = listPciGpus(Places{tree.filePath({})});
        QCOMPARE(gpus.size(), 3);
        QCOMPARE(gpus[0].address, QString("0000:01:00.0"));
        QCOMPARE(gpus[0].driver, QString("nvidia"));
        QCOMPARE(gpus[0].vendor, pciVendorNvidia);
        QCOMPARE(gpus[0].device, 0x2684U);
        QVERIFY(!gpus[0].isSuspended());
        QCOMPARE(gpus[1].address, QString("0000:0c:00.0"));
        QVERIFY(gpus[1].isSuspended());
        QCOMPARE(gpus[2].address, QString("0001:81:00.0"));
        QCOMPARE(gpus[2].driver, QString());
        QVERIFY(listPciGpus(Places{tree.filePath("nothing")}).isEmpty());
    }

    void pciAddresses() {
        QCOMPARE(pciAddress(0, 0xc, 0), QString("0000:0c:00.0"));
        QCOMPARE(pciAddress(0x10000, 0xff, 0x1f, 7), QString("10000:ff:1f.7"));
        // A bus as a lying driver may report it.
        QCOMPARE(pciAddress(0, 0x101, 0), QString("0000:01:00.0"));
        QCOMPARE(pciVendorName(0x10de), QString("NVIDIA"));
        QCOMPARE(pciVendorName(0x12), QString("vendor 0x0012"));
    }

    void icdFiles() {
        const DrmTree tree;
        const QString etc = tree.filePath("etc/OpenCL/vendors");
        DrmTree::write(etc + "/b.icd", "libb.so.1\nmore\n");
        DrmTree::write(etc + "/a.icd", "  /opt/liba.so \n");
        DrmTree::write(etc + "/empty.icd", "");
        DrmTree::write(etc + "/a.icd.off", "libx.so\n");
        const Places places{tree.filePath({})};
        const QVector<IcdFile> usual = listIcdFiles(places, {});
        QCOMPARE(usual.size(), 3);
        QCOMPARE(usual[0].path, etc + "/a.icd");
        QCOMPARE(usual[0].library, QString("/opt/liba.so"));
        QCOMPARE(usual[1].library, QString("libb.so.1"));
        QCOMPARE(usual[2].library, QString());
        DrmTree::write(tree.filePath("other/c.icd"), "libc.so\n");
        QCOMPARE(listIcdFiles(places, tree.filePath("other")).size(), 1);
        QCOMPARE(listIcdFiles(places, tree.filePath("other/c.icd")).value(0).library, QString("libc.so"));
        QVERIFY(listIcdFiles(places, tree.filePath("none")).isEmpty());
    }

    void endings_data() {
        QTest::addColumn<int>("end");
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("inside");
        QTest::addColumn<QByteArray>("printed");
        QTest::addColumn<QString>("text");
        const auto row = [](const char* name, End end, int code, const char* inside,
                            const QByteArray& printed, const char* text) {
            QTest::newRow(name) << int(end) << code << QString(inside) << printed << QString(text);
        };
        row("crash", End::Crashed, SIGSEGV, "clGetPlatformIDs", "",
            "crashes (SIGSEGV) when its platforms are listed (clGetPlatformIDs)");
        row("exit", End::Exited, 7, "open libX.so", "giving up\n",
            "ends the process (exit status 7) when libX.so is opened; it printed \"giving up\"");
        row("hang", End::TimedOut, 0, "nvmlInit_v2", " \n",
            "does not return within 2.5 s when it is initialised (nvmlInit_v2)");
        row("at exit", End::Crashed, SIGABRT, "exit", "", "crashes (SIGABRT) when the process ends");
        row("closing", End::Crashed, SIGBUS, "close libX.so", "", "crashes (SIGBUS) when libX.so is closed");
        row("reading", End::TimedOut, 0, "read /sys/a", "",
            "does not return within 2.5 s when /sys/a is read");
        row("other", End::Crashed, SIGFPE, "nvmlDeviceGetName", "", "crashes (SIGFPE) in nvmlDeviceGetName");
        row("outside", End::Crashed, SIGKILL, "", "", "crashes (SIGKILL)");
    }
    void endings() {
        QFETCH(int, end);
        QFETCH(int, code);
        QFETCH(QString, inside);
        QFETCH(QByteArray, printed);
        QTEST(endingText(ended(End(end), code, inside, printed), 2.5), "text");
    }

    void oneThatSurvives() {
        StepOutcome outcome = ended(End::TimedOut, 0, "nvmlInit_v2");
        outcome.survived = true;
        outcome.state = 'D';
        outcome.pid = 4711;
        QCOMPARE(endingText(outcome, 30),
                 QString("does not return within 30 s when it is initialised (nvmlInit_v2); process 4711 "
                         "can't be killed (state D) and was left"));
    }

    void longWordsAreCut() {
        QCOMPARE(quoted(QByteArray("a\n\tb\x1b")), QString("\"a b\x1b\""));
        QVERIFY(quoted(QByteArray(1000, 'x')).size() < 200);
    }

    void statusNames() {
        QCOMPARE(nvmlStatusName(15), QString("NVML_ERROR_GPU_IS_LOST (15)"));
        QCOMPARE(nvmlStatusName(77), QString("status 77"));
        QCOMPARE(cudaStatusName(35), QString("cudaErrorInsufficientDriver (35)"));
    }
};

QTEST_APPLESS_MAIN(TestDoctorFacts)
#include "test_DoctorFacts.moc"
