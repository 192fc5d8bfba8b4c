#include <QFile>
#include <QTest>

#include "support/procEntry.h"
#include "tests/unit/testRows.h"

namespace {

QByteArray bytesOf(std::string_view view) {
    return QByteArray(view.data(), int(view.size()));
}

std::string_view viewOf(const QByteArray& bytes) {
    return {bytes.constData(), std::size_t(bytes.size())};
}

const QByteArray words(" 1 4711 4711 0 -1 4194560 1253 0 0 0 3 1 0 0 20 0 1 0 88213 8503296 1024\n");

} // namespace

class TestProcEntry : public QObject {
    Q_OBJECT

  private slots:
    void stat_data() {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<bool>("understood");
        QTest::addColumn<QByteArray>("comm");
        QTest::addColumn<char>("state");
        QTest::addColumn<quint64>("startTime");
        const auto name = [](const char* comm, const QByteArray& text, char state = 'S') {
            QTest::newRow(comm) << "4711 (" + text + ") " + state + words << true << text << state
                                << quint64(88213);
        };
        name("plain", "render");
        name("zombie", "render", 'Z');
        name("blanks", "a render farm");
        name("brackets", "(render)");
        name("closing bracket", "render) Z 1");
        name("pretends to be dead", "x) Z 1 4711 4711 0 -1 1 1 0 0 0 3 1 0 0 20 0 1 0 5 (");
        name("line end", "ren\nder");
        name("only brackets", ")))(((");
        name("empty name", "");
        name("bytes above 0x7f", "\xff\xfe\x80");
        QTest::newRow("NUL in the name")
            << QByteArray("1 (a\0b) S", 9) + words << true << QByteArray("a\0b", 3) << 'S' << quint64(88213);
        const auto rest = [](const char* row, const QByteArray& bytes, char state, quint64 startTime) {
            QTest::newRow(row) << bytes << true << QByteArray("r") << state << startTime;
        };
        rest("ends at the state", "1 (r) S", 'S', 0);
        rest("ends before the start time", "1 (r) S 1 2 3", 'S', 0);
        rest("ends with the start time", "1 (r) D 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20 21 22", 'D',
             22);
        rest("start time of 21 digits",
             "1 (r) S 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20 21 " + QByteArray(21, '9'), 'S', 0);
        rest("largest start time",
             "1 (r) S 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20 21 18446744073709551615", 'S',
             std::numeric_limits<quint64>::max());
        rest("start time not a number", "1 (r) S 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20 21 7x", 'S', 0);
        for (const char* broken : {"", "4711", "4711 (render", "4711 render) S", ")(", "1 (r)", "1 (r) ",
                                   "1 (r) SS 1", "1 (r)\n", "(", ")"})
            QTest::addRow("broken: '%s'", broken)
                << QByteArray(broken) << false << QByteArray() << '?' << quint64(0);
    }

    void stat() {
        QFETCH(QByteArray, bytes);
        QFETCH(bool, understood);
        QFETCH(QByteArray, comm);
        QFETCH(char, state);
        QFETCH(quint64, startTime);
        ProcStat stat;
        QCOMPARE(parseProcStat(viewOf(bytes), stat), understood);
        QCOMPARE(bytesOf(stat.comm), comm);
        QCOMPARE(stat.state, state);
        QCOMPARE(stat.startTime, startTime);
    }

    void statOfThisProcess() {
        QFile file(QStringLiteral("/proc/self/stat"));
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QByteArray bytes = file.readAll();
        ProcStat stat;
        QVERIFY(parseProcStat(viewOf(bytes), stat));
        QCOMPARE(bytesOf(stat.comm), QByteArray("test_procEntry"));
        QCOMPARE(stat.state, 'R');
        QVERIFY(stat.startTime > 0);
        QVERIFY(stat.threads >= 1);
    }

    void threads_data() {
        const auto row = testColumns<QByteArray, int>("bytes", "threads");
        const QByteArray before("1 (r) S 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 ");
        row("one of many words", before + "20 21 22 23 24", 20);
        row("last word", before + "7", 7);
        row("not reported", before, 0);
        row("not a number", before + "many", 0);
    }

    void threads() {
        QFETCH(QByteArray, bytes);
        ProcStat stat;
        QVERIFY(parseProcStat(viewOf(bytes), stat));
        QTEST(stat.threads, "threads");
    }

    void dead_data() {
        QTest::addColumn<char>("state");
        QTest::addColumn<int>("threads");
        QTest::addColumn<bool>("dead");
        const auto row = [](char state, int threads, bool dead) {
            QTest::addRow("%c of %d threads", state, threads) << state << threads << dead;
        };
        for (const char state : {'R', 'S', 'D', 'T', 't', 'I', 'P', '?'})
            row(state, 1, false);
        for (const char state : {'Z', 'X', 'x'}) {
            row(state, 0, true);
            row(state, 1, true);
        }
        row('Z', 2, false); // the main thread alone has ended
        row('X', 2, true);
    }

    void dead() {
        QFETCH(char, state);
        QFETCH(int, threads);
        ProcStat stat;
        stat.state = state;
        stat.threads = threads;
        QTEST(stat.isDead(), "dead");
    }

    void cmdline_data() {
        const auto row = testColumns<QByteArray, QByteArray, QByteArray>("bytes", "program", "first");
        row("kernel thread", QByteArray(), "", "");
        row("program alone", QByteArray("render\0", 7), "render", "");
        row("with arguments", QByteArray("/usr/bin/python3\0render\0-v\0", 27), "/usr/bin/python3", "render");
        row("empty program", QByteArray("\0render\0", 8), "", "render");
        row("empty first argument", QByteArray("render\0\0-v\0", 11), "render", "");
        row("not terminated", QByteArray("a title: that was set"), "a title: that was set", "");
        row("first argument not terminated", QByteArray("a\0b", 3), "a", "b");
        row("NULs alone", QByteArray(5, '\0'), "", "");
    }

    void cmdline() {
        QFETCH(QByteArray, bytes);
        QFETCH(QByteArray, program);
        QFETCH(QByteArray, first);
        const ProcArguments arguments = parseProcCmdline(viewOf(bytes));
        QCOMPARE(bytesOf(arguments.program), program);
        QCOMPARE(bytesOf(arguments.first), first);
    }

    void comm() {
        QCOMPARE(bytesOf(parseProcComm("render\n")), QByteArray("render"));
        QCOMPARE(bytesOf(parseProcComm("render")), QByteArray("render"));
        QCOMPARE(bytesOf(parseProcComm("a\n\n")), QByteArray("a\n"));
        QCOMPARE(bytesOf(parseProcComm("")), QByteArray(""));
    }

    void deletedMark() {
        QCOMPARE(bytesOf(withoutDeletedMark("/usr/bin/render")), QByteArray("/usr/bin/render"));
        QCOMPARE(bytesOf(withoutDeletedMark("/usr/bin/render (deleted)")), QByteArray("/usr/bin/render"));
        QCOMPARE(bytesOf(withoutDeletedMark("/r (deleted) (deleted)")), QByteArray("/r (deleted)"));
        QCOMPARE(bytesOf(withoutDeletedMark("/usr/bin/render(deleted)")),
                 QByteArray("/usr/bin/render(deleted)"));
        QCOMPARE(bytesOf(withoutDeletedMark("")), QByteArray(""));
    }

    void pid_data() {
        const auto row = testColumns<QByteArray, int>("entry", "pid");
        row("one", "1", 1);
        row("many digits", "4194304", 4194304);
        row("largest", "2147483647", 2147483647);
        for (const char* other : {"", "0", "007", "-1", "+1", "self", "12x", "x12", " 12", "2147483648",
                                  "99999999999999999999", "."})
            QTest::addRow("'%s'", other) << QByteArray(other) << 0;
    }

    void pid() {
        QFETCH(QByteArray, entry);
        QFETCH(int, pid);
        QCOMPARE(parseProcPid(viewOf(entry)), pid);
    }

    void base() {
        QCOMPARE(bytesOf(baseName("/usr/bin/render")), QByteArray("render"));
        QCOMPARE(bytesOf(baseName("render")), QByteArray("render"));
        QCOMPARE(bytesOf(baseName("bin/")), QByteArray(""));
        QCOMPARE(bytesOf(baseName("")), QByteArray(""));
    }
};

QTEST_APPLESS_MAIN(TestProcEntry)
#include "test_procEntry.moc"
