// What a scheduler can ask for: which features a list gives, and at which figure each step begins.
#include <limits>

#include <QRegularExpression>
#include <QTest>

#include "StatusReports.h"
#include "reader/status/featuresForm.h"

namespace {

/// A GPU that answers and has no figures.
GpuView plainGpu(const char* name = "", int kindCode = 0) {
    return with(gpuView(name, kindCode, "Other", 0), [](GpuView& gpu) { gpu.answering = true; });
}

GpuView gpuWithMemory(std::int32_t mebibytes) {
    return with(plainGpu(), [mebibytes](GpuView& gpu) { gpu.memoryTotalMiB = mebibytes; });
}

GpuView gpuWithScore(float gps) {
    return with(plainGpu(), [gps](GpuView& gpu) { gpu.speedGps = gps; });
}

QString lineOf(std::vector<GpuView> gpus) {
    return QString::fromStdString(featuresForm(freshReport(std::move(gpus))));
}

/// The last feature with this beginning; empty if there is none.
QString highest(const QString& line, const char* prefix) {
    const QStringList features = line.trimmed().split(',').filter(QLatin1String(prefix));
    return features.isEmpty() ? QString() : features.last();
}

} // namespace

class TestFeaturesForm : public QObject {
    Q_OBJECT

  private slots:
    void lines_data() {
        QTest::addColumn<StatusReport>("report");
        QTest::addColumn<QString>("line");
        const auto row = [](const char* name, std::vector<GpuView> gpus, const char* line) {
            QTest::newRow(name) << freshReport(std::move(gpus)) << line;
        };
        row("no GPU", {}, "\n");
        row("nothing known", {plainGpu()}, "qz_gpu\n");
        row("every feature", {busyGpu()},
            "qz_gpu,qz_nvcuda,qz_optix,qz_model_rtx4090,qz_vram_2g,qz_vram_4g,qz_vram_6g,qz_vram_8g,"
            "qz_vram_10g,qz_vram_12g,qz_vram_16g,qz_vram_20g,qz_vram_24g,qz_gps_1,qz_gps_2,qz_gps_5,"
            "qz_gps_10,qz_gps_20,qz_gps_50,qz_gps_100\n");
        row("one that does not answer", {amdGpu()}, "\n");
        row("one of two does not answer", {plainGpu("Radeon RX 7600", 2), busyGpu(), amdGpu()},
            "qz_gpu,qz_nvcuda,qz_optix,qz_model_rx7600,qz_model_rtx4090,qz_vram_2g,qz_vram_4g,qz_vram_6g,"
            "qz_vram_8g,qz_vram_10g,qz_vram_12g,qz_vram_16g,qz_vram_20g,qz_vram_24g,qz_gps_1,qz_gps_2,"
            "qz_gps_5,qz_gps_10,qz_gps_20,qz_gps_50,qz_gps_100\n");
        row("AMD with ray tracing",
            {with(plainGpu("AMD Radeon Pro W7900", 2), [](GpuView& gpu) { gpu.amdRayTracing = true; })},
            "qz_gpu,qz_amdrt,qz_model_w7900\n");
        row("NVIDIA without OptiX", {plainGpu("Tesla P4", 1)}, "qz_gpu,qz_nvcuda,qz_model_p4\n");
        row("two of one model", {plainGpu("NVIDIA L4", 1), plainGpu("NVIDIA L4", 1)},
            "qz_gpu,qz_nvcuda,qz_model_l4\n");
    }
    void lines() {
        QFETCH(StatusReport, report);
        QTEST(QString::fromStdString(featuresForm(report)), "line");
    }

    /// The memory that these cards report, and their nominal size.
    void memory_data() {
        QTest::addColumn<int>("mebibytes");
        QTest::addColumn<QString>("feature");
        const auto row = [](int mebibytes, const char* feature) {
            QTest::addRow("%d MiB", mebibytes) << mebibytes << feature;
        };
        row(-1, "");
        row(0, "");
        row(1907, "");
        row(1908, "qz_vram_2g");
        row(11264, "qz_vram_10g");
        row(15356, "qz_vram_16g");
        row(22888, "qz_vram_20g");
        row(22889, "qz_vram_24g");
        row(23034, "qz_vram_24g");
        row(24564, "qz_vram_24g");
        row(46068, "qz_vram_48g");
        row(81559, "qz_vram_80g");
        row(143771, "qz_vram_128g");
        row(std::numeric_limits<std::int32_t>::max(), "qz_vram_256g");
    }
    void memory() {
        QFETCH(int, mebibytes);
        QTEST(highest(lineOf({gpuWithMemory(mebibytes)}), "qz_vram_"), "feature");
    }

    void scores_data() {
        QTest::addColumn<float>("gps");
        QTest::addColumn<QString>("feature");
        const auto row = [](float gps, const char* feature) {
            QTest::addRow("%g", static_cast<double>(gps)) << gps << feature;
        };
        row(-3.0F, "");
        row(0.0F, "");
        row(0.99F, "");
        row(1.0F, "qz_gps_1");
        row(19.99F, "qz_gps_10");
        row(20.0F, "qz_gps_20");
        row(3.0e38F, "qz_gps_1000");
    }
    void scores() {
        QFETCH(float, gps);
        QTEST(highest(lineOf({gpuWithScore(gps)}), "qz_gps_"), "feature");
    }

    void stepsAreLowerBoundsOfTheBestGpu() {
        const QString line = lineOf({gpuWithScore(25.0F), gpuWithMemory(8192), gpuWithScore(5.0F)});
        QCOMPARE(line, QStringLiteral("qz_gpu,qz_vram_2g,qz_vram_4g,qz_vram_6g,qz_vram_8g,"
                                      "qz_gps_1,qz_gps_2,qz_gps_5,qz_gps_10,qz_gps_20\n"));
    }

    void models_data() {
        QTest::addColumn<QByteArray>("name");
        QTest::addColumn<QString>("token");
        const auto row = [](const QByteArray& name, const char* token) {
            QTest::addRow("%s", name.constData()) << name << token;
        };
        row("NVIDIA GeForce RTX 4090", "rtx4090");
        row("nvidia geforce rtx 4090", "rtx4090");
        row("NVIDIA GeForce RTX 3080 Laptop GPU", "rtx3080");
        row("NVIDIA RTX 6000 Ada Generation", "rtx6000ada");
        row("Tesla V100-SXM2-16GB", "v100_sxm2_16gb");
        row("AMD Radeon Pro W7900", "w7900");
        row("AMD Radeon RX 7900 XTX", "rx7900xtx");
        row("AMD Radeon(TM) Graphics", "radeongraphics");
        row("a=b,c&d|e[f]*2", "a_b_c_d_e_f_2");
        row("XYZ ABC", "xyzabc");
        row("--edge--", "edge");
        row("two\nlines\t\"quoted\"", "two_lines_quoted");
        row("G\xe9"
            "Force \xff\xfe gr\xc3\xb6\xc3\x9f"
            "er 9",
            "g_force_gr_er9");
        row("", "");
        row(" ,;", "");
    }
    void models() {
        QFETCH(QByteArray, name);
        QTEST(QString::fromStdString(modelToken(name.toStdString())), "token");
    }

    void everyFeatureIsOneWord() {
        for (int byte = 1; byte < 256; ++byte) {
            const char name[] = {'a', static_cast<char>(byte), 'b', '\0'};
            const QString line = lineOf({plainGpu(name)});
            QVERIFY2(QRegularExpression(QStringLiteral("\\Aqz_gpu,qz_model_a_?[a-z0-9]?b\n\\z"))
                         .match(line)
                         .hasMatch(),
                     qPrintable(line));
        }
    }
};

QTEST_GUILESS_MAIN(TestFeaturesForm)
#include "test_featuresForm.moc"
