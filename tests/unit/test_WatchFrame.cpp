// What the watched view shows at a size: lines of text and their meaning, without a terminal.
#include <clocale>

#include <QTest>

#include "StatusReports.h"
#include "reader/status/WatchFrame.h"
#include "reader/status/displayText.h"
#include "reader/status/graphLines.h"

namespace {

StatusReport machine(int gpus) {
    StatusReport report = freshReport();
    for (int i = 0; i < gpus; ++i)
        report.gpus.push_back(with(busyGpu(), [i](GpuView& gpu) {
            gpu.deviceIndex = i;
            gpu.usagePercent = i * 5;
            gpu.temperatureCelsius = 70 - i;
        }));
    return report;
}

WatchFrame show(const StatusReport& report, FrameSize size, const WatchView& view = {}) {
    WatchHistory history;
    for (int i = 0; i < 3; ++i)
        history.add(report);
    return layOut(report, history, view, size);
}

QStringList texts(const WatchFrame& frame) {
    QStringList lines;
    for (const TextLine& line : frame.lines)
        lines << QString::fromStdString(plainText(line));
    return lines;
}

/// The runs of this tone, each without blanks around it.
QStringList ofTone(const WatchFrame& frame, Tone tone) {
    QStringList found;
    for (const TextLine& line : frame.lines)
        for (const TextRun& run : line)
            if (const QString text = QString::fromStdString(run.text).trimmed();
                run.tone == tone && !text.isEmpty())
                found << text;
    return found;
}

WatchView viewOf(ViewBody body, int first = 0, ViewOrder order = ViewOrder::List) {
    WatchView view;
    view.body = body;
    view.first = first;
    view.order = order;
    return view;
}

} // namespace

class TestWatchFrame : public QObject {
    Q_OBJECT

  private slots:
    void initTestCase() { QVERIFY(std::setlocale(LC_CTYPE, "C.UTF-8") != nullptr); }

    void everySizeIsKept_data() {
        QTest::addColumn<int>("gpus");
        QTest::addColumn<int>("body");
        for (const int gpus : {0, 1, 16, 48})
            for (const ViewBody body : {ViewBody::Fitting, ViewBody::Table, ViewBody::Graphs})
                QTest::addRow("%d GPUs, %d", gpus, static_cast<int>(body)) << gpus << static_cast<int>(body);
    }
    void everySizeIsKept() {
        QFETCH(int, gpus);
        QFETCH(int, body);
        const StatusReport report = machine(gpus);
        for (const int columns : {1, 5, 20, 60, 80, 160, 241})
            for (const int rows : {1, 2, 3, 5, 10, 11, 24, 30, 50})
                for (const int first : {0, 1000}) {
                    const WatchFrame frame =
                        show(report, {columns, rows}, viewOf(static_cast<ViewBody>(body), first));
                    QCOMPARE(static_cast<int>(frame.lines.size()), rows);
                    for (const TextLine& line : frame.lines) {
                        int width = 0;
                        for (const TextRun& run : line)
                            width += displayText(run.text).columns;
                        QVERIFY2(width <= columns, plainText(line).c_str());
                    }
                }
    }

    void tableAt80By24() {
        const QStringList lines = texts(show(machine(16), {80, 24}));
        QCOMPARE(lines[0], QStringLiteral("16 GPUs, published 1.2 s ago"));
        QVERIFY2(lines[1].startsWith(" # KIND"), qPrintable(lines[1]));
        for (int i = 0; i < 16; ++i)
            QVERIFY2(lines[i + 2].startsWith(QStringLiteral("%1 Cuda-%2 ").arg(i, 2).arg(i)),
                     qPrintable(lines[i + 2]));
        QCOMPARE(lines.mid(18, 5), QStringList({"", "", "", "", ""}));
        QCOMPARE(lines[23],
                 QStringLiteral("q quit  s sort  g graphs  ? help  data 1.2 s old  arrows PgUp PgDn scroll"));
    }

    void whatDoesNotFitIsCounted() {
        const WatchFrame frame = show(machine(16), {60, 10});
        QCOMPARE(texts(frame).at(0), QStringLiteral("16 GPUs, published 1.2 s ago … 8 more"));
        QVERIFY(texts(frame).at(9).startsWith(" 7 "));
        QCOMPARE(frame.shown.gpus, 8);
        QCOMPARE(frame.shown.highestFirst, 8);
        QCOMPARE(texts(show(machine(16), {12, 10})).at(0), QStringLiteral("16… … 8 more").right(12));
        QCOMPARE(texts(show(machine(16), {8, 10})).at(0), QStringLiteral("16 GPUs…"));
    }

    void scrolled() {
        const QStringList lines = texts(show(machine(16), {60, 10}, viewOf(ViewBody::Fitting, 3)));
        QVERIFY(lines[1].startsWith(" # "));
        QVERIFY(lines[2].startsWith(" 3 ") && lines[9].startsWith("10 "));
        const QStringList end = texts(show(machine(16), {60, 10}, viewOf(ViewBody::Fitting, 99)));
        QVERIFY(end[2].startsWith(" 8 ") && end[9].startsWith("15 "));
    }

    void graphsAt200By50_data() {
        QTest::addColumn<int>("gpus");
        QTest::addColumn<int>("temperatures");
        QTest::newRow("1") << 1 << 1;
        QTest::newRow("8") << 8 << 8;
        QTest::newRow("16") << 16 << 0;
    }
    /// Every GPU has its graphs, and the last row above the keys is in use.
    void graphsAt200By50() {
        QFETCH(int, gpus);
        const WatchFrame frame = show(machine(gpus), {200, 50});
        QVERIFY(frame.shown.graphs);
        QCOMPARE(frame.shown.gpus, gpus);
        const QStringList lines = texts(frame);
        const QString all = lines.join('\n');
        QCOMPARE(all.count("load"), gpus);
        QCOMPARE(all.count("mem"), gpus);
        QTEST(all.count("temp"), "temperatures");
        QVERIFY2(!lines[48].isEmpty(), qPrintable(all));
        QVERIFY(lines[49].startsWith("q quit  s sort  g table  ? help"));
    }

    void graphsOnlyWhereAllFit() {
        QVERIFY(show(machine(9), {80, 30}).shown.graphs);
        QVERIFY(!show(machine(10), {80, 30}).shown.graphs);
        QVERIFY(show(machine(18), {160, 30}).shown.graphs);
        QVERIFY(!show(machine(1), {79, 30}).shown.graphs);
        QVERIFY(!show(machine(1), {80, 29}).shown.graphs);
        QVERIFY(!show(machine(0), {200, 50}).shown.graphs);
    }

    void graphsOrTableOnDemand() {
        const WatchFrame graphs = show(machine(16), {80, 24}, viewOf(ViewBody::Graphs, 7));
        QVERIFY(graphs.shown.graphs);
        QCOMPARE(graphs.shown.gpus, 7);
        QVERIFY(texts(graphs).at(2).startsWith(" 7 Cuda-7"));
        QVERIFY(texts(graphs).at(0).endsWith("… 9 more"));
        QVERIFY(!show(machine(16), {200, 50}, viewOf(ViewBody::Table)).shown.graphs);
    }

    void sorted_data() {
        QTest::addColumn<int>("order");
        QTest::addColumn<QString>("places");
        QTest::newRow("list") << static_cast<int>(ViewOrder::List) << "0123";
        QTest::newRow("load") << static_cast<int>(ViewOrder::Load) << "0123";
        QTest::newRow("temperature") << static_cast<int>(ViewOrder::Temperature) << "1023";
        QTest::newRow("memory") << static_cast<int>(ViewOrder::Memory) << "1023";
    }
    /// The highest first; GPUs without the figure last, in the list's order.
    void sorted() {
        QFETCH(int, order);
        StatusReport report = mixedReport();
        report.gpus[1].temperatureCelsius = 61;
        report.gpus[1].memoryUsedMiB = 8192;
        const WatchView view = viewOf(ViewBody::Table, 0, static_cast<ViewOrder>(order));
        const QStringList lines = texts(show(report, {100, 24}, view));
        QString places;
        for (int i = 2; i < 6; ++i)
            places += lines[i][0];
        QTEST(places, "places");
        QCOMPARE(lines[23].contains(QStringLiteral("s sort:%1").arg(orderName(view.order))),
                 view.order != ViewOrder::List);
    }

    void meanings() {
        StatusReport report = machine(4);
        report.gpus[0].temperatureCelsius = 84;
        report.gpus[1].temperatureCelsius = 85;
        report.gpus[2].memoryUsedMiB = 23347; // 95 % of 24576 MiB is 23347.2
        report.gpus[3].memoryUsedMiB = 23348;
        report.gpus[3].answering = false;
        const WatchFrame frame = show(report, {120, 24});
        QCOMPARE(ofTone(frame, Tone::Hot), QStringList("85C"));
        QCOMPARE(ofTone(frame, Tone::Full), QStringList({"23348/24576 MiB", "[##########]"}));
        QCOMPARE(ofTone(frame, Tone::Lost), QStringList("no answer"));
        QCOMPARE(ofTone(frame, Tone::Stale), QStringList());
        QCOMPARE(ofTone(show(staleReport(), {80, 24}), Tone::Stale),
                 QStringList("STALE: no companion keeps the list fresh"));
        QCOMPARE(ofTone(show(missingReport(), {80, 24}), Tone::Stale), QStringList("there is no segment"));
    }

    void lowestLine_data() {
        QTest::addColumn<StatusReport>("report");
        QTest::addColumn<int>("columns");
        QTest::addColumn<QString>("line");
        const QString keys = QStringLiteral("q quit  s sort  g graphs  ? help");
        StatusReport scoreless = machine(1);
        scoreless.gpus[0].speedGps.reset();
        QTest::newRow("with a score") << machine(1) << 72 << keys + "  data 1.2 s old";
        QTest::newRow("with room") << machine(1) << 80 << keys + "  data 1.2 s old  arrows PgUp PgDn scroll";
        QTest::newRow("without a score")
            << scoreless << 80 << keys + "  data 1.2 s old  no score: qzGpuInfo -bench";
        QTest::newRow("no GPU") << missingReport() << 60 << keys + "  arrows PgUp PgDn scroll";
        QTest::newRow("too many") << machine(48) << 80 << keys + "  arrows PgUp PgDn scroll  data 1.2 s old";
        QTest::newRow("narrow") << scoreless << 20 << "q quit  s sort";
    }
    void lowestLine() {
        QFETCH(StatusReport, report);
        QFETCH(int, columns);
        QTEST(texts(show(report, {columns, 11}, viewOf(ViewBody::Table))).constLast(), "line");
        QVERIFY(!texts(show(report, {columns, 10})).constLast().contains("quit"));
    }

    void onlyAscii() {
        StatusReport report = machine(8);
        report.gpus[0].name = "größere 日本 Karte";
        for (const FrameSize size :
             {FrameSize{200, 50, true}, FrameSize{60, 8, true}, FrameSize{20, 24, true}}) {
            const QStringList lines = texts(show(report, size));
            for (const QString& line : lines)
                for (const QChar character : line)
                    QVERIFY2(character.unicode() >= 0x20 && character.unicode() < 0x7F, qPrintable(line));
        }
        QCOMPARE(texts(show(report, {60, 7, true})).at(0),
                 QStringLiteral("8 GPUs, published 1.2 s ago ... 3 more"));
        QVERIFY(texts(show(report, {200, 50, true})).at(2).contains("gr??ere ???? Karte"));
    }

    void help() {
        WatchView view;
        view.help = true;
        const QString text = texts(show(machine(16), {80, 24}, view)).join('\n');
        for (const char* key : {"  q ", "arrows", "  s ", "  g ", "  ? "})
            QVERIFY2(text.contains(key), key);
        QVERIFY(!text.contains("Cuda-"));
    }

    void graphs_data() {
        QTest::addColumn<bool>("ascii");
        QTest::addColumn<int>("rows");
        QTest::addColumn<QStringList>("lines");
        QTest::newRow("blocks in one row") << false << 1 << QStringList("  ▁▁ ▄█");
        QTest::newRow("blocks in two rows") << false << 2 << QStringList({"      █", "  ▁▁ ██"});
        QTest::newRow("letters in one row") << true << 1 << QStringList("  .. :#");
        QTest::newRow("letters in two rows") << true << 2 << QStringList({"      #", "  .. ##"});
        QTest::newRow("no row") << true << 0 << QStringList();
    }
    /// The latest at the right; 0 is a reading and shows, a gap does not.
    void graphs() {
        QFETCH(bool, ascii);
        QFETCH(int, rows);
        const std::vector<std::optional<GraphPoint>> points{GraphPoint{-1.0}, GraphPoint{0.0}, std::nullopt,
                                                            GraphPoint{0.5}, GraphPoint{7.0}};
        QStringList lines;
        for (const TextLine& line : graphLines(points, 7, rows, ascii)) {
            QString text;
            for (const TextRun& run : line)
                text += QString::fromStdString(run.text);
            lines << text;
        }
        QTEST(lines, "lines");
        QCOMPARE(plainText(graphLines(points, 2, 1, true).front()), std::string(":#"));
    }

    /// The history of a GPU without any figure stays empty.
    void noFigureNoMark() {
        const QString text = texts(show(freshReport({silentGpu()}), {100, 40})).join('\n');
        QVERIFY(text.contains("load"));
        QVERIFY(!text.contains(QStringLiteral("▁")));
    }
};

QTEST_GUILESS_MAIN(TestWatchFrame)
#include "test_WatchFrame.moc"
