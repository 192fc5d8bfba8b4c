// The C interface, called as a program does that knows nothing of the C++ below it.
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <limits>
#include <new>
#include <string>
#include <utility>

#include <fcntl.h>
#include <qzgpuinfo.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QElapsedTimer>
#include <QTest>

#include "SegmentDirectory.h"
#include "ValidBlock.h"
#include "support/FileDescriptor.h"
#include "support/segmentFlags.h"

namespace {

int allocationsLeft = -1; ///< below 0: as many as there is memory for

} // namespace

// The library takes its memory from here, as from any program that replaces the operator.
void* operator new(std::size_t size) {
    if (allocationsLeft == 0)
        throw std::bad_alloc();
    if (allocationsLeft > 0)
        --allocationsLeft;
    if (void* memory = std::malloc(size != 0 ? size : 1))
        return memory;
    throw std::bad_alloc();
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

namespace {

qzgpuinfo_state newState() {
    qzgpuinfo_state state{};
    state.size = sizeof state;
    return state;
}

qzgpuinfo_gpu newGpu() {
    qzgpuinfo_gpu gpu{};
    gpu.size = sizeof gpu;
    return gpu;
}

} // namespace

class TestQzgpuinfo : public QObject {
    Q_OBJECT

  private slots:
    void init() {
        QVERIFY(directory.path() != nullptr);
        QCOMPARE(qzgpuinfo_open(directory.path(), &reader), QZGPUINFO_OK);
    }
    void cleanup() {
        qzgpuinfo_close(reader);
        reader = nullptr;
        QFile::remove(QString::fromUtf8(directory.file(segmentKey)));
    }

    void version() { QCOMPARE(qzgpuinfo_api_version(), std::uint32_t{QZGPUINFO_API_VERSION}); }

    void eachResultHasItsText() {
        QStringList texts;
        for (int result = QZGPUINFO_OK; result <= QZGPUINFO_OUT_OF_MEMORY; ++result)
            texts << QString::fromUtf8(qzgpuinfo_result_text(result));
        QCOMPARE(texts.removeDuplicates(), 0);
        QVERIFY(!texts.contains(QStringLiteral("unknown result")));
        for (const int other : {-1, QZGPUINFO_OUT_OF_MEMORY + 1, std::numeric_limits<int>::max()})
            QCOMPARE(qzgpuinfo_result_text(other), "unknown result");
    }

    void eachKindHasItsText() {
        QByteArray texts;
        for (const std::uint32_t kind : {0U, 1U, 2U, 3U, 4U, 5U, 255U, 256U, 0xFFFFFFFFU})
            texts += QByteArray(qzgpuinfo_kind_text(kind)) + ' ';
        QCOMPARE(texts, QByteArray("Other Cuda AMD Metal - unknown unknown unknown unknown "));
    }

    void nullPointersAreRefused() {
        qzgpuinfo_gpu gpu = newGpu();
        qzgpuinfo_state state = newState();
        QCOMPARE(qzgpuinfo_open(directory.path(), nullptr), QZGPUINFO_INVALID_ARGUMENT);
        QCOMPARE(qzgpuinfo_read(nullptr, 0, &state), QZGPUINFO_INVALID_ARGUMENT);
        QCOMPARE(qzgpuinfo_get_gpu(nullptr, 0, &gpu), QZGPUINFO_INVALID_ARGUMENT);
        QCOMPARE(qzgpuinfo_get_gpu(reader, 0, nullptr), QZGPUINFO_INVALID_ARGUMENT);
        QCOMPARE(qzgpuinfo_get_summary(nullptr, &gpu), QZGPUINFO_INVALID_ARGUMENT);
        QCOMPARE(qzgpuinfo_get_summary(reader, nullptr), QZGPUINFO_INVALID_ARGUMENT);
        qzgpuinfo_close(nullptr);
    }

    void nullPointersThatAreAllowed() {
        QCOMPARE(qzgpuinfo_read(reader, 0, nullptr), QZGPUINFO_MISSING);
        qzgpuinfo_reader* usual = nullptr;
        QCOMPARE(qzgpuinfo_open(nullptr, &usual), QZGPUINFO_OK);
        QVERIFY(usual != nullptr);
        qzgpuinfo_close(usual);
    }

    void aSizeThatIsTooSmall() {
        QVERIFY(write(validBlock()));
        QCOMPARE(qzgpuinfo_read(reader, 0, nullptr), QZGPUINFO_OK);
        for (const std::uint32_t size : {0U, 1U, 39U}) {
            qzgpuinfo_state state = newState();
            state.size = size;
            state.gpu_count = 77;
            QCOMPARE(qzgpuinfo_read(reader, 0, &state), QZGPUINFO_INVALID_ARGUMENT);
            QCOMPARE(state.gpu_count, 77U);
        }
        for (const std::uint32_t size : {0U, 1U, 239U}) {
            qzgpuinfo_gpu gpu = newGpu();
            gpu.size = size;
            gpu.kind = 77;
            QCOMPARE(qzgpuinfo_get_gpu(reader, 0, &gpu), QZGPUINFO_INVALID_ARGUMENT);
            QCOMPARE(qzgpuinfo_get_summary(reader, &gpu), QZGPUINFO_INVALID_ARGUMENT);
            QCOMPARE(gpu.kind, 77U);
        }
    }

    // A program that was built with a later header runs with this library.
    void aLongerStructureEndsInZeros() {
        struct Later {
            qzgpuinfo_gpu gpu;
            unsigned char more[8];
            unsigned char behind;
        } later{};
        QVERIFY(write(validBlock()));
        QCOMPARE(qzgpuinfo_read(reader, 0, nullptr), QZGPUINFO_OK);
        std::memset(&later, 0xAA, sizeof later);
        later.gpu.size = offsetof(Later, behind);
        QCOMPARE(qzgpuinfo_get_gpu(reader, 0, &later.gpu), QZGPUINFO_OK);
        QCOMPARE(later.gpu.size, std::uint32_t{offsetof(Later, behind)});
        QCOMPARE(later.gpu.name, "cuda");
        QCOMPARE(QByteArray(reinterpret_cast<const char*>(later.more), 8), QByteArray(8, '\0'));
        QCOMPARE(later.behind, static_cast<unsigned char>(0xAA));
    }

    void noListNoGpu() {
        qzgpuinfo_gpu gpu = newGpu();
        QCOMPARE(qzgpuinfo_get_gpu(reader, 0, &gpu), QZGPUINFO_OUT_OF_RANGE);
        QCOMPARE(qzgpuinfo_get_summary(reader, &gpu), QZGPUINFO_OK);
        QVERIFY(!gpu.listed && !gpu.has_usage && gpu.name[0] == '\0');

        QVERIFY(write(validBlock()));
        QCOMPARE(qzgpuinfo_read(reader, 0, nullptr), QZGPUINFO_OK);
        for (const std::uint32_t index : {3U, 48U, 0x80000000U, 0xFFFFFFFFU})
            QCOMPARE(qzgpuinfo_get_gpu(reader, index, &gpu), QZGPUINFO_OUT_OF_RANGE);
        QCOMPARE(qzgpuinfo_get_gpu(reader, 2, &gpu), QZGPUINFO_OK);
        QCOMPARE(gpu.name, "metal");

        // The list of an earlier reading is gone after one that failed.
        QFile::remove(QString::fromUtf8(directory.file(segmentKey)));
        qzgpuinfo_state state = newState();
        QCOMPARE(qzgpuinfo_read(reader, 0, &state), QZGPUINFO_MISSING);
        QCOMPARE(state.gpu_count, 0U);
        QVERIFY(!state.opened);
        QCOMPARE(qzgpuinfo_get_gpu(reader, 0, &gpu), QZGPUINFO_OUT_OF_RANGE);
    }

    void onlyTheOwnersSegment() {
        QVERIFY(write(validBlock()));
        for (const bool mine : {true, false}) {
            qzgpuinfo_reader* other = nullptr;
            QCOMPARE(qzgpuinfo_open_user(directory.path(), geteuid() + (mine ? 0 : 1), &other), QZGPUINFO_OK);
            const qzgpuinfo_result result = qzgpuinfo_read(other, 0, nullptr);
            qzgpuinfo_close(other);
            QCOMPARE(result, mine ? QZGPUINFO_OK : QZGPUINFO_PERMISSION_DENIED);
        }
        QCOMPARE(qzgpuinfo_open_user(nullptr, 0, nullptr), QZGPUINFO_INVALID_ARGUMENT);
    }

    void errnoIsLeftAlone() {
        errno = 4711;
        QCOMPARE(qzgpuinfo_read(reader, 0, nullptr), QZGPUINFO_MISSING);
        QCOMPARE(errno, 4711);
    }

    // However many allocations succeed, the call ends with a result and the next one works.
    void outOfMemory() {
        QVERIFY(write(validBlock()));
        qzgpuinfo_reader* other = reader;
        allocationsLeft = 0;
        const qzgpuinfo_result opened =
            qzgpuinfo_open("a directory whose name is not kept in the string itself", &other);
        allocationsLeft = -1;
        QCOMPARE(opened, QZGPUINFO_OUT_OF_MEMORY);
        QVERIFY(other == nullptr);

        int failures = 0;
        for (qzgpuinfo_result result = QZGPUINFO_OUT_OF_MEMORY; result != QZGPUINFO_OK; ++failures) {
            qzgpuinfo_state state = newState();
            allocationsLeft = failures;
            result = qzgpuinfo_read(reader, 0, &state);
            allocationsLeft = -1;
            QVERIFY(result == QZGPUINFO_OK || result == QZGPUINFO_OUT_OF_MEMORY);
            QCOMPARE(state.gpu_count, result == QZGPUINFO_OK ? 3U : 0U);
            QVERIFY(failures < 1000);
        }
        QVERIFY(failures > 1);
    }

    void stateOfTheSegment_data() {
        QTest::addColumn<QByteArray>("flags"); // that a process has set: a(ttached) p(ublished) m(easuring)
        QTest::addColumn<int>("age");          // seconds, below 0: dated ahead
        QTest::addColumn<int>("freshness");

        QTest::newRow("no flag") << QByteArray() << 0 << int{QZGPUINFO_UNPUBLISHED};
        QTest::newRow("attached") << QByteArray("a") << 0 << int{QZGPUINFO_UNPUBLISHED};
        QTest::newRow("published") << QByteArray("ap") << 0 << int{QZGPUINFO_FRESH};
        QTest::newRow("old") << QByteArray("ap") << 600 << int{QZGPUINFO_TOO_OLD};
        QTest::newRow("as old, measuring") << QByteArray("apm") << 600 << int{QZGPUINFO_FRESH};
        QTest::newRow("ahead") << QByteArray("ap") << -3600 << int{QZGPUINFO_AHEAD};
        QTest::newRow("attached no more") << QByteArray("p") << 0 << int{QZGPUINFO_FRESH};
    }
    void stateOfTheSegment() {
        QFETCH(QByteArray, flags);
        QFETCH(int, age);
        QVERIFY(write(validBlock()));
        const FileDescriptor object(open(directory.file(segmentKey).constData(), O_RDWR | O_CLOEXEC));
        for (const auto& [letter, flag] : {std::pair{'a', SegmentFlag::Attached},
                                           {'p', SegmentFlag::HasPublished},
                                           {'m', SegmentFlag::Measuring}}) {
            struct flock lock = flagLock(flag, F_RDLCK);
            if (flags.contains(letter))
                QCOMPARE(fcntl(object.get(), F_OFD_SETLK, &lock), 0);
        }
        const timespec published{std::time(nullptr) - age, 0};
        const timespec times[] = {published, published};
        QCOMPARE(futimens(object.get(), times), 0);

        qzgpuinfo_state state = newState();
        QCOMPARE(qzgpuinfo_read(reader, 0, &state), QZGPUINFO_OK);
        QVERIFY(state.opened);
        QCOMPARE(state.attached != 0, flags.contains('a'));
        QCOMPARE(state.published != 0, flags.contains('p'));
        QCOMPARE(state.measuring != 0, flags.contains('m'));
        QCOMPARE(state.published_at, static_cast<double>(published.tv_sec));
        QVERIFY(state.age_seconds >= age && state.age_seconds < age + 60);
        QTEST(static_cast<int>(state.freshness), "freshness");
        QCOMPARE(state.gpu_count, 3U);
        QCOMPARE(state.system_error, 0);
        QCOMPARE(state.size, std::uint32_t{sizeof state});
    }

    void whyTheSystemRefused() {
        QVERIFY(symlink("/nowhere", directory.file(segmentKey).constData()) == 0);
        QCOMPARE(qzgpuinfo_read(reader, 0, nullptr), QZGPUINFO_FOREIGN);
        QVERIFY(unlink(directory.file(segmentKey).constData()) == 0);

        qzgpuinfo_reader* tooLong = nullptr;
        QCOMPARE(qzgpuinfo_open(std::string(5000, 'x').c_str(), &tooLong), QZGPUINFO_OK);
        qzgpuinfo_state state = newState();
        const qzgpuinfo_result result = qzgpuinfo_read(tooLong, 0, &state);
        qzgpuinfo_close(tooLong);
        QCOMPARE(result, QZGPUINFO_IO_ERROR);
        QCOMPARE(state.system_error, ENAMETOOLONG);
    }

    void theLockIsWaitedFor() {
        QVERIFY(write(validBlock()));
        const FileDescriptor object(open(directory.file(segmentKey).constData(), O_RDWR | O_CLOEXEC));
        QCOMPARE(flock(object.get(), LOCK_EX), 0);
        QElapsedTimer timer;
        timer.start();
        QCOMPARE(qzgpuinfo_read(reader, 200, nullptr), QZGPUINFO_LOCKED);
        QVERIFY(timer.elapsed() >= 200);
    }

    void figures_data() {
        QTest::addColumn<QByteArray>(
            "markers"); // of the block: u(sage) t(emperature) T(otal) m(emory) s(peed)
        QTest::addColumn<QByteArray>("figures");

        QTest::newRow("none") << QByteArray() << QByteArray("------");
        QTest::newRow("usage") << QByteArray("u") << QByteArray("1----- answering");
        QTest::newRow("temperature") << QByteArray("t") << QByteArray("-2---- answering");
        QTest::newRow("memory size") << QByteArray("T") << QByteArray("--3---");
        QTest::newRow("memory in use") << QByteArray("m") << QByteArray("---45- answering");
        QTest::newRow("score") << QByteArray("s") << QByteArray("-----6");
        QTest::newRow("all") << QByteArray("utTms") << QByteArray("123456 answering");
    }
    void figures() {
        QFETCH(QByteArray, markers);
        GpuInfoBlock block = validBlock();
        GpuDevice& record = block.amdGpus[0];
        record.usagePercent = 1;
        record.temperature = 2;
        record.memTotalMb = 3;
        record.memUsedMb = 4;
        record.memFreeMb = 5;
        record.speedGps = 6.0F;
        record.hasUsage = markers.contains('u');
        record.hasTemperature = markers.contains('t');
        record.hasMemTotal = markers.contains('T');
        record.hasMemUsage = markers.contains('m');
        record.hasSpeed = markers.contains('s');
        QVERIFY(write(block));
        QCOMPARE(qzgpuinfo_read(reader, 0, nullptr), QZGPUINFO_OK);

        qzgpuinfo_gpu gpu = newGpu();
        QCOMPARE(qzgpuinfo_get_gpu(reader, 1, &gpu), QZGPUINFO_OK);
        QByteArray found;
        const auto add = [&found](bool has, double value) {
            found += has ? QByteArray::number(value) : QByteArray(value == 0.0 ? "-" : "!");
        };
        add(gpu.has_usage, gpu.usage_percent);
        add(gpu.has_temperature, gpu.temperature_celsius);
        add(gpu.has_memory_total, gpu.memory_total_mib);
        add(gpu.has_memory_used, gpu.memory_used_mib);
        add(gpu.has_memory_free, gpu.memory_free_mib);
        add(gpu.has_speed, double{gpu.speed_gps});
        QTEST(found + (gpu.answering ? " answering" : ""), "figures");
    }

    void everythingElseOfAGpu() {
        GpuInfoBlock block = validBlock();
        GpuDevice& record = block.cudaGpus[0];
        record.gpuType = GpuType_Cuda;
        record.deviceIndex = 7;
        std::memset(record.name, 0xFF, sizeof record.name);
        block.amdGpus[0].clDevice = 1;
        block.amdGpus[0].gpuType = 200;
        block.metalGpus[0].optixCapable = 1;
        block.metalGpus[0].amdRayTracing = 1;
        block.metalGpus[0].statsValid = 0;
        block.summary.gpuType = GpuType_Summary;
        block.summary.deviceIndex = 99;
        QVERIFY(write(block));
        QCOMPARE(qzgpuinfo_read(reader, 0, nullptr), QZGPUINFO_OK);

        qzgpuinfo_gpu gpu = newGpu();
        const auto all = [&gpu] {
            return QStringLiteral("kind %1 index %2 listed %3 abilities %4%5%6")
                .arg(gpu.kind)
                .arg(gpu.device_index)
                .arg(gpu.listed)
                .arg(gpu.opencl_matched)
                .arg(gpu.optix_capable)
                .arg(gpu.amd_ray_tracing);
        };
        QCOMPARE(qzgpuinfo_get_gpu(reader, 0, &gpu), QZGPUINFO_OK);
        QCOMPARE(all(), QStringLiteral("kind 1 index 7 listed 1 abilities 000"));
        QCOMPARE(QByteArray(gpu.name), QByteArray("\xef\xbf\xbd").repeated(63));
        QCOMPARE(qzgpuinfo_get_gpu(reader, 1, &gpu), QZGPUINFO_OK);
        QCOMPARE(all(), QStringLiteral("kind 255 index -1 listed 1 abilities 100"));
        QCOMPARE(qzgpuinfo_get_gpu(reader, 2, &gpu), QZGPUINFO_OK);
        QCOMPARE(all(), QStringLiteral("kind 0 index -1 listed 0 abilities 011"));
        QCOMPARE(qzgpuinfo_get_summary(reader, &gpu), QZGPUINFO_OK);
        QCOMPARE(all(), QStringLiteral("kind 4 index 99 listed 1 abilities 000"));
        QCOMPARE(gpu.name, "Summary");
    }

  private:
    SegmentDirectory directory;
    qzgpuinfo_reader* reader = nullptr;

    bool write(const GpuInfoBlock& block) const {
        return directory.makeFile(segmentKey,
                                  QByteArray(reinterpret_cast<const char*>(&block), sizeof block));
    }
};

QTEST_APPLESS_MAIN(TestQzgpuinfo)
#include "test_qzgpuinfo.moc"
