// The counters' file, and the library that replaces the functions that read files.
#include <array>
#include <cerrno>

#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <QTest>

#include "tests/unit/SimulatedLibrary.h"

namespace {

constexpr const char* card =
    "[card card0]\nvendor = 0x1002\ngpu_busy_percent = 7, 8, ...\nlabel = @unreadable\n"
    "mem_info_vram_used = cycle 1000\n";

const QByteArray device = "/sys/class/drm/card0/device/";

/// The functions of the preloaded library, looked up by name: here they replace nothing.
struct Watcher {
    SimulatedLibrary library{"libqzsim-sysfs.so"};

    QByteArray read(const QByteArray& path) const {
        const int file = library.get<int(const char*, int, ...)>("open64")(path.constData(), O_RDONLY);
        if (file < 0)
            return QByteArray::number(-errno);
        QByteArray text(64, '\0');
        const auto size = library.get<ssize_t(int, void*, size_t)>("read")(file, text.data(), 64);
        if (size < 0)
            text = QByteArray::number(-errno);
        else
            text.truncate(static_cast<int>(size));
        library.get<int(int)>("close")(file);
        return text;
    }
};

} // namespace

class TestSimulatorFiles : public QObject {
    Q_OBJECT

  private slots:
    void countersOutliveTheirOwner() {
        const QTemporaryDir folder;
        const std::string path = folder.filePath("counters").toStdString();
        {
            qzsim::Counters counters(path);
            QCOMPARE(counters.happened("a"), std::int64_t{1});
            QCOMPARE(counters.add("b", 5), std::int64_t{5});
            QCOMPARE(counters.happened("a"), std::int64_t{2});
        }
        qzsim::Counters again(path);
        QCOMPARE(again.value("a"), std::int64_t{2});
        QCOMPARE(again.add("b", -5), std::int64_t{0});
    }

    void countersOfTwoOwners() {
        const QTemporaryDir folder;
        const std::string path = folder.filePath("counters").toStdString();
        qzsim::Counters one(path);
        qzsim::Counters other(path);
        one.add("x");
        other.add("x");
        QCOMPARE(one.value("x"), std::int64_t{2});
    }

    void moreNamesThanRoom() {
        qzsim::Counters counters("");
        for (std::uint32_t i = 0; i < qzsim::CounterFile::maxSlots; ++i)
            QCOMPARE(counters.add("name " + std::to_string(i)), std::int64_t{1});
        QCOMPARE(counters.add("one more"), std::int64_t{0});
        QCOMPARE(counters.happened("one more"), std::int64_t{0});
        QCOMPARE(counters.add("name 7"), std::int64_t{2});
    }

    void moreEventsThanRoom() {
        qzsim::Counters counters("");
        for (std::uint32_t i = 1; i <= qzsim::CounterFile::maxEvents + 10; ++i)
            QCOMPARE(counters.happened("event"), std::int64_t{i});
    }

    void aFileThatCannotBeMade() {
        qzsim::Counters counters("/nonexistent/counters");
        QCOMPARE(counters.add("x"), std::int64_t{1});
    }

    void changingFile() {
        const SimulatedMachine machine(card);
        const Watcher watcher;
        QCOMPARE(watcher.read(device + "gpu_busy_percent"), QByteArray("7\n"));
        QCOMPARE(watcher.read(device + "gpu_busy_percent"), QByteArray("8\n"));
        QCOMPARE(watcher.read(device + "gpu_busy_percent"), QByteArray("7\n"));
        QCOMPARE(watcher.read(device + "mem_info_vram_used"), QByteArray("1000\n"));
        QCOMPARE(watcher.read(device + "mem_info_vram_used"), QByteArray("2000\n"));
        QCOMPARE(machine.counted(("open:" + device + "gpu_busy_percent").constData()), 3);
    }

    void failingFiles() {
        const SimulatedMachine machine(card, "card0/gpu_busy_percent = fail EBUSY at 2\n"
                                             "card0/mem_info_vram_used = refuse ENODEV at 1");
        const Watcher watcher;
        QCOMPARE(watcher.read(device + "label"), QByteArray::number(-EACCES));
        QCOMPARE(watcher.read(device + "gpu_busy_percent"), QByteArray("7\n"));
        QCOMPARE(watcher.read(device + "gpu_busy_percent"), QByteArray::number(-EBUSY));
        QCOMPARE(watcher.read(device + "gpu_busy_percent"), QByteArray("7\n"));
        QCOMPARE(watcher.read(device + "mem_info_vram_used"), QByteArray::number(-ENODEV));
        QCOMPARE(watcher.read(device + "mem_info_vram_used"), QByteArray("2000\n"));
    }

    void otherFilesAreLeftAlone() {
        const SimulatedMachine machine(card);
        const Watcher watcher;
        QCOMPARE(watcher.read(qgetenv("QZSIM_MACHINE")).left(5), QByteArray("[card"));
        QCOMPARE(watcher.read("/nonexistent"), QByteArray::number(-ENOENT));
        QCOMPARE(machine.counted(("open:" + qgetenv("QZSIM_MACHINE")).constData()), 0);
    }

    void aFailingFilesNumberIsGivenBack() {
        const SimulatedMachine machine(card, "card0/gpu_busy_percent = fail EIO");
        const Watcher watcher;
        QCOMPARE(watcher.read(device + "gpu_busy_percent"), QByteArray::number(-EIO));
        // The next file has the same number, and must not inherit the failure.
        QCOMPARE(watcher.read(qgetenv("QZSIM_MACHINE")).left(5), QByteArray("[card"));
    }

    void clock() {
        const SimulatedMachine machine(card);
        const Watcher watcher;
        const auto now = [&watcher](clockid_t clock) {
            timespec time{};
            watcher.library.get<int(clockid_t, timespec*)>("clock_gettime")(clock, &time);
            return time.tv_sec * 1000 + time.tv_nsec / 1000000;
        };
        const auto before = now(CLOCK_MONOTONIC);
        const auto processBefore = now(CLOCK_PROCESS_CPUTIME_ID);
        watcher.library.get<void(std::int64_t)>("qzsim_advanceClock")(123456);
        const auto passed = now(CLOCK_MONOTONIC) - before;
        QVERIFY(passed >= 123456 && passed < 123456 + 5000);
        QVERIFY(now(CLOCK_PROCESS_CPUTIME_ID) - processBefore < 5000);
    }
};

QTEST_APPLESS_MAIN(TestSimulatorFiles)
#include "test_SimulatorFiles.moc"
