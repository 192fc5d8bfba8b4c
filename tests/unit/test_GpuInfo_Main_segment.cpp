// The driver and its segment: every way to create, join, lose and write it.
#include <functional>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>

#include <QElapsedTimer>
#include <QTest>

#include "DriverBench.h"
#include "app/log/logLine.h"
#include "support/qzLastOSError.h"
#include "support/qzSharedMemory.h"
#include "tests/unit/testRows.h"

namespace {

/// The segment class's sentence for the failure of `operation`.
QByteArray reasonOf(const char* directory, const std::function<void(qzSharedMemory&)>& operation) {
    qzSharedMemory other(segmentKey, 7, directory);
    operation(other);
    const QByteArray reason(other.errorString().c_str());
    return reason.isEmpty() ? "no failure" : reason;
}

QByteArray reasonOf(const DriverBench& bench, const std::function<void(qzSharedMemory&)>& operation) {
    return reasonOf(bench.directory.path(), operation);
}

void attach(qzSharedMemory& segment) {
    segment.attach();
}

void create(qzSharedMemory& segment) {
    segment.create(7472, true, false);
}

QByteArray payloadOf(const DriverBench& bench) {
    return {reinterpret_cast<const char*>(&bench.list()), 7469};
}

/// The last line that an update prints.
QByteArray afterReport(const QByteArray& text) {
    const QByteArray end = "-------------------- END --------------------\n\n\n\n";
    return text.contains(end) ? text.mid(text.indexOf(end) + end.size()) : "no report: " + text;
}

const QByteArray unableToAttach = "Unable to attach shared memory!; ";
const QByteArray updated = "Updated shared memory block\n";

/// The lock as another process holds it: locks belong to the open file, not to the process.
class Holder {
  public:
    explicit Holder(const DriverBench& bench)
        : object(open(bench.directory.file(segmentKey).constData(), O_RDWR | O_CLOEXEC)) {
        isHeld = flock(object.get(), LOCK_EX | LOCK_NB) == 0;
    }
    bool isHeld = false;

  private:
    FileDescriptor object;
};

} // namespace

class TestGpuInfo_Main_segment : public QObject {
    Q_OBJECT

  private slots:
    void init() { logLevel = 4; }
    void cleanup() { logLevel = 3; }

    void created() {
        DriverBench bench;
        bool result = false;
        QCOMPARE(DriverBench::printed([&] { result = bench.driver->createSharedMemory(); }),
                 QByteArray("Created shared memory\n"));
        QVERIFY(result);
        QCOMPARE(bench.directory.names(), QStringList("qzGpuInfo_v2"));
        QCOMPARE(bench.segment(), QByteArray(7472, '\0'));
    }

    void existing_data() {
        const auto row = testColumns<int, bool, QByteArray>("size", "accepted", "line");
        const QByteArray used = "Using existing shared memory\n";
        row("larger", 8000, true, used);
        row("one byte larger", 7473, true, used);
        row("the same size", 7472, true, used);
        row("one byte smaller", 7471, false, "Shared memory has wrong data size! (7471!=7472)\n");
        row("smaller", 4000, false, "Shared memory has wrong data size! (4000!=7472)\n");
        row("empty", 0, false, "Shared memory has wrong data size! (0!=7472)\n");
    }

    void existing() {
        QFETCH(int, size);
        QFETCH(bool, accepted);
        QFETCH(QByteArray, line);
        DriverBench bench;
        const QByteArray content(size, '\xa5');
        bench.directory.makeFile(segmentKey, content);
        bool result = !accepted;
        const QStringList descriptors = openDescriptors();
        QCOMPARE(DriverBench::printed([&] { result = bench.driver->createSharedMemory(); }), line);
        QCOMPARE(result, accepted);
        QCOMPARE(bench.segment(), content);
        if (!accepted) {
            QCOMPARE(openDescriptors(), descriptors); // detached at once, not only by `finish`
            bench.driver->finish();
            QCOMPARE(bench.segment(), content);
            return;
        }
        QCOMPARE(afterReport(bench.update()), updated);
        // Not a byte beyond the published ones.
        QCOMPARE(bench.segment().toHex(), (payloadOf(bench) + content.mid(7469)).toHex());
        bench.driver->finish();
        QCOMPARE(bench.directory.names(), QStringList());
    }

    void levels_data() {
        const auto row =
            testColumns<int, bool, bool, bool>("level", "wrongSize", "noDirectory", "shownCreated");
        row("0", 0, true, false, false);
        row("1", 1, true, true, false);
        row("2", 2, true, true, false);
        row("3", 3, true, true, true);
        row("none", -1, false, false, false);
    }

    void levels() {
        QFETCH(int, level);
        QFETCH(bool, wrongSize);
        QFETCH(bool, noDirectory);
        QFETCH(bool, shownCreated);
        logLevel = level;
        const auto isShown = [](DriverBench& bench) {
            return !DriverBench::printed([&] { bench.driver->createSharedMemory(); }).isEmpty();
        };
        DriverBench small;
        small.directory.makeFile(segmentKey, "small");
        QCOMPARE(isShown(small), wrongSize);
        DriverBench link;
        QVERIFY(symlink("elsewhere", link.directory.file(segmentKey).constData()) == 0);
        QCOMPARE(isShown(link), wrongSize);
        DriverBench nowhere("", "/nowhere/at/all");
        QCOMPARE(isShown(nowhere), noDirectory);
        DriverBench first;
        QCOMPARE(isShown(first), shownCreated);
        DriverBench second("", first.directory.path());
        QCOMPARE(isShown(second), shownCreated);
    }

    void missingDirectory() {
        DriverBench bench("NVIDIA", "/nowhere/at/all");
        const QString system = qzLastOSError(ENOENT);
        bool result = true;
        QCOMPARE(DriverBench::printed([&] { result = bench.driver->createSharedMemory(); }),
                 "Unable to create shared memory!; " + reasonOf("/nowhere/at/all", create) + " " +
                     system.toUtf8() + "\n");
        QVERIFY(!result);
    }

    /// As when the file system is full: a limit on files refuses the same call.
    void noRoom() {
        DriverBench bench;
        const QString system = qzLastOSError(EFBIG);
        struct rlimit before{};
        getrlimit(RLIMIT_FSIZE, &before);
        const struct rlimit small{7471, before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &small);
        bool result = true;
        const QByteArray reason = reasonOf(bench, create);
        const QByteArray text = DriverBench::printed([&] { result = bench.driver->createSharedMemory(); });
        setrlimit(RLIMIT_FSIZE, &before);
        QCOMPARE(text, "Unable to create shared memory!; " + reason + " " + system.toUtf8() + "\n");
        QVERIFY(!result);
        QCOMPARE(bench.directory.names(), QStringList());
    }

    void planted_data() {
        const auto row = testColumns<QByteArray>("kind");
        for (const char* kind : {"link", "dangling link", "FIFO", "folder", "second name", "other user's"})
            row(kind, QByteArray(kind));
    }

    void planted() {
        QFETCH(QByteArray, kind);
        DriverBench bench;
        const QByteArray path = bench.directory.file(segmentKey);
        const QByteArray victim = bench.directory.file("victim");
        const QByteArray content(8000, '\xa5');
        bench.directory.makeFile("victim", content);
        if (kind == "other user's") {
            if (geteuid() != 0)
                QSKIP("only root can make another user's object");
            QVERIFY(rename(victim.constData(), path.constData()) == 0);
            QVERIFY(chown(path.constData(), 65534, 65534) == 0);
        }
        QVERIFY(kind != "link" || symlink("victim", path.constData()) == 0);
        QVERIFY(kind != "dangling link" || symlink("nothing", path.constData()) == 0);
        QVERIFY(kind != "FIFO" || mkfifo(path.constData(), 0600) == 0);
        QVERIFY(kind != "folder" || mkdir(path.constData(), 0700) == 0);
        QVERIFY(kind != "second name" || link(victim.constData(), path.constData()) == 0);
        const QByteArray reason = reasonOf(bench, attach);
        QVERIFY(reason.contains("refused"));
        bool result = true;
        QCOMPARE(DriverBench::printed([&] { result = bench.driver->createSharedMemory(); }),
                 unableToAttach + reason + "\n");
        QVERIFY(!result);
        bool published = true;
        QCOMPARE(DriverBench::printed([&] { published = bench.driver->publish(); }),
                 unableToAttach + reason + "\n");
        QVERIFY(!published);
        QCOMPARE(kind == "other user's" ? bench.segment() : bench.directory.bytes("victim"), content);
        QVERIFY(!bench.directory.names().contains("nothing"));
    }

    void published() {
        DriverBench bench;
        bench.init();
        GpuDevice& gpu = bench.amd->add("AMD Radeon Pro W6800");
        gpu.hasTemperature = 1;
        gpu.temperature = 65;
        QCOMPARE(afterReport(bench.update()), updated);
        QCOMPARE(bench.segment().toHex(), (payloadOf(bench) + QByteArray(3, '\0')).toHex());
        gpu.temperature = 66;
        QCOMPARE(afterReport(bench.update()), updated);
        QCOMPARE(int(bench.segment().at(2452 + 88)), 66);
    }

    void publishedIsReport() {
        DriverBench bench;
        bench.init();
        bool result = false;
        logLevel = 3;
        QCOMPARE(DriverBench::printed([&] { result = bench.driver->publish(); }), QByteArray());
        QVERIFY(result);
    }

    void publishAttaches() {
        DriverBench owner;
        owner.init();
        DriverBench bench("NVIDIA", owner.directory.path());
        QCOMPARE(DriverBench::printed([&] { bench.driver->publish(); }), updated);
        QCOMPARE(owner.segment().left(4), QByteArray::fromHex("010d0100"));
    }

    void lockedByAnother() {
        DriverBench bench;
        bench.init();
        const QByteArray reason = reasonOf(bench, [&](qzSharedMemory& other) {
            const Holder holder(bench);
            other.attach();
            other.lock();
        });
        {
            const Holder holder(bench);
            QVERIFY(holder.isHeld);
            QElapsedTimer waiting;
            waiting.start();
            bool result = true;
            QCOMPARE(DriverBench::printed([&] { result = bench.driver->publish(); }),
                     "Unable to lock shared memory!; " + reason + "\n");
            QVERIFY(!result);
            QVERIFY2(waiting.elapsed() < 3000, qPrintable(QString::number(waiting.elapsed())));
            QCOMPARE(bench.segment(), QByteArray(7472, '\0'));
            logLevel = 1;
            QCOMPARE(DriverBench::printed([&] { bench.driver->publish(); }), QByteArray());
            logLevel = 2;
            QVERIFY(!DriverBench::printed([&] { bench.driver->publish(); }).isEmpty());
            logLevel = 4;
        }
        QCOMPARE(afterReport(bench.update()), updated);
        const Holder holder(bench);
        QVERIFY(holder.isHeld); // publishing gave it back
    }

    void nameIsGone() {
        DriverBench bench;
        bench.init();
        QCOMPARE(unlink(bench.directory.file(segmentKey).constData()), 0);
        const QByteArray reason = reasonOf(bench, [&](qzSharedMemory& other) {
            other.create(7472, true, false);
            unlink(bench.directory.file(segmentKey).constData());
            other.isIntact();
        });
        bool result = true;
        QCOMPARE(DriverBench::printed([&] { result = bench.driver->publish(); }),
                 unableToAttach + reason + "\nCreated shared memory\n");
        QVERIFY(!result);
        QCOMPARE(bench.segment(), QByteArray(7472, '\0'));
        QCOMPARE(afterReport(bench.update()), updated);
        QCOMPARE(bench.segment().left(8), QByteArray::fromHex("010d0100 01000000"));
    }

    void nameLeadsToAnother() {
        DriverBench bench;
        bench.init();
        QCOMPARE(unlink(bench.directory.file(segmentKey).constData()), 0);
        bench.directory.makeFile(segmentKey, QByteArray(7472, '\xa5'));
        const QByteArray text = DriverBench::printed([&] { bench.driver->publish(); });
        QVERIFY(text.startsWith(unableToAttach));
        QVERIFY(text.endsWith("\nUsing existing shared memory\n"));
        QCOMPARE(DriverBench::printed([&] { bench.driver->publish(); }), updated);
        QCOMPARE(bench.segment().left(4), QByteArray::fromHex("010d0100"));
    }

    void becameTooSmall() {
        DriverBench bench;
        bench.init();
        const QByteArray path = bench.directory.file(segmentKey);
        const QByteArray reason = reasonOf(bench, [&](qzSharedMemory& other) {
            other.create(7472, true, false);
            other.attach();
            QVERIFY(truncate(path.constData(), 7471) == 0);
            other.isIntact();
        });
        for (int i = 0; i < 2; ++i) {
            bool result = true;
            QCOMPARE(DriverBench::printed([&] { result = bench.driver->publish(); }),
                     unableToAttach + reason + "\n");
            QVERIFY(!result);
            QCOMPARE(bench.segment(), QByteArray(7471, '\0'));
        }
        QVERIFY(truncate(path.constData(), 7472) == 0);
        QCOMPARE(DriverBench::printed([&] { bench.driver->publish(); }), updated);
    }

    void lossIsFatalSetUp() {
        DriverBench bench;
        bench.init();
        QVERIFY(truncate(bench.directory.file(segmentKey).constData(), 0) == 0);
        logLevel = 0;
        QVERIFY(!DriverBench::printed([&] { bench.driver->publish(); }).isEmpty());
        QVERIFY(!DriverBench::printed([&] { bench.driver->publish(); }).isEmpty());
    }

    void cantBeWritten() {
        DriverBench bench;
        bench.init();
        bench.update();
        QCOMPARE(bench.segment().left(8), QByteArray::fromHex("010d0100 01000000"));
        struct rlimit before{};
        getrlimit(RLIMIT_FSIZE, &before);
        const struct rlimit small{4096, before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &small);
        bool result = true;
        const QByteArray text = DriverBench::printed([&] { result = bench.driver->publish(); });
        logLevel = 0; // that nothing is published any more is reported at every level
        const QByteArray fatal = DriverBench::printed([&] { bench.driver->publish(); });
        logLevel = 4;
        setrlimit(RLIMIT_FSIZE, &before);
        QCOMPARE(fatal, text);
        QVERIFY2(text.startsWith(unableToAttach) && text.count('\n') == 1, text.constData());
        QVERIFY2(text.contains(segmentKey), text.constData()); // with its reason
        QVERIFY(!result);
        QCOMPARE(bench.segment().left(8), QByteArray::fromHex("010d0100 00000000"));
        // The segment is kept: detaching would take it away from its readers.
        QCOMPARE(DriverBench::printed([&] { bench.driver->publish(); }), updated);
    }

    void theLastOneOutRemovesIt() {
        DriverBench first;
        first.init();
        DriverBench second("NVIDIA", first.directory.path());
        QCOMPARE(DriverBench::printed([&] { second.driver->init(); }),
                 QByteArray("#################### INIT ####################\n"
                            "Using existing shared memory\n"
                            "Continuous run...\n"));
        first.driver->finish();
        QCOMPARE(first.directory.names(), QStringList("qzGpuInfo_v2"));
        QCOMPARE(DriverBench::printed([&] { second.driver->publish(); }), updated);
        second.driver->finish();
        QCOMPARE(first.directory.names(), QStringList());
    }

    void noDescriptorIsLeft() {
        const QStringList before = openDescriptors();
        {
            DriverBench bench;
            bench.init();
            bench.update();
            unlink(bench.directory.file(segmentKey).constData());
            bench.update();
            bench.update();
            bench.driver->finish();
        }
        QCOMPARE(openDescriptors(), before);
    }
};

QTEST_GUILESS_MAIN(TestGpuInfo_Main_segment)
#include "test_GpuInfo_Main_segment.moc"
