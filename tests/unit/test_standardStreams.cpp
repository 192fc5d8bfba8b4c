#include <csignal>
#include <cstdio>

#include <fcntl.h>
#include <stdio_ext.h>

#include <QTest>

#include "ChildProcess.h"
#include "support/standardStreams.h"
#include "tests/unit/testRows.h"

namespace {

QByteArray targetOf(int descriptor) {
    char path[64] = {};
    std::snprintf(path, sizeof path, "/proc/self/fd/%d", descriptor);
    char target[256] = {};
    const ssize_t length = readlink(path, target, sizeof target);
    return {target, static_cast<int>(std::max<ssize_t>(length, 0))};
}

/// Prepares a process whose streams named by the bits of `closed` are closed. 0 when each of them leads to
/// `expected`, the others lead where they did, and the next file to be opened takes no stream's place.
int prepared(int closed, const char* nullDevice, const char* expected) {
    QByteArray leads[] = {targetOf(0), targetOf(1), targetOf(2)};
    for (int stream = 0; stream < 3; ++stream)
        if ((closed & (1 << stream)) != 0) {
            close(stream);
            leads[stream] = expected;
        }
    prepareStandardStreams(nullDevice);
    for (int stream = 0; stream < 3; ++stream)
        if (targetOf(stream) != leads[stream])
            return 1 + stream;
    return open("/", O_RDONLY) > 2 ? 0 : 4;
}

} // namespace

class TestStandardStreams : public QObject {
    Q_OBJECT

  private slots:
    void closed_data() {
        testColumns<int, QByteArray, QByteArray>("streams", "nullDevice", "expected");
        for (int streams = 0; streams < 8; ++streams) {
            QTest::addRow("streams %d", streams)
                << streams << QByteArray("/dev/null") << QByteArray("/dev/null");
            QTest::addRow("streams %d, no device", streams)
                << streams << QByteArray("/nowhere/null") << QByteArray("/");
        }
    }

    void closed() {
        QFETCH(int, streams);
        QFETCH(QByteArray, nullDevice);
        QFETCH(QByteArray, expected);
        ChildProcess process([&] { return prepared(streams, nullDevice.constData(), expected.constData()); });
        QCOMPARE(process.result(), 0);
    }

    /// Nothing can be written to the stream's replacement, not even by mistake.
    void writingWithoutADevice() {
        ChildProcess process([] {
            close(STDOUT_FILENO);
            prepareStandardStreams("/nowhere/null");
            return write(STDOUT_FILENO, "x", 1) < 0 ? 0 : 1;
        });
        QCOMPARE(process.result(), 0);
    }

    void lineByLine() {
        ChildProcess process([] {
            prepareStandardStreams();
            return __flbf(stdout) != 0 ? 0 : 1;
        });
        QCOMPARE(process.result(), 0);
    }

    void aReaderThatGoesEndsNothing() {
        ChildProcess process([] {
            std::signal(SIGPIPE, SIG_DFL);
            prepareStandardStreams();
            raise(SIGPIPE);
            return 0;
        });
        QCOMPARE(process.result(), 0);
    }
};

QTEST_APPLESS_MAIN(TestStandardStreams)
#include "test_standardStreams.moc"
