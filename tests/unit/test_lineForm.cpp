// One line per GPU, for a log.
#include <clocale>

#include <QTest>

#include "StatusReports.h"
#include "reader/status/forms.h"

class TestLineForm : public QObject {
    Q_OBJECT

  private slots:
    void initTestCase() { QVERIFY(std::setlocale(LC_CTYPE, "C.UTF-8") != nullptr); }

    void lines_data() {
        QTest::addColumn<StatusReport>("report");
        QTest::addColumn<QString>("lines");
        const auto row = [](const char* name, const StatusReport& report, const char* lines) {
            QTest::newRow(name) << report << QString::fromUtf8(lines);
        };
        row("four GPUs", mixedReport(),
            "NOW state=ok age=1.2s gpu=0 kind=Cuda-0 load=45% temp=60C mem=1024/24576MiB speed=123.45 "
            "name=NVIDIA GeForce RTX 4090\n"
            "NOW state=ok age=1.2s gpu=1 kind=Cuda-1 load=0% temp=0C mem=0/8192MiB speed=0 "
            "name=NVIDIA Tesla\n"
            "NOW state=ok age=1.2s gpu=2 kind=AMD-0 load=- temp=- mem=-/16384MiB speed=- name=Navi 31\n"
            "NOW state=ok age=1.2s gpu=3 kind=Other--1 load=- temp=- mem=- speed=- name=Bare\n");
        row("no GPU", freshReport(), "NOW state=ok age=1.2s gpus=0 the GPU list was read\n");
        row("stale", staleReport(),
            "NOW state=stale age=1.2s gpu=0 kind=AMD-0 load=- temp=- mem=-/16384MiB speed=- name=Navi 31\n");
        row("measuring", measuringReport(),
            "NOW state=ok age=100.0s measuring=yes gpus=0 the GPU list was read\n");
        row("no segment", missingReport(), "NOW state=missing gpus=0 there is no segment\n");
        row("unknown kind", freshReport({unknownGpu()}),
            "NOW state=ok age=1.2s gpu=0 kind=unknown(7)-3 load=- temp=- mem=- speed=- name=New\n");
        row("memory of unknown size",
            freshReport({with(silentGpu(), [](GpuView& gpu) { gpu.memoryUsedMiB = 5; })}),
            "NOW state=ok age=1.2s gpu=0 kind=Other--1 load=- temp=- mem=5/-MiB speed=- name=Bare\n");
        row("a memory of 1 MiB, empty",
            freshReport({with(silentGpu(),
                              [](GpuView& gpu) {
                                  gpu.memoryTotalMiB = 1;
                                  gpu.memoryUsedMiB = 0;
                              })}),
            "NOW state=ok age=1.2s gpu=0 kind=Other--1 load=- temp=- mem=0/1MiB speed=- name=Bare\n");
        row("a name with a line break",
            freshReport({with(amdGpu(), [](GpuView& gpu) { gpu.name = "a\nb\x1b[31m"; })}),
            "NOW state=ok age=1.2s gpu=0 kind=AMD-0 load=- temp=- mem=-/16384MiB speed=- "
            "name=a\uFFFDb\uFFFD[31m\n");
        row("the oldest data",
            with(freshReport(), [](StatusReport& report) { report.ageSeconds = 123456789.96; }),
            "NOW state=ok age=123456790.0s gpus=0 the GPU list was read\n");
    }
    void lines() {
        QFETCH(StatusReport, report);
        QTEST(QString::fromStdString(lineForm(report, "NOW")), "lines");
    }
};

QTEST_GUILESS_MAIN(TestLineForm)
#include "test_lineForm.moc"
