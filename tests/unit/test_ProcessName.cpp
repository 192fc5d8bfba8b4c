#include <QTest>

#include "support/ProcessName.h"
#include "tests/unit/testRows.h"

namespace {

std::string_view viewOf(const QByteArray& bytes) {
    return {bytes.constData(), std::size_t(bytes.size())};
}

} // namespace

class TestProcessName : public QObject {
    Q_OBJECT

  private slots:
    void program_data() {
        const auto row = testColumns<QByteArray, bool, QByteArray, bool>("name", "cut", "program", "matches");
        row("equal", "render", false, "render", true);
        row("base name of a path", "render", false, "/opt/tool/render", true);
        row("a directory of that name", "render", false, "/opt/render/client", false);
        row("longer", "render", false, "/opt/renderer", false);
        row("shorter", "render", false, "/opt/rende", false);
        row("inside", "render", false, "/opt/prerender", false);
        row("other case", "render", false, "/opt/Render", false);
        row("no program", "render", false, "", false);
        row("trailing slash", "render", false, "/opt/render/", false);
        row("name with a slash", "/opt/tool/render", false, "render", true);
        row("name with a slash, other directory", "/opt/tool/render", false, "/usr/bin/render", true);
        row("empty name, empty program", "", false, "", false);
        row("name ends in a slash", "render/", false, "/opt/", false);
        row("cut: beginning", "a-render-client-of-25-byte", true, "/opt/a-render-client-of-25-bytes-or-more",
            true);
        row("cut: equal", "a-render-client-of-25-byte", true, "a-render-client-of-25-byte", true);
        row("cut: too short", "a-render-client-of-25-byte", true, "a-render-client-of-25-byt", false);
        row("cut: not at the beginning", "render", true, "prerender", false);
        row("cut in the base name", "/opt/tool/render-cl", true, "/usr/bin/render-client", true);
        row("cut in a directory", "/opt/tool/direct", true, "/opt/tool/directory/render", true);
        row("cut after a directory", "/opt/tool/directory/", true, "/opt/tool/directory/render", true);
        row("cut after a directory, other path", "/opt/tool/directory/", true, "/opt/tool/render", false);
        row("cut after a directory, no path", "/opt/tool/directory/", true, "", false);
        row("cut without a slash, path", "opt", true, "optical/render", false);
    }

    void program() {
        QFETCH(QByteArray, name);
        QFETCH(bool, cut);
        QFETCH(QByteArray, program);
        QFETCH(bool, matches);
        QCOMPARE(ProcessName(viewOf(name), cut, true).isProgram(viewOf(program)), matches);
    }

    void command_data() {
        const auto row = testColumns<QByteArray, bool, QByteArray, bool>("name", "cut", "comm", "matches");
        row("equal", "render", false, "render", true);
        row("14 bytes", "fourteen-bytes", false, "fourteen-bytes", true);
        row("15 bytes may be the beginning of more", "fifteen-letters", false, "fifteen-letters", false);
        row("a longer name isn't decided by its beginning", "fifteen-letters-x", false, "fifteen-letters",
            false);
        row("with a slash", "/opt/render", false, "render", true);
        row("a command with a slash is no path", "render", false, "kworker/render", false);
        row("empty", "render", false, "", false);
        row("cut, with a slash", "/opt/some/directory/rende", true, "render", true);
        row("cut after a slash", "/opt/some/directory/rend/", true, "render", false);
    }

    void command() {
        QFETCH(QByteArray, name);
        QFETCH(bool, cut);
        QFETCH(QByteArray, comm);
        QFETCH(bool, matches);
        QCOMPARE(ProcessName(viewOf(name), cut, true).isCommand(viewOf(comm)), matches);
    }

    void cutCommand_data() {
        const auto row = testColumns<QByteArray, bool, QByteArray, bool>("name", "cut", "comm", "matches");
        row("15 bytes", "fifteen-letters", false, "fifteen-letters", true);
        row("more", "fifteen-letters-x", false, "fifteen-letters", true);
        row("more, in a directory", "/opt/fifteen-letters-x", false, "fifteen-letters", true);
        row("a beginning of 25 bytes", "fifteen-letters-and-more-", true, "fifteen-letters", true);
        row("another name", "fifteen-letters", false, "fifteen-letterz", false);
        row("a whole command name", "fifteen-letters", false, "fifteen-letter", false);
        row("a kernel thread's", "fifteen-letters-x", false, "fifteen-letters-", false);
        row("14 bytes are never cut", "fourteen-bytes", false, "fourteen-bytes", false);
        row("empty", "", false, "", false);
    }

    void cutCommand() {
        QFETCH(QByteArray, name);
        QFETCH(bool, cut);
        QFETCH(QByteArray, comm);
        QFETCH(bool, matches);
        QCOMPARE(ProcessName(viewOf(name), cut, true).mayBeCutCommand(viewOf(comm)), matches);
    }

    void script_data() {
        const auto row = testColumns<QByteArray, bool, QByteArray, QByteArray, bool>("name", "cut", "comm",
                                                                                     "argument", "matches");
        row("script", "render-manager.py", false, "render-manager.", "/opt/tool/render-manager.py", true);
        row("another script with that beginning", "render-manager.py", false, "render-manager.",
            "render-manager.sh", false);
        row("an argument of another program", "render-manager.py", false, "python3", "render-manager.py",
            false);
        row("no command name", "render-manager.py", false, "", "render-manager.py", false);
        row("a short name is the command's", "render.py", false, "render", "render.py", false);
        row("15 bytes", "render-mngr.py1", false, "render-mngr.py1", "/x/render-mngr.py1", true);
        row("15 bytes, whole command name", "render-mngr.py1", false, "render-mngr.py", "render-mngr.py1",
            false);
        row("no argument", "render-manager.py", false, "render-manager.", "", false);
        row("cut name", "render-manager-of-the-fa", true, "render-manager-",
            "/opt/render-manager-of-the-farm.py", true);
        row("cut in a directory", "/opt/tool/some/directory/", true, "render.py",
            "/opt/tool/some/directory/render.py", true);
        row("cut in a directory, a program's argument", "/opt/tool/some/directory/", true, "cat",
            "/opt/tool/some/directory/render.py", false);
    }

    void script() {
        QFETCH(QByteArray, name);
        QFETCH(bool, cut);
        QFETCH(QByteArray, comm);
        QFETCH(QByteArray, argument);
        QFETCH(bool, matches);
        QCOMPARE(ProcessName(viewOf(name), cut, true).isScript(viewOf(comm), viewOf(argument)), matches);
    }

    void caseOfLetters() {
        const ProcessName name("Render\xc3\xa4[", false, false);
        QVERIFY(name.isCommand("rENDER\xc3\xa4["));
        QVERIFY(name.isProgram("/opt/RENDER\xc3\xa4["));
        QVERIFY(!name.isCommand("render\xc3\x84[")); // letters beyond A to Z are as they are
        QVERIFY(!name.isCommand("render\xc3\xa4{")); // and so are the bytes beside the letters
        QVERIFY(ProcessName("Fifteen-Letters-X", false, false).mayBeCutCommand("fIFTEEN-lETTERS"));
        QVERIFY(ProcessName("AZaz@`", false, false).isCommand("azAZ@`"));
        QVERIFY(!ProcessName("@", false, false).isCommand("`"));
    }

    void usable() {
        QVERIFY(ProcessName("render", false, true).isUsable());
        QVERIFY(ProcessName("/opt/tool/", true, true).isUsable());
        QVERIFY(!ProcessName("/opt/tool/", false, true).isUsable());
        QVERIFY(!ProcessName("", false, true).isUsable());
    }
};

QTEST_APPLESS_MAIN(TestProcessName)
#include "test_ProcessName.moc"
