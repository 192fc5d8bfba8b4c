// The command line of qzGpuStatus: what each argument sets, and what is refused.
#include <QTest>

#include "reader/status/Options.h"
#include "tests/unit/testRows.h"

using namespace qzstatus;

namespace {

/// The arguments are separated by blanks; "''" is an empty one.
ParsedOptions parse(const QByteArray& line) {
    QList<QByteArray> arguments = line.isEmpty() ? QList<QByteArray>() : line.split(' ');
    std::vector<std::string_view> views;
    for (const QByteArray& argument : std::as_const(arguments))
        views.emplace_back(argument == "''" ? "" : argument.constData());
    return parseOptions(views);
}

} // namespace

class TestOptions : public QObject {
    Q_OBJECT

  private slots:
    void forms_data() {
        QTest::addColumn<int>("form");
        const auto row = [](const char* line, Form form) { QTest::newRow(line) << static_cast<int>(form); };
        row("", Form::Table);
        row("--json", Form::Json);
        row("--json --json", Form::Json);
        row("--prometheus", Form::Prometheus);
        row("--features", Form::Features);
        row("--watch", Form::Watch);
        row("--watch --watch", Form::Watch);
        row("--help", Form::Help);
        row("-h", Form::Help);
        row("--version", Form::Version);
    }
    void forms() {
        const ParsedOptions parsed = parse(QTest::currentDataTag());
        QCOMPARE(parsed.error, std::string());
        QTEST(static_cast<int>(parsed.options.form), "form");
        QCOMPARE(parsed.options.directory, std::string("/dev/shm"));
        QCOMPARE(parsed.options.output, std::string());
        QCOMPARE(parsed.options.waitSeconds, 0.0);
        QCOMPARE(parsed.options.watchSeconds, 2.0);
        QVERIFY(!parsed.options.maxAgeSeconds);
        QVERIFY(!parsed.options.owner);
    }

    void user() {
        for (const char* line : {"--user root", "--user=root", "--user no-such-user --user root"}) {
            const ParsedOptions parsed = parse(line);
            QCOMPARE(parsed.error, std::string());
            QCOMPARE(parsed.options.owner.value_or(1), uid_t{0});
        }
        QCOMPARE(parse("--user no-such-user").error, std::string("--user: unknown user 'no-such-user'"));
    }

    void seconds_data() {
        // maxAge: /< -1: none
        const auto row = testColumns<double, double, double>("wait", "watch", "maxAge");
        row("--wait 5", 5, 2, -1);
        row("--wait=0.25", 0.25, 2, -1);
        row("--wait 5. --max-age .5", 5, 2, 0.5);
        row("--max-age 0", 0, 2, 0);
        row("--max-age 1000000000", 0, 2, 1e9);
        row("--watch 0.1", 0, 0.1, -1);
        row("--watch=3600", 0, 3600, -1);
        row("--watch --wait 7", 7, 2, -1);
        row("--wait 1 --wait 2 --max-age 3 --max-age 4 --watch 5 --watch 6", 2, 6, 4);
    }
    void seconds() {
        const ParsedOptions parsed = parse(QTest::currentDataTag());
        QCOMPARE(parsed.error, std::string());
        QTEST(parsed.options.waitSeconds, "wait");
        QTEST(parsed.options.watchSeconds, "watch");
        QTEST(parsed.options.maxAgeSeconds.value_or(-1), "maxAge");
    }

    void texts_data() {
        const auto row = testColumns<QByteArray>("text");
        for (const char* text :
             {"a", "--json", "[a,b]", "{}", "\"q\"", "'q'", "\\x41", "%%", "a=b", "\xff\n\x1b["})
            row(QByteArray(text).toHex(), QByteArray(text));
    }
    /// A name is taken as it is, whatever it looks like.
    void texts() {
        QFETCH(QByteArray, text);
        for (const char* form : {"--output ", "--directory "}) {
            const ParsedOptions parsed = parse(form + text);
            QCOMPARE(parsed.error, std::string());
            QCOMPARE(*form == '-' && form[2] == 'o' ? parsed.options.output : parsed.options.directory,
                     text.toStdString());
        }
        const ParsedOptions parsed = parse("--directory=" + text + " --output=" + text);
        QCOMPARE(parsed.options.directory, text.toStdString());
        QCOMPARE(parsed.options.output, text.toStdString());
    }

    void refused_data() {
        const auto row = testColumns<QByteArray>("line");
        for (const char* line : {"--nonsense",
                                 "plain",
                                 "''",
                                 "-",
                                 "--",
                                 "---",
                                 "--=x",
                                 "++",
                                 "-j",
                                 "-hx",
                                 "/h",
                                 "--no-json",
                                 "--JSON",
                                 "--jso",
                                 "--json=yes",
                                 "--json=false",
                                 "--json=",
                                 "--json yes",
                                 "--wait",
                                 "--wait=",
                                 "--wait -1",
                                 "--wait +1",
                                 "--wait 1e3",
                                 "--wait nan",
                                 "--wait inf",
                                 "--wait 0x1",
                                 "--wait .",
                                 "--wait 1.2.3",
                                 "--wait 1_0",
                                 "--wait 1'0",
                                 "--wait {}",
                                 "--wait ''",
                                 "--wait 1000000001",
                                 "--wait 000000000000000000001",
                                 "--max-age old",
                                 "--max-age",
                                 "--watch 0",
                                 "--watch=0.05",
                                 "--watch=soon",
                                 "--watch soon",
                                 "--watch=",
                                 "--watch ''",
                                 "--watch --",
                                 "--watch 1 2",
                                 "--output",
                                 "--output ''",
                                 "--output=",
                                 "--output= x",
                                 "--user",
                                 "--user ''",
                                 "--user=",
                                 "--user 0",
                                 "--features=yes",
                                 "--directory",
                                 "--directory ''",
                                 "--directory=",
                                 "--watch --output x",
                                 "--output x --watch 3"})
            row(line, QByteArray(line));
        const char* const forms[] = {"--json",  "--prometheus", "--features",
                                     "--watch", "--help",       "--version"};
        for (const char* first : forms)
            for (const char* second : forms)
                if (first != second)
                    QTest::addRow("%s %s", first, second) << QByteArray(first) + " " + second;
    }
    void refused() {
        QFETCH(QByteArray, line);
        QVERIFY(!parse(line).error.empty());
    }
};

QTEST_GUILESS_MAIN(TestOptions)
#include "test_Options.moc"
