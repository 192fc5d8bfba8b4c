// What keys do to the watched view, and what it remembers of earlier readings.
#include <QTest>

#include "StatusReports.h"
#include "reader/status/WatchHistory.h"
#include "reader/status/WatchView.h"

namespace {

const ShownPart tenOfTwenty{10, 10, 1, false};

} // namespace

class TestWatchView : public QObject {
    Q_OBJECT

  private slots:
    void scrolling_data() {
        QTest::addColumn<int>("key");
        QTest::addColumn<int>("from");
        QTest::addColumn<int>("to");
        const auto row = [](const char* name, Key key, int from, int to) {
            QTest::newRow(name) << static_cast<int>(key) << from << to;
        };
        row("down", Key::Down, 0, 1);
        row("down at the end", Key::Down, 10, 10);
        row("up", Key::Up, 5, 4);
        row("up at the start", Key::Up, 0, 0);
        row("page down", Key::PageDown, 0, 10);
        row("page down near the end", Key::PageDown, 3, 10);
        row("page up", Key::PageUp, 10, 0);
        row("page up near the start", Key::PageUp, 3, 0);
        row("another key", Key::Other, 3, 3);
        row("order", Key::Order, 3, 0);
    }
    void scrolling() {
        QFETCH(int, key);
        QFETCH(int, from);
        WatchView view;
        view.first = from;
        QVERIFY(applyKey(static_cast<Key>(key), view, tenOfTwenty));
        QTEST(view.first, "to");
    }

    void rowsOfAGrid() {
        WatchView view;
        const ShownPart grid{4, 6, 2, true};
        applyKey(Key::Down, view, grid);
        QCOMPARE(view.first, 2);
        applyKey(Key::PageDown, view, grid);
        QCOMPARE(view.first, 6);
        applyKey(Key::Up, view, grid);
        QCOMPARE(view.first, 4);
    }

    void orders() {
        WatchView view;
        for (const ViewOrder order :
             {ViewOrder::Load, ViewOrder::Temperature, ViewOrder::Memory, ViewOrder::List, ViewOrder::Load}) {
            applyKey(Key::Order, view, tenOfTwenty);
            QVERIFY(view.order == order);
        }
    }

    /// From what is seen, whether it was asked for or not.
    void bodies() {
        WatchView view;
        ShownPart shown = tenOfTwenty;
        applyKey(Key::Body, view, shown);
        QVERIFY(view.body == ViewBody::Graphs);
        shown.graphs = true;
        applyKey(Key::Body, view, shown);
        QVERIFY(view.body == ViewBody::Table);
    }

    void help() {
        WatchView view;
        applyKey(Key::Help, view, tenOfTwenty);
        QVERIFY(view.help);
        QVERIFY(applyKey(Key::Order, view, tenOfTwenty));
        QVERIFY(!view.help);
        QVERIFY(view.order == ViewOrder::List);
        applyKey(Key::Help, view, tenOfTwenty);
        QVERIFY(!applyKey(Key::Quit, view, tenOfTwenty));
    }

    void samples() {
        WatchHistory history;
        const StatusReport report = mixedReport();
        QVERIFY(history.of(report, 0).empty());
        history.add(report);
        const Sample busy = history.of(report, 0).back();
        QCOMPARE(busy.load.value_or(-1), 0.45);
        QCOMPARE(busy.memory.value_or(-1), 1024.0 / 24576.0);
        QCOMPARE(busy.temperature.value_or(-1), 60.0);
        const Sample idle = history.of(report, 1).back();
        QCOMPARE(idle.load.value_or(-1), 0.0);
        const Sample silent = history.of(report, 2).back();
        QVERIFY(!silent.load && !silent.memory && !silent.temperature);
    }

    void gapsWhileNotFresh() {
        WatchHistory history;
        const StatusReport report = freshReport({busyGpu()});
        history.add(report);
        history.add(with(report, [](StatusReport& stale) { stale.state = ReportState::Stale; }));
        history.add(missingReport());
        history.add(report);
        const auto& samples = history.of(report, 0);
        QCOMPARE(static_cast<int>(samples.size()), 4);
        QVERIFY(samples[0].load && !samples[1].load && !samples[2].load && samples[3].load);
    }

    /// Another GPU in the same place does not inherit the history, and it does not grow without end.
    void forgets() {
        WatchHistory history;
        const StatusReport one = freshReport({busyGpu()});
        const StatusReport other = freshReport({idleGpu()});
        history.add(one);
        history.add(other);
        QVERIFY(history.of(one, 0).empty());
        QCOMPARE(static_cast<int>(history.of(other, 0).size()), 1);
        for (std::size_t i = 0; i < WatchHistory::longest + 10; ++i)
            history.add(other);
        QCOMPARE(history.of(other, 0).size(), WatchHistory::longest);
    }

    void twoOfOneName() {
        WatchHistory history;
        const StatusReport report = freshReport({busyGpu(), busyGpu()});
        history.add(report);
        QCOMPARE(static_cast<int>(history.of(report, 0).size()), 1);
        QCOMPARE(static_cast<int>(history.of(report, 1).size()), 1);
    }
};

QTEST_GUILESS_MAIN(TestWatchView)
#include "test_WatchView.moc"
