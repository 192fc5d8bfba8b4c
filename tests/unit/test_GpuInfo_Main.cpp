// The driver's start, timer and end, and its use of Qt. The cycle and the segment have separate tests.
#include <cstdio>
#include <cstring>
#include <functional>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QMetaMethod>
#include <QTest>
#include <QTimer>

#include "DriverBench.h"
#include "app/log/logLine.h"
#include "nvidia/GpuNvml_Loader.h"
#include "opencl/GpuOpenCL_Loader.h"

namespace {

// For calls that can't carry a reference.
QStringList journal;
const DriverBench* watched = nullptr; ///< where set, what is unloaded says whether the segment is still there

QString segmentState(const DriverBench& bench) {
    return bench.directory.names().isEmpty() ? " without segment" : " with segment";
}

/// A system on which every library opens and has every entry point.
DynamicLoader loaderOfAnything() {
    return {[](const char* name, int) -> void* {
                return const_cast<char*>(std::strstr(name, "OpenCL") != nullptr ? "OpenCL" : "NVML");
            },
            [](void*, const char*) -> void* { return &journal; },
            [](void* library) {
                journal << "unload " + QString::fromLatin1(static_cast<const char*>(library)) +
                               (watched != nullptr ? segmentState(*watched) : QString());
                return 0;
            },
            [](void*) -> const char* { return nullptr; }};
}

/// Text without a line end, which stays in the stream's buffer until it is flushed.
void mark(const QString& text) {
    std::fputs(qPrintable(text), stdout);
}

/// While it exists, printed lines go to `action` and nowhere else.
class PrintedLines {
  public:
    explicit PrintedLines(std::function<void(const QByteArray&)> whatToDo) : action(std::move(whatToDo)) {
        cookie_io_functions_t functions{};
        functions.write = [](void* self, const char* text, std::size_t size) {
            static_cast<PrintedLines*>(self)->action({text, static_cast<int>(size)});
            return static_cast<ssize_t>(size);
        };
        FILE* stream = fopencookie(this, "w", functions);
        std::setvbuf(stream, nullptr, _IOLBF, BUFSIZ);
        original = std::exchange(stdout, stream);
    }
    ~PrintedLines() { std::fclose(std::exchange(stdout, original)); }
    PrintedLines(const PrintedLines&) = delete;
    PrintedLines& operator=(const PrintedLines&) = delete;

  private:
    std::function<void(const QByteArray&)> action;
    FILE* original = nullptr;
};

} // namespace

class TestGpuInfo_Main : public QObject {
    Q_OBJECT

  private slots:
    void init() { journal.clear(); }
    void cleanup() { logLevel = 3; }

    void asConstructed() {
        DriverBench bench;
        QCOMPARE(QByteArray(reinterpret_cast<const char*>(&bench.list()), sizeof(GpuInfoBlock)),
                 QByteArray(reinterpret_cast<const char*>(std::make_unique<GpuInfoBlock>().get()),
                            sizeof(GpuInfoBlock)));
        QVERIFY(!bench.driver->doBenchmark);
        QVERIFY(!bench.driver->singleRun);
        QCOMPARE(bench.calls, QStringList());
        QCOMPARE(bench.directory.names(), QStringList());
    }

    void singleRun() {
        DriverBench bench("NVIDIA AMD Apple");
        bench.driver->singleRun = true;
        QCOMPARE(bench.init(), QByteArray("#################### INIT ####################\nSingle run...\n"));
        QVERIFY(bench.initResult);
        QCOMPARE(bench.calls, QStringList({"detect NVIDIA", "detect AMD", "detect Apple", "update NVIDIA",
                                           "update AMD", "update Apple"}));
        QCOMPARE(bench.list().dataReady, 1U);
        QCOMPARE(bench.directory.names(), QStringList());
    }

    void singleRunLeavesASegmentAlone() {
        DriverBench bench;
        bench.directory.makeFile(segmentKey, "not ours");
        const struct stat before = bench.directory.status(segmentKey);
        bench.driver->singleRun = true;
        bench.init();
        DriverBench::printed([&] { bench.driver->finish(); });
        const struct stat after = bench.directory.status(segmentKey);
        QCOMPARE(bench.segment(), QByteArray("not ours"));
        QCOMPARE(after.st_ctim.tv_sec, before.st_ctim.tv_sec);
        QCOMPARE(after.st_ctim.tv_nsec, before.st_ctim.tv_nsec);
    }

    void continuousRun() {
        DriverBench bench;
        QCOMPARE(bench.init(), QByteArray("#################### INIT ####################\n"
                                          "Created shared memory\n"
                                          "Continuous run...\n"));
        QVERIFY(bench.initResult);
        QCOMPARE(bench.calls, QStringList({"detect NVIDIA", "detect AMD"}));
        QCOMPARE(bench.list().dataReady, 0U);
        QCOMPARE(bench.segment(), QByteArray(7472, '\0'));
    }

    void withoutASegmentNoProviderIsAsked() {
        DriverBench bench("NVIDIA AMD", "/nowhere/at/all");
        bench.init();
        QVERIFY(!bench.initResult);
        QCOMPARE(bench.calls, QStringList());
    }

    void missingProvidersArePassedOver() {
        DriverBench bench("AMD");
        bench.driver->singleRun = true;
        bench.init();
        DriverBench::printed([&] { bench.driver->finish(); });
        QCOMPARE(bench.calls, QStringList({"detect AMD", "update AMD", "shutdown AMD"}));
    }

    void allOfItAtTheLevelsOfProgress() {
        logLevel = 2;
        for (const bool isSingle : {false, true}) {
            DriverBench bench;
            bench.driver->singleRun = isSingle;
            QCOMPARE(bench.init(), QByteArray());
        }
    }

    void benchmarkIsPassedOn() {
        DriverBench bench;
        bench.driver->singleRun = true;
        bench.driver->doBenchmark = true;
        bench.init();
        QCOMPARE(bench.calls.mid(2), QStringList({"benchmark NVIDIA", "benchmark AMD"}));
    }

    /// A provider's output is flushed before the next provider, which may crash, is called.
    void flushedAfterEachDetection() {
        std::setvbuf(stdout, nullptr, _IOFBF, BUFSIZ);
        DriverBench bench;
        bench.driver->singleRun = true;
        QByteArray beforeAmd;
        QByteArray beforeUpdate;
        QByteArray afterInit;
        CaptureStdout output;
        bench.nvidia->onCall = [&](const char* call) {
            if (call == QByteArray("update"))
                beforeUpdate = output.written();
            mark("<NVIDIA " + QString(call) + ">");
        };
        bench.amd->onCall = [&](const char* call) {
            if (call == QByteArray("detect"))
                beforeAmd = output.written();
            mark("<AMD " + QString(call) + ">");
        };
        bench.driver->init();
        afterInit = output.written();
        output.take();
        const QByteArray start = "#################### INIT ####################\n<NVIDIA detect>";
        QCOMPARE(beforeAmd, start);
        QCOMPARE(beforeUpdate, start + "<AMD detect>Single run...\n");
        QCOMPARE(afterInit, start + "<AMD detect>Single run...\n<NVIDIA update><AMD update>");
        bench.nvidia->onCall = bench.amd->onCall = nullptr;
    }

    void flushedBeforeAContinuousRun() {
        std::setvbuf(stdout, nullptr, _IOFBF, BUFSIZ);
        DriverBench bench;
        CaptureStdout output;
        bench.driver->init();
        const QByteArray written = output.written();
        output.take();
        QVERIFY2(written.endsWith("\nContinuous run...\n"), written.constData());
    }

    void singleRunQuitsTheEventLoop() {
        DriverBench bench;
        bench.driver->singleRun = true;
        bool pendingWasHandled = false;
        QTimer::singleShot(0, this, [&] {
            QMetaObject::invokeMethod(this, [&] { pendingWasHandled = true; }, Qt::QueuedConnection);
            bench.init();
            QVERIFY(pendingWasHandled);
        });
        QTimer::singleShot(5000, this, [] { QCoreApplication::exit(1); });
        QCOMPARE(QCoreApplication::exec(), 0);
    }

    /// The first update comes after 4 s, not at once; none comes after `finish`.
    void updatesByTheTimer() {
        DriverBench finished;
        finished.init();
        DriverBench::printed([&] { finished.driver->finish(); });
        finished.calls.clear();

        DriverBench bench;
        bench.init();
        bench.calls.clear();
        QElapsedTimer time;
        time.start();
        qint64 first = -1;
        bench.nvidia->onUpdate = [&] { first = time.elapsed(); };
        CaptureStdout output;
        QTest::qWait(3700);
        const QStringList early = bench.calls;
        QTest::qWait(700);
        output.take();
        QCOMPARE(early, QStringList());
        QCOMPARE(bench.calls, QStringList({"update NVIDIA", "update AMD"}));
        QVERIFY2(first >= 3800 && first < 4390, qPrintable(QString::number(first)));
        QCOMPARE(finished.calls, QStringList());
        QCOMPARE(bench.list().dataReady, 1U);
    }

    void finishEndsInOrder() {
        GpuNvml_Loader::load(loaderOfAnything());
        GpuOpenCL_Loader::load(loaderOfAnything());
        DriverBench bench("NVIDIA AMD Apple");
        bench.init();
        for (FakeProvider* provider : {bench.nvidia, bench.amd, bench.apple})
            provider->onCall = [&](const char* call) { journal << call + segmentState(bench); };
        watched = &bench;
        DriverBench::printed([&] { bench.driver->finish(); });
        watched = nullptr;
        QCOMPARE(journal,
                 QStringList({"shutdown with segment", "shutdown with segment", "shutdown with segment",
                              "unload NVML with segment", "unload OpenCL with segment"}));
        QCOMPARE(bench.calls.mid(3), QStringList({"shutdown NVIDIA", "shutdown AMD", "shutdown Apple"}));
        QCOMPARE(bench.directory.names(), QStringList());
        for (FakeProvider* provider : {bench.nvidia, bench.amd, bench.apple})
            provider->onCall = nullptr;
    }

    void finishTwice() {
        GpuNvml_Loader::load(loaderOfAnything());
        GpuOpenCL_Loader::load(loaderOfAnything());
        DriverBench bench;
        bench.init();
        bench.calls.clear();
        DriverBench::printed([&] {
            bench.driver->finish();
            bench.driver->finish();
        });
        QCOMPARE(journal, QStringList({"unload NVML", "unload OpenCL"}));
        QCOMPARE(bench.calls,
                 QStringList({"shutdown NVIDIA", "shutdown AMD", "shutdown NVIDIA", "shutdown AMD"}));
    }

    void destroyedInOrder() {
        GpuNvml_Loader::load(loaderOfAnything());
        DriverBench bench("NVIDIA AMD Apple");
        bench.init();
        bench.calls.clear();
        for (FakeProvider* provider : {bench.nvidia, bench.amd, bench.apple})
            provider->onCall = [&](const char* call) { journal << call + segmentState(bench); };
        DriverBench::printed([&] { bench.driver.reset(); });
        QCOMPARE(bench.calls, QStringList({"shutdown NVIDIA", "shutdown AMD", "shutdown Apple",
                                           "delete NVIDIA", "delete AMD", "delete Apple"}));
        QCOMPARE(journal, QStringList({"shutdown with segment", "shutdown with segment",
                                       "shutdown with segment", "unload NVML", "delete without segment",
                                       "delete without segment", "delete without segment"}));
    }

    void destroyedWithoutInit() {
        DriverBench bench;
        bench.driver.reset();
        QCOMPARE(bench.calls,
                 QStringList({"shutdown NVIDIA", "shutdown AMD", "delete NVIDIA", "delete AMD"}));
    }

    /// A process that waits for the line may read at once.
    void theLockIsFreeWhenTheLineIsPrinted() {
        logLevel = 4;
        DriverBench bench;
        bench.init();
        QVector<bool> locksTaken;
        {
            const PrintedLines lines([&](const QByteArray& line) {
                if (line != "Updated shared memory block\n")
                    return;
                const FileDescriptor reader(
                    open(bench.directory.file(segmentKey).constData(), O_RDONLY | O_CLOEXEC));
                locksTaken << (flock(reader.get(), LOCK_EX | LOCK_NB) == 0);
            });
            bench.driver->update();
        }
        QCOMPARE(locksTaken, QVector<bool>{true});
    }

    void theListOutlivesFinish() {
        DriverBench bench;
        bench.nvidia->add("kept");
        bench.driver->singleRun = true;
        bench.init();
        DriverBench::printed([&] { bench.driver->finish(); });
        QCOMPARE(bench.list().totalCount(), 1);
        QCOMPARE(QByteArray(bench.list().gpuAt(0).name), QByteArray("kept"));
    }

    void metaObject() {
        const QMetaObject& meta = GpuInfo_Main::staticMetaObject;
        QCOMPARE(QByteArray(meta.className()), QByteArray("GpuInfo_Main"));
        QCOMPARE(meta.methodCount() - meta.methodOffset(), 1);
        const QMetaMethod only = meta.method(meta.methodOffset());
        QCOMPARE(only.methodSignature(), QByteArray("update()"));
        QCOMPARE(only.methodType(), QMetaMethod::Slot);
    }

    void metacast() {
        DriverBench bench;
        GpuInfo_Main* driver = bench.driver.get();
        QVERIFY(driver->qt_metacast("GpuInfo_Main") == driver);
        QVERIFY(driver->qt_metacast("QObject") == static_cast<QObject*>(driver));
        QVERIFY(driver->qt_metacast("WatchDog") == nullptr);
        QVERIFY(driver->qt_metacast(nullptr) == nullptr);
    }

    void metacall() {
        DriverBench bench;
        bench.driver->singleRun = true;
        const int method = GpuInfo_Main::staticMetaObject.methodOffset();
        int answer = 12345;
        void* arguments[] = {&answer, nullptr};
        DriverBench::printed(
            [&] { bench.driver->qt_metacall(QMetaObject::InvokeMetaMethod, method, arguments); });
        QCOMPARE(bench.calls, QStringList({"update NVIDIA", "update AMD"}));
        QCOMPARE(answer, 12345);
        bench.driver->qt_metacall(QMetaObject::RegisterMethodArgumentMetaType, method, arguments);
        QCOMPARE(answer, -1);
        QCOMPARE(bench.driver->qt_metacall(QMetaObject::InvokeMetaMethod, method + 1, arguments), 0);
        QCOMPARE(bench.calls.size(), 2);
    }

    void staticMetacall() {
        DriverBench bench;
        bench.driver->singleRun = true;
        void* arguments[] = {nullptr};
        const auto call = GpuInfo_Main::staticMetaObject.d.static_metacall;
        DriverBench::printed([&] { call(bench.driver.get(), QMetaObject::InvokeMetaMethod, 0, arguments); });
        QCOMPARE(bench.calls, QStringList({"update NVIDIA", "update AMD"}));
        DriverBench::printed([&] { call(bench.driver.get(), QMetaObject::InvokeMetaMethod, 1, arguments); });
        QCOMPARE(bench.calls.size(), 2);
    }
};

QTEST_GUILESS_MAIN(TestGpuInfo_Main)
#include "test_GpuInfo_Main.moc"
