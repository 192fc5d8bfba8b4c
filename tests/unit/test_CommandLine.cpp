#include <QTest>

#include "app/CommandLine.h"
#include "tests/unit/testRows.h"

namespace {

CommandLine parsed(const QByteArrayList& arguments) {
    QVector<const char*> vector{"qzGpuInfo"};
    for (const QByteArray& argument : arguments)
        vector << argument.constData();
    return parseCommandLine(vector.size(), vector.constData());
}

/// The names of the options that are set, in the record's order.
QByteArrayList set(const CommandLine& line) {
    QByteArrayList names;
    const auto add = [&names](bool flag, const char* name) {
        if (flag)
            names << name;
    };
    add(line.noArguments, "noArguments");
    add(line.benchmark, "benchmark");
    add(line.shortBenchmark, "shortBenchmark");
    add(line.single, "single");
    add(line.verbose, "verbose");
    add(line.queryNvCuda, "queryNvCuda");
    add(line.queryNvOptix, "queryNvOptix");
    add(line.queryAmdRt, "queryAmdRt");
    add(line.queryGPU, "queryGPU");
    add(line.returnGPS, "returnGPS");
    if (line.watchesProcess)
        names << "watches '" + QByteArray(line.watchedProcess.c_str()) + "'";
    return names;
}

} // namespace

class TestCommandLine : public QObject {
    Q_OBJECT

  private slots:
    void arguments_data() {
        const auto row = testColumns<QByteArrayList, QByteArrayList>("arguments", "flags");
        row("none", {}, {"noArguments"});
        row("-bench", {"-bench"}, {"benchmark"});
        row("-benchShort", {"-benchShort"}, {"benchmark", "shortBenchmark"});
        row("-v", {"-v"}, {"verbose"});
        row("-debug", {"-debug"}, {"verbose"});
        row("-single", {"-single"}, {"single"});
        row("-queryNvCuda", {"-queryNvCuda"}, {"queryNvCuda"});
        row("-queryNvOptix", {"-queryNvOptix"}, {"queryNvOptix"});
        row("-queryAmdRt", {"-queryAmdRt"}, {"queryAmdRt"});
        row("-queryGPU", {"-queryGPU"}, {"queryGPU"});
        row("-returnGPS", {"-returnGPS"}, {"returnGPS"});
        row("both benchmarks", {"-bench", "-benchShort"}, {"benchmark", "shortBenchmark"});
        row("both benchmarks, swapped", {"-benchShort", "-bench"}, {"benchmark", "shortBenchmark"});
        row("twice", {"-v", "-debug", "-v"}, {"verbose"});
        row("all",
            {"-returnGPS", "-queryGPU", "-queryAmdRt", "-queryNvOptix", "-queryNvCuda", "-single", "-debug",
             "-v", "-benchShort", "-bench"},
            {"benchmark", "shortBenchmark", "single", "verbose", "queryNvCuda", "queryNvOptix", "queryAmdRt",
             "queryGPU", "returnGPS"});

        row("name", {"render"}, {"watches 'render'"});
        row("name, then options", {"render", "-v", "-single"}, {"single", "verbose", "watches 'render'"});
        row("options, then name", {"-v", "render"}, {"verbose", "watches 'render'"});
        row("two names", {"render", "other"}, {"watches 'render'"});
        row("empty name", {""}, {"watches ''"});
        row("empty name is a name", {"", "other", "-v"}, {"verbose", "watches ''"});
        row("an option without its dash", {"single"}, {"watches 'single'"});
        row("a blank before the dash", {" -v"}, {"watches ' -v'"});
        row("name of 100 bytes", {QByteArray(100, 'n')}, {"watches '" + QByteArray(100, 'n') + "'"});
        row("name of 10,000 bytes", {QByteArray(10000, 'n')}, {"watches '" + QByteArray(100, 'n') + "'"});
        row("name in UTF-8", {"Gr\xc3\xbcn"}, {"watches 'Gr\xc3\xbcn'"});

        row("99 bytes", {'-' + QByteArray(98, 'x')}, {});
        row("100 bytes", {'-' + QByteArray(99, 'x')}, {});
        row("101 bytes", {'-' + QByteArray(100, 'x')}, {});
        row("10,000 bytes", {'-' + QByteArray(9999, 'x')}, {});
        row("option and 10,000 bytes more", {"-single" + QByteArray(10000, ' ')}, {});
        row("unknown ones around a known one", {"-a", "-v", "--", "-b"}, {"verbose"});
        row("a dash", {"-"}, {});
        row("help", {"-h", "--help", "-?"}, {});
    }

    void arguments() {
        QFETCH(QByteArrayList, arguments);
        QFETCH(QByteArrayList, flags);
        QCOMPARE(set(parsed(arguments)), flags);
    }

    /// Only the exact text is an option.
    void variant_data() {
        QTest::addColumn<QByteArray>("argument");
        for (const char* text : {"-bench", "-benchShort", "-v", "-debug", "-single", "-queryNvCuda",
                                 "-queryNvOptix", "-queryAmdRt", "-queryGPU", "-returnGPS"}) {
            const QByteArray option(text);
            const auto row = [&option](const char* kind, const QByteArray& argument) {
                QTest::newRow((option + ", " + kind).constData()) << argument;
            };
            row("longer", option + 'x');
            row("shorter", option.size() > 2 ? option.chopped(1) : QByteArray("-"));
            row("second dash", '-' + option);
            row("with a blank", option + ' ');
            row("with a value", option + "=1");
            row("upper case", option.toUpper());
            row("first letter's case", "-" + option.mid(1, 1).toUpper() + option.mid(2));
            if (option.toLower() != option)
                row("lower case", option.toLower());
        }
    }

    void variant() {
        QFETCH(QByteArray, argument);
        QCOMPARE(set(parsed({argument})), QByteArrayList());
        QCOMPARE(set(parsed({"name", argument})), QByteArrayList{"watches 'name'"});
    }

    void withoutAnyArgumentVector() {
        const char* const terminator = nullptr;
        QCOMPARE(set(parseCommandLine(0, &terminator)), QByteArrayList{"noArguments"});
        QCOMPARE(set(parseCommandLine(0, nullptr)), QByteArrayList{"noArguments"});
    }

    void theProgramsOwnNameIsNoArgument() {
        const char* const vector[] = {"-v", "-single", nullptr};
        QCOMPARE(set(parseCommandLine(2, vector)), QByteArrayList{"single"});
    }

    void run_data() {
        QTest::addColumn<QByteArrayList>("arguments");
        QTest::addColumn<bool>("single");
        QTest::addColumn<bool>("benchmark");
        const auto row = [](const QByteArrayList& arguments, bool single, bool benchmark) {
            QTest::newRow(arguments.isEmpty() ? "none" : arguments.join(' ').constData())
                << arguments << single << benchmark;
        };
        row({}, false, false);
        row({"-v"}, false, false);
        row({"-bench"}, false, true);
        row({"-benchShort"}, false, true);
        row({"-single"}, true, false);
        row({"-single", "-bench"}, true, true);
        row({"-single", "-benchShort"}, true, true);
        row({"-returnGPS"}, true, true);
        for (const char* query : {"-queryNvCuda", "-queryNvOptix", "-queryAmdRt", "-queryGPU"}) {
            row({query}, true, false);
            row({query, "-bench"}, true, false);
            row({query, "-benchShort"}, true, false);
            row({query, "-returnGPS"}, true, true);
            row({query, "-single", "-bench"}, true, false);
        }
    }

    void run() {
        QFETCH(QByteArrayList, arguments);
        QFETCH(bool, single);
        QFETCH(bool, benchmark);
        const CommandLine line = parsed(arguments);
        QCOMPARE(line.isSingleRun(), single);
        QCOMPARE(line.runsBenchmark(), benchmark);
    }
};

QTEST_APPLESS_MAIN(TestCommandLine)
#include "test_CommandLine.moc"
