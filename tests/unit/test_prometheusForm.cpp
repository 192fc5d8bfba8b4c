// The metrics that a monitoring system scrapes: every family, and which GPUs have a series in it.
#include <cfloat>

#include <QTest>

#include "StatusReports.h"
#include "reader/status/forms.h"

namespace {

/// A process is attached, yet the list is too old.
StatusReport attachedReport() {
    return with(staleReport(), [](StatusReport& report) { report.writerAttached = true; });
}

/// The lines that do not depend on the GPUs, except the data's age.
QByteArray aboutCompanion(bool up, bool attached, bool measuring = false) {
    return "# HELP qzgpuinfo_build_info Version of the qzGpuStatus that made this text; the value is always "
           "1.\n"
           "# TYPE qzgpuinfo_build_info gauge\n"
           "qzgpuinfo_build_info{version=\"" QZGPUINFO_VERSION "\"} 1\n"
           "# HELP qzgpuinfo_up 1 while a companion publishes fresh data, else 0.\n"
           "# TYPE qzgpuinfo_up gauge\n"
           "qzgpuinfo_up " +
           QByteArray::number(up) +
           "\n# HELP qzgpuinfo_writer_attached 1 while some process keeps the published list alive.\n"
           "# TYPE qzgpuinfo_writer_attached gauge\n"
           "qzgpuinfo_writer_attached " +
           QByteArray::number(attached) +
           "\n# HELP qzgpuinfo_measuring 1 while a companion measures the GPUs' speed, which delays its "
           "data.\n"
           "# TYPE qzgpuinfo_measuring gauge\n"
           "qzgpuinfo_measuring " +
           QByteArray::number(measuring) + "\n";
}

const char age[] = R"(# HELP qzgpuinfo_data_age_seconds Age of the published data when this text was made.
# TYPE qzgpuinfo_data_age_seconds gauge
qzgpuinfo_data_age_seconds 1.250
# HELP qzgpuinfo_data_timestamp_seconds When the data were published, in seconds since 1970.
# TYPE qzgpuinfo_data_timestamp_seconds gauge
qzgpuinfo_data_timestamp_seconds 1700000000.500
)";

const char count[] = R"(# HELP qzgpuinfo_gpus GPUs in the published list.
# TYPE qzgpuinfo_gpus gauge
qzgpuinfo_gpus )";

const char families[] = R"(# HELP qzgpuinfo_gpu_info A GPU's name; the value is always 1.
# TYPE qzgpuinfo_gpu_info gauge
qzgpuinfo_gpu_info{gpu="0",kind="Cuda",device="0",name="NVIDIA GeForce RTX 4090"} 1
qzgpuinfo_gpu_info{gpu="1",kind="Cuda",device="1",name="NVIDIA Tesla"} 1
qzgpuinfo_gpu_info{gpu="2",kind="AMD",device="0",name="Navi 31"} 1
qzgpuinfo_gpu_info{gpu="3",kind="Other",device="-1",name="Bare"} 1
# HELP qzgpuinfo_gpu_figures_valid 1 while the GPU answered in the latest update cycle.
# TYPE qzgpuinfo_gpu_figures_valid gauge
qzgpuinfo_gpu_figures_valid{gpu="0",kind="Cuda",device="0"} 1
qzgpuinfo_gpu_figures_valid{gpu="1",kind="Cuda",device="1"} 1
qzgpuinfo_gpu_figures_valid{gpu="2",kind="AMD",device="0"} 0
qzgpuinfo_gpu_figures_valid{gpu="3",kind="Other",device="-1"} 0
# HELP qzgpuinfo_gpu_opencl_matched 1 when an OpenCL device was found for the GPU.
# TYPE qzgpuinfo_gpu_opencl_matched gauge
qzgpuinfo_gpu_opencl_matched{gpu="0",kind="Cuda",device="0"} 1
qzgpuinfo_gpu_opencl_matched{gpu="1",kind="Cuda",device="1"} 0
qzgpuinfo_gpu_opencl_matched{gpu="2",kind="AMD",device="0"} 0
qzgpuinfo_gpu_opencl_matched{gpu="3",kind="Other",device="-1"} 0
# HELP qzgpuinfo_gpu_optix_capable 1 when the GPU qualifies for OptiX.
# TYPE qzgpuinfo_gpu_optix_capable gauge
qzgpuinfo_gpu_optix_capable{gpu="0",kind="Cuda",device="0"} 1
qzgpuinfo_gpu_optix_capable{gpu="1",kind="Cuda",device="1"} 0
qzgpuinfo_gpu_optix_capable{gpu="2",kind="AMD",device="0"} 0
qzgpuinfo_gpu_optix_capable{gpu="3",kind="Other",device="-1"} 0
# HELP qzgpuinfo_gpu_amd_ray_tracing 1 when an AMD GPU offers ray tracing through OpenCL.
# TYPE qzgpuinfo_gpu_amd_ray_tracing gauge
qzgpuinfo_gpu_amd_ray_tracing{gpu="0",kind="Cuda",device="0"} 0
qzgpuinfo_gpu_amd_ray_tracing{gpu="1",kind="Cuda",device="1"} 0
qzgpuinfo_gpu_amd_ray_tracing{gpu="2",kind="AMD",device="0"} 1
qzgpuinfo_gpu_amd_ray_tracing{gpu="3",kind="Other",device="-1"} 0
# HELP qzgpuinfo_gpu_usage_ratio Share of the time in which the GPU was busy, 0 to 1.
# TYPE qzgpuinfo_gpu_usage_ratio gauge
qzgpuinfo_gpu_usage_ratio{gpu="0",kind="Cuda",device="0"} 0.45
qzgpuinfo_gpu_usage_ratio{gpu="1",kind="Cuda",device="1"} 0.00
# HELP qzgpuinfo_gpu_temperature_celsius The GPU's temperature.
# TYPE qzgpuinfo_gpu_temperature_celsius gauge
qzgpuinfo_gpu_temperature_celsius{gpu="0",kind="Cuda",device="0"} 60
qzgpuinfo_gpu_temperature_celsius{gpu="1",kind="Cuda",device="1"} 0
# HELP qzgpuinfo_gpu_memory_total_bytes Size of the GPU's memory.
# TYPE qzgpuinfo_gpu_memory_total_bytes gauge
qzgpuinfo_gpu_memory_total_bytes{gpu="0",kind="Cuda",device="0"} 25769803776
qzgpuinfo_gpu_memory_total_bytes{gpu="1",kind="Cuda",device="1"} 8589934592
qzgpuinfo_gpu_memory_total_bytes{gpu="2",kind="AMD",device="0"} 17179869184
# HELP qzgpuinfo_gpu_memory_used_bytes Used part of the GPU's memory.
# TYPE qzgpuinfo_gpu_memory_used_bytes gauge
qzgpuinfo_gpu_memory_used_bytes{gpu="0",kind="Cuda",device="0"} 1073741824
qzgpuinfo_gpu_memory_used_bytes{gpu="1",kind="Cuda",device="1"} 0
# HELP qzgpuinfo_gpu_memory_free_bytes Free part of the GPU's memory.
# TYPE qzgpuinfo_gpu_memory_free_bytes gauge
qzgpuinfo_gpu_memory_free_bytes{gpu="0",kind="Cuda",device="0"} 24696061952
qzgpuinfo_gpu_memory_free_bytes{gpu="1",kind="Cuda",device="1"} 8589934592
# HELP qzgpuinfo_gpu_benchmark_score Compute speed by the OpenCL benchmark, in GPS.
# TYPE qzgpuinfo_gpu_benchmark_score gauge
qzgpuinfo_gpu_benchmark_score{gpu="0",kind="Cuda",device="0"} 123.45
qzgpuinfo_gpu_benchmark_score{gpu="1",kind="Cuda",device="1"} 0
)";

} // namespace

class TestPrometheusForm : public QObject {
    Q_OBJECT

  private slots:
    void expositions_data() {
        QTest::addColumn<StatusReport>("report");
        QTest::addColumn<QString>("text");
        const auto row = [](const char* name, const StatusReport& report, const QByteArray& text) {
            QTest::newRow(name) << report << QString::fromUtf8(text);
        };
        row("four GPUs", mixedReport(), aboutCompanion(true, true) + age + count + "4\n" + families);
        row("no GPU", freshReport(), aboutCompanion(true, true) + age + count + "0\n");
        row("measuring", with(measuringReport(), [](StatusReport& report) { report.ageSeconds = 1.25; }),
            aboutCompanion(true, true, true) + age + count + "0\n");
        row("stale", staleReport(), aboutCompanion(false, false) + age);
        row("attached and too old", attachedReport(), aboutCompanion(false, true) + age);
        row("no segment", missingReport(), aboutCompanion(false, false));
    }
    void expositions() {
        QFETCH(StatusReport, report);
        QTEST(QString::fromStdString(prometheusForm(report)), "text");
    }

    void lines_data() {
        QTest::addColumn<StatusReport>("report");
        QTest::addColumn<QString>("line");
        const auto row = [](const char* name, const auto& edit, const char* line) {
            QTest::newRow(name) << freshReport({with(amdGpu(), edit)})
                                << QString::fromUtf8(line).replace("{}",
                                                                   R"({gpu="0",kind="AMD",device="0"})");
        };
        row(
            "unknown kind", [](GpuView& gpu) { gpu = unknownGpu(); },
            "gpu_info{gpu=\"0\",kind=\"unknown(7)\",device=\"3\",name=\"New\"} 1");
        row("load below zero", [](GpuView& gpu) { gpu.usagePercent = -5; }, "gpu_usage_ratio{} -0.05");
        row(
            "the highest load", [](GpuView& gpu) { gpu.usagePercent = INT32_MAX; },
            "gpu_usage_ratio{} 21474836.47");
        row("frost", [](GpuView& gpu) { gpu.temperatureCelsius = -40; }, "gpu_temperature_celsius{} -40");
        row(
            "the largest memory", [](GpuView& gpu) { gpu.memoryTotalMiB = INT32_MAX; },
            "gpu_memory_total_bytes{} 2251799812636672");
        row(
            "memory below zero", [](GpuView& gpu) { gpu.memoryUsedMiB = -1; },
            "gpu_memory_used_bytes{} -1048576");
        row(
            "the highest score", [](GpuView& gpu) { gpu.speedGps = FLT_MAX; },
            "gpu_benchmark_score{} 3.4028235e+38");
    }
    void lines() {
        QFETCH(StatusReport, report);
        QFETCH(QString, line);
        const QString text = QString::fromStdString(prometheusForm(report));
        QVERIFY2(text.contains("\nqzgpuinfo_" + line + "\n"), qPrintable(text));
    }

    void names_data() {
        QTest::addColumn<QByteArray>("name");
        QTest::addColumn<QString>("label");
        const auto row = [](const char* name, const char* bytes, const char* label) {
            QTest::newRow(name) << QByteArray(bytes) << QString::fromUtf8(label);
        };
        row("empty", "", "");
        row("quotes", "a \"b\" 'c'", "a \\\"b\\\" 'c'");
        row("backslash", R"(a\n)", R"(a\\n)");
        row("line break", "a\nb", "a\uFFFDb");
        row("lowest control characters", "\x01\x1b\x1f ", "\uFFFD\uFFFD\uFFFD ");
        row("delete", "~\x7f", "~\uFFFD");
        row("C1 control characters", "\xc2\x80\xc2\x9f\xc2\xa0", "\uFFFD\uFFFD\u00A0");
        row("two, three and four bytes", "ß€😀", "ß€😀");
        row("no UTF-8", "\xff!\xe2\x82", "\uFFFD!\uFFFD");
    }
    void names() {
        QFETCH(QByteArray, name);
        QFETCH(QString, label);
        const StatusReport report =
            freshReport({with(amdGpu(), [&](GpuView& gpu) { gpu.name = name.toStdString(); })});
        const QString text = QString::fromStdString(prometheusForm(report));
        QVERIFY2(text.contains(",name=\"" + label + "\"} 1\n"), qPrintable(text));
    }

    void aFamilyThatNoGpuHas() {
        const std::string text = prometheusForm(freshReport({silentGpu()}));
        for (const char* family : {"usage_ratio", "temperature_celsius", "memory_total_bytes",
                                   "memory_used_bytes", "memory_free_bytes", "benchmark_score"})
            QVERIFY2(text.find(family) == std::string::npos, family);
    }
};

QTEST_GUILESS_MAIN(TestPrometheusForm)
#include "test_prometheusForm.moc"
