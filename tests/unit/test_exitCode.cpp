#include <limits>

#include <QTest>

#include "app/exitCode.h"
#include "tests/unit/testRows.h"

namespace {

struct Gpu {
    int type;
    int optix;
    int rayTracing;
};

enum Question { NvCuda = 1, NvOptix = 2, AmdRt = 4, AnyGpu = 8, Score = 16 };

CommandLine asking(int questions) {
    CommandLine line;
    line.queryNvCuda = (questions & NvCuda) != 0;
    line.queryNvOptix = (questions & NvOptix) != 0;
    line.queryAmdRt = (questions & AmdRt) != 0;
    line.queryGPU = (questions & AnyGpu) != 0;
    line.returnGPS = (questions & Score) != 0;
    return line;
}

/// NVIDIA's places first, as in the list.
GpuInfoBlock listOf(const QVector<Gpu>& gpus) {
    GpuInfoBlock list;
    for (const Gpu& gpu : gpus) {
        GpuDevice& record =
            gpu.type == GpuType_Cuda ? list.cudaGpus[list.cudaCount++] : list.amdGpus[list.amdCount++];
        record.gpuType = static_cast<std::uint8_t>(gpu.type);
        record.optixCapable = static_cast<std::uint8_t>(gpu.optix);
        record.amdRayTracing = static_cast<std::uint8_t>(gpu.rayTracing);
    }
    return list;
}

constexpr int runResult = 77; // no question's answer

} // namespace

Q_DECLARE_METATYPE(QVector<Gpu>)

class TestExitCode : public QObject {
    Q_OBJECT

  private slots:
    void query_data() {
        const auto row = testColumns<int, QVector<Gpu>, int>("questions", "gpus", "code");
        const Gpu plainNvidia{1, 0, 0};
        const Gpu optix{1, 1, 0};
        const Gpu plainAmd{2, 0, 0};
        const Gpu rayTracing{2, 0, 1};
        for (const int question :
             {int(NvCuda), int(NvOptix), int(AmdRt), int(AnyGpu), NvCuda | NvOptix | AmdRt | AnyGpu})
            QTest::addRow("%d of no GPU", question) << question << QVector<Gpu>() << 0;
        row("CUDA of NVIDIA", NvCuda, {plainNvidia}, 1);
        row("CUDA of AMD", NvCuda, {plainAmd}, 0);
        row("CUDA of AMD with everything", NvCuda, {{2, 1, 1}}, 0);
        row("CUDA of both", NvCuda, {plainNvidia, plainAmd}, 1);
        row("CUDA of another kind in NVIDIA's place", NvCuda, {{0, 1, 1}}, 0);
        row("OptiX of plain NVIDIA", NvOptix, {plainNvidia}, 0);
        row("OptiX", NvOptix, {optix}, 1);
        row("OptiX of the second", NvOptix, {plainNvidia, optix}, 1);
        row("OptiX of the first", NvOptix, {optix, plainNvidia}, 1);
        row("OptiX goes by the mark, not the kind", NvOptix, {{2, 1, 0}}, 1);
        row("OptiX of AMD's ray tracing", NvOptix, {rayTracing}, 0);
        row("ray tracing of plain AMD", AmdRt, {plainAmd}, 0);
        row("ray tracing", AmdRt, {rayTracing}, 1);
        row("ray tracing of OptiX", AmdRt, {optix}, 0);
        row("ray tracing goes by the mark, not the kind", AmdRt, {{1, 0, 1}}, 1);
        row("any, NVIDIA", AnyGpu, {plainNvidia}, 1);
        row("any, AMD", AnyGpu, {plainAmd}, 1);
        row("the mark's own value", NvOptix, {{1, 200, 0}}, 200);
        row("the mark's own value, AMD", AmdRt, {{2, 0, 255}}, 255);
        row("the last mark counts", NvOptix, {{1, 5, 0}, {1, 7, 0}}, 7);
        row("a mark that is missing lowers nothing", NvOptix, {{1, 5, 0}, plainNvidia}, 5);
        row("CUDA before OptiX", NvCuda | NvOptix, {{1, 5, 0}}, 5);
        row("OptiX before ray tracing", NvOptix | AmdRt, {{1, 5, 6}}, 6);
        row("any after all", NvOptix | AmdRt | AnyGpu, {{1, 5, 6}}, 1);
        row("any after each record", NvOptix | AnyGpu, {{1, 5, 0}, {1, 6, 0}}, 1);
        row("a later record's CUDA", NvCuda | AmdRt, {{1, 0, 5}, plainNvidia}, 1);
        row("a later record's ray tracing", NvCuda | AmdRt, {plainNvidia, {2, 0, 5}}, 5);
        row("a query before the score", AnyGpu | Score, {plainAmd}, 1);
        row("a query's no before the score", NvOptix | Score, {plainNvidia}, 0);
    }

    void query() {
        QFETCH(int, questions);
        QFETCH(QVector<Gpu>, gpus);
        QFETCH(int, code);
        GpuInfoBlock list = listOf(gpus);
        list.cudaGpus[0].hasSpeed = list.amdGpus[0].hasSpeed = 1;
        list.cudaGpus[0].speedGps = list.amdGpus[0].speedGps = 55.0F;
        QCOMPARE(exitCode(asking(questions), list, runResult), code);
    }

    void onlyTheListsOwnRecordsCount() {
        GpuInfoBlock list = listOf({{1, 0, 0}});
        list.cudaGpus[1].optixCapable = 1;
        list.summary.optixCapable = 1;
        QCOMPARE(exitCode(asking(NvOptix), list, runResult), 0);
        list.onlyCuda = 1;
        list.amdCount = 1;
        list.amdGpus[0].amdRayTracing = 1;
        QCOMPARE(exitCode(asking(AmdRt), list, runResult), 0);
    }

    void withoutQuestionTheRunsResult() {
        const GpuInfoBlock list = listOf({{1, 1, 1}, {2, 1, 1}});
        QCOMPARE(exitCode(asking(0), list, runResult), runResult);
        QCOMPARE(exitCode(asking(0), list, 0), 0);
        CommandLine line;
        line.single = line.benchmark = line.verbose = true;
        QCOMPARE(exitCode(line, list, 0), 0);
    }

    void scoreOfTheFirst() {
        GpuInfoBlock list = listOf({{1, 1, 1}, {1, 0, 0}, {2, 0, 0}});
        list.cudaGpus[1].hasSpeed = list.amdGpus[0].hasSpeed = list.summary.hasSpeed = 1;
        list.cudaGpus[1].speedGps = list.amdGpus[0].speedGps = list.summary.speedGps = 30.0F;
        list.cudaGpus[0].speedGps = 20.0F;
        QCOMPARE(exitCode(asking(Score), list, runResult), 0);
        list.cudaGpus[0].hasSpeed = 1;
        QCOMPARE(exitCode(asking(Score), list, runResult), 20);
        list.cudaCount = 0;
        QCOMPARE(exitCode(asking(Score), list, runResult), 30);
        list.onlyCuda = 1; // so AMD's record is not in the list
        QCOMPARE(exitCode(asking(Score), list, runResult), 0);
        list.onlyCuda = 0;
        list.amdCount = 0;
        QCOMPARE(exitCode(asking(Score), list, runResult), 0);
    }

    void rounding_data() {
        const auto row = testColumns<float, int>("score", "code");
        constexpr float infinity = std::numeric_limits<float>::infinity();
        row("12.5", 12.5F, 13);
        row("12.49", 12.49F, 12);
        row("13.5", 13.5F, 14);
        row("0", 0.0F, 0);
        row("minus 0", -0.0F, 0);
        row("0.5", 0.5F, 1);
        row("0.49", 0.49F, 0);
        row("just below 0.5", 0.49999997F, 0);
        row("-0.5", -0.5F, -1);
        row("-0.49", -0.49F, 0);
        row("-12.5", -12.5F, -13);
        row("-12.49", -12.49F, -12);
        row("300", 300.4F, 300);
        row("8388607.5, by double", 8388607.5F, 8388608);
        row("16777215, by double", 16777215.0F, 16777215);
        row("largest that fits", 2147483520.0F, 2147483520);
        row("smallest that fits", -2147483520.0F, -2147483520);
        row("too large", 2147483648.0F, 0);
        row("too small", -2147483648.0F, 0);
        row("far too large", 1e30F, 0);
        row("infinite", infinity, 0);
        row("minus infinite", -infinity, 0);
        row("no number", std::numeric_limits<float>::quiet_NaN(), 0);
    }

    void rounding() {
        QFETCH(float, score);
        QFETCH(int, code);
        QCOMPARE(roundedScore(score), code);
        GpuInfoBlock list = listOf({{1, 0, 0}});
        list.cudaGpus[0].hasSpeed = 1;
        list.cudaGpus[0].speedGps = score;
        QCOMPARE(exitCode(asking(Score), list, runResult), code);
    }
};

QTEST_APPLESS_MAIN(TestExitCode)
#include "test_exitCode.moc"
