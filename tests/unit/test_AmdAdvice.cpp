// Advice that no test machine triggers; the rest is tested with its machines.
#include <QTest>

#include "amd/AmdAdvice.h"
#include "tests/unit/testRows.h"

class TestAmdAdvice : public QObject {
    Q_OBJECT

  private slots:
    void noMatchingDevice_data() {
        // buses: of the candidates; -1000: unknown
        const auto row = testColumns<QList<int>, QStringList>("buses", "listed");
        row("no candidate", QList<int>(), QStringList("  -> No OpenCL GPU devices were found at all."));
        row("each kind of candidate", {0x0B, -1000, -0x76},
            QStringList{"  -> Available OpenCL devices:", "     'gfx %1' on PCI bus 0xb",
                        "     'gfx %1' (no PCI bus info)", "     'gfx %1' on PCI bus 0xffffff8a"});
    }

    void noMatchingDevice() {
        QFETCH(QList<int>, buses);
        QFETCH(QStringList, listed);
        std::vector<AmdOclCandidate> candidates;
        for (const int bus : buses)
            candidates.push_back({nullptr, "gfx %1", bus != -1000, bus == -1000 ? 0 : bus});
        const QStringList expected =
            QStringList{"AMD GPU 'Radeon %2' (PCI bus 0xc1): no matching OpenCL device found.",
                        "  -> Benchmark will not be available for this GPU."} +
            listed +
            QStringList{"  -> Possible fixes:", "     Ubuntu:  sudo apt install mesa-opencl-icd",
                        "     Rocky 9: sudo dnf install mesa-libOpenCL",
                        "     Check /etc/OpenCL/vendors/ for missing .icd files",
                        "     Run 'clinfo' to see what OpenCL sees"};
        QCOMPARE(AmdAdvice::noMatchingDevice("Radeon %2", 0xC1, candidates), expected);
    }
};

QTEST_APPLESS_MAIN(TestAmdAdvice)
#include "test_AmdAdvice.moc"
