// The table of figures: all of the record, by their bytes, and how two values combine.
#include <limits>

#include <QTest>

#include "gpu/GpuFigures.h"

class TestGpuFigures : public QObject {
    Q_OBJECT

  private slots:
    /// A report's line per figure in the order of the report, with the offsets of its marker and its value.
    void rows() {
        const GpuDevice gpu;
        const auto offset = [&gpu](const auto& field) {
            return QString::number(reinterpret_cast<const char*>(&field) -
                                   reinterpret_cast<const char*>(&gpu));
        };
        QStringList rows;
        walkFigures([&](const auto& figure) {
            rows << offset(gpu.*figure.marker) + ' ' + offset(gpu.*figure.value) + ' ' +
                        QString::number(double(figure.summaryStart)) + figure.reportLine;
        });
        QCOMPARE(
            rows,
            QStringList({"112 116 0    %1: Gpu Usage:   %2 %", "84 88 0    %1: Temperature: %2 C",
                         "92 96 65535    %1: Mem Total:   %2 Mb", "100 104 0    %1: Mem Used:    %2 Mb",
                         "100 108 65535    %1: Mem Free:    %2 Mb", "120 124 0    %1: Speed:       %2 GPS"}));
    }

    void combining() {
        constexpr auto most = std::numeric_limits<std::int32_t>::max();
        constexpr auto least = std::numeric_limits<std::int32_t>::min();
        QCOMPARE(wrappingSum(60, 75), 135);
        QCOMPARE(wrappingSum(most, 1), least);
        QCOMPARE(wrappingSum(least, -1), most);
        QCOMPARE(sum(1.25F, 0.5F), 1.75F);
        QCOMPARE(highest(-5, -7), -5);
        QCOMPARE(highest(least, most), most);
        QCOMPARE(lowest(-5, -7), -7);
        QCOMPARE(lowest(least, most), least);
    }
};

QTEST_APPLESS_MAIN(TestGpuFigures)
#include "test_GpuFigures.moc"
