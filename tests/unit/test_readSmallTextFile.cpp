#include <cerrno>
#include <csignal>
#include <optional>
#include <vector>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include "support/readSmallTextFile.h"
#include "tests/unit/testRows.h"

namespace {

using SystemCall = decltype(__ptrace_syscall_info::entry);

/// The system calls that a child process makes in `action`, which is enclosed by two calls of `getppid`;
/// nothing if it can't be traced.
template <class Action>
std::optional<std::vector<SystemCall>> systemCallsOf(Action action) {
    const pid_t child = fork();
    if (child == 0) {
        if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0)
            _exit(1);
        raise(SIGSTOP);
        getppid();
        action();
        getppid();
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (!WIFSTOPPED(status))
        return std::nullopt;
    ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
    int marks = 0;
    std::vector<SystemCall> calls;
    while (ptrace(PTRACE_SYSCALL, child, nullptr, nullptr) == 0) {
        waitpid(child, &status, 0);
        if (!WIFSTOPPED(status))
            break;
        if (WSTOPSIG(status) != (SIGTRAP | 0x80))
            continue;
        __ptrace_syscall_info info{};
        ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof info, &info);
        if (info.op != PTRACE_SYSCALL_INFO_ENTRY)
            continue;
        if (info.entry.nr == SYS_getppid)
            ++marks;
        else if (marks == 1)
            calls.push_back(info.entry);
    }
    return marks == 2 ? std::optional(calls) : std::nullopt;
}

} // namespace

const TextFileReader standardReader = textFileReader;

class TestReadSmallTextFile : public QObject {
    Q_OBJECT

  private slots:
    void content_data() {
        const auto row = testColumns<QByteArray>("bytes");
        row("a value", "0x1002\n");
        row("no line end", "37");
        row("a line end only", "\n");
        row("carriage returns", "a\r\nb\r\n");
        row("carriage returns alone", "a\rb\r\r\n");
        row("NUL bytes", QByteArray("a\0b\0\n", 5));
        row("every byte", [] {
            QByteArray bytes;
            for (int value = 0; value < 256; ++value)
                bytes.append(static_cast<char>(value));
            return bytes;
        }());
        row("4095", QByteArray(4095, 'x'));
        row("4096", QByteArray(4096, 'x'));
        row("4097", QByteArray(4097, 'x'));
        row("64 KiB", QByteArray(65536, 'x'));
    }

    // The bytes are those of Qt's own text mode.
    void content() {
        QFETCH(QByteArray, bytes);
        QFile file(write(bytes));
        QVERIFY(file.open(QIODevice::ReadOnly | QIODevice::Text));
        QCOMPARE(readSmallTextFile(file.fileName()), file.readAll());
    }

    void notAFile_data() {
        const auto row = testColumns<QString>("path");
        row("missing", path("missing"));
        row("empty", path("empty"));
        row("directory", directory.path());
        row("dangling link", path("dangling"));
        row("link to itself", path("loop"));
        row("no name", QString());
        row("below a file", path("empty") + "/vendor");
        QVERIFY(QFile(path("empty")).open(QIODevice::WriteOnly));
        QFile::link(path("nowhere"), path("dangling"));
        QFile::link(path("loop"), path("loop"));
    }

    void notAFile() {
        QFETCH(QString, path);
        QVERIFY(readSmallTextFile(path).isNull());
    }

    void fileWithoutEnd() { QCOMPARE(readSmallTextFile("/dev/zero").size(), 65536); }

    void fifoDoesNotBlock() {
        QCOMPARE(mkfifo(path("fifo").toLocal8Bit().constData(), 0600), 0);
        QVERIFY(readSmallTextFile(path("fifo")).isNull());
    }

    void reasonOfAFailure() {
        errno = 0;
        QVERIFY(readSmallTextFile(path("missing")).isNull());
        QCOMPARE(errno, ENOENT);
        errno = 0;
        QVERIFY(readSmallTextFile(directory.path()).isNull());
        QCOMPARE(errno, EISDIR);
        errno = 0;
        QVERIFY(readSmallTextFile(write("")).isEmpty());
        QCOMPARE(errno, 0);
    }

    void anotherReader() {
        textFileReader = [](const QString& asked) { return "instead of " + asked.toUtf8(); };
        QCOMPARE(readSmallTextFile("/a"), QByteArray("instead of /a"));
        textFileReader = standardReader;
        QCOMPARE(readSmallTextFile(write("37\n")), QByteArray("37\n"));
    }

    void leavesNoDescriptorOpen() {
        const auto openDescriptors = [] {
            return QDir("/proc/self/fd").entryList(QDir::Files | QDir::System).size();
        };
        const QString file = write("37\n");
        const int before = openDescriptors();
        readSmallTextFile(file);
        readSmallTextFile(directory.path());
        readSmallTextFile("/dev/zero");
        QCOMPARE(openDescriptors(), before);
    }

    // A machine's cards are read every few seconds: five calls a value at most.
    void systemCalls() {
        const QString file = write("1073741824\n");
        const auto none = systemCallsOf([] {});
        if (!none)
            QSKIP("a process can't be traced here");
        QVERIFY(none->empty());
        QByteArray value = readSmallTextFile(file); // what only a first call needs is done
        const auto calls = systemCallsOf([&] { value = readSmallTextFile(file); });
        QVERIFY(calls);
        QVERIFY2(calls->size() >= 3 && calls->size() <= 5, QByteArray::number(int(calls->size())));
        // A driver that starts a program must not pass the file on to it.
        QCOMPARE(int(calls->front().nr), int(SYS_openat));
        QVERIFY((calls->front().args[2] & O_CLOEXEC) != 0);
    }

  private:
    QString path(const char* name) const { return directory.filePath(QLatin1String(name)); }
    QString write(const QByteArray& bytes) {
        QFile file(path("value"));
        if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
            qFatal("can't write a file to read");
        return file.fileName();
    }

    QTemporaryDir directory;
};

QTEST_APPLESS_MAIN(TestReadSmallTextFile)
#include "test_readSmallTextFile.moc"
