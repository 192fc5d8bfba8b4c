// The driver's flags on the segment, and when they are set: attached, has published, measuring.
#include <functional>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/syscall.h>

#include <QScopeGuard>
#include <QTest>

#include "ChildProcess.h"
#include "DriverBench.h"
#include "SegmentFlags.h"

namespace {

std::function<void()> beforeUnlock;

QString flagsOn(const DriverBench& bench) {
    return flagsOn(bench.directory.file(segmentKey));
}

} // namespace

// Before the C library's, to look at the segment at the last moment of the driver's lock.
extern "C" int flock(int descriptor, int operation) noexcept {
    if ((operation & LOCK_UN) != 0 && beforeUnlock)
        beforeUnlock();
    return static_cast<int>(syscall(SYS_flock, descriptor, operation));
}

class TestGpuInfo_Main_flags : public QObject {
    Q_OBJECT

  private slots:
    void cleanup() { beforeUnlock = nullptr; }

    void publishedFromTheFirstPublicationOn() {
        DriverBench bench;
        bench.init();
        QCOMPARE(flagsOn(bench), QString("attached"));
        QString atUnlock;
        beforeUnlock = [&] { atUnlock = flagsOn(bench); };
        bench.update();
        QCOMPARE(atUnlock, QString("attached published")); // no reader finds the list without it
        QCOMPARE(flagsOn(bench), QString("attached published"));
        bench.update();
        beforeUnlock = nullptr;
        QCOMPARE(flagsOn(bench), QString("attached published"));
    }

    void aKilledOnesListIsNotTheSuccessors() {
        DriverBench bench;
        Signpost published;
        ChildProcess child([&] {
            bench.init();
            bench.update();
            published.give();
            return pause();
        });
        QVERIFY(published.await());
        QCOMPARE(flagsOn(bench), QString("attached published"));
        child.kill();
        child.result();
        QCOMPARE(flagsOn(bench), QString());
        bench.init();
        QCOMPARE(int(bench.segment().at(4)), 1); // the list is there, and is the killed one's
        QCOMPARE(flagsOn(bench), QString("attached"));
        bench.update();
        QCOMPARE(flagsOn(bench), QString("attached published"));
    }

    void notWhenTheLockIsTaken() {
        DriverBench bench;
        bench.init();
        const FileDescriptor holder(open(bench.directory.file(segmentKey).constData(), O_RDWR | O_CLOEXEC));
        QCOMPARE(flock(holder.get(), LOCK_EX | LOCK_NB), 0);
        bench.driver->doBenchmark = true;
        bench.update();
        QCOMPARE(flagsOn(bench), QString("attached"));
    }

    void notWhenTheListCantBeWritten() {
        DriverBench bench;
        bench.init();
        struct rlimit before{};
        getrlimit(RLIMIT_FSIZE, &before);
        const struct rlimit small{4096, before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &small);
        bench.update();
        setrlimit(RLIMIT_FSIZE, &before);
        QCOMPARE(flagsOn(bench), QString("attached"));
    }

    void anewOnEachObject() {
        DriverBench bench;
        bench.init();
        bench.update();
        const QByteArray old = bench.directory.file("old");
        QCOMPARE(rename(bench.directory.file(segmentKey).constData(), old.constData()), 0);
        bench.update();
        QCOMPARE(flagsOn(old), QString());
        QCOMPARE(flagsOn(bench), QString("attached"));
        bench.update();
        QCOMPARE(flagsOn(bench), QString("attached published"));
    }

    void droppedWithTheObject() {
        DriverBench leaving;
        leaving.init();
        DriverBench staying("NVIDIA", leaving.directory.path());
        staying.init();
        leaving.driver->doBenchmark = true;
        leaving.update();
        leaving.driver->finish();
        QCOMPARE(flagsOn(leaving), QString("attached"));
    }

    void measuringUntilItsListIsPublished() {
        DriverBench bench;
        bench.init();
        QStringList during;
        const auto look = [&] { during << flagsOn(bench); };
        // The driver's destructor calls the vendors again.
        const auto guard = qScopeGuard([&] {
            bench.nvidia->onCall = bench.amd->onCall = nullptr;
            beforeUnlock = nullptr;
        });
        bench.nvidia->onCall = bench.amd->onCall = [&](const char*) { look(); };
        beforeUnlock = look;
        bench.update();
        QCOMPARE(during, QStringList({"attached", "attached", "attached published"}));
        during.clear();
        bench.driver->doBenchmark = true;
        bench.update();
        const QString measuring = "attached published measuring";
        QCOMPARE(during, QStringList({measuring, measuring, measuring}));
        QCOMPARE(flagsOn(bench), QString("attached published"));
    }

    void aSingleRunHasNoFlags() {
        DriverBench bench;
        bench.driver->singleRun = bench.driver->doBenchmark = true;
        bench.init();
        QCOMPARE(bench.directory.names(), QStringList());
    }
};

QTEST_GUILESS_MAIN(TestGpuInfo_Main_flags)
#include "test_GpuInfo_Main_flags.moc"
