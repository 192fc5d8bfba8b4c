// One update cycle: its calls, records, report and summary.
#include <limits>

#include <QTest>

#include "DriverBench.h"
#include "app/log/logLine.h"
#include "tests/unit/testRows.h"

namespace {

/// A bench whose cycles touch no segment.
struct Cycle : DriverBench {
    explicit Cycle(const QString& vendors = "NVIDIA AMD") : DriverBench(vendors) { driver->singleRun = true; }
};

QByteArray textOfAMachineWithout(const QByteArray& nvidiaCountLine) {
    return "#################### update current usage ####################\n"
           "\n-------------------- GPU Information --------------------\n" +
           nvidiaCountLine +
           "AMD GPU Count: 0\n"
           "METAL GPU Count: 0\n"
           "---- Summary ----\n"
           " \n"
           "Total GPU Count: 0\n"
           "-------------------- END --------------------\n\n"
           "\n\n";
}

/// A GPU of the summary's table: its figures, absent where negative.
struct Figures {
    int usage;
    int temperature;
    int total;
    int used;
    int free;
    float speed;
};

void give(GpuDevice& gpu, const Figures& figures) {
    gpu.hasUsage = figures.usage >= 0;
    gpu.usagePercent = figures.usage;
    gpu.hasTemperature = figures.temperature > -300;
    gpu.temperature = figures.temperature;
    gpu.hasMemTotal = figures.total >= 0;
    gpu.memTotalMb = figures.total;
    gpu.hasMemUsage = figures.used >= 0;
    gpu.memUsedMb = figures.used;
    gpu.memFreeMb = figures.free;
    gpu.hasSpeed = figures.speed >= 0;
    gpu.speedGps = figures.speed;
}

constexpr int none = -1000;

/// The summary's figures and markers as one line.
QByteArray summaryOf(const GpuInfoBlock& list) {
    const GpuDevice& sum = list.summary;
    const auto figure = [](int marker, const QString& value) {
        return (marker == 1 ? "+" : marker == 0 ? "-" : "?") + value;
    };
    return QStringList{figure(sum.hasUsage, QString::number(sum.usagePercent)),
                       figure(sum.hasTemperature, QString::number(sum.temperature)),
                       figure(sum.hasMemTotal, QString::number(sum.memTotalMb)),
                       figure(sum.hasMemUsage, QString::number(sum.memUsedMb)),
                       figure(sum.hasMemUsage, QString::number(sum.memFreeMb)),
                       figure(sum.hasSpeed, QString::number(double(sum.speedGps))),
                       "valid " + QString::number(sum.statsValid)}
        .join(' ')
        .toLatin1();
}

} // namespace

Q_DECLARE_METATYPE(QVector<Figures>)

class TestGpuInfo_Main_update : public QObject {
    Q_OBJECT

  private slots:
    void init() { logLevel = 4; }
    void cleanup() { logLevel = 3; }

    void withoutGpus() {
        Cycle cycle;
        QCOMPARE(cycle.update(), textOfAMachineWithout("CUDA GPU Count : 0\n"));
        QCOMPARE(cycle.list().dataReady, 1U);
        QCOMPARE(cycle.list().totalCount(), 0);
        QCOMPARE(int(cycle.list().summary.statsValid), 0);
    }

    void withoutProviders() { QCOMPARE(Cycle("").update(), textOfAMachineWithout("CUDA GPU Count: 0\n")); }

    void nothingAtTheDefaultLevel() {
        logLevel = 3;
        Cycle cycle;
        cycle.nvidia->add("a");
        QCOMPARE(cycle.update(), QByteArray());
        QCOMPARE(cycle.list().cudaCount, 1U);
    }

    void wholeReport_data() {
        const auto row = testColumns<int>("level");
        row("report", 4);
        row("detail", 5);
    }

    void wholeReport() {
        QFETCH(int, level);
        logLevel = level;
        Cycle cycle("NVIDIA AMD Apple");
        GpuDevice& first = cycle.nvidia->add("NVIDIA GeForce RTX 4090");
        first.gpuType = GpuType_Cuda;
        give(first, {20, 60, 24576, 1000, 23576, 100.25F});
        GpuDevice& second = cycle.nvidia->add("NVIDIA RTX 6000 Ada Generation");
        second.gpuType = GpuType_Cuda;
        give(second, {90, 75, 49152, 40000, 9152, -1});
        GpuDevice& third = cycle.amd->add("AMD Radeon Pro W6800");
        third.gpuType = GpuType_Amd;
        give(third, {-1, none, 32768, -1, -1, 50.5F});
        GpuDevice& fourth = cycle.apple->add("Apple M1 Max");
        fourth.gpuType = GpuType_Metal;
        give(fourth, {-1, none, -1, -1, -1, -1});
        cycle.nvidia->onCall = [](const char* call) { logLine(3, "<NVIDIA " + QString(call) + ">"); };
        cycle.amd->onCall = [](const char* call) { logLine(3, "<AMD " + QString(call) + ">"); };
        cycle.apple->onCall = [](const char* call) { logLine(3, "<Apple " + QString(call) + ">"); };
        QCOMPARE(cycle.update(), QByteArray("#################### update current usage ####################\n"
                                            "<NVIDIA update>\n"
                                            "<AMD update>\n"
                                            "<Apple update>\n"
                                            "\n-------------------- GPU Information --------------------\n"
                                            "CUDA GPU Count : 2\n"
                                            "---- #0   Cuda-0  RTX4090 ----\n"
                                            "    #0 : Gpu Usage:      20 %\n"
                                            "    #0 : Temperature:    60 C\n"
                                            "    #0 : Mem Total:   24576 Mb\n"
                                            "    #0 : Mem Used:     1000 Mb\n"
                                            "    #0 : Mem Free:    23576 Mb\n"
                                            "    #0 : Speed:       100.25 GPS\n"
                                            " \n"
                                            "---- #1   Cuda-1  RTX6000Ada ----\n"
                                            "    #1 : Gpu Usage:      90 %\n"
                                            "    #1 : Temperature:    75 C\n"
                                            "    #1 : Mem Total:   49152 Mb\n"
                                            "    #1 : Mem Used:    40000 Mb\n"
                                            "    #1 : Mem Free:     9152 Mb\n"
                                            " \n"
                                            "AMD GPU Count: 1\n"
                                            "---- #2    AMD-0  W6800 ----\n"
                                            "    #2 : Mem Total:   32768 Mb\n"
                                            "    #2 : Speed:       50.50 GPS\n"
                                            " \n"
                                            "METAL GPU Count: 1\n"
                                            "---- #3  Metal-0  M1Max ----\n"
                                            " \n"
                                            "---- Summary ----\n"
                                            "    : Gpu Usage:     110 %\n"
                                            "    : Temperature:    75 C\n"
                                            "    : Mem Total:   24576 Mb\n"
                                            "    : Mem Used:    40000 Mb\n"
                                            "    : Mem Free:     9152 Mb\n"
                                            "    : Speed:       150.75 GPS\n"
                                            " \n"
                                            "Total GPU Count: 4\n"
                                            "-------------------- END --------------------\n\n"
                                            "\n\n"));
        for (FakeProvider* provider : {cycle.nvidia, cycle.amd, cycle.apple})
            provider->onCall = nullptr;
    }

    void recordsAreCopiedWhole() {
        Cycle cycle("NVIDIA AMD Apple");
        for (FakeProvider* provider : {cycle.nvidia, cycle.amd, cycle.apple}) {
            GpuDevice& gpu = provider->add("a name");
            std::memset(static_cast<void*>(&gpu), 0x2a, sizeof gpu);
            gpu.name[63] = '\0';
            gpu.deviceIndex = 0;
        }
        cycle.update();
        const auto bytesOf = [](const GpuDevice& gpu) {
            return QByteArray(reinterpret_cast<const char*>(&gpu), sizeof gpu).toHex(' ');
        };
        QCOMPARE(bytesOf(cycle.list().cudaGpus[0]), bytesOf(cycle.nvidia->gpu(0)));
        QCOMPARE(bytesOf(cycle.list().amdGpus[0]), bytesOf(cycle.amd->gpu(0)));
        QCOMPARE(bytesOf(cycle.list().metalGpus[0]), bytesOf(cycle.apple->gpu(0)));
        QCOMPARE(summaryOf(cycle.list()).count('+'), 6); // any marker but 0 is set, and 1 in the summary
    }

    void seventeenGpus() {
        Cycle cycle("NVIDIA AMD Apple");
        for (FakeProvider* provider : {cycle.nvidia, cycle.amd, cycle.apple})
            for (int i = 0; i < 17; ++i)
                provider->add("x").usagePercent = i;
        const QByteArray text = cycle.update();
        const GpuInfoBlock& list = cycle.list();
        QCOMPARE(list.cudaCount, 16U);
        QCOMPARE(list.amdCount, 16U);
        QCOMPARE(list.metalCount, 16U);
        QCOMPARE(list.cudaGpus[15].usagePercent, 15);
        QCOMPARE(list.amdGpus[0].usagePercent, 0);
        QCOMPARE(list.metalGpus[0].usagePercent, 0);
        QCOMPARE(list.metalGpus[15].usagePercent, 15);
        QCOMPARE(int(list.summary.gpuType), 4);
        QVERIFY(text.contains("CUDA GPU Count : 17\n"));
        QCOMPARE(text.count("---- #16 Other-16 x ----\n"), 1);
        QCOMPARE(text.count("---- #16 Other-0  x ----\n"), 1);
        QCOMPARE(text.count("---- #32 Other-16 x ----\n"), 1);
        QCOMPARE(text.count("---- #32 Other-0  x ----\n"), 1);
        QCOMPARE(text.count("---- #48 Other-16 x ----\n"), 1);
        QVERIFY(text.contains("Total GPU Count: 48\n"));
    }

    /// The count is that of the last one refreshed, so a stale entry may lie below it.
    void oneInTheMiddleIsNotRefreshed() {
        Cycle cycle;
        for (const char* name : {"a", "b", "c"}) {
            GpuDevice& gpu = cycle.nvidia->add(name);
            gpu.hasUsage = 1;
            gpu.usagePercent = 10;
        }
        cycle.nvidia->onUpdate = [&] { cycle.nvidia->gpu(1).statsValid = 0; };
        QByteArray text = cycle.update();
        QCOMPARE(cycle.list().cudaCount, 3U);
        QCOMPARE(QByteArray(cycle.list().cudaGpus[1].name), QByteArray());
        QCOMPARE(cycle.list().cudaGpus[1].deviceIndex, -1);
        QVERIFY(text.contains("CUDA GPU Count : 3\n"));
        QVERIFY(text.contains("Total GPU Count: 3\n"));
        QVERIFY(text.contains("#0 ") && !text.contains("#1 ") && text.contains("#2 "));
        QCOMPARE(cycle.list().summary.usagePercent, 20);

        cycle.nvidia->onUpdate = nullptr;
        cycle.update();
        QCOMPARE(cycle.list().summary.usagePercent, 30);

        cycle.nvidia->onUpdate = [&] {
            cycle.nvidia->gpu(1).statsValid = 0;
            cycle.nvidia->gpu(1).usagePercent = 99;
        };
        text = cycle.update();
        QCOMPARE(cycle.list().cudaCount, 3U);
        QCOMPARE(QByteArray(cycle.list().cudaGpus[1].name), QByteArray("b"));
        QCOMPARE(int(cycle.list().cudaGpus[1].statsValid), 0);
        QVERIFY(!text.contains("#1 "));
        QCOMPARE(cycle.list().summary.usagePercent, 30);
    }

    void theLastAreNotRefreshed() {
        Cycle cycle;
        for (const char* name : {"a", "b", "c"})
            cycle.amd->add(name);
        cycle.update();
        QCOMPARE(cycle.list().amdCount, 3U);
        cycle.amd->onUpdate = [&] { cycle.amd->gpu(1).statsValid = cycle.amd->gpu(2).statsValid = 0; };
        cycle.update();
        QCOMPARE(cycle.list().amdCount, 1U);
        QCOMPARE(QByteArray(cycle.list().amdGpus[2].name), QByteArray("c"));
        cycle.amd->onUpdate = [&] {
            for (int i = 0; i < 3; ++i)
                cycle.amd->gpu(i).statsValid = 0;
        };
        const QByteArray text = cycle.update();
        QCOMPARE(cycle.list().amdCount, 0U);
        QVERIFY(text.contains("AMD GPU Count: 3\n"));
        QVERIFY(text.contains("Total GPU Count: 0\n"));
    }

    void aNumberThatNoGpuHasIsNotRefreshed() {
        Cycle cycle;
        cycle.nvidia->add("only").deviceIndex = -1;
        QVERIFY(cycle.update().contains("CUDA GPU Count : 1\n"));
        QCOMPARE(cycle.list().totalCount(), 0);
    }

    void aCycleBeginsAnew() {
        Cycle cycle("NVIDIA AMD Apple");
        for (FakeProvider* provider : {cycle.nvidia, cycle.amd, cycle.apple})
            for (int i = 0; i < GpuInfoBlock::capacity; ++i)
                provider->add("stored");
        cycle.update();
        QCOMPARE(cycle.list().totalCount(), 3 * GpuInfoBlock::capacity);
        // The counts are reset before the providers are called.
        QVector<quint32> counts;
        cycle.nvidia->onUpdate = [&] {
            counts << cycle.list().cudaCount << cycle.list().amdCount << cycle.list().metalCount;
            for (int i = 0; i < GpuInfoBlock::capacity; ++i)
                counts << cycle.list().cudaGpus[i].statsValid << cycle.list().amdGpus[i].statsValid
                       << cycle.list().metalGpus[i].statsValid;
        };
        for (FakeProvider* provider : {cycle.nvidia, cycle.amd, cycle.apple})
            provider->removeAll();
        cycle.update();
        QCOMPARE(counts, QVector<quint32>(3 + 3 * GpuInfoBlock::capacity, 0));
        QCOMPARE(cycle.list().totalCount(), 0);
        QCOMPARE(int(cycle.list().summary.statsValid), 0);
        QCOMPARE(QByteArray(cycle.list().metalGpus[15].name), QByteArray("stored"));
    }

    void identityOfTheSummary() {
        Cycle cycle;
        cycle.update();
        QCOMPARE(QByteArray(cycle.list().summary.name), QByteArray("Summary"));
        QCOMPARE(int(cycle.list().summary.gpuType), 4);
        QCOMPARE(cycle.list().summary.deviceIndex, 99);
        QCOMPARE(summaryOf(cycle.list()), QByteArray("-0 -0 -65535 -0 -65535 -0 valid 0"));
    }

    void summary_data() {
        const auto row = testColumns<QVector<Figures>, QByteArray>("gpus", "sum");
        const Figures absent{-1, none, -1, -1, -1, -1};
        row("no figure", {absent}, "-0 -0 -65535 -0 -65535 -0 valid 1");
        row("one GPU", {{7, 65, 8192, 100, 8092, 12.5F}}, "+7 +65 +8192 +100 +8092 +12.5 valid 1");
        row("usage and speed add up", {{60, none, -1, -1, -1, 1.5F}, {70, none, -1, -1, -1, 2.25F}},
            "+130 -0 -65535 -0 -65535 +3.75 valid 1");
        row("hottest, smallest, least free, most used",
            {{-1, 60, 8192, 8000, 192, -1}, {-1, 75, 24576, 1000, 23576, -1}},
            "-0 +75 +8192 +8000 +192 -0 valid 1");
        row("the other way round", {{-1, 75, 24576, 1000, 23576, -1}, {-1, 60, 8192, 8000, 192, -1}},
            "-0 +75 +8192 +8000 +192 -0 valid 1");
        row("an absent figure is passed over", {absent, {7, 65, 8192, 100, 8092, 12.5F}, absent},
            "+7 +65 +8192 +100 +8092 +12.5 valid 1");
        row("0 is a reading", {{0, 0, 0, 0, 0, 0.0F}}, "+0 +0 +0 +0 +0 +0 valid 1");
        row("below zero counts from zero", {{-1, -10, -1, -1, -1, -1}}, "-0 +0 -65535 -0 -65535 -0 valid 1");
        row("more memory than the summary begins with", {{-1, none, 196608, 100000, 96608, -1}},
            "-0 -0 +65535 +100000 +65535 -0 valid 1");
        row("a sum that no integer holds",
            {{std::numeric_limits<int>::max(), none, -1, -1, -1, -1}, {2, none, -1, -1, -1, -1}},
            "+-2147483647 -0 -65535 -0 -65535 -0 valid 1");
    }

    void summary() {
        QFETCH(QVector<Figures>, gpus);
        QFETCH(QByteArray, sum);
        Cycle cycle;
        for (const Figures& figures : gpus)
            give(cycle.amd->add("x"), figures);
        cycle.update();
        QCOMPARE(summaryOf(cycle.list()), sum);
        cycle.update(); // the sums start again
        QCOMPARE(summaryOf(cycle.list()), sum);
    }

    void summaryOverAllVendors() {
        Cycle cycle("NVIDIA AMD Apple");
        give(cycle.nvidia->add("x"), {1, 10, 3000, 30, 600, 1.0F});
        give(cycle.amd->add("x"), {20, 30, 2000, 20, 500, 0.5F});
        give(cycle.apple->add("x"), {300, 20, 1000, 10, 400, 0.25F});
        cycle.update();
        QCOMPARE(summaryOf(cycle.list()), QByteArray("+321 +30 +1000 +30 +400 +1.75 valid 1"));
    }

    /// A vendor's 17th GPU is printed, but the summary covers only what readers can see.
    void summaryOfWhatIsStored() {
        Cycle cycle;
        for (int i = 0; i < 17; ++i)
            give(cycle.nvidia->add("x"), {1, none, -1, -1, -1, -1});
        cycle.update();
        QCOMPARE(cycle.list().summary.usagePercent, 16);
    }

    void markersOfTheSummaryStay() {
        Cycle cycle;
        GpuDevice& gpu = cycle.nvidia->add("x");
        give(gpu, {7, 65, 8192, 100, 8092, 12.5F});
        cycle.update();
        give(gpu, {-1, none, -1, -1, -1, -1});
        const QByteArray text = cycle.update();
        QCOMPARE(summaryOf(cycle.list()), QByteArray("+0 +0 +65535 +0 +65535 +0 valid 1"));
        QVERIFY(text.contains("---- Summary ----\n"
                              "    : Gpu Usage:       0 %\n"
                              "    : Temperature:     0 C\n"
                              "    : Mem Total:   65535 Mb\n"
                              "    : Mem Used:        0 Mb\n"
                              "    : Mem Free:    65535 Mb\n"
                              "    : Speed:        0.00 GPS\n"
                              " \n"));
        cycle.nvidia->removeAll();
        cycle.update();
        QCOMPARE(summaryOf(cycle.list()), QByteArray("+0 +0 +65535 +0 +65535 +0 valid 0"));
    }

    void dataIsReadyOnlyAfterTheCycle() {
        Cycle cycle;
        quint32 during = 7;
        cycle.amd->onUpdate = [&] { during = cycle.list().dataReady; };
        QCOMPARE(cycle.list().dataReady, 0U);
        cycle.update();
        QCOMPARE(during, 0U);
        QCOMPARE(cycle.list().dataReady, 1U);
        QCOMPARE(cycle.list().blockVersion, 68865U);
        QCOMPARE(int(cycle.list().onlyCuda), 0);
    }
};

QTEST_GUILESS_MAIN(TestGpuInfo_Main_update)
#include "test_GpuInfo_Main_update.moc"
