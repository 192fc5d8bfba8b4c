#include <QTest>

#include "doctor/Examination.h"
#include "doctor/Options.h"
#include "doctor/checks/registry.h"
#include "tests/unit/testRows.h"

using namespace doctor;

namespace {

ParsedOptions parsed(const QStringList& arguments) {
    return parseOptions(QStringList{"qzGpuDoctor"} + arguments);
}

QStringList idsOf(const std::vector<Check>& checks) {
    QStringList ids;
    for (const Check& check : checks)
        ids += check.id;
    return ids;
}

} // namespace

class TestDoctorOptions : public QObject {
    Q_OBJECT

  private slots:
    void usual() {
        const ParsedOptions none = parsed({});
        QCOMPARE(none.error, QString());
        QCOMPARE(none.options.form, Form::Text);
        QCOMPARE(none.options.timeoutSeconds, 30.0);
        QCOMPARE(none.options.readings, 1);
        QVERIFY(!none.options.wake && !none.options.withIdentifiers);
    }

    void all() {
        const ParsedOptions all = parsed({"--prometheus", "--output", "a file", "--only=opencl.,nvidia.start",
                                          "--skip", "opencl.icd", "--timeout", "2.5", "--user=render",
                                          "--wake", "--record", "-", "--readings=7", "--with-identifiers"});
        QCOMPARE(all.error, QString());
        QCOMPARE(all.options.form, Form::Prometheus);
        QCOMPARE(all.options.output, QString("a file"));
        QCOMPARE(all.options.only, QStringList({"opencl.", "nvidia.start"}));
        QCOMPARE(all.options.skip, QStringList("opencl.icd"));
        QCOMPARE(all.options.timeoutSeconds, 2.5);
        QCOMPARE(all.options.user, QString("render"));
        QCOMPARE(all.options.record, QString("-"));
        QCOMPARE(all.options.readings, 7);
        QVERIFY(all.options.wake && all.options.withIdentifiers);
    }

    void forms_data() {
        const auto row = testColumns<QString, int>("argument", "form");
        row("json", "--json", int(Form::Json));
        row("checks", "--checks", int(Form::Checks));
        row("help", "--help", int(Form::Help));
        row("h", "-h", int(Form::Help));
        row("version", "--version", int(Form::Version));
    }
    void forms() {
        QFETCH(QString, argument);
        QTEST(int(parsed({argument}).options.form), "form");
    }

    void wrong_data() {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("says");
        const auto row = [](const QString& arguments, const QString& says) {
            QTest::newRow(qPrintable(arguments)) << arguments.split(' ') << says;
        };
        row("--jsn", "jsn");
        row("machine", "'machine' is no option");
        row("--only opencl.icd,opencl.idc", "there is no check 'opencl.idc'");
        row("--only open", "there is no check 'open'");
        row("--only=", "empty");
        row("--skip .", "there is no check '.'");
        row("--only opencl --skip opencl.", "no check is left");
        row("--timeout 0", "--timeout");
        row("--timeout -1", "--timeout");
        row("--timeout nan", "--timeout");
        row("--timeout 3601", "--timeout");
        row("--timeout x", "--timeout");
        row("--timeout", "timeout");
        row("--readings 0", "--readings");
        row("--readings 1001", "--readings");
        row("--readings 1.5", "--readings");
        row("--json --prometheus", "exclude");
        row("--user=", "--user is empty");
        row("--output=", "--output is empty");
        row("--record=", "--record is empty");
    }
    void wrong() {
        QFETCH(QStringList, arguments);
        QFETCH(QString, says);
        const QString error = parsed(arguments).error;
        QVERIFY2(error.contains(says), qPrintable(error));
        QVERIFY(!error.endsWith('.'));
    }

    void selectors() {
        QCOMPARE(idsOf(chosenChecks({"pci"}, {})), QStringList({"pci.devices", "pci.drivers"}));
        QCOMPARE(idsOf(chosenChecks({"pci."}, {"pci.drivers"})), QStringList("pci.devices"));
        QCOMPARE(idsOf(chosenChecks({"pci.drivers", "system.shm"}, {})),
                 QStringList({"system.shm", "pci.drivers"}));
        QCOMPARE(idsOf(chosenChecks({}, {})).size(), int(checks().size()));
        QVERIFY(!idsOf(chosenChecks({}, {"nvidia"})).join(' ').contains("nvidia"));
        // A prefix ends at a dot.
        QCOMPARE(idsOf(chosenChecks({"nvidia.cuda"}, {})), QStringList("nvidia.cuda"));
    }

    void idsAreUniqueAndWellFormed() {
        QStringList ids = idsOf(checks());
        QCOMPARE(ids.removeDuplicates(), 0);
        static const QRegularExpression form("^[a-z]+\\.[a-zA-Z]+$");
        for (const QString& id : ids)
            QVERIFY2(form.match(id).hasMatch(), qPrintable(id));
        for (const Check& check : checks())
            QVERIFY2(checksText().contains(check.id) && checksText().contains(check.question), check.id);
    }

    void helpNamesEveryOption() {
        for (const char* option :
             {"--only IDS", "--skip IDS", "--checks", "--json", "--prometheus", "--output FILE",
              "--user NAME", "--timeout SECONDS", "--wake", "--record FILE", "--readings N",
              "--with-identifiers", "--help, -h", "--version"})
            QVERIFY2(helpText().contains(option), option);
    }
};

QTEST_APPLESS_MAIN(TestDoctorOptions)
#include "test_DoctorOptions.moc"
