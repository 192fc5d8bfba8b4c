// The lines of a [faults] section.
#include <cerrno>

#include <QTest>

#include "simulator/lib/Fault.h"

using namespace qzsim;

namespace {

Fault parse(const QByteArray& line) {
    return parseFault(parseEntry(line.toStdString(), Place{"f", 1}));
}

} // namespace

class TestSimulatorFault : public QObject {
    Q_OBJECT

  private slots:
    void calls_data() {
        QTest::addColumn<QByteArray>("line");
        QTest::addColumn<QList<bool>>("struck"); // calls 1 to 4
        QTest::newRow("always") << QByteArray("clFinish = fail -5") << QList<bool>{true, true, true, true};
        QTest::newRow("at") << QByteArray("clFinish = fail -5 at 2")
                            << QList<bool>{false, true, false, false};
        QTest::newRow("from") << QByteArray("clFinish = fail -5 from 3")
                              << QList<bool>{false, false, true, true};
        QTest::newRow("until") << QByteArray("clFinish = fail -5 until 2")
                               << QList<bool>{true, true, false, false};
        QTest::newRow("from until") << QByteArray("clFinish = fail -5 from 2 until 3")
                                    << QList<bool>{false, true, true, false};
    }

    void calls() {
        QFETCH(QByteArray, line);
        QFETCH(QList<bool>, struck);
        const Fault fault = parse(line);
        QCOMPARE(qint64{fault.number}, qint64{-5});
        for (int call = 1; call <= 4; ++call)
            QCOMPARE(fault.strikesAt(static_cast<std::uint64_t>(call)), struck[call - 1]);
    }

    void device() {
        const Fault fault = parse("nvmlDeviceGetName#2 = fail 15");
        QVERIFY(fault.concerns("nvmlDeviceGetName", 2));
        QVERIFY(!fault.concerns("nvmlDeviceGetName", 1));
        QVERIFY(!fault.concerns("nvmlDeviceGetTemperature", 2));
        QVERIFY(parse("nvmlDeviceGetName = fail 15").concerns("nvmlDeviceGetName", 7));
    }

    void forms() {
        QCOMPARE(parse("clGetPlatformInfo = answer \"a b\\n\"").text, std::string("a b\n"));
        QVERIFY(parse("libOpenCL.so.1 = absent").action == Action::Absent);
        QVERIFY(parse("clFinish = signal 6").action == Action::Signal);
        QCOMPARE(parse("card0/gpu_busy_percent = answer \"many\\n\" at 2").text, std::string("many\n"));
        QVERIFY(parse("libOpenCL.so = text-file").action == Action::TextFile);
        QVERIFY(parse("cuInit = fork 50").action == Action::Fork);
        QVERIFY(parse("libcuda.so.1 = spawn 50").action == Action::Spawn);
        QCOMPARE(parse("libOpenCL.so.1 = omit clFinish").text, std::string("clFinish"));
        QCOMPARE(parse("libcudart.so.12 = crash-at-exit").target, std::string("libcudart.so.12"));
        const Fault file = parse("card0/hwmon/hwmon1/temp1_input = fail EBUSY from 2");
        QCOMPARE(file.target, std::string("/sys/class/drm/card0/device/hwmon/hwmon1/temp1_input"));
        QCOMPARE(file.number, std::int64_t{EBUSY});
        QVERIFY(parse("/sys/class/drm/card0/device/vendor = refuse EACCES").action == Action::Refuse);
    }

    void errors_data() {
        QTest::addColumn<QByteArray>("line");
        QTest::addColumn<QByteArray>("said");
        const auto row = [](const char* line, const char* said) {
            QTest::newRow(line) << QByteArray(line) << QByteArray("f:1: ") + said;
        };
        row("nvmlFoo = fail 1", "neither a function, a library nor a file: nvmlFoo");
        row("clFinish = explode", "not something that can happen to clFinish: explode");
        row("clFinish =", "not something that can happen to clFinish: ");
        row("clFinish = absent", "not something that can happen to clFinish: absent");
        row("libOpenCL.so.1 = fail 1", "not something that can happen to libOpenCL.so.1: fail 1");
        row("card0/vendor = crash",
            "not something that can happen to /sys/class/drm/card0/device/vendor: crash");
        row("clFinish = fail", "\"fail\" needs an argument");
        row("clFinish = fail x", "not a number that can be used here: x");
        row("clFinish = delay -1", "not a number that can be used here: -1");
        row("clFinish = fail -5 at", "a word too many or too few: fail -5 at");
        row("clFinish = crash now please", "calls are counted from 1: please");
        row("clFinish = fail -5 at 0", "calls are counted from 1: 0");
        row("clFinish = fail -5 after 2", "neither \"at\", \"from\" nor \"until\": after");
        row("clFinish = fail -5 from 3 until 2",
            "the last call comes before the first: fail -5 from 3 until 2");
        row("nvmlDeviceGetName#x = fail 1", "not a device number: nvmlDeviceGetName#x");
        row("card0/vendor = spawn 1",
            "not something that can happen to /sys/class/drm/card0/device/vendor: spawn 1");
        row("libOpenCL.so.1#1 = absent", "only a function's fault can be one device's: libOpenCL.so.1#1");
        row("libOpenCL.so.1 = omit cuInit", "libOpenCL.so.1 has no function cuInit");
        row("card0/vendor = fail ENONSENSE", "not an errno: ENONSENSE");
        row("clFinish = print \"\\z\"", "invalid escape sequence: \"\\z\"");
    }

    void errors() {
        QFETCH(QByteArray, line);
        QFETCH(QByteArray, said);
        try {
            parse(line);
            QFAIL("taken for a fault");
        } catch (const DescriptionError& error) {
            QCOMPARE(QByteArray(error.what()), said);
        }
    }
};

QTEST_APPLESS_MAIN(TestSimulatorFault)
#include "test_SimulatorFault.moc"
