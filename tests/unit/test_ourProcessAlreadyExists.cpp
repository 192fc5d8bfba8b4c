#include <cstring>

#include <pthread.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include "ChildProcess.h"
#include "ProcTree.h"
#include "support/ourProcessAlreadyExists.h"
#include "tests/unit/testRows.h"

namespace {

bool exists(const char* name, const ProcTree& tree, qint64* pid = nullptr) {
    return ourProcessAlreadyExists(name, true, true, pid, tree.root().constData());
}

/// Gives this program the watched name.
constexpr char waitForInput[] = "--wait-for-input";

/// A name that nothing else on the machine has.
QByteArray uniqueName(const char* end) {
    return "qz" + QByteArray::number(getpid()) + end;
}

} // namespace

class TestOurProcessAlreadyExists : public QObject {
    Q_OBJECT

  private slots:
    void found_data() {
        const auto row = testColumns<QByteArray, QByteArray, QByteArray, QByteArray, bool>(
            "name", "comm", "exe", "cmdline", "expected");
        const QByteArray other("other\0", 6);
        row("by command name", "render", "render", "/x/other", other, true);
        row("by executable", "render", "other", "/x/render", other, true);
        row("by deleted executable", "render", "other", "/x/render (deleted)", other, true);
        row("an executable with the mark as its name", "render (deleted)", "other", "/x/render (deleted)",
            other, true);
        row("by argv[0]", "render", "other", "/x/other", QByteArray("/y/render\0-v\0", 13), true);
        row("by none", "render", "other", "/x/other", other, false);
        row("argv[1] of another program", "render", "vi", "/bin/vi", QByteArray("vi\0render\0", 10), false);
        row("long name by executable", "render-manager-gtk", "render-manager-", "/x/render-manager-gtk",
            other, true);
        row("long name, namesake of 15 characters", "render-manager-gtk", "render-manager-",
            "/x/render-manager-qt", other, false);
        row("15 bytes, cut from a longer name", "render-manager-", "render-manager-", "/x/render-manager-gtk",
            other, false);
        row("15 bytes by executable", "render-manager1", "render-manager1", "/x/render-manager1", other,
            true);
        row("15 bytes by argv[0]", "render-manager1", "render-manager1", "/usr/bin/python3",
            QByteArray("render-manager1\0", 16), true);
        row("15 bytes by script", "render-manag.py", "render-manag.py", "/bin/sh",
            QByteArray("/bin/sh\0./render-manag.py\0", 26), true);
        row("15 bytes, a title's own", "render-manager1", "render-manager1", "/usr/bin/python3", other,
            false);
        row("15 bytes, unreadable executable, another title", "render-manager1", "render-manager1", "",
            QByteArray("render: idle\0", 13), true);
        row("long name, unreadable executable, another title", "render-manager-gtk", "render-manager-", "",
            QByteArray("render: idle\0", 13), true);
        row("long name, unreadable executable, another command", "render-manager-gtk", "render-manage", "",
            other, false);
        row("script", "render-manager.py", "render-manager.", "/usr/bin/python3",
            QByteArray("/usr/bin/python3\0/x/render-manager.py\0", 38), true);
        row("script of another end", "render-manager.py", "render-manager.", "/usr/bin/python3",
            QByteArray("/usr/bin/python3\0/x/render-manager.sh\0", 38), false);
        row("no executable, no arguments", "kthreadd", "kthreadd", "", "", true);
        row("other case", "Render", "render", "/x/render", QByteArray("render\0", 7), false);
        row("brackets and blanks", "a) Z (b", "a) Z (b", "", "", true);
        row("name of 25 bytes is a beginning", "abcdefghijklmnopqrstuvwxy", "abcdefghijklmno",
            "/x/abcdefghijklmnopqrstuvwxyz-and-more", "", true);
        row("name of 24 bytes is not", "abcdefghijklmnopqrstuvwx", "abcdefghijklmno",
            "/x/abcdefghijklmnopqrstuvwxyz", "", false);
        row("name beyond 25 bytes", "abcdefghijklmnopqrstuvwxyz0", "abcdefghijklmno",
            "/x/abcdefghijklmnopqrstuvwxyz0", "", true);
        row("path of more than 25 bytes", "/opt/some/directory/with/render", "render",
            "/opt/some/directory/with/render", "", true);
        row("name with a slash", "/opt/render", "other", "/usr/bin/render", "", true);
        row("empty name", "", "", "/x/other", "", false);
        row("the name of every directory", ".", "other", "/x/other", other, false);
        row("name of slashes", "//", "other", "/x/", QByteArray("/\0", 2), false);
    }

    void found() {
        QFETCH(QByteArray, name);
        QFETCH(QByteArray, comm);
        QFETCH(QByteArray, exe);
        QFETCH(QByteArray, cmdline);
        QFETCH(bool, expected);
        const ProcTree tree;
        tree.addProcess(4711, comm, exe, cmdline);
        qint64 pid = -5;
        QCOMPARE(exists(name.constData(), tree, &pid), expected);
        QCOMPARE(pid, qint64(expected ? 4711 : 0));
        // And once more, with the match remembered.
        QCOMPARE(exists(name.constData(), tree, &pid), expected);
        QCOMPARE(pid, qint64(expected ? 4711 : 0));
    }

    void caseFlag() {
        const ProcTree tree;
        tree.addProcess(4711, "Render", "", "");
        QVERIFY(!ourProcessAlreadyExists("rENDER", true, true, nullptr, tree.root().constData()));
        QVERIFY(ourProcessAlreadyExists("rENDER", false, true, nullptr, tree.root().constData()));
        QVERIFY(!ourProcessAlreadyExists("rENDER", true, true, nullptr, tree.root().constData()));
    }

    void zombieDoesNotCount() {
        const ProcTree tree;
        tree.addProcess(4711, "render", "/x/render", "", 'Z');
        QVERIFY(!exists("render", tree));
        tree.addProcess(4712, "render", "", "");
        QVERIFY(exists("render", tree));
        tree.addProcess(4712, "render", "", "", 'Z');
        QVERIFY(!exists("render", tree));
    }

    void mainThreadAloneHasEnded() {
        const ProcTree tree;
        tree.addProcess(4711, "render", "", "", 'Z', 2);
        QVERIFY(exists("render", tree));
        tree.addProcess(4711, "render", "", "", 'Z', 1);
        QVERIFY(!exists("render", tree));
    }

    /// The kernel's own view of such a process.
    void mainThreadAloneHasEndedForReal() {
        const QByteArray name = uniqueName("-led");
        const ChildProcess process([&name] {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            prctl(PR_SET_NAME, name.constData());
            pthread_t other = 0;
            const auto idle = [](void*) -> void* {
                for (;;)
                    pause();
            };
            if (pthread_create(&other, nullptr, idle, nullptr) != 0)
                return 1;
            // Not through the thread library, which would run the test's clean-up.
            return static_cast<int>(syscall(SYS_exit, 0));
        });
        const QString stat = QStringLiteral("/proc/%1/stat").arg(process.id());
        const auto isLedByNobody = [&stat] {
            QFile file(stat);
            return file.open(QIODevice::ReadOnly) && file.readAll().contains(") Z ");
        };
        QTRY_VERIFY(isLedByNobody());
        QVERIFY(ourProcessAlreadyExists(name.constData(), true, true));
        process.kill();
        QTRY_VERIFY(!ourProcessAlreadyExists(name.constData(), true, true));
    }

    void callerIsLeftOutOnRequest() {
        const ProcTree tree;
        tree.addProcess(getpid(), "render", "", "");
        qint64 pid = 0;
        QVERIFY(!exists("render", tree));
        QVERIFY(ourProcessAlreadyExists("render", true, false, &pid, tree.root().constData()));
        QCOMPARE(pid, qint64(getpid()));
        QVERIFY(!exists("render", tree));
        tree.addProcess(getpid() + 1, "render", "", "");
        QVERIFY(exists("render", tree, &pid));
        QCOMPARE(pid, qint64(getpid() + 1));
    }

    void judgedByWhatCanBeRead() {
        const ProcTree tree;
        tree.addProcess(4711, "render", "/x/program", QByteArray("/y/title\0", 9));
        tree.removeEntry(4711, "stat");
        QVERIFY(exists("render", tree));
        QVERIFY(exists("program", tree));
        QVERIFY(exists("title", tree));
        tree.removeEntry(4711, "comm");
        QVERIFY(!exists("render", tree));
        QVERIFY(exists("program", tree));
        tree.removeEntry(4711, "exe");
        QVERIFY(!exists("program", tree));
        QVERIFY(exists("title", tree));
        tree.removeEntry(4711, "cmdline");
        QVERIFY(!exists("title", tree));
    }

    void entriesThatAreNoFiles() {
        const ProcTree tree;
        QVERIFY(QDir().mkpath(tree.path(4711) + QStringLiteral("/stat")));
        QVERIFY(QDir().mkpath(tree.path(4711) + QStringLiteral("/exe")));
        QVERIFY(mkfifo(QFile::encodeName(tree.path(4711) + QStringLiteral("/cmdline")).constData(), 0600) ==
                0);
        QVERIFY(!exists("render", tree));
        tree.addProcess(4712, "render", "", "");
        QVERIFY(exists("render", tree));
    }

    void otherEntriesAreNoProcesses() {
        const ProcTree tree;
        for (const char* name : {"self", "0", "-7", "99999999999999", "12x"}) {
            const QString path = QFile::decodeName(tree.root()) + QLatin1Char('/') + QLatin1String(name);
            QVERIFY(QDir().mkpath(path));
            QFile comm(path + QStringLiteral("/comm"));
            QVERIFY(comm.open(QIODevice::WriteOnly) && comm.write("render\n") > 0);
        }
        QVERIFY(!exists("render", tree));
    }

    void gone() {
        const ProcTree tree;
        tree.addProcess(4711, "render", "", "");
        QVERIFY(exists("render", tree));
        tree.remove(4711);
        QVERIFY(!exists("render", tree));
    }

    void numberGivenAnew() {
        const ProcTree tree;
        tree.addProcess(4711, "render", "", "");
        QVERIFY(exists("render", tree));
        tree.addProcess(4711, "other", "", "");
        QVERIFY(!exists("render", tree));
        tree.addProcess(4712, "render", "", "");
        qint64 pid = 0;
        QVERIFY(exists("render", tree, &pid));
        QCOMPARE(pid, qint64(4712));
    }

    void severalOfOneName() {
        const ProcTree tree;
        tree.addProcess(4711, "render", "", "");
        tree.addProcess(4712, "render", "", "");
        qint64 first = 0;
        qint64 second = 0;
        QVERIFY(exists("render", tree, &first));
        tree.remove(int(first));
        QVERIFY(exists("render", tree, &second));
        QCOMPARE(first + second, qint64(4711 + 4712));
    }

    void rememberedMatchNeedsNoList() {
        const ProcTree tree;
        tree.addProcess(4711, "render", "", "");
        chmod(tree.root().constData(), 0755);
        Signpost asked;
        Signpost unlistable;
        ChildProcess child([&] {
            // Root may list every directory.
            if (geteuid() == 0 && setuid(65534) != 0)
                return 2;
            qint64 first = 0;
            qint64 second = 0;
            qint64 other = -5;
            exists("render", tree, &first);
            asked.give();
            unlistable.await();
            exists("render", tree, &second);
            const bool guessed = exists("other", tree, &other);
            return first == 4711 && second == 4711 && guessed && other == 0 ? 0 : 1;
        });
        QVERIFY(asked.await());
        chmod(tree.root().constData(), 0311);
        unlistable.give();
        const int result = child.result();
        chmod(tree.root().constData(), 0700);
        QCOMPARE(result, 0);
    }

    void absenceIsClaimedOnlyWhereItWasSeen() {
        qint64 pid = -5;
        QVERIFY(ourProcessAlreadyExists("render", true, true, &pid, "/nonexistent/proc"));
        QCOMPARE(pid, qint64(0));
        const QTemporaryDir unmounted;
        QVERIFY(ourProcessAlreadyExists("render", true, true, &pid,
                                        QFile::encodeName(unmounted.path()).constData()));
        QCOMPARE(pid, qint64(0));
        QVERIFY(!ourProcessAlreadyExists("", true, true, nullptr, "/nonexistent/proc"));
    }

    void withoutDescriptors_data() {
        const auto row = testColumns<int>("left");
        row("none for the list", 0);
        row("none for an entry", 1);
    }

    void withoutDescriptors() {
        QFETCH(int, left);
        ChildProcess child([left] {
            const int next = dup(0);
            close(next);
            const auto limit = rlim_t(next + left);
            const struct rlimit few{limit, limit};
            if (setrlimit(RLIMIT_NOFILE, &few) != 0)
                return 2;
            qint64 pid = -5;
            const bool found = ourProcessAlreadyExists("no-such-process", true, true, &pid);
            return found && pid == 0 ? 0 : 1;
        });
        QCOMPARE(child.result(), 0);
        QVERIFY(!ourProcessAlreadyExists("no-such-process", true, true));
    }

    void realProcessByCommandName() {
        const QByteArray name = uniqueName("c");
        Signpost ready;
        QVERIFY(!ourProcessAlreadyExists(name.constData(), true, true));
        ChildProcess child([&] {
            prctl(PR_SET_NAME, name.constData());
            ready.give();
            pause();
            return 0;
        });
        QVERIFY(ready.await());
        qint64 pid = 0;
        QVERIFY(ourProcessAlreadyExists(name.constData(), true, true, &pid));
        QCOMPARE(pid, qint64(child.id()));
        QVERIFY(ourProcessAlreadyExists(name.constData(), true, true));
        child.kill();
        // A zombie until it is collected.
        QTRY_VERIFY(!ourProcessAlreadyExists(name.constData(), true, true));
        child.result();
        QVERIFY(!ourProcessAlreadyExists(name.constData(), true, true));
    }

    void realExecutable_data() {
        const auto row = testColumns<QByteArray, bool, bool>("end", "script", "removed");
        row("executable of 30 characters", "-a-name-of-many-characters", false, false);
        row("executable of 20 characters", "-a-longer-one", false, false);
        row("removed executable", "-a-removed-one", false, true);
        row("script", "-a-longer-script", true, false);
        row("short script", "-s.py", true, false);
    }

    void realExecutable() {
        QFETCH(QByteArray, end);
        QFETCH(bool, script);
        QFETCH(bool, removed);
        const QTemporaryDir directory;
        const QByteArray name = uniqueName(end.constData());
        const QByteArray path = QFile::encodeName(directory.path()) + '/' + name;
        const QString file = QFile::decodeName(path);
        if (script) {
            QFile text(file);
            QVERIFY(text.open(QIODevice::WriteOnly) && text.write("#!/bin/sh\nread x\n") > 0);
        } else {
            QVERIFY(QFile::copy(QStringLiteral("/proc/self/exe"), file));
        }
        QVERIFY(QFile::setPermissions(file, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
        int input[2] = {-1, -1};
        QVERIFY(pipe2(input, O_CLOEXEC) == 0);
        ChildProcess child([&] {
            dup2(input[0], 0);
            execl(path.constData(), script ? path.constData() : "another-title", waitForInput, nullptr);
            return 1;
        });
        qint64 pid = 0;
        QTRY_VERIFY(ourProcessAlreadyExists(name.constData(), true, true, &pid));
        QCOMPARE(pid, qint64(child.id()));
        if (removed) {
            QVERIFY(QFile::remove(file));
            QVERIFY(ourProcessAlreadyExists(name.constData(), true, true));
        }
        child.kill();
        child.result();
        QVERIFY(!ourProcessAlreadyExists(name.constData(), true, true));
        close(input[0]);
        close(input[1]);
    }

    void leavesNoDescriptorOpen() {
        const QStringList before = QDir(QStringLiteral("/proc/self/fd")).entryList();
        ourProcessAlreadyExists("no-such-process", true, true);
        QCOMPARE(QDir(QStringLiteral("/proc/self/fd")).entryList(), before);
    }
};

int main(int argc, char** argv) {
    char byte = 0;
    if (argc == 2 && std::strcmp(argv[1], waitForInput) == 0)
        return read(0, &byte, 1) < 0 ? 1 : 0;
    TestOurProcessAlreadyExists tests;
    return QTest::qExec(&tests, argc, argv);
}

#include "test_ourProcessAlreadyExists.moc"
